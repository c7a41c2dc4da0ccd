// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The vertical camera's pipeline over a camera whose frames are the test's.
#ifndef TESTS_VERTICAL_CAMERA_SUPPORT_HPP
#define TESTS_VERTICAL_CAMERA_SUPPORT_HPP

#include <array>
#include <string>

#include "test_camera.hpp"
#include "vertical_camera_pipeline.hpp"

/** A small, fast camera; fields may be changed before it is made. */
VornCameraParameters small_camera ();

inline constexpr std::array vision_bins = {"condor-bin", "precise-hovering-bin", "precise-home-bin",
                                           "magic-carpet-bin"};

/** A populated pipeline. Drops the references that switching keeps, so that no leak is hidden. */
class VerticalPipeline
{
public:
  explicit VerticalPipeline (const VornCameraParameters &parameters = small_camera (),
                             SelmacData *selmacdata = nullptr);
  ~VerticalPipeline ();
  VerticalPipeline (const VerticalPipeline &) = delete;
  VerticalPipeline &operator= (const VerticalPipeline &) = delete;

  GstBin *bin () const { return GST_BIN (pipeline_.get ()); }
  VornCamera *camera () const { return camera_.get (); }
  /** Borrowed. */
  GstElement *child (const std::string &name) const;
  /** To PLAYING; live pipelines get there at once. */
  bool play () const;
  void stop () const { gst_element_set_state (pipeline_.get (), GST_STATE_NULL); }
  void switch_carpet (bool active);
  /** Into the camera, when its frames are pushed. */
  void push (GstBuffer *buffer) const;
  /** A frame of a small camera with this number. */
  void push_frame (guint64 number) const;
  size_t tee_pads () const;
  bool carpet_is_linked () const;

private:
  vorn::Ref<VornCamera> camera_;
  vorn::Ref<GstElement> pipeline_;
  unsigned switches_ = 0;
};

#endif
