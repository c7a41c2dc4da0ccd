// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/instance.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr size_t max_name_length = 32;

bool is_name (const char *text)
{
  const size_t length = strlen (text);
  return length > 0 && length <= max_name_length &&
         strspn (text, "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-") ==
             length;
}

/** Makes a directory, or accepts it when it is ours alone to write and no link to elsewhere. */
int make_own_dir (const std::string &path)
{
  if (mkdir (path.c_str (), 0700) == 0)
    return 0;
  if (errno != EEXIST)
    return -errno;
  struct stat found = {};
  if (lstat (path.c_str (), &found) != 0)
    return -errno;
  if (!S_ISDIR (found.st_mode))
    return -ENOTDIR;
  return found.st_uid == geteuid () && (found.st_mode & (S_IWGRP | S_IWOTH)) == 0 ? 0 : -EPERM;
}

} // namespace

const char *vorn_instance_name (const char *instance)
{
  if (!instance)
    instance = getenv ("VORN_NAMESPACE");
  if (!instance || !*instance)
    return "default";
  return is_name (instance) ? instance : nullptr;
}

int vorn_instance_dir (const char *instance, char *path, size_t size)
{
  const char *name = vorn_instance_name (instance);
  if (!name)
    return -EINVAL;
  const char *runtime = getenv ("XDG_RUNTIME_DIR");
  const std::string base = runtime && runtime[0] == '/'
                               ? std::string (runtime) + "/vorn"
                               : "/tmp/vorn-" + std::to_string (geteuid ());
  const std::string dir = base + "/" + name;
  if (dir.size () >= size)
    return -ENAMETOOLONG;
  int result = make_own_dir (base);
  if (result == 0)
    result = make_own_dir (dir);
  if (result == 0)
    memcpy (path, dir.c_str (), dir.size () + 1);
  return result;
}
