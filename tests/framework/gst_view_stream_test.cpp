// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The stream of a view with a live picture.
#include <vorn/gst_view.h>

#include <atomic>
#include <cstring>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <gtest/gtest.h>

#include "live_view.hpp"
#include "process.hpp"

namespace
{

using Texts = std::vector<std::string>;

/** Types of the NAL units behind their four-byte lengths. */
std::vector<unsigned> nal_types (GstSample *unit)
{
  std::vector<unsigned> types;
  const vorn::BufferMap map (gst_sample_get_buffer (unit), GST_MAP_READ);
  for (gsize at = 0; at + 5 <= map.size ();) {
    guint32 length = 0;
    memcpy (&length, map.data () + at, sizeof length);
    types.push_back (map.data ()[at + 4] & 0x1fu);
    at += 4 + GUINT32_FROM_BE (length);
  }
  return types;
}

bool is_key_frame (GstSample *unit)
{
  return !GST_BUFFER_FLAG_IS_SET (gst_sample_get_buffer (unit), GST_BUFFER_FLAG_DELTA_UNIT);
}

bool has (const std::vector<unsigned> &types, unsigned type)
{
  return std::find (types.begin (), types.end (), type) != types.end ();
}

GstStructure *caps_of (GstSample *unit)
{
  return gst_caps_get_structure (gst_sample_get_caps (unit), 0);
}

int int_of (GstSample *unit, const char *field)
{
  int value = 0;
  gst_structure_get_int (caps_of (unit), field, &value);
  return value;
}

guint16 free_udp_port ()
{
  const vorn::Fd fd (socket (AF_INET, SOCK_DGRAM, 0));
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl (INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  EXPECT_EQ (bind (fd.get (), reinterpret_cast<sockaddr *> (&address), size), 0);
  EXPECT_EQ (getsockname (fd.get (), reinterpret_cast<sockaddr *> (&address), &size), 0);
  return ntohs (address.sin_port);
}

guint get_uint (gpointer object, const char *property)
{
  guint value = 0;
  g_object_get (object, property, &value, nullptr);
  return value;
}

VornFormat format_of (guint32 width, guint32 height, guint32 num, guint32 den)
{
  return {.resolution = {width, height}, .framerate = {num, den}, .flag = 1};
}

class StreamTest : public testing::Test
{
protected:
  void TearDown () override
  {
    for (const auto &line : criticals_.criticals ())
      ADD_FAILURE () << line.domain << ": " << line.text;
  }
  LogCapture log_;
  CriticalCapture criticals_;
};

// ---- Units

TEST_F (StreamTest, UnitsAreAvcWithParameterSetsAtKeyFrames)
{
  for (const bool two_pads : {false, true}) {
    LiveView live ({.two_pads = two_pads});
    ASSERT_TRUE (live.prepare ());
    UnitCollector collector (live);
    ASSERT_TRUE (live.stream ());
    ASSERT_TRUE (run_until ([&] { return collector.count () >= 45; }));
    int key_frames = 0;
    const auto units = collector.units ();
    for (const auto &unit : units) {
      GstStructure *caps = caps_of (unit.get ());
      EXPECT_TRUE (gst_structure_has_name (caps, "video/x-h264"));
      EXPECT_STREQ (gst_structure_get_string (caps, "stream-format"), "avc");
      EXPECT_STREQ (gst_structure_get_string (caps, "alignment"), "au");
      EXPECT_TRUE (gst_structure_has_field (caps, "codec_data"));
      EXPECT_EQ (int_of (unit.get (), "width"), 320);
      const auto types = nal_types (unit.get ());
      const bool key = is_key_frame (unit.get ());
      key_frames += key;
      EXPECT_EQ (has (types, 7), key);
      EXPECT_EQ (has (types, 8), key);
      EXPECT_EQ (has (types, 5), key);
      EXPECT_EQ (has (types, 1), !key);
    }
    EXPECT_TRUE (is_key_frame (units.front ().get ()));
    EXPECT_GE (key_frames, 2) << "one a second";
    const VornGstViewStatistics statistics = live.statistics ();
    EXPECT_GE (statistics.stream_frames_in, 45u);
    EXPECT_GE (statistics.stream_frames_out, 45u);
    EXPECT_GT (statistics.stream_bytes, 45u * 20);
    EXPECT_EQ (statistics.recording_frames_in, 0u);
    EXPECT_EQ (statistics.recording_frames_out, 0u);
    EXPECT_EQ (statistics.recording_bytes, 0u);
    EXPECT_TRUE (live.teardown ());
  }
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_WARNING), Texts{});
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_ERROR), Texts{});
}

