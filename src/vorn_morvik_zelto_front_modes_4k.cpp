// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "vorn_morvik_zelto_front_modes.hpp"

#include <iterator>

#include <vorn/log.h>

VORN_LOG_TAG ("vorn_morvik_zelto_front_modes");

namespace
{

constexpr VornFramerate standard_framerate[] = {{30000, 1001}, {25, 1}, {24000, 1001}};
constexpr VornFramerate high_framerate[] = {{60000, 1001}, {50, 1}, {48000, 1001}};
constexpr VornFramerate super_high_framerate[] = {{120, 1}};
constexpr VornFramerate photo_preview_framerate[] = {{30000, 1001}};
constexpr VornFramerate hdr_photo_preview_framerate[] = {{24, 1}};

template <size_t count>
constexpr VornFramerateSet list_of (const VornFramerate (&rates)[count])
{
  return {.list = rates, .count = static_cast<guint32> (count)};
}

constexpr VornFramerateSet range_of (VornFramerate min, VornFramerate max)
{
  return {.min = min, .max = max};
}

constexpr VornResolutionSet range_of (VornResolution min, VornResolution max)
{
  return {.min = min, .max = max};
}

constexpr VornCameraConfiguration recording_standard_camera_config = {
    .sensor_resolution = {5344, 3200}, .framerates = list_of (standard_framerate)};
constexpr VornCameraConfiguration recording_high_speed_camera_config = {
    .sensor_resolution = {2656, 1600}, .framerates = list_of (high_framerate)};
constexpr VornCameraConfiguration recording_super_high_speed_camera_config = {
    .sensor_resolution = {1312, 788}, .framerates = list_of (super_high_framerate)};
// The one configuration that admits a range and lists nothing.
constexpr VornCameraConfiguration recording_thermal_camera_config = {
    .sensor_resolution = {5344, 4016},
    .framerates = range_of (VornFramerate{9, 1}, VornFramerate{9, 1})};

constexpr VornCameraConfiguration photo_camera_config (VornFramerateSet preview_framerates,
                                                       VornResolution crop)
{
  return {.sensor_resolution = {2656, 2008},
          .preview_resolution = {1312, 984},
          .framerates = preview_framerates,
          .capture = {.resolution = {5344, 4016}, .framerate = {24, 1}, .flag = 0},
          .crop_resolution = crop};
}

// Pairs: without HDR, with HDR.
constexpr VornCameraConfiguration photo_wide_camera_config[] = {
    photo_camera_config (list_of (photo_preview_framerate), {5344, 4016}),
    photo_camera_config (list_of (hdr_photo_preview_framerate), {5344, 4016})};
constexpr VornCameraConfiguration photo_recti_camera_config[] = {
    photo_camera_config (list_of (photo_preview_framerate), {4608, 3456}),
    photo_camera_config (list_of (hdr_photo_preview_framerate), {4608, 3456})};

constexpr VornRecordingCapability recording_capabilities[] = {
    {.sub_mode_mask = 1,
     .default_sub_mode = 0,
     .resolutions = range_of (VornResolution{4096, 2160}, VornResolution{4096, 2160}),
     .default_resolution = {4096, 2160},
     .framerates = range_of (VornFramerate{24000, 1001}, VornFramerate{24000, 1001}),
     .default_framerate = {24000, 1001},
     .hdr_available = 1,
     .configuration = &recording_standard_camera_config},
    {.sub_mode_mask = 3,
     .default_sub_mode = 0,
     .resolutions = range_of (VornResolution{1920, 1080}, VornResolution{3840, 2160}),
     .default_resolution = {3840, 2160},
     .framerates = range_of (VornFramerate{24000, 1001}, VornFramerate{30000, 1001}),
     .default_framerate = {30000, 1001},
     .hdr_available = 1,
     .configuration = &recording_standard_camera_config},
    {.sub_mode_mask = 12,
     .default_sub_mode = 2,
     .resolutions = range_of (VornResolution{1280, 720}, VornResolution{1920, 1080}),
     .default_resolution = {1920, 1080},
     .framerates = range_of (VornFramerate{48000, 1001}, VornFramerate{60000, 1001}),
     .default_framerate = {60000, 1001},
     .hdr_available = 0,
     .configuration = &recording_high_speed_camera_config},
    {.sub_mode_mask = 12,
     .default_sub_mode = 2,
     .resolutions = range_of (VornResolution{1280, 720}, VornResolution{1280, 720}),
     .default_resolution = {1280, 720},
     .framerates = range_of (VornFramerate{120, 1}, VornFramerate{120, 1}),
     .default_framerate = {120, 1},
     .hdr_available = 0,
     .configuration = &recording_super_high_speed_camera_config},
};

constexpr VornRecordingCapability recording_thermal_capabilities[] = {
    {.sub_mode_mask = 1,
     .default_sub_mode = 0,
     .resolutions = range_of (VornResolution{1440, 1080}, VornResolution{1440, 1080}),
     .default_resolution = {1440, 1080},
     .framerates = range_of (VornFramerate{9, 1}, VornFramerate{9, 1}),
     .default_framerate = {9, 1},
     .hdr_available = 0,
     .configuration = &recording_thermal_camera_config},
};

// Columns: photo modes, default; formats, default; file formats; HDR; configurations.
constexpr VornPhotoCapability photo_capabilities[] = {
    {1, 0, 1, 0, 4, 1, photo_wide_camera_config},  {5, 0, 1, 0, 1, 1, photo_wide_camera_config},
    {5, 0, 2, 1, 1, 1, photo_recti_camera_config}, {3, 0, 1, 0, 4, 0, photo_wide_camera_config},
    {7, 0, 1, 0, 1, 0, photo_wide_camera_config},  {7, 0, 2, 1, 1, 0, photo_recti_camera_config},
};

constexpr VornPhotoCapability photo_thermal_capabilities[] = {
    {1, 0, 1, 0, 5, 0, photo_wide_camera_config},
};

constexpr VornCameraCapabilities camera_capabilities = {
    .flavor = 0,
    .feature_mask = 3,
    .exposure = {.mode_mask = 63,
                 .default_mode = 1,
                 .mode_flags = {1, 1},
                 .iso_flags = 2,
                 .iso_min = 100,
                 .iso_max = 3200,
                 .iso_default = 100,
                 .ev_compensation_min = -3.0,
                 .ev_compensation_max = 3.0,
                 .exposure_time_min = 0.0001,
                 .exposure_time_max = 1.0,
                 .auto_exposure_time_limit = 0.01},
    .wb_mode_mask = 0xCCC9,
    .default_wb_mode = 1,
    .antiflicker_mode_mask = 13,
    .default_antiflicker_mode = 2,
    .default_style = {0, 0},
    .style_range = {0, 3},
};

constexpr VornCameraCapabilities camera_thermal_capabilities = {
    .flavor = 1,
    .feature_mask = 3,
    .exposure = {.mode_mask = 1,
                 .default_mode = 0,
                 .mode_flags = {0, 1},
                 .iso_flags = 0,
                 .iso_min = 100,
                 .iso_max = 3200,
                 .iso_default = 100,
                 .ev_compensation_min = 0.0,
                 .ev_compensation_max = 0.0,
                 .exposure_time_min = 0.0001,
                 .exposure_time_max = 1.0,
                 .auto_exposure_time_limit = 0.01},
    .wb_mode_mask = 1,
    .default_wb_mode = 0,
    .antiflicker_mode_mask = 13,
    .default_antiflicker_mode = 2,
    .default_style = {1, 1},
    .style_range = {0, 1},
};

struct Preset {
  VornResolution resolution;
  VornFramerateSet framerates;
  const char *name;
};

constexpr VornFramerateSet film_to_video =
    range_of (VornFramerate{24000, 1001}, VornFramerate{30, 1});
constexpr VornFramerateSet twice = range_of (VornFramerate{48000, 1001}, VornFramerate{60, 1});
constexpr VornFramerateSet four_times =
    range_of (VornFramerate{96000, 1001}, VornFramerate{120, 1});
constexpr VornFramerateSet thermal_rate = range_of (VornFramerate{9, 1}, VornFramerate{9, 1});

constexpr Preset streaming_preset[] = {
    {{1920, 1080}, film_to_video, "ZeltoStreaming1080p"},
    {{1280, 720}, film_to_video, "ZeltoStreaming720p"},
    {{960, 720}, thermal_rate, "ZeltoStreamingThermal720p"},
    {{856, 480}, film_to_video, "ZeltoStreaming480p"},
    {{640, 360}, film_to_video, "ZeltoStreaming360p"},
    {{1024, 768}, film_to_video, "ZeltoStreamingXGA"},
    {{640, 480}, film_to_video, "ZeltoStreamingVGA"},
};

constexpr Preset recording_preset[] = {
    {{4096, 2160},
     range_of (VornFramerate{24000, 1001}, VornFramerate{24, 1}),
     "ZeltoRecordingDCI4K"},
    {{3840, 2160}, film_to_video, "ZeltoRecording2160p"},
    {{2688, 1512}, film_to_video, "ZeltoRecording2_7K"},
    {{1920, 1080}, film_to_video, "ZeltoRecording1080p"},
    {{1920, 1080}, twice, "ZeltoRecording1080pHFRx2"},
    {{1280, 720}, film_to_video, "ZeltoRecording720p"},
    {{1280, 720}, twice, "ZeltoRecording720pHFRx2"},
    {{1280, 720}, four_times, "ZeltoRecording720pHFRx4"},
    {{1440, 1080}, thermal_rate, "ZeltoRecordingThermal1080p9"},
};

constexpr VornResolution smallest_stream = {64, 64};

/** Feature words of the view capabilities; bits beyond VornViewFeature are the framework's
 * clients'. */
constexpr guint32 recording_features = 51;
constexpr guint32 photo_features = 5;

const VornRecordingCapability *find_recording (const VornCameraMode *mode,
                                               const VornCapabilitySet *caps)
{
  return vorn_camera_recording_capabilities_find (caps->recording, caps->recording_count, mode);
}

const VornPhotoCapability *find_photo (const VornCameraMode *mode, const VornCapabilitySet *caps)
{
  return vorn_camera_photo_capabilities_find (caps->photo, caps->photo_count, mode);
}

template <typename T>
void write (T *out, const T &value)
{
  if (out)
    *out = value;
}

void clear_unavailable_hdr (guint32 *hdr_state, guint32 hdr_available)
{
  if (hdr_state && *hdr_state && !hdr_available)
    *hdr_state = 0;
}

} // namespace

