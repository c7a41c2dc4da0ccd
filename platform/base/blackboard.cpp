// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The public calls of the blackboard.
#include <vorn/blackboard.h>

#include <cerrno>
#include <memory>
#include <string>

#include <dirent.h>

#include <vorn/log.h>

#include "blackboard_section.hpp"

VORN_LOG_TAG ("blackboard");

using namespace vorn::blackboard;

struct VornBlackboardWriter {
  std::unique_ptr<SectionWriter> section;
};

struct VornBlackboardRevision {
  // The handle's address is all that is asked of it.
};

struct VornBlackboardReader {
  explicit VornBlackboardReader (Address address) : section (std::move (address), Kind::samples) {}

  SectionReader section;
  uint32_t sample_size = 0;        // what the caller counts on
  uint64_t refused_attachment = 0; // whose other sample size was logged
  VornBlackboardRevision revision;
};

VornBlackboardWriter *vorn_blackboard_create (const char *name, const VornBlackboardHeader *header)
{
  if (!header) {
    VORN_LOG_ERROR ("section '%.80s' not created: no header", name ? name : "(null)");
    errno = EINVAL;
    return nullptr;
  }
  const auto address = section_address (Kind::samples, name);
  if (!address) {
    errno = EINVAL;
    return nullptr;
  }
  auto section = SectionWriter::create (*address, *header, Kind::samples, {});
  return section ? new VornBlackboardWriter{std::move (section)} : nullptr;
}

int vorn_blackboard_write (VornBlackboardWriter *writer, const void *sample,
                           const struct timespec *time)
{
  const auto time_ns = time_to_ns (time);
  if (!writer || !sample || !time_ns)
    return -EINVAL;
  writer->section->write (sample, *time_ns);
  return 0;
}

int vorn_blackboard_writer_close (VornBlackboardWriter *writer)
{
  if (!writer)
    return -EINVAL;
  delete writer;
  return 0;
}

VornBlackboardReader *vorn_blackboard_open (const char *name, VornBlackboardRevision **revision)
{
  if (!revision) {
    VORN_LOG_ERROR ("section '%.80s' not opened: no place for the revision",
                    name ? name : "(null)");
    errno = EINVAL;
    return nullptr;
  }
  *revision = nullptr;
  auto address = section_address (Kind::samples, name);
  if (!address) {
    errno = EINVAL;
    return nullptr;
  }
  auto reader = std::make_unique<VornBlackboardReader> (std::move (*address));
  if (const int result = reader->section.refresh (); result < 0) {
    if (result == -ENOENT)
      VORN_LOG_ERROR ("section '%s' not opened: it does not exist", name);
    errno = -result;
    return nullptr;
  }
  reader->sample_size = reader->section.geometry ().header.sample_size;
  *revision = &reader->revision;
  return reader.release ();
}

int vorn_blackboard_get_header (VornBlackboardReader *reader, VornBlackboardHeader *header)
{
  if (!reader || !header)
    return -EINVAL;
  *header = reader->section.geometry ().header;
  return 0;
}

int vorn_blackboard_select (VornBlackboardReader *reader, const struct timespec *time,
                            uint32_t method, uint32_t count)
{
  if (!reader)
    return -EINVAL;
  auto &section = reader->section;
  section.forget ();
  const auto time_ns = method == VORN_BLACKBOARD_LATEST ? 0 : time_to_ns (time);
  if (!time_ns || method > VORN_BLACKBOARD_SPAN || (method != VORN_BLACKBOARD_SPAN && count != 0))
    return -EINVAL;
  if (const int result = section.refresh (); result < 0)
    return result;
  const uint32_t size = section.geometry ().header.sample_size;
  if (size != reader->sample_size) {
    if (reader->refused_attachment != section.attachment ())
      VORN_LOG_ERROR ("section '%s': its new writer has samples of %u bytes, it was opened with %u",
                      section.name ().c_str (), size, reader->sample_size);
    reader->refused_attachment = section.attachment ();
    return -ESTALE;
  }
  return section.select (*time_ns, method, count);
}

int vorn_blackboard_read (VornBlackboardReader *reader, uint32_t quantity, void *buffer,
                          size_t size)
{
  if (!reader || !buffer || quantity != 0)
    return -EINVAL;
  return reader->section.read (buffer, size);
}

int vorn_blackboard_read_times (VornBlackboardReader *reader, struct timespec *times, size_t count)
{
  if (!reader || !times)
    return -EINVAL;
  return reader->section.read_times (times, count);
}

int vorn_blackboard_end_read (VornBlackboardReader *reader, VornBlackboardRevision *revision)
{
  if (!reader || revision != &reader->revision)
    return -EINVAL;
  return reader->section.end_read ();
}

int vorn_blackboard_close (VornBlackboardReader *reader, VornBlackboardRevision *revision)
{
  if (!reader || revision != &reader->revision)
    return -EINVAL;
  delete reader;
  return 0;
}

int vorn_blackboard_remove (const char *name)
{
  const auto address = section_address (Kind::samples, name);
  if (!address)
    return -EINVAL;
  const Refusal refusal = remove_leftover (address->path);
  if (refusal && refusal.error != -ENOENT)
    VORN_LOG_ERROR ("section '%s' not removed: %s", name, refusal.reason.c_str ());
  return refusal.error;
}

int vorn_blackboard_remove_namespace (const char *name)
{
  const auto space = current_namespace (name);
  if (!space)
    return -EINVAL;
  const vorn::Owned<DIR, closedir> folder (opendir (shm_folder));
  if (!folder)
    return -errno;
  const std::string prefix = namespace_prefix (*space);
  int removed = 0;
  int error = 0;
  while (const dirent *entry = readdir (folder.get ())) {
    const std::string file = entry->d_name;
    if (!file.starts_with (prefix))
      continue;
    const Refusal refusal = remove_leftover (std::string (shm_folder) + "/" + file);
    if (!refusal) {
      removed++;
    } else if (refusal.error != -ENOENT) {
      VORN_LOG_ERROR ("section '%s' not removed: %s", file.c_str () + prefix.size (),
                      refusal.reason.c_str ());
      error = refusal.error;
    }
  }
  return error ? error : removed;
}
