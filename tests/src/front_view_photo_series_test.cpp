// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Photo after photo through a whole view that streams meanwhile: single ones and series, each of
// another picture, each file with the thumbnail and the tags of its own frame.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <numeric>
#include <set>
#include <sstream>

#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#include <gtest/gtest.h>

#include "log_capture.hpp"
#include "main_context.hpp"
#include "own_namespace.hpp"
#include "photo_requests.hpp"
#include "temp_dir.hpp"
#include "test_product.hpp"
#include "test_virtual_camera.hpp"
#include "vorn_morvik_zelto_front_view_private.hpp"
#include "vorn_morvik_zelto_front_virtual_camera.hpp"
#include <vorn/framework.h>
#include <vorn/gst_raii.hpp>
#include <vorn/utils.h>

namespace
{

constexpr int width = 1280, height = 720;
constexpr int thumbnail_width = 320, thumbnail_height = 240;

std::string read_file (const std::string &path)
{
  std::ifstream file (path, std::ios::binary);
  return {std::istreambuf_iterator<char> (file), {}};
}

/** The thumbnail in the EXIF segment of a JPEG file, or nothing. */
std::string thumbnail_of (const std::string &file)
{
  // Segments: marker, length of what follows, data.
  const auto byte = [&] (size_t at) { return static_cast<guint8> (file[at]); };
  for (size_t at = 2; at + 4 < file.size () && byte (at) == 0xff && byte (at + 1) != 0xda;) {
    const size_t length = byte (at + 2) * 256u + byte (at + 3);
    const std::string segment = file.substr (at + 4, length - 2);
    if (byte (at + 1) == 0xe1 && segment.starts_with ("Exif")) {
      const size_t start = segment.find ("\xff\xd8\xff");
      return start == std::string::npos ? "" : segment.substr (start);
    }
    at += 2 + length;
  }
  return "";
}

/** A field of the file's XMP packet, or "(none)". */
std::string xmp_field (const std::string &file, const std::string &name)
{
  const std::string key = "vorn:" + name + "=\"";
  const size_t start = file.find (key);
  if (start == std::string::npos)
    return "(none)";
  const size_t value = start + key.size ();
  return file.substr (value, file.find ('"', value) - value);
}

/** The brightness of a JPEG's pixels, row by row. */
std::vector<guint8> luma_of (const std::string &jpeg)
{
  const auto pipeline = vorn::adopt (
      gst_parse_launch ("appsrc name=in format=time caps=image/jpeg ! jpegdec ! videoconvert ! "
                        "video/x-raw,format=GRAY8 ! appsink name=out sync=false",
                        nullptr));
  const auto in = vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline.get ()), "in"));
  const auto out = vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline.get ()), "out"));
  gst_element_set_state (pipeline.get (), GST_STATE_PLAYING);
  gst_app_src_push_buffer (GST_APP_SRC (in.get ()),
                           gst_buffer_new_memdup (jpeg.data (), jpeg.size ()));
  gst_app_src_end_of_stream (GST_APP_SRC (in.get ()));
  std::vector<guint8> luma;
  if (const auto sample = vorn::adopt (gst_app_sink_pull_sample (GST_APP_SINK (out.get ())))) {
    const vorn::BufferMap map (gst_sample_get_buffer (sample.get ()), GST_MAP_READ);
    luma.assign (map.data (), map.data () + map.size ());
  }
  gst_element_set_state (pipeline.get (), GST_STATE_NULL);
  return luma;
}

/** A photo made as small as a thumbnail: each pixel the mean of four by three. */
std::vector<guint8> scale_down (const std::vector<guint8> &photo)
{
  constexpr int across = width / thumbnail_width;
  constexpr int down = height / thumbnail_height;
  std::vector<guint8> small;
  for (int y = 0; y < thumbnail_height; y++)
    for (int x = 0; x < thumbnail_width; x++) {
      int sum = 0;
      for (int row = 0; row < down; row++)
        for (int column = 0; column < across; column++)
          sum += photo[static_cast<size_t> ((y * down + row) * width + x * across + column)];
      small.push_back (static_cast<guint8> (sum / (across * down)));
    }
  return small;
}

double mean_difference (const std::vector<guint8> &a, const std::vector<guint8> &b)
{
  const double sum = std::transform_reduce (a.begin (), a.end (), b.begin (), 0.0, std::plus<> (),
                                            [] (int x, int y) { return std::abs (x - y); });
  return sum / static_cast<double> (a.size ());
}

class FrontViewPhotoSeries : public testing::Test
{
protected:
  static void SetUpTestSuite () { vorn_framework_init (nullptr, nullptr); }