TEST_F (StreamTest, IdleBranchEncodesNothingAndHoldsNothingBack)
{
  LiveView live;
  ASSERT_TRUE (live.prepare ());
  std::atomic<int> frames = 0;
  std::atomic<int> encoded = 0;
  const auto count = [] (GstPad *, GstPadProbeInfo *, gpointer data) {
    (*static_cast<std::atomic<int> *> (data))++;
    return GST_PAD_PROBE_OK;
  };
  const auto source = vorn::adopt (gst_element_get_static_pad (live.find ("last").get (), "src"));
  gst_pad_add_probe (source.get (), GST_PAD_PROBE_TYPE_BUFFER, count, &frames, nullptr);
  for (const char *name : {"streamingbin-encoder", "recordbin-encoder"}) {
    const auto pad = vorn::adopt (gst_element_get_static_pad (live.find (name).get (), "sink"));
    gst_pad_add_probe (pad.get (), GST_PAD_PROBE_TYPE_BUFFER, count, &encoded, nullptr);
  }
  ASSERT_NE (gst_element_set_state (live.pipeline (), GST_STATE_PLAYING), GST_STATE_CHANGE_FAILURE);
  ASSERT_TRUE (run_until ([&] { return frames >= 20; }));
  GstState state = GST_STATE_NULL;
  gst_element_get_state (live.pipeline (), &state, nullptr, GST_SECOND);
  EXPECT_EQ (state, GST_STATE_PLAYING);
  EXPECT_EQ (encoded, 0);
  EXPECT_EQ (live.statistics ().stream_frames_in, 0u);
}

TEST_F (StreamTest, WhoComesLateGetsAKeyFrameAtOnce)
{
  LiveView live;
  ASSERT_TRUE (live.prepare ());
  // None would come by itself.
  g_object_set (live.find ("streamingbin-encoder").get (), "key-frame-interval", 10000u, nullptr);
  ASSERT_TRUE (live.stream ());
  ASSERT_TRUE (live.wait_for_stream (20));
  UnitCollector collector (live);
  const auto has_key_frame = [&] {
    for (const auto &unit : collector.units ())
      if (is_key_frame (unit.get ()))
        return true;
    return false;
  };
  EXPECT_TRUE (run_until (has_key_frame));
  // Frames that were on their way come before it.
  size_t first = 0;
  while (!is_key_frame (collector.units ()[first].get ()))
    first++;
  EXPECT_LE (first, 5u);
  // So it is without one who comes.
  ASSERT_TRUE (live.wait_for_stream (10));
  const size_t count = collector.count ();
  vorn_gst_view_request_key_frame (live.gst_view ());
  EXPECT_TRUE (run_until ([&] {
    const auto units = collector.units ();
    for (size_t i = count; i < units.size (); i++)
      if (is_key_frame (units[i].get ()))
        return true;
    return false;
  }));
}

TEST_F (StreamTest, FunctionsOutliveARestartAndGoWithTheView)
{
  LiveView live;
  ASSERT_TRUE (live.prepare ());
  UnitCollector collector (live);
  static int destroyed = 0;
  destroyed = 0;
  const auto destroy = [] (gpointer) { destroyed++; };
  const auto do_nothing = [] (VornGstView *, GstSample *, gpointer) {};
  const guint id =
      vorn_gst_view_add_stream_unit_func (live.gst_view (), do_nothing, nullptr, destroy);
  EXPECT_GT (id, 0u);
  const guint other =
      vorn_gst_view_add_stream_unit_func (live.gst_view (), do_nothing, nullptr, destroy);
  EXPECT_NE (other, id);
  ASSERT_TRUE (live.stream ());
  ASSERT_TRUE (run_until ([&] { return collector.count () > 5; }));
  ASSERT_TRUE (live.teardown ());
  const size_t count = collector.count ();
  ASSERT_TRUE (live.stream ());
  ASSERT_TRUE (run_until ([&] { return collector.count () > count + 5; }));
  EXPECT_EQ (destroyed, 0);
  vorn_gst_view_remove_stream_unit_func (live.gst_view (), id);
  EXPECT_EQ (destroyed, 1);
  vorn_gst_view_remove_stream_unit_func (live.gst_view (), id);
  vorn_gst_view_remove_stream_unit_func (live.gst_view (), 4711);
  EXPECT_EQ (destroyed, 1);
  ASSERT_TRUE (vorn_view_unprepare (live.view ()));
  EXPECT_EQ (destroyed, 2);
}

