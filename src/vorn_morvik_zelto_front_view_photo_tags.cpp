// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "vorn_morvik_zelto_front_view_photo_tags.hpp"

#include <cmath>
#include <numbers>
#include <string>

#include <vorn/local_time.h>
#include <vorn/log.h>
#include <vorn/modes.h>
#include <vorn/photo_tags.h>

VORN_LOG_TAG ("vorn_morvik_zelto_front_view");

static_assert (sizeof (VornTimedPhotoMetadata) == 192);

namespace
{

constexpr double focal_length_mm = 4.0;
/** Of pixels of 1.12 micrometres, per cm. */
constexpr double wide_focal_plane_resolution = 62500.0 / 7;

/** A tag list in the making: a value added replaces a former one of the same tag. */
class Tags
{
public:
  void add (const char *tag, const char *text)
  {
    if (text && *text)
      put (tag, text);
  }
  void add (const char *tag, const std::string &text) { add (tag, text.c_str ()); }
  void add (const char *tag, double value) { put (tag, value); }
  void add (const char *tag, bool value) { put (tag, static_cast<gboolean> (value)); }
  void add (const char *tag, guint32 value) { put (tag, value); }
  void add (const char *tag, gint32 value) { put (tag, value); }
  void add (const char *tag, guint64 value) { put (tag, value); }
  void add (const char *tag, GstDateTime *value) { put (tag, value); }
  void add_fraction (const char *tag, guint32 num, guint32 den)
  {
    put (tag, static_cast<gint> (num), static_cast<gint> (den));
  }
  vorn::Ref<GstTagList> take () { return std::move (list_); }

private:
  template <typename... Values>
  void put (const char *tag, Values... values)
  {
    gst_tag_list_add (list_.get (), GST_TAG_MERGE_REPLACE, tag, values..., nullptr);
  }

  vorn::Ref<GstTagList> list_ = vorn::adopt (gst_tag_list_new_empty ());
};

bool is_of_series (guint32 grouping)
{
  return grouping >= VORN_PHOTO_GROUPING_BRACKETING && grouping <= VORN_PHOTO_GROUPING_PANORAMA;
}

const char *photo_mode_name (guint32 grouping, guint32 photo_mode)
{
  if (is_of_series (grouping))
    return vorn_photo_grouping_type_get_name (grouping);
  if (grouping != VORN_PHOTO_GROUPING_SINGLE)
    VORN_LOG_WARNING ("invalid photo_grouping");
  return vorn_camera_mode_photo_get_name (photo_mode);
}

void add_optics (Tags &tags)
{
  tags.add ("capturing-flash-fired", false);
  tags.add ("color-space", "s-rgb");
  tags.add ("capturing-source", "dsc");
  tags.add ("capturing-scene-capture-type", "standard");
  tags.add ("capturing-focal-length", focal_length_mm);
  tags.add ("capturing-focal-length-35mm", 23.0);
  tags.add ("capturing-focal-ratio", 2.4);
  tags.add ("capturing-focal-plane-resolution-unit", "cm");
}

void add_series (Tags &tags, const VornSnapshotRequest &request)
{
  if (is_of_series (request.photo_grouping))
    tags.add ("sequence-number", guint32{request.sequence_number});
  if (request.photo_grouping != VORN_PHOTO_GROUPING_PANORAMA)
    return;
  tags.add ("panorama-type", request.panorama_type);
  tags.add ("photo-count", guint32{request.shot_count});
}

void add_drone (Tags &tags, const VornUntimedMetadata &metadata)
{
  tags.add ("drone-roll", metadata.drone_roll);
  tags.add ("drone-pitch", metadata.drone_pitch);
  tags.add ("drone-yaw", metadata.drone_yaw);
  tags.add ("device-model-id", metadata.model_id);
  tags.add ("device-serial", metadata.serial);
  tags.add ("vehicle-uuid", metadata.serial); // the vehicle has no other identifier
  tags.add ("software-version", metadata.software_version);
  tags.add ("software-build-id", metadata.build_id);
  tags.add ("boot-id", metadata.boot_id);
  tags.add ("above-takeoff-altitude", metadata.above_takeoff_altitude);
}

/** Pixels per cm, of width and height alike. */
double focal_plane_resolution (const VornTimedPhotoMetadata &metadata, guint32 photo_format)
{
  if (photo_format == VORN_PHOTO_FORMAT_WIDE)
    return wide_focal_plane_resolution;
  if (metadata.width == 0) // nor need there be a field of view to divide by
    return 0.0;
  const double half_fov_rad = metadata.hfov * std::numbers::pi / 180 * 0.5;
  return metadata.width / (2 * focal_length_mm * std::tan (half_fov_rad));
}

void add_date (Tags &tags)
{
  VornLocalTime now;
  VornCalendarTime fields;
  vorn_local_time_now (&now);
  vorn_local_time_break_down (&now, &fields);
  const vorn::Owned<GstDateTime, gst_date_time_unref> date (gst_date_time_new (
      static_cast<float> (fields.utc_offset_seconds / 3600.0), fields.year + 1900, fields.month + 1,
      fields.day, fields.hour, fields.minute, fields.second + now.milliseconds * 1e6 / 1e9));
  if (date)
    tags.add ("datetime", date.get ());
  tags.add ("milliseconds", static_cast<guint32> (now.milliseconds));
}

void add_exposure (Tags &tags, const VornTimedPhotoMetadata &metadata, guint32 photo_format)
{
  tags.add_fraction ("capturing-shutter-speed", metadata.shutter_num, metadata.shutter_den);
  tags.add ("capturing-exposure-program",
            vorn_photo_exposure_program_to_string (metadata.exposure_program));
  tags.add ("capturing-iso-speed", static_cast<gint32> (metadata.iso));
  tags.add ("capturing-exposure-compensation", metadata.exposure_compensation);
  tags.add ("compressed-image-width", metadata.width);
  tags.add ("compressed-image-height", metadata.height);
  tags.add ("capturing-exposure-mode", vorn_photo_exposure_mode_to_string (metadata.exposure_mode));
  tags.add ("capturing-white-balance-r-gain", metadata.wb_r_gain);
  tags.add ("capturing-white-balance-b-gain", metadata.wb_b_gain);
  const double resolution = focal_plane_resolution (metadata, photo_format);
  tags.add ("capturing-focal-plane-x-resolution", resolution);
  tags.add ("capturing-focal-plane-y-resolution", resolution);
  tags.add ("capturing-contrast", vorn_photo_contrast_to_string (metadata.contrast));
  tags.add ("capturing-saturation", vorn_photo_saturation_to_string (metadata.saturation));
  tags.add ("capturing-sharpness", vorn_photo_sharpness_to_string (metadata.sharpness));
}

void add_place (Tags &tags, const VornTimedPhotoMetadata &metadata)
{
  if (!metadata.location_valid)
    return;
  tags.add ("geo-location-latitude", metadata.latitude);
  tags.add ("geo-location-longitude", metadata.longitude);
  tags.add ("geo-location-elevation", metadata.altitude);
  tags.add ("geo-satellites-count", metadata.satellite_count);
  tags.add ("geo-accuracy-horizontal", metadata.accuracy_horizontal);
  tags.add ("geo-accuracy-vertical", metadata.accuracy_vertical);
}

void add_attitude (Tags &tags, const VornTimedPhotoMetadata &metadata)
{
  tags.add ("camera-roll", metadata.camera_roll);
  tags.add ("camera-pitch", metadata.camera_pitch);
  tags.add ("camera-yaw", metadata.camera_yaw);
  tags.add ("pix4d-camera-roll", metadata.pix4d_roll);
  tags.add ("pix4d-camera-pitch", metadata.pix4d_pitch);
  tags.add ("pix4d-camera-yaw", metadata.pix4d_yaw);
  tags.add ("visible-camera-roll", metadata.visible_roll);
  tags.add ("visible-camera-pitch", metadata.visible_pitch);
  tags.add ("visible-camera-yaw", metadata.visible_yaw);
}

const char *white_balance (const VornTimedPhotoMetadata &metadata)
{
  if (metadata.white_balance_mode == 0)
    return "auto";
  if (metadata.light_source == 0)
    return "manual";
  return vorn_photo_light_source_to_string (metadata.light_source);
}

} // namespace

