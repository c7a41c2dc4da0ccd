// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What the stream and the recordings of a simulated camera say of when each frame was captured.
#include "live_product.hpp"

#include <cmath>
#include <optional>
#include <set>

#include "camera_clients.hpp"
#include "h264_sei_decode.hpp"
#include "live_view.hpp"
#include <vorn/frame_meta.h>

namespace
{

constexpr guint64 day_ns = 86400ull * 1000000000;

class FrontViewTime : public LiveProduct
{
protected:
  void SetUp () override
  {
    LiveProduct::SetUp ();
    sim::CameraDescription description = small_camera ();
    description.sensor.width = 1280;
    description.sensor.height = 720;
    description.sensor.rate_numerator = live_rate.num;
    description.sensor.rate_denominator = live_rate.den;
    served_ = std::make_unique<ServedCamera> (description);
    start ("unix:" + served_->path ());
    const auto pad = vorn::adopt (
        gst_element_get_static_pad (find ("front-streaming-pipeline", "kavrel_morviksrc"), "src"));
    gst_pad_add_probe (pad.get (), GST_PAD_PROBE_TYPE_BUFFER, on_frame, this, nullptr);
  }

  static std::optional<guint64> capture_time (GstBuffer *buffer)
  {
    const VornFrameMeta *meta = vorn_frame_meta_get (buffer);
    guint64 time_ns = 0;
    if (!meta ||
        !gst_structure_get_uint64 (meta->structure, VORN_FRAME_META_CAPTURE_TIMESTAMP, &time_ns))
      return {};
    return time_ns;
  }

  static GstPadProbeReturn on_frame (GstPad *, GstPadProbeInfo *info, gpointer data)
  {
    auto *self = static_cast<FrontViewTime *> (data);
    const auto time_ns = capture_time (GST_PAD_PROBE_INFO_BUFFER (info));
    const std::lock_guard lock (self->mutex_);
    if (time_ns)
      self->captured_.insert (*time_ns);
    return GST_PAD_PROBE_OK;
  }

  /** The time of day in a unit's picture timing, if there is one. */
  static std::optional<gint64> time_in (h264_sei::Decoder &decoder,
                                        const std::vector<h264_sei::Bytes> &nal_units)
  {
    std::optional<gint64> time_us;
    for (const auto &nal_unit : nal_units)
      for (const auto &message : decoder.decode (nal_unit).messages)
        if (message.time_of_day_us) {
          EXPECT_FALSE (time_us) << "two times in one unit";
          time_us = message.time_of_day_us;
        }
    return time_us;
  }

  /** Whether a time of day is a capture time, rounded to the tick (and cut off to us twice). */
  static bool is_time_of (gint64 time_of_day_us, guint64 capture_ns, double tick_us)
  {
    const double apart_us =
        static_cast<double> (capture_ns % day_ns) / 1e3 - static_cast<double> (time_of_day_us);
    return std::abs (std::remainder (apart_us, static_cast<double> (day_ns) / 1e3)) <
           tick_us / 2 + 2;
  }

  /** Looks at the units of the stream since the last look; how many there were. */
  size_t check_stream (double tick_us)
  {
    const auto units = take_units ();
    h264_sei::Decoder decoder;
    guint64 last_ns = 0;
    for (const auto &unit : units) {
      GstBuffer *buffer = gst_sample_get_buffer (unit.get ());
      const auto capture_ns = capture_time (buffer);
      EXPECT_TRUE (capture_ns) << "a unit without frame metadata";
      if (!capture_ns)
        return 0;
      EXPECT_GT (*capture_ns, last_ns);
      last_ns = *capture_ns;
      {
        const std::lock_guard lock (mutex_);
        EXPECT_TRUE (captured_.contains (*capture_ns));
      }
      const auto time_us = time_in (decoder, split (unit.get ()));
      EXPECT_TRUE (time_us) << "a unit without its time";
      if (!time_us)
        return 0;
      EXPECT_TRUE (is_time_of (*time_us, *capture_ns, tick_us))
          << h264_sei::format_time_of_day (*time_us) << ", captured at " << *capture_ns;
    }
    return units.size ();
  }