TEST_F (StreamTest, AFunctionMayRemoveItself)
{
  LiveView live;
  ASSERT_TRUE (live.prepare ());
  struct Once {
    std::atomic<guint> id = 0;
    std::atomic<int> calls = 0;
  } once;
  UnitCollector others (live);
  once.id = vorn_gst_view_add_stream_unit_func (
      live.gst_view (),
      [] (VornGstView *view, GstSample *, gpointer data) {
        auto *self = static_cast<Once *> (data);
        self->calls++;
        vorn_gst_view_remove_stream_unit_func (view, self->id);
      },
      &once, nullptr);
  ASSERT_TRUE (live.stream ());
  ASSERT_TRUE (run_until ([&] { return others.count () > 10; }));
  EXPECT_EQ (once.calls, 1);
}

TEST_F (StreamTest, RemovingWaitsForACallThatRuns)
{
  LiveView live;
  ASSERT_TRUE (live.prepare ());
  struct Slow {
    std::atomic<bool> inside = false;
    std::atomic<bool> go_on = false;
  } slow;
  const guint id = vorn_gst_view_add_stream_unit_func (
      live.gst_view (),
      [] (VornGstView *, GstSample *, gpointer data) {
        auto *self = static_cast<Slow *> (data);
        self->inside = true;
        while (!self->go_on)
          g_usleep (1000);
        self->inside = false;
      },
      &slow, nullptr);
  ASSERT_TRUE (live.stream ());
  ASSERT_TRUE (run_until ([&] { return slow.inside.load (); }));
  // Meanwhile the stream falls behind and says how much.
  EXPECT_TRUE (run_until ([&] { return live.statistics ().stream_drops >= 5; }));
  const VornGstViewStatistics statistics = live.statistics ();
  EXPECT_GE (statistics.stream_frames_in, statistics.stream_drops + statistics.stream_frames_out);
  slow.go_on = true;
  vorn_gst_view_remove_stream_unit_func (live.gst_view (), id);
  EXPECT_FALSE (slow.inside);
}

// ---- Bitrate and presets

TEST_F (StreamTest, BitrateReachesTheEncoder)
{
  LiveView live;
  g_object_set (live.gst_view (), "streaming-preset", "ZeltoStreaming480p", nullptr);
  ASSERT_TRUE (live.prepare ());
  GstElement *encoder = nullptr;
  g_object_get (live.gst_view (), "streaming-encoder", &encoder, nullptr);
  const auto owned = vorn::adopt (encoder);
  ASSERT_EQ (owned.get (), live.find ("streamingbin-encoder").get ());
  EXPECT_EQ (get_uint (encoder, "preset-bitrate"), 1250u);
  g_object_set (live.gst_view (), "streaming-preset", "ZeltoStreaming720p", nullptr);
  EXPECT_EQ (get_uint (encoder, "preset-bitrate"), 2800u);

  ASSERT_TRUE (live.stream (0, 2500000));
  EXPECT_EQ (get_uint (encoder, "bitrate"), 2500u);
  for (const guint32 bitrate : {300000u, 999u}) {
    const VornStreamParameters parameters = {.reserved = {}, .bitrate = bitrate};
    EXPECT_TRUE (vorn_view_stream_set_params (live.view (), &parameters));
    EXPECT_EQ (get_uint (encoder, "bitrate"), bitrate / 1000);
  }
  ASSERT_TRUE (live.teardown ());
  const VornStreamParameters parameters = {.reserved = {}, .bitrate = 1000000};
  EXPECT_TRUE (vorn_view_stream_set_params (live.view (), &parameters));
  ASSERT_TRUE (live.stream ());
  EXPECT_EQ (get_uint (encoder, "bitrate"), 0u) << "0 asks for the preset's";
}

