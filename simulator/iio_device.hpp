// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
/**
 * What the IIO server shows: devices with their channels and attributes. Plain data, so that a test
 * can take something away or spoil it before the server starts.
 */
#ifndef SIMULATOR_IIO_DEVICE_HPP
#define SIMULATOR_IIO_DEVICE_HPP

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "gyro_sensor.hpp"

namespace sim
{

/** One instant of the sensor. */
struct ImuSample {
  GyroReading gyro;     // raw steps x, y, z
  int64_t timestamp_ns; // CLOCK_MONOTONIC
};

/** What a channel measures. */
enum class ImuQuantity { rate_x, rate_y, rate_z, timestamp };

struct IioAttribute {
  std::string name;
  std::string value;
  std::string filename; // channels only: its name as a file
  bool live = false;    // the channel's current reading, not value
};

struct IioChannel {
  std::string id;
  uint32_t index; // scan index, from 0 without gaps: also the channel's bit in masks
  ImuQuantity quantity;
  bool is_signed = true;
  uint32_t bits = 16;
  uint32_t storage_bits = 16; // 8, 16, 32 or 64
  std::vector<IioAttribute> attributes;

  /** "le:S16/16>>0" */
  std::string format () const;
};

struct IioDevice {
  std::string id;
  std::string name;
  std::vector<IioChannel> channels; // in the order of their scan indices
  std::vector<IioAttribute> attributes;

  bool is_trigger () const { return id.starts_with ("trigger"); }
  const IioChannel *find_channel (std::string_view channel_id) const;
};

struct IioContextModel {
  std::vector<IioDevice> devices;

  /** By id or by name. */
  const IioDevice *find_device (std::string_view id_or_name) const;
  /** The description that clients ask for first, on one line. */
  std::string xml () const;
};

/** The camera's gyroscope "iio-cam_imu" and its trigger "imu_cam_trig". */
IioContextModel make_camera_imu_context (const GyroModel &gyro, uint32_t rate_hz);

/** Where each channel of a mask lies within a sample. */
struct IioSampleLayout {
  struct Field {
    ImuQuantity quantity;
    uint32_t offset;
    uint32_t bytes;
  };
  std::vector<Field> fields;
  uint32_t sample_bytes = 0; // 0: nothing in the mask
};

/** Each channel aligned to its own size, a sample to its largest channel. */
IioSampleLayout make_sample_layout (const IioDevice &device, uint32_t mask);

/** Appends one sample, little endian, padding zero. */
void append_sample (const IioSampleLayout &layout, const ImuSample &sample, std::string *out);

/** What a sample holds for a channel. */
int64_t quantity_of (const ImuSample &sample, ImuQuantity quantity);

} // namespace sim

#endif
