// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "encoder_backend.hpp"

#include <cstring>
#include <iterator>
#include <string>

namespace vorn::encoder
{

namespace
{

const char *nick_of (VornEncoderSpeed speed)
{
  auto *klass = static_cast<GEnumClass *> (g_type_class_ref (VORN_TYPE_ENCODER_SPEED));
  const char *nick = g_enum_get_value (klass, speed)->value_nick; // static
  g_type_class_unref (klass);
  return nick;
}

// --- x264 ---

void initialize_x264 (GstElement *encoder)
{
  // One thread: more would cut each picture into as many slices, or hold frames back. Delimiters
  // are of no use between lengths.
  gst_util_set_object_arg (G_OBJECT (encoder), "tune", "zerolatency");
  g_object_set (encoder, "threads", 1u, "aud", FALSE, nullptr);
}

void set_up_x264 (GstElement *encoder, VornEncoderSpeed speed, guint slices)
{
  gst_util_set_object_arg (G_OBJECT (encoder), "speed-preset", nick_of (speed));
  // Key frames come when they are asked for, not with each cut of the scene.
  const std::string options = "pic-struct=1:scenecut=0:slices=" + std::to_string (slices);
  g_object_set (encoder, "option-string", options.c_str (), nullptr);
}

void set_bitrate_x264 (GstElement *encoder, guint bitrate_kbps)
{
  g_object_set (encoder, "bitrate", bitrate_kbps, nullptr);
}

// --- OpenH264 ---

void initialize_openh264 (GstElement *encoder)
{
  gst_util_set_object_arg (G_OBJECT (encoder), "rate-control", "bitrate");
  gst_util_set_object_arg (G_OBJECT (encoder), "slice-mode", "n-slices");
  g_object_set (encoder, "multi-thread", 1u, "scene-change-detection", FALSE, "gop-size", 300u,
                nullptr);
}

void set_up_openh264 (GstElement *encoder, VornEncoderSpeed speed, guint slices)
{
  const char *complexity = speed <= VORN_ENCODER_SPEED_SUPERFAST ? "low"
                           : speed <= VORN_ENCODER_SPEED_FASTER  ? "medium"
                                                                 : "high";
  gst_util_set_object_arg (G_OBJECT (encoder), "complexity", complexity);
  g_object_set (encoder, "num-slices", slices, nullptr);
}

void set_bitrate_openh264 (GstElement *encoder, guint bitrate_kbps)
{
  g_object_set (encoder, "bitrate", bitrate_kbps * 1000, nullptr);
}

constexpr Backend backends[] = {
    {"x264enc", true, true, initialize_x264, set_up_x264, set_bitrate_x264, 2048000},
    {"openh264enc", false, false, initialize_openh264, set_up_openh264, set_bitrate_openh264,
     2048000},
};

} // namespace

const Backend *find_backend (const char *factory_name)
{
  for (const Backend &backend : backends)
    if (strcmp (backend.factory_name, factory_name) == 0)
      return &backend;
  return nullptr;
}

} // namespace vorn::encoder