TEST_F (StreamTest, RecordingBitrateReachesItsEncoder)
{
  LiveView live;
  g_object_set (live.gst_view (), "recording-bitrate", 5000000u, nullptr);
  ASSERT_TRUE (live.prepare ());
  GstElement *encoder = nullptr;
  g_object_get (live.gst_view (), "recording-encoder", &encoder, nullptr);
  const auto owned = vorn::adopt (encoder);
  EXPECT_EQ (get_uint (encoder, "bitrate"), 5000u);
  g_object_set (live.gst_view (), "recording-bitrate", 1000000u, nullptr);
  EXPECT_EQ (get_uint (encoder, "bitrate"), 1000u);
}

TEST_F (StreamTest, PresetsThatAreNotThereOrTooSlow)
{
  LiveView live;
  ASSERT_TRUE (live.prepare ());
  g_object_set (live.gst_view (), "streaming-preset", "Nobodys", "recording-preset", "Either",
                nullptr);
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_WARNING),
             (Texts{"view 'front': there is no encoder preset 'Nobodys' for streaming",
                    "view 'front': there is no encoder preset 'Either' for recording"}));
  // A client that joins must not wait longer than a second for its picture.
  g_object_set (live.gst_view (), "streaming-preset", "Lazy", nullptr);
  EXPECT_EQ (get_uint (live.find ("streamingbin-encoder").get (), "key-frame-interval"), 1000u);
  EXPECT_EQ (get_uint (live.find ("streamingbin-encoder").get (), "preset-bitrate"), 1234u);
}

// ---- Formats

TEST_F (StreamTest, FormatScalesAndDropsFrames)
{
  LiveView live;
  ASSERT_TRUE (live.prepare ());
  UnitCollector collector (live);
  ASSERT_TRUE (live.stream ());
  const VornFormat format = format_of (160, 120, 15, 1);
  ASSERT_TRUE (vorn_view_set_streaming_format (live.view (), &format));
  const auto in_new_format = [&] {
    std::vector<vorn::Ref<GstSample>> units;
    for (const auto &unit : collector.units ())
      if (int_of (unit.get (), "width") == 160)
        units.push_back (unit);
    return units;
  };
  ASSERT_TRUE (run_until ([&] { return in_new_format ().size () >= 20; }));
  const auto units = in_new_format ();
  EXPECT_EQ (int_of (units.front ().get (), "height"), 120);
  int num = 0;
  int den = 0;
  gst_structure_get_fraction (caps_of (units.front ().get ()), "framerate", &num, &den);
  EXPECT_EQ (num, 15);
  EXPECT_EQ (den, 1);
  EXPECT_TRUE (is_key_frame (units.front ().get ()));
  // On average: a frame that the machine has lost makes a gap.
  const GstClockTime first = GST_BUFFER_PTS (gst_sample_get_buffer (units.front ().get ()));
  const GstClockTime last = GST_BUFFER_PTS (gst_sample_get_buffer (units.back ().get ()));
  EXPECT_GE (last - first, (units.size () - 1) * GST_SECOND / 15 - GST_MSECOND);
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_WARNING), Texts{});
}

TEST_F (StreamTest, RateAboveTheSourcesIsServedAtTheSources)
{
  LiveView live;
  ASSERT_TRUE (live.prepare ());
  UnitCollector collector (live);
  const VornFormat format = format_of (320, 240, 60, 1);
  ASSERT_TRUE (vorn_view_set_streaming_format (live.view (), &format));
  ASSERT_TRUE (live.stream ());
  ASSERT_TRUE (run_until ([&] { return collector.count () > 10; }));
  int num = 0;
  int den = 0;
  gst_structure_get_fraction (caps_of (collector.units ().front ().get ()), "framerate", &num,
                              &den);
  EXPECT_EQ (num, 30);
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_WARNING),
             Texts{"view 'front': streaming at 60/1 is more than its source gives, 30/1 takes its "
                   "place"});
}

