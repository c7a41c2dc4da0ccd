// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What it costs a process to get from its start to the product's registered type, as the time of
// whole processes: one that only starts and ends, one that loads the plug-in as well, one that
// starts the framework (GStreamer and its registry) before, as the host does.
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <cstdlib>
#include <string>

#include <benchmark/benchmark.h>

extern char **environ; // NOLINT(readability-redundant-declaration): POSIX leaves it to us

namespace
{

/** Seconds that the process took from its start to its end; negative when it failed. */
double run_once (const char *what)
{
  std::string program = PLUGIN_LOAD_PROCESS;
  std::string plugin = PLUGIN_PATH;
  std::string task = what;
  char *const arguments[] = {program.data (), task.data (), plugin.data (), nullptr};
  const auto start = std::chrono::steady_clock::now ();
  pid_t child = 0;
  int status = 0;
  if (posix_spawn (&child, program.c_str (), nullptr, nullptr, arguments, environ) != 0 ||
      waitpid (child, &status, 0) != child || status != 0)
    return -1.0;
  return std::chrono::duration<double> (std::chrono::steady_clock::now () - start).count ();
}

void run_process (benchmark::State &state, const char *what)
{
  // Not measured: the first start of GStreamer writes its registry.
  run_once (what);
  for (auto _ : state) {
    const double seconds = run_once (what);
    if (seconds < 0.0) {
      state.SkipWithError ("the process failed");
      return;
    }
    state.SetIterationTime (seconds);
  }
}

void whole_process (benchmark::internal::Benchmark *measured)
{
  measured->UseManualTime ()->Unit (benchmark::kMillisecond);
}

BENCHMARK_CAPTURE (run_process, nothing, "nothing")->Apply (whole_process);
BENCHMARK_CAPTURE (run_process, load, "load")->Apply (whole_process);
BENCHMARK_CAPTURE (run_process, init, "init")->Apply (whole_process);
BENCHMARK_CAPTURE (run_process, init_and_load, "init-and-load")->Apply (whole_process);

} // namespace
