// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "live_photos.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>

#include <gst/video/video.h>

#include "photo_file_support.hpp"
#include "process.hpp"
#include "test_virtual_camera.hpp"

// ---- Pictures

namespace
{

/** The mean of each cell; pixel: reads the pixel at a column and a row. */
template <typename Pixel>
Cells make_cells (int width, int height, Pixel pixel)
{
  Cells cells;
  std::vector<double> counts (static_cast<size_t> (Cells::across * Cells::down));
  cells.colors.resize (counts.size ());
  for (int y = 0; y < height; y++)
    for (int x = 0; x < width; x++) {
      const auto cell = static_cast<size_t> (y * Cells::down / height * Cells::across +
                                             x * Cells::across / width);
      const std::array<guint8, 3> rgb = pixel (x, y);
      for (size_t i = 0; i < 3; i++)
        cells.colors[cell][i] += rgb[i];
      counts[cell]++;
    }
  for (size_t i = 0; i < counts.size (); i++)
    for (double &value : cells.colors[i])
      value /= std::max (1.0, counts[i]);
  return cells;
}

} // namespace

Rgb mean_difference (const Cells &a, const Cells &b)
{
  Rgb sum = {};
  if (a.colors.empty () || b.colors.empty ())
    return {999, 999, 999};
  for (size_t cell = 0; cell < a.colors.size (); cell++)
    for (size_t i = 0; i < 3; i++)
      sum[i] += std::abs (a.colors[cell][i] - b.colors[cell][i]);
  for (double &value : sum)
    value /= static_cast<double> (a.colors.size ());
  return sum;
}

double largest (const Rgb &difference)
{
  return *std::max_element (difference.begin (), difference.end ());
}

Cells decode (const std::string &file, int frame)
{
  // Made smaller by FFmpeg too, or 20 million pixels would take their time here.
  const std::string raw = file + ".ppm";
  const std::string filter = "select=gte(n\\," + std::to_string (frame) +
                             "),scale=512:288:flags=area+accurate_rnd+full_chroma_int";
  std::vector<std::string> command = {"ffmpeg", "-nostdin", "-v", "error", "-y", "-i", file};
  for (const char *argument : {"-map", "0:V:0?", "-map", "0:v:0?", "-frames:v", "1", "-pix_fmt",
                               "rgb24", "-c:v", "ppm", "-f", "image2", "-update", "1", "-vf"})
    command.emplace_back (argument);
  command.push_back (filter);
  command.push_back (raw);
  const auto result = run_process (command);
  EXPECT_EQ (result.errors, "") << file;
  std::ifstream in (raw, std::ios::binary);
  std::string magic;
  size_t width = 0, height = 0, depth = 0;
  in >> magic >> width >> height >> depth;
  in.get ();
  const std::string bytes ((std::istreambuf_iterator<char> (in)), {});
  std::remove (raw.c_str ());
  if (magic != "P6" || depth != 255 || bytes.size () != width * height * 3 || bytes.empty ()) {
    ADD_FAILURE () << file << " gives no picture";
    return {};
  }
  return make_cells (static_cast<int> (width), static_cast<int> (height), [&] (int x, int y) {
    const size_t at = (static_cast<size_t> (y) * width + static_cast<size_t> (x)) * 3;
    return std::array{static_cast<guint8> (bytes[at]), static_cast<guint8> (bytes[at + 1]),
                      static_cast<guint8> (bytes[at + 2])};
  });
}

Cells cells_of (GstBuffer *buffer, GstCaps *caps)
{
  GstVideoInfo info;
  GstVideoFrame frame;
  if (!buffer || !caps || !gst_video_info_from_caps (&info, caps) ||
      !GST_VIDEO_INFO_IS_RGB (&info) || !gst_video_frame_map (&frame, &info, buffer, GST_MAP_READ))
    return {};
  const Cells cells = make_cells (
      GST_VIDEO_FRAME_WIDTH (&frame), GST_VIDEO_FRAME_HEIGHT (&frame), [&] (int x, int y) {
        std::array<guint8, 3> rgb;
        for (guint i = 0; i < 3; i++)
          rgb[i] = static_cast<const guint8 *> (
              GST_VIDEO_FRAME_COMP_DATA (&frame, i))[y * GST_VIDEO_FRAME_COMP_STRIDE (&frame, i) +
                                                     x * GST_VIDEO_FRAME_COMP_PSTRIDE (&frame, i)];
        return rgb;
      });
  gst_video_frame_unmap (&frame);
  return cells;
}