  /** Whether the recording's muxer has got its cover. */
  bool has_cover () const
  {
    const auto pipeline =
        vorn::adopt (vorn_product_get_pipeline_by_name (product_, "front-streaming-pipeline"));
    const auto muxer =
        vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline.get ()), "recordbin-muxer"));
    const GstTagList *tags =
        muxer ? gst_tag_setter_get_tag_list (GST_TAG_SETTER (muxer.get ())) : nullptr;
    return tags && gst_tag_list_get_tag_size (tags, GST_TAG_IMAGE) > 0;
  }

  /** Parameter sets of the caps, then the unit's own NAL units. */
  static std::vector<h264_sei::Bytes> split (GstSample *unit)
  {
    std::vector<h264_sei::Bytes> nal_units;
    const GstStructure *caps = gst_caps_get_structure (gst_sample_get_caps (unit), 0);
    GstBuffer *configuration = nullptr;
    EXPECT_TRUE (gst_structure_get (caps, "codec_data", GST_TYPE_BUFFER, &configuration, nullptr));
    const auto owned = vorn::adopt (configuration);
    const vorn::BufferMap sets (configuration, GST_MAP_READ);
    // An avcC record: one SPS from byte 6 on, then the number of PPS and the first of them.
    const gsize sps_size = sets.data ()[6] * 256u + sets.data ()[7];
    nal_units.emplace_back (sets.data () + 8, sets.data () + 8 + sps_size);
    const guint8 *pps = sets.data () + 8 + sps_size + 1;
    nal_units.emplace_back (pps + 2, pps + 2 + pps[0] * 256 + pps[1]);
    const vorn::BufferMap map (gst_sample_get_buffer (unit), GST_MAP_READ);
    for (gsize at = 0; at + 4 < map.size ();) {
      const guint8 *p = map.data () + at;
      const gsize size = gsize{p[0]} << 24 | gsize{p[1]} << 16 | gsize{p[2]} << 8 | p[3];
      nal_units.emplace_back (map.data () + at + 4, map.data () + at + 4 + size);
      at += 4 + size;
    }
    return nal_units;
  }

  /** Each frame of a file has the time of a frame of its own. */
  size_t check_file (const std::string &path, double tick_us)
  {
    std::string error;
    const auto source = h264_sei::open_source (path, &error);
    EXPECT_TRUE (source) << error;
    h264_sei::Decoder decoder;
    h264_sei::AccessUnit unit;
    size_t count = 0;
    guint64 last_ns = 0;
    GstClockTime last_pts = 0;
    while (source && source->next (&unit, &error)) {
      for (const auto &nal_unit : unit.configuration)
        decoder.decode (nal_unit);
      const auto time_us = time_in (decoder, unit.nal_units);
      EXPECT_TRUE (time_us) << "frame " << count << " without its time";
      if (!time_us)
        return count;
      guint64 found_ns = 0;
      {
        const std::lock_guard lock (mutex_);
        for (const guint64 capture_ns : captured_)
          if (is_time_of (*time_us, capture_ns, tick_us))
            found_ns = capture_ns;
      }
      EXPECT_NE (found_ns, 0u) << "frame " << count << " has a time at which none was captured";
      EXPECT_GT (found_ns, last_ns);
      // The file plays at the pace at which it was captured.
      if (count > 0 && unit.time_ns) {
        const double played_ms = static_cast<double> (*unit.time_ns - last_pts) / 1e6;
        const double filmed_ms = static_cast<double> (found_ns - last_ns) / 1e6;
        EXPECT_NEAR (played_ms, filmed_ms, 2) << "frame " << count;
      }
      last_ns = found_ns;
      last_pts = unit.time_ns.value_or (0);
      count++;
    }
    EXPECT_EQ (error, "");
    return count;
  }

  std::unique_ptr<ServedCamera> served_;
  std::mutex mutex_;
  std::set<guint64> captured_;
};

constexpr double tick_us = 1e6 / 48000;

TEST_F (FrontViewTime, EveryFrameSaysWhenItWasCaptured)
{
  const VornFormat format = {{640, 360}, live_rate, 1};
  ASSERT_TRUE (vorn_view_set_streaming_format (view_, &format));
  ASSERT_TRUE (stream ());
  collect_units ();
  ASSERT_TRUE (wait_for_stream (15));
  EXPECT_GE (check_stream (tick_us), 10u);

  // A recording restarts the stream; the second one is after a restart of its own.
  for (int i = 0; i < 2; i++) {
    ASSERT_TRUE (vorn_view_start_recording (view_));
    wait_for_event (VORN_RECORD_EVENT_STARTED);
    ASSERT_TRUE (vorn_view_make_thumbnail (view_));
    ASSERT_TRUE (wait_for_recording (20));
    ASSERT_TRUE (run_until ([this] { return has_cover (); }));
    ASSERT_TRUE (vorn_view_stop_recording (view_, 0));
    const auto stopped = wait_for_event (VORN_RECORD_EVENT_STOPPED);
    EXPECT_GE (check_file (stopped.filename, tick_us), 20u);
    const Movie movie = probe (stopped.filename);
    EXPECT_EQ (movie.errors, "");
    EXPECT_TRUE (movie.has_cover);
    EXPECT_EQ (movie.value ("width"), "1280");
    EXPECT_EQ (movie.value ("height"), "720");
  }
  EXPECT_GE (check_stream (tick_us), 10u);

  // Another rate has other ticks: one frame a second, counted in halves of it.
  const VornFormat slow = {{640, 360}, {1, 1}, 1};
  ASSERT_TRUE (vorn_view_set_streaming_format (view_, &slow));
  take_units ();
  ASSERT_TRUE (wait_for_stream (3));
  EXPECT_GE (check_stream (5e5), 2u);
  ASSERT_TRUE (vorn_view_set_streaming_format (view_, &format));
  take_units ();
  ASSERT_TRUE (wait_for_stream (15));
  EXPECT_GE (check_stream (tick_us), 10u);

  ASSERT_TRUE (vorn_view_stream_teardown (view_, "test"));
  ASSERT_TRUE (stream ());
  take_units ();
  ASSERT_TRUE (wait_for_stream (10));
  EXPECT_GE (check_stream (tick_us), 5u);
}

} // namespace
