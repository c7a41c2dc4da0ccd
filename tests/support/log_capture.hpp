// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Captures what the code under test says: log messages of our facility and GLib's own (criticals).
#ifndef TESTS_LOG_CAPTURE_HPP
#define TESTS_LOG_CAPTURE_HPP

#include <mutex>
#include <string>
#include <vector>

#include <vorn/log.h>

struct LogLine {
  std::string tag;
  int priority;
  std::string prefix; // "src/file.cpp:12"
  std::string text;   // what stands after the prefix
  bool operator== (const LogLine &) const = default;
};

/** While it lives, log messages come here, all tags at debug level. One at a time per process. */
class LogCapture
{
public:
  LogCapture ();
  ~LogCapture ();
  LogCapture (const LogCapture &) = delete;
  LogCapture &operator= (const LogCapture &) = delete;

  std::vector<LogLine> lines () const;
  /** The texts, in order, of the messages with this priority. */
  std::vector<std::string> texts (int priority) const;
  /** How many messages have exactly this text (any priority when 0). */
  int count (const std::string &text, int priority = 0) const;
  bool has (const std::string &text, int priority = 0) const { return count (text, priority) > 0; }
  void clear ();

private:
  static void on_message (void *self, const char *tag, VornLogPriority priority, const char *text);
  mutable std::mutex mutex_;
  std::vector<LogLine> lines_;
};

/**
 * While it lives, GLib's warnings and criticals are collected, not printed. The texts of the
 * criticals of g_return_if_fail are GLib's: "function: assertion 'expression' failed".
 */
class CriticalCapture
{
public:
  CriticalCapture ();
  ~CriticalCapture ();
  CriticalCapture (const CriticalCapture &) = delete;
  CriticalCapture &operator= (const CriticalCapture &) = delete;

  struct Line {
    std::string domain;
    std::string text;
  };
  std::vector<Line> criticals () const;
  std::vector<Line> warnings () const;
  /** Whether a critical of this domain names exactly this expression as failed. */
  bool has_assertion (const std::string &expression,
                      const std::string &domain = "vornmorvikzelto") const;
  void clear ();
  /** For the writer function only. */
  void add (bool critical, const char *domain, const char *text);

private:
  mutable std::mutex mutex_;
  std::vector<Line> criticals_;
  std::vector<Line> warnings_;
};

/** True in the long runs (./test --soak). */
bool soak ();

#endif
