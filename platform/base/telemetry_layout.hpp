// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The variables of a telemetry section: their rules, their places in a sample, and the table of
// them that is stored with the section.
#ifndef VORN_TELEMETRY_LAYOUT_HPP
#define VORN_TELEMETRY_LAYOUT_HPP

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <vorn/telemetry.h>

namespace vorn::telemetry
{

constexpr size_t max_variable_name = 63;
constexpr uint32_t max_elements = 65536;
constexpr uint32_t max_variables = 1024;
constexpr uint32_t max_sample_bytes = 65536;

struct Variable {
  std::string name;
  uint32_t type = 0; // VornTelemetryType
  uint32_t size = 0;
  uint32_t count = 0;
  uint32_t offset = 0; // in the sample

  uint32_t bytes () const { return size * count; }
};

bool valid_variable_name (std::string_view name);

/** Why a variable cannot be of this shape; empty when it can. */
std::string shape_fault (uint32_t type, uint32_t size, uint32_t count);

class Layout
{
public:
  /** Appends a variable behind the others, aligned to its size; returns why it cannot, or nothing.
   */
  std::string add (Variable variable);

  const std::vector<Variable> &variables () const { return variables_; }
  const Variable *find (std::string_view name) const;
  /** Of a whole sample, rounded up to whole 64-bit words. */
  uint32_t sample_bytes () const { return (end_ + 7) / 8 * 8; }

  /** As stored with the section. */
  std::vector<std::byte> serialise () const;
  /** From what is stored with a section; nothing when it is damaged. */
  static std::optional<Layout> parse (const std::vector<std::byte> &table, uint32_t sample_bytes);

private:
  std::vector<Variable> variables_;
  uint32_t end_ = 0;
};

/** Bytes to copy between a sample and a variable's place in memory. */
template <typename Address>
struct Run {
  Address memory;
  uint32_t offset;
  uint32_t bytes;
};

/**
 * Adds a copy to a list, joining it with the last one when both sides go on where that one ended:
 * neighbouring variables then cost one copy.
 */
template <typename Address>
void append_run (std::vector<Run<Address>> &runs, Run<Address> run)
{
  if (!runs.empty () && runs.back ().memory + runs.back ().bytes == run.memory &&
      runs.back ().offset + runs.back ().bytes == run.offset)
    runs.back ().bytes += run.bytes;
  else
    runs.push_back (run);
}

/** memcpy with the common small sizes in line. */
inline void copy_run (std::byte *to, const std::byte *from, size_t bytes)
{
  switch (bytes) {
  case 4:
    memcpy (to, from, 4);
    break;
  case 8:
    memcpy (to, from, 8);
    break;
  case 16:
    memcpy (to, from, 16);
    break;
  default:
    memcpy (to, from, bytes);
  }
}

} // namespace vorn::telemetry

#endif