vorn::Ref<GstTagList> make_untimed_photo_tags (const VornUntimedMetadata &metadata,
                                               const VornSnapshotRequest &request,
                                               guint32 photo_mode)
{
  const auto text = [] (const gchar *string) { return std::string (string ? string : ""); };
  Tags tags;
  tags.add ("description", text (metadata.model) + " " + text (metadata.software_version));
  tags.add ("device-manufacturer", metadata.manufacturer);
  tags.add ("device-model", metadata.model);
  tags.add ("image-orientation", "rotate-0");
  tags.add ("image-horizontal-ppi", 72.0);
  tags.add ("image-vertical-ppi", 72.0);
  tags.add ("application-name", metadata.build_id);
  tags.add ("chroma-positioning", "centered");
  tags.add ("capturing-metering-mode", "center-weighted-average");
  tags.add ("components-configuration", "1230");
  add_optics (tags);
  add_series (tags, request);
  add_drone (tags, metadata);
  tags.add ("photo-mode", photo_mode_name (request.photo_grouping, photo_mode));
  tags.add ("run-date", metadata.flight_uid);
  tags.add ("flight-uid", metadata.flight_uid);
  tags.add ("run-id", metadata.run_id);
  return tags.take ();
}

void clear_photo_exposure (VornTimedPhotoMetadata *metadata)
{
  metadata->shutter_num = 0;
  metadata->shutter_den = 1;
  metadata->exposure_program = 0;
  metadata->iso = 0;
  metadata->exposure_compensation = 0.0;
  metadata->light_source = 0;
  metadata->width = 0;
  metadata->height = 0;
  metadata->exposure_mode = 0;
  metadata->white_balance_mode = 0;
  metadata->contrast = 0;
  metadata->saturation = 0;
  metadata->sharpness = 0;
  metadata->wb_r_gain = 0.0f;
  metadata->wb_b_gain = 0.0f;
}

vorn::Ref<GstTagList> make_timed_photo_tags (const VornTimedPhotoMetadata &metadata,
                                             guint32 photo_format, guint64 capture_time_ns)
{
  Tags tags;
  add_date (tags);
  add_exposure (tags, metadata, photo_format);
  tags.add ("capturing-timestamp", guint64{capture_time_ns / 1000});
  add_place (tags, metadata);
  add_attitude (tags, metadata);
  tags.add ("video-codec", "image/jpeg");
  tags.add ("capturing-white-balance", white_balance (metadata));
  return tags.take ();
}
