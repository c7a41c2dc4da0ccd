// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "modes_command.hpp"

#include <algorithm>
#include <cstdio>

#include "modes_text.hpp"

namespace
{

using Row = std::vector<std::string>;

/** Prints rows with their columns aligned; the first row is the heading. */
void print_table (const std::vector<Row> &rows)
{
  std::vector<size_t> widths (rows.front ().size ());
  for (const Row &row : rows)
    for (size_t i = 0; i < row.size (); i++)
      widths[i] = std::max (widths[i], row[i].size ());
  for (const Row &row : rows) {
    std::string line = "   ";
    for (size_t i = 0; i < row.size (); i++)
      line += " " + row[i] +
              std::string (i + 1 < row.size () ? widths[i] - row[i].size () + 1 : 0, ' ');
    printf ("%s\n", line.c_str ());
  }
}

const char *yes_or_no (guint32 flag)
{
  return flag ? "yes" : "no";
}

void print_recording_modes (VornVirtualCamera *camera)
{
  guint32 count = 0;
  const auto *entries = vorn_virtual_camera_get_recording_capabilities (camera, &count);
  std::vector<Row> rows = {{"sub-modes", "resolution", "framerate", "default", "HDR", "sensor"}};
  for (const auto &entry : std::span (entries, count))
    rows.push_back (
        {join (names_of (entry.sub_mode_mask, vorn_camera_mode_recording_get_name), ", "),
         text_of (entry.resolutions), text_of (entry.framerates),
         text_of (entry.default_resolution) + " at " + text_of (entry.default_framerate),
         yes_or_no (entry.hdr_available), text_of (entry.configuration->sensor_resolution)});
  printf ("  recording modes\n");
  print_table (rows);
}

void print_photo_modes (VornVirtualCamera *camera)
{
  guint32 count = 0;
  const auto *entries = vorn_virtual_camera_get_photo_capabilities (camera, &count);
  std::vector<Row> rows = {{"modes", "format", "file format", "HDR", "size"}};
  for (const auto &entry : std::span (entries, count))
    rows.push_back (
        {join (names_of (entry.mode_mask, vorn_camera_mode_photo_get_name), ", "),
         join (names_of (entry.format_mask, vorn_photo_format_get_name), ", "),
         join (names_of (entry.file_format_mask, vorn_photo_file_format_get_name), ", "),
         yes_or_no (entry.hdr_available), text_of (entry.configurations[0].crop_resolution)});
  printf ("  photo modes\n");
  print_table (rows);
}

void print_exposure (VornVirtualCamera *camera)
{
  VornExposureCapabilities exposure = {};
  if (!vorn_virtual_camera_get_exposure (camera, nullptr, nullptr, nullptr, nullptr, nullptr,
                                         nullptr, &exposure))
    return;
  printf ("  exposure       ISO %u to %u (default %u), EV %+.1f to %+.1f, %.4g ms to %.4g ms\n",
          exposure.iso_min, exposure.iso_max, exposure.iso_default, exposure.ev_compensation_min,
          exposure.ev_compensation_max, exposure.exposure_time_min * 1e3,
          exposure.exposure_time_max * 1e3);
  printf ("  exposure modes %s\n",
          join (names_of (exposure.mode_mask, vorn_exposure_mode_get_name), "; ").c_str ());
}

void print_camera (VornVirtualCamera *camera)
{
  gchar *display_name = nullptr;
  g_object_get (camera, "display-name", &display_name, nullptr);
  printf ("%s (%s)\n", vorn_virtual_camera_get_name (camera), display_name);
  g_free (display_name);
  printf ("  mode           %s\n", text_of (*vorn_virtual_camera_get_mode (camera)).c_str ());
  if (const auto *state = vorn_virtual_camera_get_default_state (camera))
    printf ("  default state  %s, %s at %s, %.4g Mbit/s\n",
            vorn_camera_mode_type_get_name (state->mode_type), text_of (state->resolution).c_str (),
            text_of (state->framerate).c_str (), state->bitrate / 1e6);
  if (const auto *photo = vorn_virtual_camera_get_default_photo_mode (camera))
    printf ("  default photo  %s, %s, %s, bracketing %s, burst %s\n",
            vorn_camera_mode_photo_get_name (photo->photo_mode),
            vorn_photo_format_get_name (photo->format),
            vorn_photo_file_format_get_name (photo->file_format), photo->bracketing_preset,
            photo->burst_preset);
  print_exposure (camera);
  print_recording_modes (camera);
  print_photo_modes (camera);
}

} // namespace

void print_modes (VornProduct *product)
{
  for (const GList *item = vorn_product_get_virtual_cameras (product); item; item = item->next)
    print_camera (VORN_VIRTUAL_CAMERA (item->data));
}
