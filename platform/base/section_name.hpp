// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Names of sections and namespaces, and the shared memory objects that they stand for.
#ifndef VORN_SECTION_NAME_HPP
#define VORN_SECTION_NAME_HPP

#include <optional>
#include <string>
#include <string_view>

#include "blackboard_ring.hpp"

namespace vorn::blackboard
{

/** Where the system keeps shared memory objects; their names here are its file names. */
constexpr char shm_folder[] = "/dev/shm";

constexpr size_t max_section_name = 64;

/** Whether a name has 1 to max characters, all of them ASCII letters, digits, '_' and '-'. */
bool valid_name (std::string_view name, size_t max = max_section_name);

/** A section's name and the path of its object. */
struct Address {
  std::string name;
  std::string path;
};

/** The address of a section; both names must be valid. */
Address address_in (const std::string &name_space, Kind kind, const std::string &name);

/** The section's address in the current namespace. Logs why there is none. */
std::optional<Address> section_address (Kind kind, const char *name);

/** The current namespace, or the one given; logs when it is not valid. Thread-safe. */
std::optional<std::string> current_namespace (const char *wanted = nullptr);

/** File names of all sections of a namespace start with this. */
std::string namespace_prefix (const std::string &name);

} // namespace vorn::blackboard

#endif
