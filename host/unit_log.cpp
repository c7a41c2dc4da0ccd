// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "unit_log.hpp"

#include <cerrno>
#include <cinttypes>
#include <cstring>

#include <vorn/log.h>

VORN_LOG_TAG ("host");

std::unique_ptr<UnitLog> UnitLog::open (const std::string &path, std::string *error)
{
  FILE *file = fopen (path.c_str (), "we");
  if (!file) {
    *error = path + ": " + strerror (errno);
    return nullptr;
  }
  fputs ("capture_ns,encoded_ns,bytes\n", file);
  return std::unique_ptr<UnitLog> (new UnitLog (path, file));
}

UnitLog::~UnitLog ()
{
  const bool written = ferror (file_) == 0;
  if (fclose (file_) != 0 || !written)
    VORN_LOG_ERROR ("%s: not all units could be written", path_.c_str ());
}

void UnitLog::add (std::optional<int64_t> capture_ns, int64_t encoded_ns, uint64_t bytes)
{
  if (capture_ns)
    fprintf (file_, "%" PRId64, *capture_ns);
  fprintf (file_, ",%" PRId64 ",%" PRIu64 "\n", encoded_ns, bytes);
}
