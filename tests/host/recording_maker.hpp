// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Recordings as the product makes them: encoded, post-processed, muxed.
#ifndef TESTS_HOST_RECORDING_MAKER_HPP
#define TESTS_HOST_RECORDING_MAKER_HPP

#include <string>

#include <gst/gst.h>

struct RecordingRequest {
  std::string path;
  std::string muxer = "mp4mux"; // with properties; empty: a byte stream
  int frames = 40;
  std::string framerate = "30000/1001";
  GstClockTime first_capture_ns = 0;
  GstClockTime capture_step_ns = 33366667;
  bool has_cover = false;
};

/** Makes a recording of 128x96; fails the test when it cannot. GStreamer must be initialised. */
void make_recording (const RecordingRequest &request);

/** A JPEG of this size, with a test picture. */
std::string make_jpeg (int width, int height);

#endif
