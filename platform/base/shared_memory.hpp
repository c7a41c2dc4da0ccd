// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Mapped shared memory, and the lock that tells whether a section has a living writer.
#ifndef VORN_SHARED_MEMORY_HPP
#define VORN_SHARED_MEMORY_HPP

#include <cstddef>
#include <string>
#include <utility>

#include <sys/mman.h>

#include <vorn/raii.hpp>

namespace vorn::blackboard
{

/** A mapping, unmapped on destruction. */
class Mapping
{
public:
  Mapping () = default;
  /** Maps size bytes of an object for reading, or for reading and writing; may fail with errno. */
  Mapping (int fd, size_t size, bool writable)
  {
    // Populated at once, so that the first read or write is as quick as the others.
    void *data = mmap (nullptr, size, writable ? PROT_READ | PROT_WRITE : PROT_READ,
                       MAP_SHARED | MAP_POPULATE, fd, 0);
    if (data != MAP_FAILED) {
      data_ = data;
      size_ = size;
    }
  }
  Mapping (Mapping &&other) noexcept
      : data_ (std::exchange (other.data_, nullptr)), size_ (std::exchange (other.size_, 0))
  {
  }
  Mapping &operator= (Mapping &&other) noexcept
  {
    std::swap (data_, other.data_);
    std::swap (size_, other.size_);
    return *this;
  }
  ~Mapping ()
  {
    if (data_)
      munmap (data_, size_);
  }

  void *data () const { return data_; }
  size_t size () const { return size_; }
  explicit operator bool () const { return data_ != nullptr; }

private:
  void *data_ = nullptr;
  size_t size_ = 0;
};

/** An error as a negative errno and in words; error 0 is none. */
struct Refusal {
  int error = 0;
  std::string reason;

  explicit operator bool () const { return error != 0; }
};

/** A refusal that a system call gave: what was tried, then errno's text. */
Refusal system_refusal (const char *what);

/**
 * Takes the writer's lock of an object, for as long as the descriptor (or a copy that a fork made
 * of it) is open; the system drops it when the process dies. False with errno EAGAIN: another has
 * it.
 */
bool lock_for_writing (int fd);

/** Makes an object without a name, readable and writable by this user only, of this size. */
Refusal make_object (size_t size, Fd *fd);

/** Gives the object its path; the refusal's error is -EEXIST when the path is taken. */
Refusal publish_object (int fd, const std::string &path);

/**
 * Withdraws what a dead writer has left under the path: tells its readers and removes the name.
 * -ENOENT: nothing there. -EBUSY: its writer lives. -EPERM: not ours to remove.
 */
Refusal remove_leftover (const std::string &path);

/** Removes the path if it still stands for this object. */
void unpublish_object (int fd, const std::string &path);

} // namespace vorn::blackboard

#endif
