// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "h264_sei_source.hpp"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace h264_sei
{

std::unique_ptr<Source> open_source (const std::string &path, std::string *error)
{
  guint8 head[12] = {};
  FILE *file = fopen (path.c_str (), "rbe");
  const gsize size = file ? fread (head, 1, sizeof head, file) : 0;
  const bool failed = !file || ferror (file);
  const int reason = errno;
  if (file)
    fclose (file);
  if (failed) {
    *error = g_strerror (reason);
    return nullptr;
  }
  if (size >= 8 && memcmp (head + 4, "ftyp", 4) == 0)
    return open_mp4 (path, error);
  static constexpr guint8 start_code[] = {0, 0, 0, 1};
  if (size >= 5 && (memcmp (head, start_code, 4) == 0 || memcmp (head, start_code + 1, 3) == 0))
    return open_byte_stream (path, error);
  *error = size == 0 ? "it is empty" : "it is neither an MP4 file nor an H.264 byte stream";
  return nullptr;
}

} // namespace h264_sei
