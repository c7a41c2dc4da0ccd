// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "camera_socket.hpp"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace sim
{

namespace
{

constexpr int backlog = 16;

bool set_address (const std::string &path, sockaddr_un *address)
{
  *address = {};
  address->sun_family = AF_UNIX;
  if (path.empty () || path.size () >= sizeof address->sun_path)
    return false;
  memcpy (address->sun_path, path.data (), path.size ());
  return true;
}

/** Whether the socket file is one that nobody listens on any more; else why it cannot be taken. */
bool is_left_over (const sockaddr_un &address, std::string *why_not)
{
  struct stat status;
  if (lstat (address.sun_path, &status) != 0) {
    *why_not = strerror (errno);
    return errno == ENOENT;
  }
  if (!S_ISSOCK (status.st_mode)) {
    *why_not = "a file that is no socket has this name";
    return false;
  }
  const vorn::Fd probe (socket (AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (connect (probe.get (), reinterpret_cast<const sockaddr *> (&address), sizeof address) != 0 &&
      errno == ECONNREFUSED)
    return true;
  *why_not = "another process listens there";
  return false;
}

} // namespace

std::unique_ptr<CameraSocket> CameraSocket::listen (const std::string &path, std::string *error)
{
  const auto fail = [&] (const std::string &reason) {
    *error = "camera socket '" + path + "': " + reason;
    return nullptr;
  };
  sockaddr_un address;
  if (!set_address (path, &address))
    return fail ("a path has 1 to " + std::to_string (sizeof address.sun_path - 1) + " characters");

  // One at a time in this folder: of two that find a leftover only one may replace it.
  const std::string folder =
      path.find ('/') == std::string::npos ? "." : path.substr (0, path.rfind ('/') + 1);
  const vorn::Fd lock (open (folder.c_str (), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!lock || flock (lock.get (), LOCK_EX) != 0)
    return fail (folder + ": " + strerror (errno));

  std::unique_ptr<CameraSocket> result (new CameraSocket);
  result->socket_ = vorn::Fd (socket (AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const auto bind_it = [&] {
    return bind (result->socket_.get (), reinterpret_cast<sockaddr *> (&address), sizeof address) ==
           0;
  };
  if (!bind_it ()) {
    std::string why_not = strerror (errno);
    if (errno != EADDRINUSE || !is_left_over (address, &why_not))
      return fail (why_not);
    unlink (path.c_str ());
    if (!bind_it ())
      return fail (strerror (errno));
  }
  struct stat status;
  if (::listen (result->socket_.get (), backlog) != 0 || stat (path.c_str (), &status) != 0)
    return fail (strerror (errno));
  result->path_ = path;
  result->device_ = status.st_dev;
  result->inode_ = status.st_ino;
  return result;
}

CameraSocket::~CameraSocket ()
{
  struct stat status;
  if (!path_.empty () && lstat (path_.c_str (), &status) == 0 && status.st_dev == device_ &&
      status.st_ino == inode_)
    unlink (path_.c_str ());
}

} // namespace sim
