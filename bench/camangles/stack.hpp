// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What one would otherwise assemble from libraries: liquid-dsp for a second-order low-pass and
// polyphase interpolation, Eigen for the attitude.
#ifndef BENCH_CAMANGLES_STACK_HPP
#define BENCH_CAMANGLES_STACK_HPP

#include <array>
#include <memory>

class LibraryStack
{
public:
  /** cutoff as a fraction of the sampling rate, 0: no filter. */
  LibraryStack (unsigned factor, float rate_hz, float cutoff);
  ~LibraryStack ();
  LibraryStack (const LibraryStack &) = delete;
  LibraryStack &operator= (const LibraryStack &) = delete;

  /** Takes one sample, writes factor attitudes (x, y, z, w each). */
  void feed (float x, float y, float z, float *attitudes);

private:
  struct Private;
  std::unique_ptr<Private> p_;
};

#endif