TEST_F (StreamTest, BordersWhereTheShapeDiffers)
{
  const struct {
    guint32 width, height;
    bool borders;
  } rows[] = {{160, 120, false}, {320, 180, true}, {322, 240, false}};
  for (const auto &row : rows) {
    LiveView live;
    ASSERT_TRUE (live.prepare ());
    const VornFormat format = format_of (row.width, row.height, 30, 1);
    ASSERT_TRUE (vorn_view_set_streaming_format (live.view (), &format));
    ASSERT_TRUE (live.stream ());
    ASSERT_TRUE (live.wait_for_stream (2));
    gboolean borders = FALSE;
    g_object_get (live.find ("streamingbin-scale").get (), "add-borders", &borders, nullptr);
    EXPECT_EQ (borders, row.borders) << row.width << "x" << row.height;
  }
}

TEST_F (StreamTest, SetUpMayCarryAFormat)
{
  LiveView live;
  ASSERT_TRUE (live.prepare ());
  UnitCollector collector (live);
  VornStreamSetup setup = {};
  setup.format = format_of (160, 120, 30, 1);
  ASSERT_TRUE (vorn_view_stream_setup (live.view (), &setup));
  EXPECT_EQ (setup.live, 1u);
  ASSERT_TRUE (run_until ([&] { return collector.count () > 0; }));
  EXPECT_EQ (int_of (collector.units ().front ().get (), "width"), 160);
  ASSERT_TRUE (live.teardown ());
  // While a recording runs only the format in force will do.
  ASSERT_TRUE (live.start_recording ());
  EXPECT_TRUE (vorn_view_stream_setup (live.view (), &setup));
  setup.format.resolution.width = 80;
  EXPECT_FALSE (vorn_view_stream_setup (live.view (), &setup));
  EXPECT_TRUE (
      log_.has ("view 'front': stream failed: its format is refused", VORN_LOG_PRIORITY_ERROR));
}

TEST_F (StreamTest, AModeChangeForgetsTheFormats)
{
  LiveView live;
  ASSERT_TRUE (live.prepare ());
  const VornFormat format = format_of (160, 120, 15, 1);
  ASSERT_TRUE (vorn_view_set_streaming_format (live.view (), &format));
  VornCameraMode mode = {};
  mode.recording.resolution = {320, 240};
  mode.recording.framerate = {15, 1};
  ASSERT_TRUE (vorn_view_update_camera_mode (live.view (), &mode));
  UnitCollector collector (live);
  ASSERT_TRUE (live.stream ());
  ASSERT_TRUE (run_until ([&] { return collector.count () > 0; }));
  EXPECT_EQ (int_of (collector.units ().front ().get (), "width"), 320) << "the source's";
  // Recordings have what the mode says.
  ASSERT_TRUE (live.start_recording ());
  live.wait_for_event (VORN_RECORD_EVENT_STARTED);
  const auto pad =
      vorn::adopt (gst_element_get_static_pad (live.find ("recordbin-tee").get (), "sink"));
  const auto caps = vorn::adopt (gst_pad_get_current_caps (pad.get ()));
  int num = 0;
  int den = 0;
  gst_structure_get_fraction (gst_caps_get_structure (caps.get (), 0), "framerate", &num, &den);
  EXPECT_EQ (num, 15);
  // A mode that is refused changes nothing.
  ASSERT_TRUE (live.stop_recording ());
  live.wait_for_event (VORN_RECORD_EVENT_STOPPED);
  ASSERT_TRUE (vorn_view_set_streaming_format (live.view (), &format));
  live.refuse_modes (true);
  EXPECT_FALSE (vorn_view_update_camera_mode (live.view (), &mode));
  const size_t count = collector.count ();
  ASSERT_TRUE (run_until ([&] { return collector.count () > count + 10; }));
  EXPECT_EQ (int_of (collector.units ().back ().get (), "width"), 160);
}

// ---- UDP

