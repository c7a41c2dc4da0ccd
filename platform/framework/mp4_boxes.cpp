// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "mp4_boxes.hpp"

#include <cstring>
#include <functional>

#include <sys/stat.h>
#include <unistd.h>

namespace vorn::mp4
{

namespace
{

constexpr guint32 type_of (const char (&name)[5])
{
  return static_cast<guint32> (name[0]) << 24 | static_cast<guint32> (name[1]) << 16 |
         static_cast<guint32> (name[2]) << 8 | static_cast<guint32> (name[3]);
}

struct Box {
  guint32 type = 0;
  guint64 begin = 0;
  guint64 content = 0; // where what follows size and type begins
  guint64 end = 0;
};

bool read_at (int fd, void *data, size_t size, guint64 offset)
{
  return pread (fd, data, size, static_cast<off_t> (offset)) == static_cast<ssize_t> (size);
}

/** The box that begins at an offset; nothing when it does not end at or before limit. */
std::optional<Box> read_box (int fd, guint64 offset, guint64 limit)
{
  guint8 header[16];
  if (offset > limit || limit - offset < 8 || !read_at (fd, header, 8, offset))
    return {};
  guint32 size_and_type[2];
  memcpy (size_and_type, header, 8);
  guint64 size = GUINT32_FROM_BE (size_and_type[0]);
  Box box = {GUINT32_FROM_BE (size_and_type[1]), offset, offset + 8, 0};
  if (size == 1) { // a 64-bit size follows
    if (!read_at (fd, header, 16, offset))
      return {};
    memcpy (&size, header + 8, 8);
    size = GUINT64_FROM_BE (size);
    box.content = offset + 16;
  }
  if (size < box.content - offset || size > limit - offset)
    return {};
  box.end = offset + size;
  return box;
}

guint64 size_of (int fd)
{
  struct stat status = {};
  return fstat (fd, &status) == 0 ? static_cast<guint64> (status.st_size) : 0;
}

/** Calls visit with each box in a range; stops at the first that is not complete. */
void for_each_box (int fd, guint64 begin, guint64 end,
                   const std::function<void (const Box &)> &visit)
{
  for (auto box = read_box (fd, begin, end); box; box = read_box (fd, box->end, end))
    visit (*box);
}

/** Calls visit with the movie, track and media headers, which all begin with their times. */
void for_each_header (int fd, const std::function<void (const Box &)> &visit)
{
  const std::function<void (const Box &)> look_into = [&] (const Box &box) {
    switch (box.type) {
    case type_of ("moov"):
    case type_of ("trak"):
    case type_of ("mdia"):
      for_each_box (fd, box.content, box.end, look_into);
      break;
    case type_of ("mvhd"):
    case type_of ("tkhd"):
    case type_of ("mdhd"):
      visit (box);
      break;
    default:
      break;
    }
  };
  for_each_box (fd, 0, size_of (fd), look_into);
}

} // namespace

std::optional<Fragments> find_fragments (int fd)
{
  Fragments found;
  found.file_size = size_of (fd);
  bool has_header = false;
  guint32 last_type = 0;
  for_each_box (fd, 0, found.file_size, [&] (const Box &box) {
    has_header |= box.type == type_of ("moov");
    if (box.type == type_of ("mdat") && last_type == type_of ("moof"))
      found.count++;
    if (box.type != type_of ("moof"))
      found.complete_size = box.end;
    last_type = box.type;
  });
  if (!has_header)
    return {};
  return found;
}

std::optional<guint64> read_creation_time (int fd)
{
  std::optional<guint64> result;
  for_each_header (fd, [&] (const Box &box) {
    guint8 data[12]; // version, three bytes of flags, time of 32 or 64 bits
    if (box.type != type_of ("mvhd") || box.end - box.content < sizeof data ||
        !read_at (fd, data, sizeof data, box.content))
      return;
    if (data[0] == 0) {
      guint32 seconds = 0;
      memcpy (&seconds, data + 4, sizeof seconds);
      result = GUINT32_FROM_BE (seconds);
    } else {
      guint64 seconds = 0;
      memcpy (&seconds, data + 4, sizeof seconds);
      result = GUINT64_FROM_BE (seconds);
    }
  });
  return result;
}

bool write_creation_time (int fd, guint64 seconds_since_1904)
{
  bool written = false;
  bool failed = false;
  for_each_header (fd, [&] (const Box &box) {
    guint8 version = 0;
    if (box.end - box.content < 12 || !read_at (fd, &version, 1, box.content)) {
      failed = true;
      return;
    }
    // The time of the last change, which follows, stays as it is.
    const guint32 narrow = GUINT32_TO_BE (static_cast<guint32> (seconds_since_1904));
    const guint64 wide = GUINT64_TO_BE (seconds_since_1904);
    const void *data = version == 0 ? static_cast<const void *> (&narrow) : &wide;
    const size_t size = version == 0 ? sizeof narrow : sizeof wide;
    const bool done = pwrite (fd, data, size, static_cast<off_t> (box.content + 4)) ==
                      static_cast<ssize_t> (size);
    written |= done;
    failed |= !done;
  });
  return written && !failed;
}

} // namespace vorn::mp4