void vorn_morvik_zelto_front_modes_caps_set (gboolean thermal, VornCapabilitySet *caps)
{
  if (thermal)
    *caps = {&camera_thermal_capabilities, recording_thermal_capabilities,
             std::size (recording_thermal_capabilities), photo_thermal_capabilities,
             std::size (photo_thermal_capabilities)};
  else
    *caps = {&camera_capabilities, recording_capabilities, std::size (recording_capabilities),
             photo_capabilities, std::size (photo_capabilities)};
}

void vorn_morvik_zelto_front_modes_get_default_mode (const VornSensorConfiguration *sensor,
                                                     const VornCapabilitySet *caps,
                                                     VornCameraMode *mode)
{
  const VornRecordingCapability *const end = caps->recording + caps->recording_count;
  const VornRecordingCapability *entry = caps->recording;
  while (entry != end &&
         !(vorn_resolution_cmp (&entry->configuration->sensor_resolution, &sensor->resolution) &&
           vorn_framerate_is_valid (&entry->framerates, &sensor->framerate)))
    entry++;

  VornFramerate framerate = sensor->framerate;
  if (entry == end) {
    VORN_LOG_WARNING ("no mode found with sensor configuration: use default one");
    *mode = {};
    if (caps->recording_count == 0)
      return;
    entry = caps->recording;
    framerate = entry->default_framerate;
  }
  *mode = {.type = VORN_CAMERA_MODE_RECORDING,
           .recording = {.sub_mode = entry->default_sub_mode,
                         .resolution = entry->default_resolution,
                         .framerate = framerate}};
}

