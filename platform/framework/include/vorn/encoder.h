/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/**
 * The encoder: raw video in, H.264 access units out, one a buffer, with what the rest of the
 * pipeline counts on whatever encoder does the work:
 *
 *     "sink"  video/x-raw in any format and size
 *     "src"   video/x-h264, stream-format=avc (4-byte lengths), alignment=au; SPS and PPS in band
 *             with each IDR unit as well as in the caps; VUI timing information and
 *             pic_struct_present_flag in the SPS; no reordering: a unit leaves for each frame
 *
 * Frame metadata of a raw frame is found on its access unit, with "sync-point" set from whether the
 * unit is a key frame. A frame without metadata leaves without.
 *
 * A GstBin; its children are its own affair. Properties:
 *
 *     "bitrate"            guint, kbit/s, any time also while it plays. 0, the default: what the
 *                          preset says, scaled to the picture
 *     "effective-bitrate"  guint, kbit/s, read only: what is in force
 *     "preset-bitrate"     guint, kbit/s, for pictures of
 *     "preset-width", "preset-height", "preset-framerate": the bitrate is scaled by the pixels per
 *                          second of the negotiated picture to those of this one
 *     "key-frame-interval" guint, ms of stream time, 1 to 10000
 *     "speed"              VornEncoderSpeed
 *     "slices"             guint, slices of a picture, 1 to 64
 *
 * "key-frame-interval" acts at once; "speed" and "slices" when the encoder goes to PAUSED the next
 * time.
 *
 * Implements GstPreset. gst_preset_load_preset () looks where GStreamer looks (the user's folder,
 * GST_PRESET_PATH, gst_preset_set_app_dir ()), under the type name "VornEncoder", and then among
 * the presets that are shipped with this library, which are found beside it in the build tree and
 * below the prefix alike. A preset leaves "bitrate" alone: once set, it stays.
 *
 * Properties may be set from any thread. The rest is bound by the rules of GstElement.
 */
#ifndef VORN_ENCODER_H
#define VORN_ENCODER_H

#include <gst/gst.h>

#include <vorn/api.h>

VORN_BEGIN_DECLS

/** How much work the encoder spends on a picture: more of it, better pictures at the same bitrate.
 */
typedef enum {
  VORN_ENCODER_SPEED_ULTRAFAST,
  VORN_ENCODER_SPEED_SUPERFAST,
  VORN_ENCODER_SPEED_VERYFAST,
  VORN_ENCODER_SPEED_FASTER,
  VORN_ENCODER_SPEED_FAST,
  VORN_ENCODER_SPEED_MEDIUM,
} VornEncoderSpeed;

/** The enumeration's type; its nicks are "ultrafast" to "medium". */
VORN_API GType vorn_encoder_speed_get_type (void);
#define VORN_TYPE_ENCODER_SPEED (vorn_encoder_speed_get_type ())

#define VORN_TYPE_ENCODER (vorn_encoder_get_type ())
VORN_API G_DECLARE_FINAL_TYPE (VornEncoder, vorn_encoder, VORN, ENCODER, GstBin)

/**
 * Makes an encoder. element_name: its name in the pipeline, NULL for any. x264enc does the
 * work. Where it is missing openh264enc does, with a warning in the log: it writes no timing
 * information, so that frames cannot carry their time. NULL, with an error in the log, when
 * neither is there. The reference is floating.
 */
VORN_API GstElement *vorn_encoder_new (const gchar *element_name);

/**
 * The same with the encoders to try, first the one that is wanted: a NULL-terminated list of the
 * factory names "x264enc" and "openh264enc"; others are as good as missing. NULL with
 * GST_CORE_ERROR_MISSING_PLUGIN, and nothing in the log, when none can be made.
 */
VORN_API GstElement *vorn_encoder_new_from (const gchar *element_name,
                                            const gchar *const *factory_names, GError **error);

VORN_END_DECLS

#endif
