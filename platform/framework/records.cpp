// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The records that plug-ins and framework exchange as plain memory. Their layout is part of the
// interface: a change here is a new interface version.
#include <cstddef>

#include <vorn/gst_view.h>
#include <vorn/metadata_provider.h>
#include <vorn/plugin.h>
#include <vorn/product.h>
#include <vorn/view.h>
#include <vorn/virtual_camera.h>

static_assert (sizeof (void *) == 8, "the layouts below are those of 64-bit machines");

constexpr size_t word = sizeof (guint32);
constexpr size_t slot = sizeof (gpointer);

#define ASSERT_SIZE(type, size) static_assert (sizeof (type) == (size))
#define ASSERT_AT(type, field, at) static_assert (offsetof (type, field) == (at))
#define ASSERT_WORD(type, field, index) static_assert (offsetof (type, field) == word * (index))

ASSERT_SIZE (VornPluginDesc, 120);
ASSERT_AT (VornPluginDesc, name, 0);
ASSERT_AT (VornPluginDesc, version_major, 8);
ASSERT_AT (VornPluginDesc, version_minor, 12);
ASSERT_AT (VornPluginDesc, init, 16);
ASSERT_AT (VornPluginDesc, reserved, 24);

// Two earlier operations stand before the five that a product fills.
constexpr size_t product_slots = sizeof (GObjectClass);
ASSERT_AT (VornProductClass, start, product_slots);
ASSERT_AT (VornProductClass, stop, product_slots + 8);
ASSERT_AT (VornProductClass, set_magic_carpet_active, product_slots + 16);
ASSERT_AT (VornProductClass, setup, product_slots + 24);
ASSERT_AT (VornProductClass, get_vcam_and_view, product_slots + 32);
ASSERT_AT (VornProductClass, get_camera_id, product_slots + 40);
ASSERT_AT (VornProductClass, set_flavor, product_slots + 48);
// A class that is cast to an instance shows its reserved space where the instance's own fields
// begin.
ASSERT_AT (VornProductClass, reserved, sizeof (VornProduct));

ASSERT_AT (VornProductConfiguration, key_file, 0);
ASSERT_WORD (VornProductConfiguration, thermal_alignment_offsets, 29);
ASSERT_SIZE (VornProductConfiguration, word * 38);

ASSERT_SIZE (VornView, sizeof (GObject));
ASSERT_SIZE (VornGstView, sizeof (GObject));
constexpr size_t view_key = sizeof (GObjectClass);
ASSERT_AT (VornViewClass, attitude_interface_key, view_key);
ASSERT_AT (VornViewClass, stream_setup, view_key + slot * 2);
ASSERT_AT (VornViewClass, stream_teardown, view_key + slot * 5);
ASSERT_AT (VornViewClass, stream_set_params, view_key + slot * 6);
ASSERT_AT (VornViewClass, start_recording, view_key + slot * 7);
ASSERT_AT (VornViewClass, stop_recording, view_key + slot * 8);
ASSERT_AT (VornViewClass, take_snapshot, view_key + slot * 9);
ASSERT_AT (VornViewClass, set_camera_orientation, view_key + slot * 12);
ASSERT_AT (VornViewClass, set_user_fov, view_key + slot * 13);
ASSERT_AT (VornViewClass, set_anti_wobble, view_key + slot * 14);
ASSERT_AT (VornViewClass, make_thumbnail, view_key + slot * 15);
ASSERT_AT (VornViewClass, blending_event, view_key + slot * 16);
ASSERT_AT (VornViewClass, set_streaming_format, view_key + slot * 17);
ASSERT_AT (VornViewClass, set_recording_format, view_key + slot * 18);
ASSERT_AT (VornViewClass, set_snapshot_format, view_key + slot * 19);
ASSERT_AT (VornViewClass, prepare, view_key + slot * 20);
ASSERT_AT (VornViewClass, unprepare, view_key + slot * 21);
ASSERT_AT (VornViewClass, update_camera_mode, view_key + slot * 22);
ASSERT_AT (VornViewClass, set_activation, view_key + slot * 23);
ASSERT_AT (VornGstViewClass, handle_message, sizeof (VornViewClass));

ASSERT_SIZE (VornSensorConfiguration, word * 22);
ASSERT_WORD (VornSensorConfiguration, capture_left, 0);
ASSERT_WORD (VornSensorConfiguration, capture_top, 1);
ASSERT_WORD (VornSensorConfiguration, capture_width, 2);
ASSERT_WORD (VornSensorConfiguration, capture_height, 3);
ASSERT_WORD (VornSensorConfiguration, resolution.width, 4);
ASSERT_WORD (VornSensorConfiguration, resolution.height, 5);
ASSERT_WORD (VornSensorConfiguration, framerate.num, 6);
ASSERT_WORD (VornSensorConfiguration, framerate.den, 7);
ASSERT_WORD (VornSensorConfiguration, alignment_offsets, 13);
ASSERT_SIZE (VornAlignmentOffsetsCapabilities, word * 9);
ASSERT_SIZE (VornAlignmentOffsets, word * 3);

