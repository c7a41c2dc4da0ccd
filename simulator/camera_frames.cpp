// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "camera_frames.hpp"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/mman.h>

namespace sim
{

namespace
{

/** What all frames of one stream may take. */
constexpr uint64_t largest_pool = uint64_t{1} << 30;

#ifndef F_SEAL_FUTURE_WRITE
#define F_SEAL_FUTURE_WRITE 0x0010
#endif

} // namespace

FramePool::~FramePool ()
{
  for (const Buffer &buffer : buffers_)
    munmap (buffer.data, frame_size_);
}

std::string FramePool::make (unsigned count, uint64_t frame_size)
{
  if (frame_size * count > largest_pool)
    return std::to_string (count) + " frames of " + std::to_string (frame_size) +
           " bytes are more than a stream may take";
  const auto failure = [] (const char *what, int error) {
    return std::string (what) + ": " + strerror (error);
  };
  frame_size_ = frame_size;
  for (unsigned i = 0; i < count; i++) {
    vorn::Fd memory (memfd_create ("vorn-camera-frame", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (!memory)
      return failure ("no memory for frames", errno);
    // Reserved now: a later write that finds none would be a SIGBUS.
    if (const int error = posix_fallocate (memory.get (), 0, static_cast<off_t> (frame_size)))
      return failure ("no memory for frames", error);
    void *data = mmap (nullptr, frame_size, PROT_READ | PROT_WRITE, MAP_SHARED, memory.get (), 0);
    if (data == MAP_FAILED)
      return failure ("frames cannot be mapped", errno);
    buffers_.push_back ({std::move (memory), static_cast<uint8_t *> (data), false});
    const int fd = buffers_.back ().memory.get ();
    // After our own mapping, which may go on writing. Kernels before 5.1 do not know the last seal.
    fcntl (fd, F_ADD_SEALS, F_SEAL_FUTURE_WRITE);
    if (fcntl (fd, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) != 0)
      return failure ("frames cannot be sealed", errno);
  }
  return {};
}

std::vector<int> FramePool::descriptors () const
{
  std::vector<int> fds;
  for (const Buffer &buffer : buffers_)
    fds.push_back (buffer.memory.get ());
  return fds;
}

std::optional<uint32_t> FramePool::find_free () const
{
  for (uint32_t i = 0; i < buffers_.size (); i++)
    if (!buffers_[i].lent)
      return i;
  return std::nullopt;
}

bool FramePool::take_back (uint32_t buffer)
{
  if (buffer >= buffers_.size () || !buffers_[buffer].lent)
    return false;
  buffers_[buffer].lent = false;
  return true;
}

} // namespace sim
