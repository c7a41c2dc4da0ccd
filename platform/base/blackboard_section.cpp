// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "blackboard_section.hpp"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vorn/log.h>

VORN_LOG_TAG ("blackboard");

namespace vorn::blackboard
{

namespace
{

constexpr int create_attempts = 16;
constexpr uint32_t idle_selects_per_look = 16;
constexpr int64_t idle_look_period_ns = 250000000;

} // namespace

std::unique_ptr<SectionWriter> SectionWriter::create (const Address &address,
                                                      const VornBlackboardHeader &header, Kind kind,
                                                      const std::vector<std::byte> &annex)
{
  std::unique_ptr<SectionWriter> writer (new SectionWriter (address));
  const Refusal refusal = writer->make (header, kind, annex);
  if (!refusal)
    return writer;
  VORN_LOG_ERROR ("section '%s' not created: %s", address.name.c_str (), refusal.reason.c_str ());
  errno = -refusal.error;
  return nullptr;
}

Refusal SectionWriter::make (const VornBlackboardHeader &header, Kind kind,
                             const std::vector<std::byte> &annex)
{
  Geometry geometry;
  const auto annex_size = static_cast<uint32_t> (std::min<size_t> (annex.size (), UINT32_MAX));
  if (const auto reason = geometry.derive (header, annex_size); !reason.empty ())
    return {-EINVAL, reason};
  Fd fd;
  if (auto refusal = make_object (geometry.image_size, &fd))
    return refusal;
  Mapping mapping (fd.get (), geometry.image_size, true);
  if (!mapping)
    return system_refusal ("cannot be mapped");
  ring_ = RingWriter (mapping.data (), geometry, kind, annex.data ());
  if (!lock_for_writing (fd.get ()))
    return system_refusal ("cannot be locked");

  // Complete and locked before anybody sees it. The name may be taken by what a dead writer left;
  // in the worst case other writers come and go between the two steps, hence the loop.
  for (int attempt = 0; attempt < create_attempts; attempt++) {
    Refusal refusal = publish_object (fd.get (), address_.path);
    if (!refusal) {
      fd_ = std::move (fd);
      mapping_ = std::move (mapping);
      return {};
    }
    if (refusal.error != -EEXIST)
      return refusal;
    Refusal kept = remove_leftover (address_.path);
    if (kept && kept.error != -ENOENT)
      return kept;
    if (!kept)
      VORN_LOG_INFO ("section '%s' taken over from a writer that died", address_.name.c_str ());
  }
  return {-EBUSY, "other writers keep taking it"};
}

SectionWriter::~SectionWriter ()
{
  if (!mapping_)
    return;
  ring_.retire ();
  unpublish_object (fd_.get (), address_.path);
}

void SectionWriter::warn_of_step_back (uint64_t time_ns) const
{
  VORN_LOG_WARNING ("section '%s': time went back from %" PRIu64 " to %" PRIu64
                    " ns, its history starts anew",
                    address_.name.c_str (), ring_.newest_ns (), time_ns);
}

Refusal examine_image (int fd, uint64_t size, Kind kind, Geometry *geometry)
{
  // Read, not mapped: the object may be shortened at any time. And read once: what was checked is
  // what is used.
  alignas (ImageHeader) std::byte bytes[sizeof (ImageHeader)];
  if (size < sizeof bytes || pread (fd, bytes, sizeof bytes, 0) != sizeof bytes)
    return {-EBADMSG, "its " + std::to_string (size) + " bytes are too few for a section"};
  const auto *image = reinterpret_cast<const ImageHeader *> (bytes);
  if (memcmp (image->magic, image_magic, sizeof image_magic) != 0)
    return {-EBADMSG, "it is no section (no magic number)"};
  if (image->byte_order != image_byte_order)
    return {-EPROTONOSUPPORT, "it was written in another byte order"};
  if (image->version != image_version)
    return {-EPROTONOSUPPORT, "its format has version " + std::to_string (image->version) +
                                  ", this program reads version " + std::to_string (image_version)};
  if (image->kind != kind)
    return {-EBADMSG, "it is a section of another kind"};
  if (const auto reason = geometry->derive (image->header, image->annex_size); !reason.empty ())
    return {-EBADMSG, reason};
  if (image->image_size != geometry->image_size)
    return {-EBADMSG, "its header asks for " + std::to_string (geometry->image_size) +
                          " bytes and claims " + std::to_string (image->image_size)};
  if (size != geometry->image_size)
    return {-EBADMSG, "it has " + std::to_string (size) + " bytes, its header asks for " +
                          std::to_string (geometry->image_size)};
  switch (image->state.load (std::memory_order_relaxed)) {
  case state_ready:
    return {};
  case state_retired:
    return {-ENOENT, "it was withdrawn"};
  default:
    return {-EBADMSG, "it is in no known state"};
  }
}

Refusal SectionReader::open_object ()
{
  fd_ = Fd (open (address_.path.c_str (), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  if (!fd_)
    return system_refusal ("it cannot be opened");
  struct stat status;
  if (fstat (fd_.get (), &status) != 0)
    return system_refusal ("it cannot be examined");
  if (!S_ISREG (status.st_mode))
    return {-EBADMSG, "it is no shared memory object"};
  if (status.st_uid != geteuid () && status.st_uid != 0)
    return {-EPERM, "it belongs to user " + std::to_string (status.st_uid)};
  if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0)
    return {-EPERM, "other users may write to it"};
  Geometry geometry;
  if (auto refusal =
          examine_image (fd_.get (), static_cast<uint64_t> (status.st_size), kind_, &geometry))
    return refusal;
  std::vector<std::byte> annex (geometry.annex_size);
  if (pread (fd_.get (), annex.data (), annex.size (), sizeof (ImageHeader)) !=
      static_cast<ssize_t> (annex.size ()))
    return {-EBADMSG, "it was shortened"};
  Mapping mapping (fd_.get (), geometry.image_size, false);
  if (!mapping)
    return system_refusal ("it cannot be mapped");
  mapping_ = std::move (mapping);
  geometry_ = geometry;
  annex_ = std::move (annex);
  ring_.emplace (mapping_.data (), geometry_);
  attachment_++;
  return {};
}

int SectionReader::attach ()
{
  selected_ = false;
  ring_.reset ();
  mapping_ = Mapping ();
  const Refusal refusal = open_object ();
  if (!refusal) {
    last_refusal_.clear ();
    return 0;
  }
  fd_ = Fd ();
  if (refusal.error != -ENOENT && refusal.reason != last_refusal_)
    VORN_LOG_ERROR ("section '%s' refused: %s", address_.name.c_str (), refusal.reason.c_str ());
  last_refusal_ = refusal.reason;
  return refusal.error;
}

bool SectionReader::idle_and_gone ()
{
  const uint64_t done = ring_->done ();
  if (done != last_done_) {
    last_done_ = done;
    return false;
  }
  // Seldom: even the coarse clock costs as much as the rest of a read.
  if (++idle_selects_ % idle_selects_per_look != 0)
    return false;
  struct timespec now;
  clock_gettime (CLOCK_MONOTONIC_COARSE, &now);
  const int64_t now_ns = now.tv_sec * 1000000000LL + now.tv_nsec;
  if (now_ns - last_look_ns_ < idle_look_period_ns)
    return false;
  last_look_ns_ = now_ns;
  struct stat status;
  return fstat (fd_.get (), &status) != 0 || status.st_nlink == 0 ||
         static_cast<uint64_t> (status.st_size) != geometry_.image_size;
}

int SectionReader::select (uint64_t time_ns, uint32_t method, uint32_t count)
{
  const int result = ring_->select (time_ns, method, count, &selection_);
  selected_ = result == 0;
  return result;
}

int SectionReader::read (void *buffer, size_t size) const
{
  if (!selected_ || size < geometry_.header.sample_size)
    return -EINVAL;
  const uint64_t count = std::min<uint64_t> (selection_.count, size / geometry_.header.sample_size);
  ring_->copy (selection_.first, count, buffer);
  return ring_->intact (selection_.first) ? static_cast<int> (count) : -EAGAIN;
}

int SectionReader::read_times (struct timespec *times, size_t count) const
{
  if (!selected_ || count < 1)
    return -EINVAL;
  count = std::min<uint64_t> (selection_.count, count);
  for (size_t i = 0; i < count; i++) {
    const uint64_t time_ns = ring_->time_ns (selection_.first + i);
    times[i].tv_sec = static_cast<time_t> (time_ns / 1000000000u);
    times[i].tv_nsec = static_cast<long> (time_ns % 1000000000u);
  }
  return ring_->intact (selection_.first) ? static_cast<int> (count) : -EAGAIN;
}

int SectionReader::end_read ()
{
  if (!selected_)
    return -EINVAL;
  const bool intact = ring_->intact (selection_.first);
  selected_ = false;
  return intact ? 0 : -EAGAIN;
}

} // namespace vorn::blackboard
