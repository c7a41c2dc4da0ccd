// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// How a command tells that it failed.
#ifndef HOST_MESSAGES_HPP
#define HOST_MESSAGES_HPP

#include <cerrno>
#include <cstdio>
#include <string>

#include <glib.h>

#include "options.hpp"

inline int fail (const std::string &reason, int status = EXIT_FAILED)
{
  g_printerr ("vorn-host: %s\n", reason.c_str ());
  return status;
}

/** What could not be written, on a full disk say, is no success. */
inline int finish_output ()
{
  if (fflush (stdout) == 0 && !ferror (stdout))
    return EXIT_OK;
  return fail (std::string ("cannot write the output: ") + g_strerror (errno));
}

#endif
