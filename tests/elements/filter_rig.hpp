// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Drives a real "kavrel_tovrinfilter" between upload and download, a frame in and a frame out.
#ifndef TESTS_ELEMENTS_FILTER_RIG_HPP
#define TESTS_ELEMENTS_FILTER_RIG_HPP

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <vorn/gst_raii.hpp>

#include "scene.hpp"

/** What is written into a frame's metadata; without: no metadata at all. */
struct FrameTimes {
  GstClockTime capture_ns = 0;
  GstClockTime exposure_ns = 0;
  GstClockTime readout_ns = 0;
  double hfov_rad = 1.5;

  static FrameTimes of (const scene::Shutter &shutter, double hfov_rad)
  {
    return {static_cast<GstClockTime> (shutter.start * 1e9 + 0.5),
            static_cast<GstClockTime> (shutter.exposure * 1e9 + 0.5),
            static_cast<GstClockTime> (shutter.readout * 1e9 + 0.5), hfov_rad};
  }
};

/** An "imu-data" structure of these quaternions (x, y, z, w). */
vorn::OwnedStructure make_imu_data (const std::vector<std::array<double, 4>> &quaternions);

/**
 * The samples of a 1 kHz grid that lies phase_s after whole milliseconds: the latest at or before
 * start, then one for each whole millisecond of the span.
 */
vorn::OwnedStructure sample_motion (const scene::Motion &motion, GstClockTime start,
                                    GstClockTime stop, double phase_s);

class FilterRig
{
public:
  using Answer = std::function<vorn::OwnedStructure (GstClockTime start, GstClockTime stop)>;

  /** output: size behind the filter, 0: left open. Fails the test when it does not come up. */
  FilterRig (int width, int height, int out_width = 0, int out_height = 0,
             const char *input_fields = "");
  ~FilterRig ();
  FilterRig (const FilterRig &) = delete;
  FilterRig &operator= (const FilterRig &) = delete;

  /** Loads the plug-in and selects software GL; done by main () before any test. */
  static void set_up (const char *plugin_path);

  GstElement *filter () const { return filter_.get (); }
  GstElement *pipeline () const { return pipeline_.get (); }
  void set_answer (Answer answer) { answer_ = std::move (answer); }
  /** Answers with the motion's samples, from a grid at this phase. */
  void follow (scene::Motion motion, double phase_s = 0);
  void set_orientation (const scene::Euler &angles);
  void set_output_size (int width, int height);

  /** The frame that comes out, empty on failure. */
  scene::Image run (const scene::Image &picture, const std::optional<FrameTimes> &times,
                    const std::function<void (GstBuffer *)> &change = {});

  /** The spans that were asked for, in order. */
  std::vector<std::pair<GstClockTime, GstClockTime>> asked;
  /** The buffer that came out last. */
  vorn::Ref<GstSample> last;

private:
  static GstStructure *on_attitude (GstElement *, guint64 start, guint64 stop, gpointer self);
  void set_input_caps (int width, int height);

  vorn::Ref<GstElement> pipeline_;
  vorn::Ref<GstElement> source_;
  vorn::Ref<GstElement> filter_;
  vorn::Ref<GstElement> caps_filter_;
  vorn::Ref<GstElement> sink_;
  std::string input_fields_;
  int width_ = 0;
  int height_ = 0;
  GstClockTime pts_ = 0;
  Answer answer_;
};

#endif