ASSERT_SIZE (VornCameraMode, word * 8);
ASSERT_WORD (VornCameraMode, type, 0);
ASSERT_WORD (VornCameraMode, reserved, 1);
ASSERT_WORD (VornCameraMode, recording.sub_mode, 2);
ASSERT_WORD (VornCameraMode, recording.resolution, 3);
ASSERT_WORD (VornCameraMode, recording.framerate, 5);
ASSERT_WORD (VornCameraMode, photo.photo_mode, 2);
ASSERT_WORD (VornCameraMode, photo.format, 3);
ASSERT_WORD (VornCameraMode, photo.file_format, 4);
ASSERT_WORD (VornCameraMode, photo.count, 6);
ASSERT_WORD (VornCameraMode, flag, 7);
ASSERT_SIZE (VornFormat, word * 5);
ASSERT_WORD (VornFormat, framerate, 2);
ASSERT_WORD (VornFormat, flag, 4);

ASSERT_SIZE (VornExposureCapabilities, 128);
ASSERT_AT (VornExposureCapabilities, iso_flags, 16);
ASSERT_AT (VornExposureCapabilities, iso_min, 20);
ASSERT_AT (VornExposureCapabilities, iso_max, 24);
ASSERT_AT (VornExposureCapabilities, iso_default, 44);
ASSERT_AT (VornExposureCapabilities, ev_compensation_min, 48);
ASSERT_AT (VornExposureCapabilities, exposure_time_min, 88);
ASSERT_AT (VornExposureCapabilities, auto_exposure_time_limit, 120);

ASSERT_SIZE (VornCameraCapabilities, 256);
ASSERT_AT (VornCameraCapabilities, exposure, 16);
ASSERT_AT (VornCameraCapabilities, wb_mode_mask, 144);
ASSERT_AT (VornCameraCapabilities, antiflicker_mode_mask, 184);
ASSERT_AT (VornCameraCapabilities, default_style, 192);
ASSERT_AT (VornCameraCapabilities, style_range, 208);

ASSERT_SIZE (VornViewCapabilities, 184);
ASSERT_AT (VornViewCapabilities, recording_resolutions, 8);
ASSERT_AT (VornViewCapabilities, default_recording_resolution, 40);
ASSERT_AT (VornViewCapabilities, recording_framerates, 48);
ASSERT_AT (VornViewCapabilities, default_recording_framerate, 80);
ASSERT_AT (VornViewCapabilities, streaming_resolutions, 88);
ASSERT_AT (VornViewCapabilities, default_streaming_resolution, 120);
ASSERT_AT (VornViewCapabilities, streaming_framerates, 128);
ASSERT_AT (VornViewCapabilities, default_streaming_framerate, 160);
ASSERT_AT (VornViewCapabilities, photo_format_mask, 168);
ASSERT_AT (VornViewCapabilities, photo_file_format_mask, 176);

ASSERT_SIZE (VornDefaultState, word * 7);
ASSERT_WORD (VornDefaultState, resolution, 1);
ASSERT_WORD (VornDefaultState, framerate, 3);
ASSERT_WORD (VornDefaultState, bitrate, 6);
ASSERT_SIZE (VornDefaultPhotoMode, 72);
ASSERT_AT (VornDefaultPhotoMode, bracketing_ev, 24);
ASSERT_AT (VornDefaultPhotoMode, bracketing_preset, 48);
ASSERT_AT (VornDefaultPhotoMode, burst_count, 56);
ASSERT_AT (VornDefaultPhotoMode, burst_preset, 64);

ASSERT_SIZE (VornStreamSetup, word * 11);
ASSERT_WORD (VornStreamSetup, live, 10);
ASSERT_WORD (VornStreamParameters, bitrate, 2);
ASSERT_SIZE (VornSnapshotRequest, 24);
ASSERT_AT (VornSnapshotRequest, sequence_number, 4);
ASSERT_AT (VornSnapshotRequest, panorama_type, 8);
ASSERT_AT (VornSnapshotRequest, shot_count, 16);

ASSERT_SIZE (VornTimedPhotoMetadata, 192);
ASSERT_AT (VornTimedPhotoMetadata, hfov, 56);
ASSERT_AT (VornTimedPhotoMetadata, latitude, 104);
ASSERT_AT (VornTimedPhotoMetadata, location_valid, 132);
ASSERT_AT (VornTimedPhotoMetadata, accuracy_vertical, 144);
