// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/log.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <string>
#include <unistd.h>
#include <vector>

#include "log_backend.hpp"
#include "log_fold.hpp"
#include "log_levels.hpp"

namespace
{

/**
 * A tag's level field holds the level in its low bits and above them the generation in which it was
 * read; a new generation makes every tag read its level again. Starts at 1: 0 is "not read yet".
 */
constexpr int level_bits = 4;
constexpr int level_mask = (1 << level_bits) - 1;
constexpr unsigned generation_limit = 1u << (30 - level_bits);
constinit std::atomic<unsigned> generation = 1;

/** All that the facility keeps; guarded by its mutex, which is taken before no other lock. */
struct Facility {
  std::mutex mutex;
  std::string environment;
  bool environment_known = false;
  LogLevels levels;
  LogOverrides overrides;
  LogFold fold;
  bool folding = true;
  VornLogHook hook = nullptr;
  void *hook_data = nullptr;
  int file = -1;
  std::string file_path;
  bool file_failing = false;
};

LogRecord own_record (VornLogPriority priority, std::string text)
{
  return {"log", priority, "platform/base/log.cpp", __LINE__, std::move (text)};
}

void write_file (Facility &log, const LogRecord &record)
{
  if (log.file < 0)
    return;
  const int result = log_write_all (log.file, log_format_line (record, true, false));
  if (result < 0 && !log.file_failing)
    log_write_backend (
        own_record (VORN_LOG_PRIORITY_ERROR,
                    "cannot write the log file '" + log.file_path + "': " + strerror (-result)));
  log.file_failing = result < 0;
}

void write_records (Facility &log, const std::vector<LogRecord> &records)
{
  for (const auto &record : records) {
    if (!log.hook)
      log_write_backend (record);
    write_file (log, record);
  }
}

void flush_fold (Facility &log)
{
  std::vector<LogRecord> records;
  log.fold.flush (records);
  write_records (log, records);
}

void finish ();

/** Never destroyed: objects with static storage log in their destructors. */
Facility &facility ()
{
  static Facility *const log = [] {
    atexit (finish);
    return new Facility;
  }();
  return *log;
}

/** At exit: writes what is held back; later messages are no longer folded, or they would stay. */
void finish ()
{
  Facility &log = facility ();
  std::lock_guard lock (log.mutex);
  flush_fold (log);
  log.folding = false;
}

void read_environment (Facility &log)
{
  const char *text = getenv ("VORN_LOG");
  if (!text)
    text = "";
  if (log.environment_known && log.environment == text)
    return;
  log.environment_known = true;
  log.environment = text;
  std::vector<std::string> errors;
  log.levels = LogLevels::parse (text, &errors);
  for (const auto &error : errors)
    log_write_backend (own_record (VORN_LOG_PRIORITY_WARNING, "VORN_LOG: " + error));
}

int read_level (VornLogTag *tag)
{
  Facility &log = facility ();
  std::lock_guard lock (log.mutex);
  read_environment (log);
  const int level = log.overrides.level_of (tag->name).value_or (log.levels.level_of (tag->name));
  const unsigned now = generation.load (std::memory_order_relaxed);
  std::atomic_ref (tag->level)
      .store (static_cast<int> (now << level_bits) | level, std::memory_order_relaxed);
  return level;
}

int tag_level (VornLogTag *tag)
{
  const int value = std::atomic_ref (tag->level).load (std::memory_order_relaxed);
  if (static_cast<unsigned> (value >> level_bits) == generation.load (std::memory_order_relaxed))
    return value & level_mask;
  return read_level (tag);
}

__attribute__ ((format (printf, 1, 0))) std::string format_text (const char *format, va_list args)
{
  char *text = nullptr;
  if (vasprintf (&text, format, args) < 0)
    return std::string ("(message cannot be formatted: ") + strerror (errno) + ") " + format;
  const std::unique_ptr<char, decltype (&free)> owner (text, free);
  return text;
}

int64_t monotonic_ns ()
{
  timespec now = {};
  clock_gettime (CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

void dispatch (const LogRecord &record)
{
  Facility &log = facility ();
  std::lock_guard lock (log.mutex);
  if (log.hook) {
    const std::string text = record.file + ":" + std::to_string (record.line) + " " + record.text;
    log.hook (log.hook_data, record.tag.c_str (), record.priority, text.c_str ());
    if (log.file < 0)
      return;
  }
  std::vector<LogRecord> records;
  if (log.folding)
    log.fold.admit (record, monotonic_ns (), records);
  else
    records.push_back (record);
  write_records (log, records);
}

} // namespace

void vorn_log_valist (VornLogTag *tag, VornLogPriority priority, const char *file, int line,
                      const char *format, va_list args)
{
  // The message may use %m, and callers go on to read errno after they have logged.
  const int saved_errno = errno;
  if (static_cast<int> (priority) <= tag_level (tag)) {
    errno = saved_errno;
    dispatch ({tag->name, priority, file, line, format_text (format, args)});
  }
  errno = saved_errno;
}

void vorn_log (VornLogTag *tag, VornLogPriority priority, const char *file, int line,
               const char *format, ...)
{
  va_list args;
  va_start (args, format);
  vorn_log_valist (tag, priority, file, line, format, args);
  va_end (args);
}

void vorn_log_set_hook (VornLogHook hook, void *user_data)
{
  Facility &log = facility ();
  std::lock_guard lock (log.mutex);
  // What was held back belongs where its earlier lines went.
  flush_fold (log);
  log.hook = hook;
  log.hook_data = user_data;
}

void vorn_log_set_level (const char *name, int level)
{
  Facility &log = facility ();
  std::lock_guard lock (log.mutex);
  log.overrides.set (name, level);
  const unsigned next = generation.load (std::memory_order_relaxed) + 1;
  generation.store (next < generation_limit ? next : 1, std::memory_order_relaxed);
}

int vorn_log_set_file (const char *path)
{
  int file = -1;
  if (path) {
    file = open (path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (file < 0)
      return -errno;
  }
  Facility &log = facility ();
  std::lock_guard lock (log.mutex);
  flush_fold (log);
  if (log.file >= 0)
    close (log.file);
  log.file = file;
  log.file_path = path ? path : "";
  log.file_failing = false;
  return 0;
}

void vorn_log_flush (void)
{
  Facility &log = facility ();
  std::lock_guard lock (log.mutex);
  flush_fold (log);
}