  FrontViewPhotoSeries ()
  {
    vorn_utils_set_media_folder (media_.path ().c_str ());
    const VornCameraParameters parameters = {
        .name = "front",
        .sensor_configuration = {.resolution = {1312, 788}, .framerate = {30000, 1001}}};
    camera_ = vorn::adopt (vorn_camera_new (&parameters));
    virtual_camera_ =
        vorn::adopt (vorn_morvik_zelto_front_virtual_camera_new (camera_.get (), nullptr, FALSE));
    base_ = vorn_morvik_zelto_front_view_new ("front", "Front", camera_.get (), "unix:/none",
                                              product_.get ());
    vorn_virtual_camera_add_view (virtual_camera_.get (), base_);
    view_ = VORN_MORVIK_ZELTO_FRONT_VIEW (base_);
    g_signal_connect (base_, "snapshot-event", G_CALLBACK (on_event), this);
  }

  ~FrontViewPhotoSeries () override
  {
    vorn_view_unprepare (base_);
    // The view keeps what belongs to its last photos.
    g_slist_free_full (std::exchange (view_->taken_snapshots, nullptr), g_free);
    g_free (std::exchange (view_->location_pattern, nullptr));
    virtual_camera_.reset ();
    // The virtual camera keeps two references on its camera on purpose.
    while (G_OBJECT (camera_.get ())->ref_count > 1)
      g_object_unref (camera_.get ());
    vorn_utils_set_media_folder (nullptr);
  }

  void set_up (guint32 photo_mode_word)
  {
    ASSERT_TRUE (vorn_view_prepare (base_));
    const VornCameraMode mode =
        photo_mode (photo_mode_word, VORN_PHOTO_FORMAT_WIDE, VORN_PHOTO_FILE_FORMAT_JPEG, 1);
    ASSERT_TRUE (vorn_virtual_camera_set_mode (virtual_camera_.get (), &mode));
    // The mode's own 21 million pixels would only take time.
    store_relaxed (view_->photo_format_size, {.resolution = {width, height}});
    ASSERT_TRUE (vorn_view_set_snapshot_format (base_, photo_mode_word, VORN_PHOTO_FORMAT_WIDE,
                                                VORN_PHOTO_FILE_FORMAT_JPEG, 1));
  }

  void stream ()
  {
    VornStreamSetup setup = {.format = {.resolution = {width, height}, .framerate = {30000, 1001}}};
    ASSERT_TRUE (vorn_view_stream_setup (base_, &setup));
    const auto encoder =
        vorn::adopt (gst_bin_get_by_name (GST_BIN (view_->main_pipeline), "streamingbin-encoder"));
    ASSERT_TRUE (encoder);
    const auto pad = vorn::adopt (gst_element_get_static_pad (encoder.get (), "src"));
    gst_pad_add_probe (
        pad.get (), GST_PAD_PROBE_TYPE_BUFFER,
        [] (GstPad *, GstPadProbeInfo *, gpointer count) {
          ++*static_cast<std::atomic<int> *> (count);
          return GST_PAD_PROBE_OK;
        },
        &streamed_, nullptr);
  }

  /** What is in front of the camera: each number is another picture. */
  void show (int number)
  {
    const auto source = find_source ();
    ASSERT_TRUE (source);
    // Of grey only: a small picture has other coefficients for its colours. Ball, pinwheel,
    // gradient.
    constexpr int patterns[] = {18, 21, 23};
    const int pattern = number % 2 ? patterns[number / 2 % 3] : 17; // of one colour
    const guint level = static_cast<guint> (64 + number * 37 % 160);
    g_object_set (source.get (), "pattern", pattern, "foreground-color",
                  0xff000000u | level << 16 | level << 8 | level, nullptr);
  }

  vorn::Ref<GstElement> find_source () const
  {
    for (const GList *item = GST_BIN (view_->picture_pipeline)->children; item; item = item->next)
      if (GST_OBJECT_FLAG_IS_SET (item->data, GST_ELEMENT_FLAG_SOURCE))
        return vorn::share (GST_ELEMENT (item->data));
    return {};
  }

  /** Takes a photo and waits for its end; the one file that it was written to. */
  std::string photograph (const VornSnapshotRequest &request)
  {
    taken_.clear ();
    done_.clear ();
    failed_ = 0;
    EXPECT_TRUE (vorn_view_take_snapshot (base_, &request));
    EXPECT_TRUE (run_until ([this] { return !vorn_view_is_taking_picture (base_); }));
    EXPECT_EQ (failed_, 0);
    EXPECT_EQ (taken_.size (), 1u);
    EXPECT_EQ (taken_, done_);
    return taken_.empty () ? "" : taken_[0];
  }

