// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// A namespace for one benchmark program, and the time of its samples.
#ifndef BENCH_SECTION_SCOPE_HPP
#define BENCH_SECTION_SCOPE_HPP

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <string>

#include <unistd.h>

#include <vorn/blackboard.h>

/** Chooses a namespace of this process; what is left in it goes with the scope. */
class SectionScope
{
public:
  SectionScope ()
  {
    if (vorn_blackboard_set_namespace (name_.c_str ()) != 0)
      abort ();
  }
  ~SectionScope () { vorn_blackboard_remove_namespace (name_.c_str ()); }
  SectionScope (const SectionScope &) = delete;
  SectionScope &operator= (const SectionScope &) = delete;

private:
  std::string name_ = "bench-" + std::to_string (getpid ());
};

/** One sample a millisecond. */
inline struct timespec sample_time (uint64_t k)
{
  return {static_cast<time_t> (k / 1000), static_cast<long> (k % 1000 * 1000000)};
}

#endif
