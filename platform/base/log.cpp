// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/log.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

namespace
{

std::mutex sink_mutex;
VornLogHook hook = nullptr;
void *hook_data = nullptr;

int level_from_environment (const char *)
{
  return VORN_LOG_PRIORITY_INFO;
}

int tag_level (VornLogTag *tag)
{
  std::atomic_ref<int> level (tag->level);
  int value = level.load (std::memory_order_relaxed);
  if (value == 0) {
    value = level_from_environment (tag->name);
    level.store (value, std::memory_order_relaxed);
  }
  return value;
}

} // namespace

void vorn_log_valist (VornLogTag *tag, VornLogPriority priority, const char *file, int line,
                      const char *format, va_list args)
{
  if (static_cast<int> (priority) > tag_level (tag))
    return;
  char message[2048];
  const int prefix = snprintf (message, sizeof message, "%s:%d ", file, line);
  vsnprintf (message + prefix, sizeof message - static_cast<size_t> (prefix), format, args);
  std::lock_guard lock (sink_mutex);
  if (hook)
    hook (hook_data, tag->name, priority, message);
  else
    fprintf (stderr, "%s: %s\n", tag->name, message);
}

void vorn_log (VornLogTag *tag, VornLogPriority priority, const char *file, int line,
               const char *format, ...)
{
  va_list args;
  va_start (args, format);
  vorn_log_valist (tag, priority, file, line, format, args);
  va_end (args);
}

void vorn_log_set_hook (VornLogHook new_hook, void *user_data)
{
  std::lock_guard lock (sink_mutex);
  hook = new_hook;
  hook_data = user_data;
}

void vorn_log_set_level (const char *, int) {}

int vorn_log_set_file (const char *)
{
  return 0;
}

void vorn_log_flush (void) {}
