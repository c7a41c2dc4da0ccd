// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#ifndef CAMANGLES_REPLAY_OPTIONS_HPP
#define CAMANGLES_REPLAY_OPTIONS_HPP

#include <cstdint>
#include <stdexcept>
#include <string>

struct Options {
  bool help = false;
  std::string input = "-";
  std::string output = "-";
  uint32_t log2_factor = 0;
  float rate_hz = 1000;
  float exposure_s = 0;
  float convergence = 0.01f;
  float bias_gain = 0;
  uint64_t init_samples = 0;
  float min_hz = 50;
  float max_hz = 250;
  uint32_t window = 10;
};

/** A command line that cannot be followed; what () says why. */
struct BadUsage : std::runtime_error {
  using std::runtime_error::runtime_error;
};

extern const char help_text[];

/** Throws BadUsage. */
Options parse_options (int argc, char **argv);

#endif
