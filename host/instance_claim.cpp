// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "instance_claim.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <vorn/blackboard.h>
#include <vorn/instance.h>

bool choose_instance (const std::string &wanted, Instance *instance, std::string *error)
{
  const char *name = vorn_instance_name (wanted.empty () ? nullptr : wanted.c_str ());
  if (!name || vorn_blackboard_set_namespace (name) < 0) {
    *error = "an instance's name is at most 32 letters, digits, '_' and '-'";
    return false;
  }
  instance->name = name;
  std::array<char, PATH_MAX> dir;
  const int result = vorn_instance_dir (name, dir.data (), dir.size ());
  if (result < 0) {
    *error = "instance '" + instance->name + "' has no runtime directory: " + g_strerror (-result);
    return false;
  }
  instance->dir = dir.data ();
  return true;
}

/** " (process N)" from what the holder of the lock wrote, or nothing. */
static std::string holder_of (int fd)
{
  std::array<char, 16> text = {};
  const ssize_t size = pread (fd, text.data (), text.size () - 1, 0);
  const long pid = size > 0 ? strtol (text.data (), nullptr, 10) : 0;
  return pid > 0 ? " (process " + std::to_string (pid) + ")" : "";
}

std::unique_ptr<InstanceClaim> InstanceClaim::make (const Instance &instance, std::string *error)
{
  std::unique_ptr<InstanceClaim> claim (new InstanceClaim (instance));
  const std::string path = instance.at ("vorn-host.lock");
  claim->lock_ = vorn::Fd (open (path.c_str (), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  if (!claim->lock_) {
    *error = path + ": " + g_strerror (errno);
    return nullptr;
  }
  if (flock (claim->lock_.get (), LOCK_EX | LOCK_NB) != 0) {
    *error = "a host runs on instance '" + instance.name + "' already" +
             holder_of (claim->lock_.get ()) + "; choose another with --instance";
    return nullptr;
  }
  const std::string pid = std::to_string (getpid ()) + "\n";
  // The number only makes the message above better: nothing depends on it.
  if (ftruncate (claim->lock_.get (), 0) == 0) [[maybe_unused]]
    const ssize_t n = pwrite (claim->lock_.get (), pid.data (), pid.size (), 0);
  return claim;
}

InstanceClaim::~InstanceClaim ()
{
  for (const std::string &path : published_)
    unlink (path.c_str ());
}

bool InstanceClaim::publish (const std::string &file, const std::string &text, std::string *error)
{
  const std::string path = instance_.at (file);
  vorn::ErrorOut failure;
  if (!g_file_set_contents (path.c_str (), text.data (), static_cast<gssize> (text.size ()),
                            failure.out ())) {
    *error = failure.message ();
    return false;
  }
  if (std::find (published_.begin (), published_.end (), path) == published_.end ())
    published_.push_back (path);
  return true;
}
