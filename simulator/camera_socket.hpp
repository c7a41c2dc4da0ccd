// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#ifndef SIMULATOR_CAMERA_SOCKET_HPP
#define SIMULATOR_CAMERA_SOCKET_HPP

#include <memory>
#include <string>

#include <sys/types.h>

#include <vorn/raii.hpp>

namespace sim
{

/** A unix socket that listens, and its file, which goes with it. */
class CameraSocket
{
public:
  /**
   * Listens on a path. A socket file that a dead process has left is taken over; one on which
   * somebody listens, or a file of another kind, is an error. Null with the reason in words.
   */
  static std::unique_ptr<CameraSocket> listen (const std::string &path, std::string *error);
  ~CameraSocket ();
  CameraSocket (const CameraSocket &) = delete;
  CameraSocket &operator= (const CameraSocket &) = delete;

  int fd () const { return socket_.get (); }
  const std::string &path () const { return path_; }

private:
  CameraSocket () = default;

  std::string path_;
  vorn::Fd socket_;
  dev_t device_ = 0;
  ino_t inode_ = 0;
};

} // namespace sim

#endif