sim::CameraDescription colorful_camera (uint32_t width, uint32_t height)
{
  auto world = std::make_shared<sim::World> (*plain_world ());
  // The four colours of the land, as places in the palette.
  world->palette[40] = {210, 30, 30};
  world->palette[90] = {20, 170, 40};
  world->palette[140] = {30, 40, 200};
  world->palette[190] = {220, 200, 20};
  sim::CameraDescription description = small_camera ();
  description.sensor = {width, height, 1.3, live_rate.num, live_rate.den, 2'000'000, 0};
  description.world = world;
  return description;
}

sim::CameraMotion turning (double degrees_per_s)
{
  return [start_ns = now_ns (), degrees_per_s] (int64_t ns) {
    const double half_rad = static_cast<double> (ns - start_ns) * 1e-9 * degrees_per_s * G_PI / 360;
    return sim::CameraPose{{0, 0, -10}, {0, 0, std::sin (half_rad), std::cos (half_rad)}};
  };
}

// ---- Photos

std::string LivePhotos::Taken::file () const
{
  // Begun, written, done.
  EXPECT_EQ (events, (std::vector<guint>{3, 0, 1})) << error;
  EXPECT_EQ (files.size (), 1u);
  return files.size () == 1 ? files[0] : "";
}

void LivePhotos::start_photos (const std::string &camera, bool simple, VornResolution sensor)
{
  start (camera, simple, sensor);
  g_signal_connect (view_, "snapshot-event", G_CALLBACK (on_snapshot), this);
  set_photo_mode ();
}

void LivePhotos::set_photo_mode (guint32 mode)
{
  const VornCameraMode photos = photo_mode (mode, 0, 0);
  ASSERT_TRUE (vorn_virtual_camera_set_mode (camera_, &photos));
}

void LivePhotos::set_photo_size (VornResolution size)
{
  const auto filter = find_named ("front-picture-pipeline", "picture-jpegfilter");
  const auto caps = vorn::adopt (
      gst_caps_new_simple ("video/x-raw", "width", G_TYPE_INT, static_cast<gint> (size.width),
                           "height", G_TYPE_INT, static_cast<gint> (size.height), nullptr));
  g_object_set (filter.get (), "caps", caps.get (), nullptr);
}

LivePhotos::Taken LivePhotos::photograph (const VornSnapshotRequest &request)
{
  taken_ = {};
  EXPECT_TRUE (vorn_view_take_snapshot (view_, &request));
  EXPECT_TRUE (run_until ([this] { return !vorn_view_is_taking_picture (view_); }));
  return taken_;
}

void LivePhotos::on_snapshot (VornView *, guint event, gchar **files, const GError *error,
                              gpointer data)
{
  Taken &taken = static_cast<LivePhotos *> (data)->taken_;
  taken.events.push_back (event);
  taken.files.clear ();
  for (gchar **file = files; file && *file; file++)
    taken.files.emplace_back (*file);
  if (error) {
    taken.error_code = error->code;
    taken.error = error->message;
  }
}

std::string LivePhotos::extract_thumbnail (const std::string &photo)
{
  return media_.write ("thumbnails/" + std::to_string (g_get_monotonic_time ()) + ".jpg",
                       binary (photo, "ThumbnailImage"));
}

vorn::Ref<GstElement> LivePhotos::find_named (const char *pipeline, const char *name) const
{
  const auto bin = vorn::adopt (vorn_product_get_pipeline_by_name (product_, pipeline));
  return vorn::adopt (gst_bin_get_by_name (GST_BIN (bin.get ()), name));
}

GstPadProbeReturn LivePhotos::on_frame (GstPad *pad, GstPadProbeInfo *info, gpointer data)
{
  auto *self = static_cast<LivePhotos *> (data);
  // A copy, since the camera has few buffers.
  auto copy = vorn::adopt (gst_buffer_copy_deep (GST_PAD_PROBE_INFO_BUFFER (info)));
  auto caps = vorn::adopt (gst_pad_get_current_caps (pad));
  const std::lock_guard lock (self->watched_mutex_);
  std::swap (self->watched_frame_, copy);
  std::swap (self->watched_caps_, caps);
  return GST_PAD_PROBE_OK;
}

void LivePhotos::watch_frames (const char *pipeline, const char *factory)
{
  GstElement *element = find (pipeline, factory);
  ASSERT_NE (element, nullptr) << factory;
  const auto pad = vorn::adopt (gst_element_get_static_pad (element, "src"));
  gst_pad_add_probe (pad.get (), GST_PAD_PROBE_TYPE_BUFFER, on_frame, this, nullptr);
}

Cells LivePhotos::watched ()
{
  const std::lock_guard lock (watched_mutex_);
  return cells_of (watched_frame_.get (), watched_caps_.get ());
}
