// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "iio_device.hpp"

#include <algorithm>
#include <cstdio>

namespace sim
{

namespace
{

// Clients validate against this; without it each of them prints "validity error".
constexpr const char *xml_header =
    R"(<?xml version="1.0" encoding="utf-8"?><!DOCTYPE context [)"
    R"(<!ELEMENT context (device | context-attribute)*><!ELEMENT context-attribute EMPTY>)"
    R"(<!ELEMENT device (channel | attribute | debug-attribute | buffer-attribute)*>)"
    R"(<!ELEMENT channel (scan-element?, attribute*)><!ELEMENT attribute EMPTY>)"
    R"(<!ELEMENT scan-element EMPTY><!ELEMENT debug-attribute EMPTY>)"
    R"(<!ELEMENT buffer-attribute EMPTY>)"
    R"(<!ATTLIST context name CDATA #REQUIRED version-major CDATA #REQUIRED)"
    R"( version-minor CDATA #REQUIRED version-git CDATA #REQUIRED description CDATA #IMPLIED>)"
    R"(<!ATTLIST context-attribute name CDATA #REQUIRED value CDATA #REQUIRED>)"
    R"(<!ATTLIST device id CDATA #REQUIRED name CDATA #IMPLIED label CDATA #IMPLIED>)"
    R"(<!ATTLIST channel id CDATA #REQUIRED type (input|output) #REQUIRED name CDATA #IMPLIED>)"
    R"(<!ATTLIST scan-element index CDATA #REQUIRED format CDATA #REQUIRED scale CDATA #IMPLIED>)"
    R"(<!ATTLIST attribute name CDATA #REQUIRED filename CDATA #IMPLIED>)"
    R"(<!ATTLIST debug-attribute name CDATA #REQUIRED>)"
    R"(<!ATTLIST buffer-attribute name CDATA #REQUIRED>]>)"
    R"(<context name="local" version-major="0" version-minor="24" version-git="v0.24")"
    R"( description="simulated" >)";

std::string escaped (std::string_view text)
{
  std::string result;
  for (const char c : text) {
    switch (c) {
    case '&':
      result += "&amp;";
      break;
    case '<':
      result += "&lt;";
      break;
    case '>':
      result += "&gt;";
      break;
    case '"':
      result += "&quot;";
      break;
    default:
      result += c;
    }
  }
  return result;
}

std::string xml_of (const IioAttribute &attribute)
{
  std::string xml = R"(<attribute name=")" + escaped (attribute.name) + '"';
  if (!attribute.filename.empty ())
    xml += R"( filename=")" + escaped (attribute.filename) + '"';
  return xml + " />";
}

std::string xml_of (const IioChannel &channel)
{
  std::string xml = R"(<channel id=")" + escaped (channel.id) + R"(" type="input" >)" +
                    R"(<scan-element index=")" + std::to_string (channel.index) + R"(" format=")" +
                    escaped (channel.format ()) + R"(" />)";
  for (const auto &attribute : channel.attributes)
    xml += xml_of (attribute);
  return xml + "</channel>";
}

IioChannel make_gyro_channel (const char *axis, uint32_t index, ImuQuantity quantity,
                              const std::string &scale)
{
  const std::string id = std::string ("anglvel_") + axis;
  return {id,
          index,
          quantity,
          true,
          16,
          16,
          {{"raw", "", "in_" + id + "_raw", true}, {"scale", scale, "in_anglvel_scale"}}};
}

} // namespace

std::string IioChannel::format () const
{
  return std::string ("le:") + (is_signed ? 'S' : 'U') + std::to_string (bits) + "/" +
         std::to_string (storage_bits) + ">>0";
}

const IioChannel *IioDevice::find_channel (std::string_view channel_id) const
{
  const auto found =
      std::find_if (channels.begin (), channels.end (),
                    [channel_id] (const IioChannel &channel) { return channel.id == channel_id; });
  return found == channels.end () ? nullptr : &*found;
}

const IioDevice *IioContextModel::find_device (std::string_view id_or_name) const
{
  const auto found =
      std::find_if (devices.begin (), devices.end (), [id_or_name] (const IioDevice &device) {
        return device.id == id_or_name || device.name == id_or_name;
      });
  return found == devices.end () ? nullptr : &*found;
}

std::string IioContextModel::xml () const
{
  std::string xml = xml_header;
  for (const auto &device : devices) {
    xml +=
        R"(<device id=")" + escaped (device.id) + R"(" name=")" + escaped (device.name) + R"(" >)";
    for (const auto &channel : device.channels)
      xml += xml_of (channel);
    for (const auto &attribute : device.attributes)
      xml += xml_of (attribute);
    xml += "</device>";
  }
  return xml + "</context>";
}

IioContextModel make_camera_imu_context (const GyroModel &gyro, uint32_t rate_hz)
{
  char scale[32];
  snprintf (scale, sizeof scale, "%.9f", gyro.scale_rad_s);
  IioDevice imu = {
      "iio:device0",
      "iio-cam_imu",
      {make_gyro_channel ("x", 0, ImuQuantity::rate_x, scale),
       make_gyro_channel ("y", 1, ImuQuantity::rate_y, scale),
       make_gyro_channel ("z", 2, ImuQuantity::rate_z, scale),
       {"timestamp", 3, ImuQuantity::timestamp, true, 64, 64, {}}},
      // Network clients look a device's attribute up here before they ask for it.
      {{"in_anglvel_scale", scale, ""}, {"in_anglvel_matrix", format_mount_matrix (gyro), ""}}};
  IioDevice trigger = {
      "trigger0", "imu_cam_trig", {}, {{"sampling_frequency", std::to_string (rate_hz), ""}}};
  return {{std::move (imu), std::move (trigger)}};
}

IioSampleLayout make_sample_layout (const IioDevice &device, uint32_t mask)
{
  const auto aligned = [] (uint32_t value, uint32_t size) {
    return (value + size - 1) / size * size;
  };
  IioSampleLayout layout;
  uint32_t end = 0;
  uint32_t largest = 1;
  for (const auto &channel : device.channels) {
    if (channel.index > 31 || !(mask & (1u << channel.index)))
      continue;
    const uint32_t bytes = channel.storage_bits / 8;
    const uint32_t offset = aligned (end, bytes);
    layout.fields.push_back ({channel.quantity, offset, bytes});
    end = offset + bytes;
    largest = std::max (largest, bytes);
  }
  layout.sample_bytes = aligned (end, largest);
  return layout;
}

int64_t quantity_of (const ImuSample &sample, ImuQuantity quantity)
{
  return quantity == ImuQuantity::timestamp ? sample.timestamp_ns
                                            : sample.gyro[static_cast<size_t> (quantity)];
}

void append_sample (const IioSampleLayout &layout, const ImuSample &sample, std::string *out)
{
  const size_t start = out->size ();
  out->resize (start + layout.sample_bytes, '\0');
  for (const auto &field : layout.fields) {
    const auto value = static_cast<uint64_t> (quantity_of (sample, field.quantity));
    for (uint32_t i = 0; i < field.bytes; i++)
      (*out)[start + field.offset + i] = static_cast<char> (value >> (8 * i));
  }
}

} // namespace sim