  static void on_event (VornView *, guint event, gchar **files, const GError *, gpointer data)
  {
    auto &self = *static_cast<FrontViewPhotoSeries *> (data);
    auto *list = event == VORN_SNAPSHOT_EVENT_TAKEN  ? &self.taken_
                 : event == VORN_SNAPSHOT_EVENT_DONE ? &self.done_
                                                     : nullptr;
    self.failed_ += event == VORN_SNAPSHOT_EVENT_FAILED;
    for (gchar **file = files; list && file && *file; file++)
      list->emplace_back (*file);
  }

  OwnNamespace own_namespace_;
  TempDir media_;
  LogCapture log_;
  vorn::Ref<VornProduct> product_ = vorn::adopt (test_product_new ());
  vorn::Ref<VornCamera> camera_;
  vorn::Ref<VornVirtualCamera> virtual_camera_;
  VornView *base_;
  VornMorvikZeltoFrontView *view_;
  std::atomic<int> streamed_ = 0;
  std::vector<std::string> taken_, done_;
  int failed_ = 0;
};

TEST_F (FrontViewPhotoSeries, EachPhotoIsOfItsOwnFrame)
{
  set_up (VORN_PHOTO_MODE_SINGLE);
  stream ();
  const int count = soak () ? 1000 : 60;
  std::set<std::string> files;
  std::vector<guint8> former;
  guint64 former_time_us = 0;
  for (int number = 0; number < count; number++) {
    SCOPED_TRACE (number);
    show (number);
    const VornSnapshotRequest request = request_of (number);
    const std::string path = photograph (request);
    ASSERT_FALSE (path.empty ());
    EXPECT_TRUE (files.insert (path).second) << path;
    const std::string file = read_file (path);
    ASSERT_FALSE (file.empty ());

    // Its place in its series, and its own time.
    EXPECT_EQ (xmp_field (file, "SequenceNumber"),
               request.photo_grouping ? std::to_string (request.sequence_number) : "(none)");
    EXPECT_EQ (xmp_field (file, "PhotoMode"),
               request.photo_grouping ? vorn_photo_grouping_type_get_name (request.photo_grouping)
                                      : vorn_camera_mode_photo_get_name (0));
    const guint64 time_us =
        g_ascii_strtoull (xmp_field (file, "CapturingTimestamp").c_str (), nullptr, 10);
    EXPECT_GT (time_us, former_time_us);
    former_time_us = time_us;

    // Its thumbnail is the photo, and not the photo before.
    const auto photo = luma_of (file);
    ASSERT_EQ (photo.size (), static_cast<size_t> (width * height));
    const auto small = scale_down (photo);
    const auto thumbnail = luma_of (thumbnail_of (file));
    ASSERT_EQ (thumbnail.size (), small.size ());
    EXPECT_LT (mean_difference (thumbnail, small), 5.0);
    if (!former.empty ()) {
      EXPECT_GT (mean_difference (thumbnail, former), 10.0);
    }
    former = small;
  }
  const auto photos = std::filesystem::directory_iterator (media_.path () + "/photos");
  EXPECT_EQ (std::distance (begin (photos), end (photos)), count);
  EXPECT_TRUE (vorn_view_is_streaming (base_));
  EXPECT_GT (streamed_, 0);
  EXPECT_TRUE (vorn_view_stream_teardown (base_, "end"));
  for (const LogLine &line : log_.lines ())
    EXPECT_FALSE (line.tag == "vorn_morvik_zelto_front_view" &&
                  line.priority <= VORN_LOG_PRIORITY_WARNING)
        << line.text;
}

TEST_F (FrontViewPhotoSeries, AStoppedPhotoDoesNotHinderTheNext)
{
  set_up (VORN_PHOTO_MODE_SINGLE);
  std::set<std::string> files;
  const int count = soak () ? 300 : 20;
  for (int number = 0; number < count; number++) {
    SCOPED_TRACE (number);
    // Stopped at a different moment each time, then taken again.
    const VornSnapshotRequest request = {};
    VornViewClass *klass = VORN_VIEW_GET_CLASS (base_);
    ASSERT_TRUE (klass->take_snapshot (base_, &request));
    const gint64 until = g_get_monotonic_time () + number * 2 * G_TIME_SPAN_MILLISECOND;
    while (g_get_monotonic_time () < until)
      g_main_context_iteration (nullptr, FALSE);
    gst_element_set_state (view_->picture_pipeline, GST_STATE_NULL);
    run_pending ();
    const std::string path = photograph (request);
    EXPECT_TRUE (files.insert (path).second) << path;
    EXPECT_FALSE (thumbnail_of (read_file (path)).empty ());
  }
}

} // namespace
