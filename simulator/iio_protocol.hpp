// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
/**
 * Requests of the industrial-I/O network protocol, as libiio's clients send them: one ASCII line
 * each. Parsing knows nothing of devices; it only refuses what is no request.
 */
#ifndef SIMULATOR_IIO_PROTOCOL_HPP
#define SIMULATOR_IIO_PROTOCOL_HPP

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace sim
{

namespace iio_limits
{
constexpr size_t line_bytes = 512;            // longer lines come from no client
constexpr uint32_t write_bytes = 4096;        // an attribute's value
constexpr uint32_t read_bytes = 1u << 20;     // one block
constexpr uint32_t buffer_samples = 1u << 16; // of one open buffer
constexpr uint32_t buffers = 64;
constexpr uint32_t timeout_ms = 3'600'000;
} // namespace iio_limits

enum class IioCommand {
  print,
  print_compressed,
  version,
  timeout,           // number: ms
  read_attribute,    // device, owner, channel, attribute
  write_attribute,   // the same; number: bytes that follow the line
  set_buffers_count, // device; number
  open,              // device; number: samples; mask; cyclic
  set_trigger,       // device; trigger, empty to detach
  get_trigger,       // device
  read_buffer,       // device; number: bytes
  close,             // device
  exit,
};

enum class IioAttributeOwner { device, debug, buffer, input_channel, output_channel };

/** One request; views point into the line. */
struct IioRequest {
  IioCommand command{};
  std::string_view device;
  IioAttributeOwner owner = IioAttributeOwner::device;
  std::string_view channel;
  std::string_view attribute;
  std::string_view trigger;
  std::string_view mask; // hexadecimal digits, a multiple of eight
  uint32_t number = 0;
  bool cyclic = false;
};

/**
 * Parses one line without its end. Empty when it is no request: unknown, words missing or too many,
 * a number that is none or above its limit.
 */
std::optional<IioRequest> parse_iio_request (std::string_view line);

/** The mask's last 32 channels; empty when a higher bit is set. */
std::optional<uint32_t> parse_iio_mask (std::string_view mask);

} // namespace sim

#endif