TEST_F (StreamTest, UdpClientThatComesLateDecodes)
{
  LiveView live;
  ASSERT_TRUE (live.prepare ());
  const guint16 port = free_udp_port ();
  ASSERT_TRUE (live.stream (port));
  ASSERT_TRUE (live.wait_for_stream (40));

  const std::string text =
      "udpsrc name=source address=127.0.0.1 port=" + std::to_string (port) +
      " caps=application/x-rtp,media=video,clock-rate=90000,encoding-name=H264 ! rtph264depay ! "
      "h264parse ! openh264dec ! appsink name=sink sync=false max-buffers=1000";
  vorn::ErrorOut error;
  const auto client = vorn::adopt (gst_parse_launch (text.c_str (), error.out ()));
  ASSERT_FALSE (error) << error.message ();
  struct Times { // of the stream, as RTP has them
    std::atomic<bool> started = false;
    std::atomic<guint32> first = 0;
    std::atomic<guint32> last = 0;
  } times;
  const auto source = vorn::adopt (gst_bin_get_by_name (GST_BIN (client.get ()), "source"));
  const auto pad = vorn::adopt (gst_element_get_static_pad (source.get (), "src"));
  gst_pad_add_probe (
      pad.get (), GST_PAD_PROBE_TYPE_BUFFER,
      [] (GstPad *, GstPadProbeInfo *info, gpointer data) {
        auto *self = static_cast<Times *> (data);
        guint8 header[8] = {};
        gst_buffer_extract (GST_PAD_PROBE_INFO_BUFFER (info), 0, header, sizeof header);
        EXPECT_EQ (header[1] & 0x7f, 96) << "payload type";
        guint32 time = 0;
        memcpy (&time, header + 4, sizeof time);
        time = GUINT32_FROM_BE (time);
        if (!self->started.exchange (true))
          self->first = time;
        self->last = time;
        return GST_PAD_PROBE_OK;
      },
      &times, nullptr);
  gst_element_set_state (client.get (), GST_STATE_PLAYING);
  const auto sink = vorn::adopt (gst_bin_get_by_name (GST_BIN (client.get ()), "sink"));
  GstSample *sample = nullptr;
  g_signal_emit_by_name (sink.get (), "try-pull-sample", 20 * GST_SECOND, &sample);
  const guint32 waited = times.last - times.first;
  const auto picture = vorn::adopt (sample);
  ASSERT_TRUE (picture);
  EXPECT_EQ (int_of (picture.get (), "width"), 320);
  EXPECT_LE (waited, 90000u * 3 / 2) << "1.5 s of the stream";
  gst_element_set_state (client.get (), GST_STATE_NULL);
}

TEST_F (StreamTest, DescriptionIsEnoughForAPlayer)
{
  LiveView live;
  ASSERT_TRUE (live.prepare ());
  EXPECT_EQ (vorn_gst_view_get_stream_description (live.gst_view ()), nullptr);
  ASSERT_TRUE (live.stream ());
  EXPECT_EQ (vorn_gst_view_get_stream_description (live.gst_view ()), nullptr) << "no client";
  ASSERT_TRUE (live.teardown ());
  const guint16 port = free_udp_port ();
  ASSERT_TRUE (live.stream (port));
  ASSERT_TRUE (live.wait_for_stream (10));
  const vorn::OwnedString description (vorn_gst_view_get_stream_description (live.gst_view ()));
  ASSERT_TRUE (description);
  const std::string text = description.get ();
  for (const std::string line :
       {"v=0\r\n", "s=front\r\n", "c=IN IP4 127.0.0.1\r\n", "a=rtpmap:96 H264/90000\r\n"})
    EXPECT_NE (text.find (line), std::string::npos) << line << text;
  EXPECT_NE (text.find ("m=video " + std::to_string (port) + " RTP/AVP 96\r\n"), std::string::npos);
  EXPECT_NE (text.find ("sprop-parameter-sets="), std::string::npos) << text;

  const TempDir folder;
  const std::string path = folder.write ("stream.sdp", text);
  const ProcessResult player = run_process ({"timeout", "30", "ffmpeg", "-nostdin", "-v", "error",
                                             "-protocol_whitelist", "file,udp,rtp", "-i", path,
                                             "-map", "0:v", "-frames:v", "10", "-f", "null", "-"});
  EXPECT_EQ (player.status, 0) << player.errors;
  ASSERT_TRUE (live.teardown ());
  EXPECT_EQ (vorn_gst_view_get_stream_description (live.gst_view ()), nullptr);
}

