// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "telemetry_layout.hpp"

#include <algorithm>

#include "section_name.hpp"

namespace vorn::telemetry
{

namespace
{

/** One row of the stored table. */
struct StoredVariable {
  char name[max_variable_name + 1]; // padded with zeros, at least one
  uint32_t type;
  uint32_t size;
  uint32_t count;
  uint32_t offset;
};
static_assert (sizeof (StoredVariable) == 80);

uint32_t type_size (uint32_t type)
{
  switch (type) {
  case VORN_TELEMETRY_INT16:
    return 2;
  case VORN_TELEMETRY_INT32:
  case VORN_TELEMETRY_F32:
    return 4;
  case VORN_TELEMETRY_F64:
    return 8;
  default:
    return 0;
  }
}

} // namespace

bool valid_variable_name (std::string_view name)
{
  // A section's characters and dots: dots apart it must be one, or all dots.
  std::string without_dots (name);
  std::erase (without_dots, '.');
  return !name.empty () && name.size () <= max_variable_name &&
         (without_dots.empty () || blackboard::valid_name (without_dots, max_variable_name));
}

std::string shape_fault (uint32_t type, uint32_t size, uint32_t count)
{
  const uint32_t expected = type_size (type);
  if (expected == 0)
    return "unknown type code " + std::to_string (type);
  if (size != expected)
    return "size " + std::to_string (size) + " does not fit type code " + std::to_string (type) +
           ", which has " + std::to_string (expected);
  if (count < 1 || count > max_elements)
    return "count " + std::to_string (count) + " is not within 1 to " +
           std::to_string (max_elements);
  return {};
}

std::string Layout::add (Variable variable)
{
  if (!valid_variable_name (variable.name))
    return "a name has 1 to " + std::to_string (max_variable_name) +
           " letters, digits, '_', '-' or '.'";
  if (auto fault = shape_fault (variable.type, variable.size, variable.count); !fault.empty ())
    return fault;
  if (variables_.size () >= max_variables)
    return "more than " + std::to_string (max_variables) + " variables";
  variable.offset = (end_ + variable.size - 1) / variable.size * variable.size;
  const uint32_t end = variable.offset + variable.bytes ();
  if (end > max_sample_bytes)
    return "more than " + std::to_string (max_sample_bytes) + " bytes in a sample";
  end_ = end;
  variables_.push_back (std::move (variable));
  return {};
}

const Variable *Layout::find (std::string_view name) const
{
  const auto found = std::find_if (variables_.begin (), variables_.end (),
                                   [&] (const Variable &v) { return v.name == name; });
  return found == variables_.end () ? nullptr : &*found;
}

std::vector<std::byte> Layout::serialise () const
{
  std::vector<std::byte> table (variables_.size () * sizeof (StoredVariable));
  std::byte *row = table.data ();
  for (const auto &variable : variables_) {
    StoredVariable stored = {};
    memcpy (stored.name, variable.name.data (), variable.name.size ());
    stored.type = variable.type;
    stored.size = variable.size;
    stored.count = variable.count;
    stored.offset = variable.offset;
    memcpy (row, &stored, sizeof stored);
    row += sizeof stored;
  }
  return table;
}

std::optional<Layout> Layout::parse (const std::vector<std::byte> &table, uint32_t sample_bytes)
{
  if (table.empty () || table.size () % sizeof (StoredVariable) != 0)
    return std::nullopt;
  Layout layout;
  for (size_t at = 0; at < table.size (); at += sizeof (StoredVariable)) {
    StoredVariable stored;
    memcpy (&stored, table.data () + at, sizeof stored);
    const size_t length = strnlen (stored.name, sizeof stored.name);
    // Laid out again by the same rules: a table that our producer did not write shows.
    if (!layout.add ({std::string (stored.name, length), stored.type, stored.size, stored.count, 0})
             .empty () ||
        layout.variables_.back ().offset != stored.offset)
      return std::nullopt;
  }
  if (layout.sample_bytes () != sample_bytes)
    return std::nullopt;
  return layout;
}

} // namespace vorn::telemetry
