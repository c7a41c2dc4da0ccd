// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Photos of the real product, and their pictures as other programs see them.
#ifndef TESTS_LIVE_PHOTOS_HPP
#define TESTS_LIVE_PHOTOS_HPP

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "camera_clients.hpp"
#include "live_product.hpp"

using Rgb = std::array<double, 3>;

/** A picture in coarse cells, each the mean colour of its part: sizes and shapes do not matter. */
struct Cells {
  static constexpr int across = 64, down = 36;
  std::vector<Rgb> colors; // row by row; empty: no picture
  const Rgb &at (int column, int row) const
  {
    return colors.at (static_cast<size_t> (row * across + column));
  }
};

/** The mean difference of two pictures for each colour, 0 to 255; above all when one is none. */
Rgb mean_difference (const Cells &a, const Cells &b);

/** How far the most different of the three colours is. */
double largest (const Rgb &difference);

/** What FFmpeg decodes of a picture, or of a movie's frame of this index. */
Cells decode (const std::string &file, int frame = 0);

/** A raw frame, RGB or RGBA of whatever order. */
Cells cells_of (GstBuffer *frame, GstCaps *caps);

/** Ground in strong colours below a blue sky, from where the camera stands. */
sim::CameraDescription colorful_camera (uint32_t width, uint32_t height);

/** Ten metres above the ground, turning. */
sim::CameraMotion turning (double degrees_per_s);

class LivePhotos : public LiveProduct
{
protected:
  struct Taken {
    std::vector<guint> events;
    std::vector<std::string> files; // of the last event
    int error_code = 0;             // of the last failure
    std::string error;
    /** The one file of a photo that went well, else "" and a failure of the test. */
    std::string file () const;
  };

  /** As start, for photos: in a photo mode, or in a recording mode when none is given. */
  void start_photos (const std::string &camera, bool simple, VornResolution sensor);
  void set_photo_mode (guint32 mode = 0);
  /** Other photos than the mode's: its many pixels only take time. */
  void set_photo_size (VornResolution size);
  Taken photograph (const VornSnapshotRequest &request = {});
  /** The thumbnail in a photo as a file of its own. */
  std::string extract_thumbnail (const std::string &photo);

  /** The cells of the newest frame that passes this element's source pad. */
  void watch_frames (const char *pipeline, const char *factory);
  Cells watched ();
  vorn::Ref<GstElement> find_named (const char *pipeline, const char *name) const;

  Taken taken_;

private:
  static void on_snapshot (VornView *, guint event, gchar **files, const GError *error,
                           gpointer data);
  static GstPadProbeReturn on_frame (GstPad *pad, GstPadProbeInfo *info, gpointer data);

  std::mutex watched_mutex_;
  vorn::Ref<GstBuffer> watched_frame_;
  vorn::Ref<GstCaps> watched_caps_;
};

#endif