TEST_F (StreamTest, ComesBackAfterItsSourceHasFailed)
{
  std::atomic<bool> failing = false;
  LiveView live;
  ASSERT_TRUE (live.prepare ());
  const auto pad = vorn::adopt (gst_element_get_static_pad (live.find ("source").get (), "src"));
  gst_pad_add_probe (
      pad.get (), GST_PAD_PROBE_TYPE_BUFFER,
      [] (GstPad *, GstPadProbeInfo *info, gpointer data) {
        if (!*static_cast<std::atomic<bool> *> (data))
          return GST_PAD_PROBE_OK;
        gst_buffer_unref (GST_PAD_PROBE_INFO_BUFFER (info));
        GST_PAD_PROBE_INFO_FLOW_RETURN (info) = GST_FLOW_ERROR;
        return GST_PAD_PROBE_HANDLED;
      },
      &failing, nullptr);
  ASSERT_TRUE (live.stream ());
  ASSERT_TRUE (live.wait_for_stream (5));
  // As long as it fails it is tried again, after longer and longer.
  failing = true;
  for (const char *wait : {"500", "1000"})
    ASSERT_TRUE (run_until ([&] {
      return log_.has (std::string ("view 'front': the stream starts again in ") + wait + " ms",
                       VORN_LOG_PRIORITY_WARNING);
    }));
  EXPECT_TRUE (vorn_view_is_streaming (live.view ()));
  failing = false;
  ASSERT_TRUE (live.wait_for_stream (10));
  // Nobody waits for a stream that was ended.
  failing = true;
  ASSERT_TRUE (run_until ([this] {
    return log_.has ("view 'front': the stream starts again in 2000 ms", VORN_LOG_PRIORITY_WARNING);
  }));
  ASSERT_TRUE (live.teardown ());
}

TEST_F (StreamTest, PortsOutOfRangeAreRefused)
{
  LiveView live;
  ASSERT_TRUE (live.prepare ());
  for (const guint32 port : {0u, 65536u}) {
    log_.clear ();
    VornStreamSetup setup = {};
    setup.client_address = htonl (INADDR_LOOPBACK);
    setup.client_port = port;
    EXPECT_FALSE (vorn_view_stream_setup (live.view (), &setup));
    EXPECT_TRUE (log_.has ("view 'front': stream failed: the client's port is out of range",
                           VORN_LOG_PRIORITY_ERROR));
  }
}

// ---- Building

class PadView
{
public:
  PadView ()
  {
    view =
        vorn::adopt (VORN_GST_VIEW (g_object_new (VORN_TYPE_GST_VIEW, "name", "front", nullptr)));
    const VornViewCapabilities all = {.feature_mask = VORN_VIEW_FEATURE_STREAMING |
                                                      VORN_VIEW_FEATURE_RECORDING};
    vorn_view_set_capabilities (VORN_VIEW (view.get ()), &all);
  }
  vorn::Ref<VornGstView> view;
};

TEST_F (StreamTest, WithoutBranchesOperationsFail)
{
  const PadView pads;
  VornView *view = VORN_VIEW (pads.view.get ());
  ASSERT_TRUE (vorn_view_prepare (view));
  VornStreamSetup setup = {};
  const VornStreamParameters parameters = {};
  const VornFormat format = format_of (320, 240, 30, 1);
  EXPECT_FALSE (vorn_view_stream_setup (view, &setup));
  EXPECT_FALSE (vorn_view_stream_set_params (view, &parameters));
  EXPECT_FALSE (vorn_view_start_recording (view));
  EXPECT_FALSE (vorn_view_set_streaming_format (view, &format));
  EXPECT_FALSE (vorn_view_set_recording_format (view, &format));
  EXPECT_TRUE (vorn_view_stop_recording (view, 0));
  EXPECT_TRUE (vorn_view_stream_teardown (view, nullptr));
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_ERROR),
             (Texts{"view 'front': stream failed: it has no streaming branch",
                    "view 'front': stream parameters failed: it has no streaming branch",
                    "view 'front': recording failed: it has no recording branch",
                    "view 'front': streaming format failed: it has no streaming branch",
                    "view 'front': recording format failed: it has no recording branch"}));
  vorn_gst_view_request_key_frame (pads.view.get ());
  EXPECT_EQ (vorn_gst_view_get_recording_location (pads.view.get ()), nullptr);
}