gboolean vorn_morvik_zelto_front_modes_check_mode (const VornCameraMode *mode,
                                                   const VornCapabilitySet *caps)
{
  return find_recording (mode, caps) || find_photo (mode, caps);
}

gboolean vorn_morvik_zelto_front_modes_get_hdr_availability (const VornCameraMode *mode,
                                                             const VornCapabilitySet *caps,
                                                             guint32 *hdr_available)
{
  if (!hdr_available)
    return FALSE;
  if (const auto *recording = find_recording (mode, caps))
    *hdr_available = recording->hdr_available;
  else if (const auto *photo = find_photo (mode, caps))
    *hdr_available = photo->hdr_available;
  else
    return FALSE;
  return TRUE;
}

static gboolean get_recording_format (const VornCapabilitySet *caps, const VornCameraMode *mode,
                                      VornFormat *sensor_format, VornFormat *stream_format,
                                      VornFormat *capture_format, VornFormat *crop_format,
                                      guint32 *hdr_state, guint32 *hdr_available)
{
  const VornRecordingCapability *entry = find_recording (mode, caps);
  if (!entry)
    return FALSE;
  write (hdr_available, entry->hdr_available);
  const VornCameraConfiguration *configuration = entry->configuration;
  const VornFramerate &framerate = mode->recording.framerate;
  if (!vorn_framerate_is_valid (&configuration->framerates, &framerate))
    return FALSE;
  const VornFormat sensor = {configuration->sensor_resolution, framerate, 0};
  write (sensor_format, sensor);
  write (stream_format, {mode->recording.resolution, framerate, mode->flag});
  write (capture_format, sensor);
  write (crop_format, sensor);
  clear_unavailable_hdr (hdr_state, entry->hdr_available);
  return TRUE;
}

