// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// A camera in a process of its own, to be killed, frozen and started again: serves a small camera
// on the path that is its argument, says "ready", and goes when its input ends.
#include <cstdio>

#include <unistd.h>

#include "camera_clients.hpp"

int main (int argc, char **argv)
{
  if (argc != 2)
    return 2;
  sim::CameraServerOptions options;
  options.path = argv[1];
  options.camera = small_camera ();
  std::string error;
  const auto server = sim::CameraServer::start (options, &error);
  if (!server) {
    fprintf (stderr, "%s\n", error.c_str ());
    return 1;
  }
  puts ("ready");
  fflush (stdout);
  char byte;
  while (read (STDIN_FILENO, &byte, 1) > 0)
    continue;
  return 0;
}
