// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "instance_claim.hpp"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <glib.h>
#include <vorn/instance.h>

namespace sim
{

namespace
{

/** The process that left its number in the lock file, or empty. */
std::string holder_of (int lock)
{
  char text[32] = "";
  const ssize_t length = pread (lock, text, sizeof text - 1, 0);
  const long pid = length > 0 ? strtol (text, nullptr, 10) : 0;
  return pid > 0 ? " by process " + std::to_string (pid) : "";
}

} // namespace

std::unique_ptr<InstanceClaim> InstanceClaim::make (const char *instance, std::string *error)
{
  std::unique_ptr<InstanceClaim> claim (new InstanceClaim);
  const char *name = vorn_instance_name (instance);
  if (!name) {
    *error = std::string ("instance '") + (instance ? instance : getenv ("VORN_NAMESPACE")) +
             "': a name is at most 32 letters, digits, '_' and '-'";
    return nullptr;
  }
  claim->name_ = name;
  char dir[PATH_MAX];
  const int result = vorn_instance_dir (name, dir, sizeof dir);
  if (result < 0) {
    *error = "instance '" + claim->name_ + "' has no runtime directory: " + strerror (-result);
    return nullptr;
  }
  claim->dir_ = dir;

  const std::string path = claim->dir_ + "/desk-simulator.lock";
  claim->lock_ = vorn::Fd (open (path.c_str (), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  if (!claim->lock_) {
    *error = path + ": " + strerror (errno);
    return nullptr;
  }
  if (flock (claim->lock_.get (), LOCK_EX | LOCK_NB) != 0) {
    *error = "instance '" + claim->name_ + "' is flown already" + holder_of (claim->lock_.get ()) +
             "; choose another with --instance";
    return nullptr;
  }
  const std::string pid = std::to_string (getpid ()) + "\n";
  // The number only makes the message above better: nothing depends on it.
  if (ftruncate (claim->lock_.get (), 0) == 0) [[maybe_unused]]
    const ssize_t n = pwrite (claim->lock_.get (), pid.data (), pid.size (), 0);
  // A simulator that was killed leaves its files behind.
  unlink ((claim->dir_ + "/" + VORN_INSTANCE_IIO_URI_FILE).c_str ());
  return claim;
}

InstanceClaim::~InstanceClaim ()
{
  for (const auto &path : published_)
    unlink (path.c_str ());
}

std::string InstanceClaim::publish (const std::string &file, const std::string &line,
                                    std::string *error)
{
  std::string path = dir_ + "/" + file;
  const std::string text = line + "\n";
  vorn::ErrorOut failure;
  if (!g_file_set_contents (path.c_str (), text.data (), static_cast<gssize> (text.size ()),
                            failure.out ())) {
    *error = failure.message ();
    return {};
  }
  published_.push_back (path);
  return path;
}

} // namespace sim