static gboolean get_photo_format (const VornCapabilitySet *caps, const VornCameraMode *mode,
                                  VornFormat *sensor_format, VornFormat *stream_format,
                                  VornFormat *capture_format, VornFormat *crop_format,
                                  guint32 *hdr_state, guint32 *hdr_available)
{
  const VornPhotoCapability *entry = find_photo (mode, caps);
  if (!entry)
    return FALSE;
  write (hdr_available, entry->hdr_available);
  const bool hdr = hdr_state && *hdr_state && entry->hdr_available;
  const VornCameraConfiguration *configuration = &entry->configurations[hdr ? 1 : 0];
  const VornFramerate preview = hdr ? hdr_photo_preview_framerate[0] : photo_preview_framerate[0];
  if (!vorn_framerate_is_valid (&configuration->framerates, &preview))
    return FALSE;
  write (sensor_format, {configuration->sensor_resolution, preview, 0});
  write (stream_format, {configuration->preview_resolution, preview, 0});
  write (capture_format, configuration->capture);
  write (crop_format, {configuration->crop_resolution, configuration->capture.framerate, 0});
  clear_unavailable_hdr (hdr_state, entry->hdr_available);
  return TRUE;
}

gboolean vorn_morvik_zelto_front_modes_get_camera_format (
    const VornCapabilitySet *caps, const VornCameraMode *mode, VornFormat *sensor_format,
    VornFormat *stream_format, VornFormat *capture_format, VornFormat *crop_format,
    guint32 *hdr_state, guint32 *hdr_available)
{
  switch (mode->type) {
  case VORN_CAMERA_MODE_RECORDING:
    return get_recording_format (caps, mode, sensor_format, stream_format, capture_format,
                                 crop_format, hdr_state, hdr_available);
  case VORN_CAMERA_MODE_PHOTO:
    return get_photo_format (caps, mode, sensor_format, stream_format, capture_format, crop_format,
                             hdr_state, hdr_available);
  default:
    return FALSE;
  }
}

gboolean
vorn_morvik_zelto_front_modes_get_exposure_capabilities (const VornCameraMode *mode,
                                                         VornExposureCapabilities *capabilities)
{
  *capabilities = camera_capabilities.exposure;
  const VornFramerate &framerate = mode->recording.framerate;
  if (mode->type != VORN_CAMERA_MODE_RECORDING || framerate.num == 0 || framerate.den == 0)
    return TRUE;
  const gdouble frame_period = static_cast<gdouble> (framerate.den) / framerate.num;
  if (frame_period < 1.0) {
    capabilities->exposure_time_max = frame_period;
    capabilities->auto_exposure_time_limit = frame_period;
  }
  return TRUE;
}

