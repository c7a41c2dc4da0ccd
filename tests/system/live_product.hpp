// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The real product, set up as the host does it, streaming and recording.
#ifndef TESTS_LIVE_PRODUCT_HPP
#define TESTS_LIVE_PRODUCT_HPP

#include <mutex>
#include <string>
#include <vector>

#include "main_context.hpp"
#include "product_fixture.hpp"
#include "temp_dir.hpp"
#include <vorn/gst_raii.hpp>
#include <vorn/gst_view.h>

/** The rate of the tests' camera: one that every mode table has, with ticks of 1/48000 s. */
constexpr VornFramerate live_rate = {24000, 1001};

class LiveProduct : public ProductFixture
{
protected:
  struct RecordEvent {
    guint event;
    std::string filename;
    std::string error;
  };

  /** camera: address of a simulated front camera; empty: a test pattern. */
  void start (const std::string &camera, bool simple = true, VornResolution sensor = {5344, 3200});
  void TearDown () override;
  /** Another product, to be started as the first one was. */
  void start_again ();

  GstElement *find (const char *pipeline, const char *factory) const;
  VornGstViewStatistics statistics () const;
  bool stream ();
  bool wait_for_stream (guint64 units);
  bool wait_for_recording (guint64 units);
  /** Waits for the next event but for PREPARED; another one fails the test. */
  RecordEvent wait_for_event (guint event);
  /** The units of the stream from now on. */
  void collect_units ();
  std::vector<vorn::Ref<GstSample>> take_units ();

  TempDir media_;
  std::unique_ptr<Configuration> configuration_;
  VornVirtualCamera *camera_ = nullptr;
  VornView *view_ = nullptr;
  std::vector<RecordEvent> events_;

private:
  guint units_id_ = 0;
  std::mutex units_mutex_;
  std::vector<vorn::Ref<GstSample>> units_;
};

#endif