TEST_F (StreamTest, PadsThatCannotBeUsedFailToPrepare)
{
  const PadView pads;
  const auto pad = vorn::adopt (gst_pad_new ("lonely", GST_PAD_SRC));
  ASSERT_TRUE (vorn_gst_view_set_source_pad (pads.view.get (), pad.get (), 1));
  EXPECT_FALSE (vorn_view_prepare (VORN_VIEW (pads.view.get ())));
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_ERROR),
             Texts{"view 'front': source pad 'lonely' is in no pipeline"});

  log_.clear ();
  const PadView others;
  const auto pipeline = vorn::adopt (
      gst_parse_launch ("audiotestsrc name=source ! audio/x-raw ! identity name=last", nullptr));
  const auto source = vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline.get ()), "source"));
  const auto last = vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline.get ()), "last"));
  const auto used = vorn::adopt (gst_element_get_static_pad (last.get (), "src"));
  ASSERT_TRUE (vorn_gst_view_set_source_pad (others.view.get (), used.get (), 2));
  const auto taker = vorn::adopt (gst_element_factory_make ("fakesink", nullptr));
  gst_bin_add (GST_BIN (pipeline.get ()), taker.get ());
  ASSERT_TRUE (gst_element_link (last.get (), taker.get ()));
  EXPECT_FALSE (vorn_view_prepare (VORN_VIEW (others.view.get ())));
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_ERROR),
             Texts{"view 'front': source pad 'src' cannot be linked to 'recordbin': was linked"});
  EXPECT_FALSE (gst_bin_get_by_name (GST_BIN (pipeline.get ()), "recordbin"));
}

TEST_F (StreamTest, UnprepareTakesTheBranchesOut)
{
  for (const bool two_pads : {false, true}) {
    LiveView live ({.two_pads = two_pads});
    ASSERT_TRUE (live.prepare ());
    ASSERT_TRUE (live.stream ());
    ASSERT_TRUE (live.wait_for_stream (5));
    ASSERT_TRUE (vorn_view_unprepare (live.view ()));
    EXPECT_FALSE (live.find ("streamingbin"));
    EXPECT_FALSE (live.find ("recordbin"));
    EXPECT_EQ (live.statistics ().stream_frames_out, 0u);
    GstElement *encoder = nullptr;
    g_object_get (live.gst_view (), "streaming-encoder", &encoder, nullptr);
    EXPECT_EQ (encoder, nullptr);
    EXPECT_FALSE (vorn_view_is_streaming (live.view ()));
  }
}

TEST_F (StreamTest, WrongCallsAreCriticals)
{
  const PadView pads;
  VornGstViewStatistics statistics = {};
  const auto do_nothing = [] (VornGstView *, GstSample *, gpointer) {};
  EXPECT_EQ (vorn_gst_view_add_stream_unit_func (nullptr, do_nothing, nullptr, nullptr), 0u);
  EXPECT_EQ (vorn_gst_view_add_stream_unit_func (pads.view.get (), nullptr, nullptr, nullptr), 0u);
  vorn_gst_view_remove_stream_unit_func (nullptr, 1);
  vorn_gst_view_request_key_frame (nullptr);
  vorn_gst_view_get_statistics (nullptr, &statistics);
  vorn_gst_view_get_statistics (pads.view.get (), nullptr);
  EXPECT_EQ (vorn_gst_view_get_stream_description (nullptr), nullptr);
  EXPECT_EQ (vorn_gst_view_get_recording_location (nullptr), nullptr);
  EXPECT_EQ (criticals_.criticals ().size (), 8u);
  EXPECT_TRUE (criticals_.has_assertion ("VORN_IS_GST_VIEW (view)", "vorn"));
  criticals_.clear ();
}

} // namespace
