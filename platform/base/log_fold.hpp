// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#ifndef VORN_LOG_FOLD_HPP
#define VORN_LOG_FOLD_HPP

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <vorn/log.h>

/** One message on its way to the backend. */
struct LogRecord {
  std::string tag;
  VornLogPriority priority = VORN_LOG_PRIORITY_INFO;
  std::string file; // relative to the project root
  int line = 0;
  std::string text; // without the "path:line " prefix
};

/**
 * Folds floods. Within a window of one second, counted from a message's first appearance, the first
 * `burst` equal messages of one place pass; later ones are counted and come out as one message
 * "text (repeated N times)" when their window is over and anything at all is logged, when their
 * slot is needed, or on flush. Time is an argument, in nanoseconds of any clock that never goes
 * back. Not thread-safe: the log facility's mutex guards it.
 */
class LogFold
{
public:
  static constexpr int64_t window_ns = 1'000'000'000;
  static constexpr int burst = 5;
  static constexpr size_t max_windows = 64;

  /** Appends to out what is to be written now, in order. */
  void admit (const LogRecord &record, int64_t now_ns, std::vector<LogRecord> &out);
  /** Ends all windows and appends to out what they held back. */
  void flush (std::vector<LogRecord> &out);

private:
  struct Window {
    LogRecord record;
    int64_t start_ns;
    int passed;
    uint64_t held;
  };
  static void end (const Window &window, std::vector<LogRecord> &out);
  void end_expired (int64_t now_ns, std::vector<LogRecord> &out);

  std::vector<Window> windows_; // oldest first
};

#endif
