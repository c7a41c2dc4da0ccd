// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "shared_memory.hpp"

#include <cerrno>
#include <cstddef>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "blackboard_ring.hpp"
#include "section_name.hpp"

namespace vorn::blackboard
{

Refusal system_refusal (const char *what)
{
  const int error = errno;
  return {-error, std::string (what) + ": " + g_strerror (error)};
}

bool lock_for_writing (int fd)
{
  // A lock of the open file description: it also keeps out a second writer of the same process.
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  return fcntl (fd, F_OFD_SETLK, &lock) == 0;
}

Refusal make_object (size_t size, Fd *fd)
{
  // Without a name at first: nobody sees it half made, and nothing is left if we die here.
  *fd = Fd (open (shm_folder, O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
  if (!*fd || fchmod (fd->get (), 0600) != 0)
    return system_refusal ("no shared memory");
  // Reserved, not only sized: with the memory file system full a later write would be a SIGBUS.
  int error;
  do
    error = posix_fallocate (fd->get (), 0, static_cast<off_t> (size));
  while (error == EINTR);
  errno = error;
  return error ? system_refusal ("no room in shared memory") : Refusal{};
}

Refusal publish_object (int fd, const std::string &path)
{
  const std::string nameless = "/proc/self/fd/" + std::to_string (fd);
  if (linkat (AT_FDCWD, nameless.c_str (), AT_FDCWD, path.c_str (), AT_SYMLINK_FOLLOW) == 0)
    return {};
  return system_refusal ("cannot be named");
}

Refusal remove_leftover (const std::string &path)
{
  const Fd fd (open (path.c_str (), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  if (!fd)
    return system_refusal ("what has this name cannot be opened");
  struct stat status;
  if (fstat (fd.get (), &status) != 0)
    return system_refusal ("what has this name cannot be examined");
  if (!S_ISREG (status.st_mode))
    return {-EPERM, "what has this name is no shared memory object"};
  if (status.st_uid != geteuid ())
    return {-EPERM, "belongs to user " + std::to_string (status.st_uid)};

  int32_t pid = 0;
  if (!lock_for_writing (fd.get ())) {
    if (errno != EAGAIN && errno != EACCES)
      return system_refusal ("cannot be locked");
    (void)!pread (fd.get (), &pid, sizeof pid, offsetof (ImageHeader, writer_pid));
    return {-EBUSY, "has a living writer (process " + std::to_string (pid) + ")"};
  }
  // Another writer may have been quicker: then this object has lost its name, and the name may be
  // another's by now.
  if (fstat (fd.get (), &status) != 0 || status.st_nlink == 0)
    return {};
  // Not through a mapping: whoever shortens the object meanwhile must not kill us.
  const uint32_t state = state_retired;
  if (status.st_size >= static_cast<off_t> (sizeof (ImageHeader)))
    (void)!pwrite (fd.get (), &state, sizeof state, offsetof (ImageHeader, state));
  unpublish_object (fd.get (), path);
  return {};
}

void unpublish_object (int fd, const std::string &path)
{
  struct stat ours;
  struct stat named;
  if (fstat (fd, &ours) == 0 && lstat (path.c_str (), &named) == 0 && ours.st_dev == named.st_dev &&
      ours.st_ino == named.st_ino)
    unlink (path.c_str ());
}

} // namespace vorn::blackboard