/** Halves a rate until it is no more than limit frames per second. */
static VornFramerate reduce_framerate (VornFramerate framerate, guint32 limit)
{
  while (framerate.num > static_cast<guint64> (limit) * framerate.den)
    framerate.den *= 2;
  return framerate;
}

static gboolean get_recording_view_capabilities (const VornCameraMode *mode,
                                                 VornViewCapabilities *capabilities,
                                                 const VornCapabilitySet *caps, gboolean thermal)
{
  capabilities->feature_mask = recording_features;
  const VornRecordingCapability *entry = find_recording (mode, caps);
  if (!entry)
    return FALSE;
  const VornFramerate &framerate = mode->recording.framerate;
  capabilities->recording_resolutions = entry->resolutions;
  capabilities->default_recording_resolution = entry->default_resolution;
  capabilities->recording_framerates = entry->framerates;
  capabilities->recording_framerates.max = framerate;
  capabilities->default_recording_framerate = framerate;

  const VornResolution largest_stream =
      thermal ? VornResolution{960, 720} : VornResolution{1280, 720};
  const guint32 fastest_stream = thermal ? 9 : 30;
  capabilities->streaming_resolutions = range_of (smallest_stream, largest_stream);
  capabilities->default_streaming_resolution = largest_stream;
  capabilities->streaming_framerates =
      range_of (VornFramerate{thermal ? 9u : 1u, 1}, reduce_framerate (framerate, fastest_stream));
  capabilities->default_streaming_framerate = reduce_framerate (framerate, fastest_stream);
  return TRUE;
}

static gboolean get_photo_view_capabilities (const VornCameraMode *mode,
                                             VornViewCapabilities *capabilities,
                                             const VornCapabilitySet *caps, gboolean hdr_state)
{
  capabilities->feature_mask = photo_features;
  const VornPhotoCapability *entry = find_photo (mode, caps);
  if (!entry)
    return FALSE;
  constexpr VornResolution largest_stream = {1024, 768};
  const VornFramerate preview =
      hdr_state ? hdr_photo_preview_framerate[0] : photo_preview_framerate[0];
  capabilities->streaming_resolutions = range_of (smallest_stream, largest_stream);
  capabilities->default_streaming_resolution = largest_stream;
  capabilities->streaming_framerates = range_of (VornFramerate{1, 1}, preview);
  capabilities->default_streaming_framerate = preview;
  capabilities->photo_format_mask = entry->format_mask;
  capabilities->photo_file_format_mask = entry->file_format_mask;
  return TRUE;
}

gboolean vorn_morvik_zelto_front_modes_get_view_capabilities (const VornCameraMode *mode,
                                                              VornViewCapabilities *capabilities,
                                                              const VornCapabilitySet *caps,
                                                              gboolean hdr_state, gboolean thermal)
{
  *capabilities = {};
  switch (mode->type) {
  case VORN_CAMERA_MODE_RECORDING:
    return get_recording_view_capabilities (mode, capabilities, caps, thermal);
  case VORN_CAMERA_MODE_PHOTO:
    return get_photo_view_capabilities (mode, capabilities, caps, hdr_state);
  default:
    return FALSE;
  }
}

template <size_t count>
static const gchar *find_preset (const Preset (&presets)[count], const VornFormat *format)
{
  if (!format)
    return nullptr;
  for (const Preset &preset : presets)
    if (vorn_resolution_cmp (&preset.resolution, &format->resolution) &&
        vorn_framerate_is_valid (&preset.framerates, &format->framerate))
      return preset.name;
  return nullptr;
}

const gchar *vorn_morvik_zelto_front_modes_get_recording_preset (const VornFormat *format)
{
  return find_preset (recording_preset, format);
}

const gchar *vorn_morvik_zelto_front_modes_get_streaming_preset (const VornFormat *format)
{
  return find_preset (streaming_preset, format);
}
