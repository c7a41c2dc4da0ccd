// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "library_check.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>

#include <link.h>

namespace
{

template <typename Record>
bool read_at (std::ifstream &file, uint64_t offset, Record *record)
{
  file.seekg (static_cast<std::streamoff> (offset));
  return static_cast<bool> (file.read (reinterpret_cast<char *> (record), sizeof *record));
}

} // namespace

std::string find_library_fault (const std::string &path)
{
  std::ifstream file (path, std::ios::binary | std::ios::ate);
  const auto size = static_cast<uint64_t> (std::max<std::streamoff> (file.tellg (), 0));
  ElfW (Ehdr) header;
  // What is no library at all the loader refuses by itself.
  if (!file || !read_at (file, 0, &header) || memcmp (header.e_ident, ELFMAG, SELFMAG) != 0 ||
      header.e_phentsize != sizeof (ElfW (Phdr)))
    return {};
  // The table of sections is the last thing in a file, when it has one.
  uint64_t end = header.e_shoff + uint64_t{header.e_shnum} * header.e_shentsize;
  for (unsigned i = 0; i < header.e_phnum; i++) {
    ElfW (Phdr) segment;
    if (!read_at (file, header.e_phoff + uint64_t{i} * sizeof segment, &segment)) {
      end = std::max (end, header.e_phoff + uint64_t{header.e_phnum} * sizeof segment);
      break;
    }
    if (segment.p_type == PT_LOAD)
      end = std::max (end, uint64_t{segment.p_offset} + segment.p_filesz);
  }
  if (end <= size)
    return {};
  return "it is damaged: of " + std::to_string (end) + " bytes only " + std::to_string (size) +
         " are there";
}
