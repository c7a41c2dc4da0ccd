// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "log_capture.hpp"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>

#include <glib.h>

LogCapture::LogCapture ()
{
  vorn_log_set_hook (on_message, this);
  vorn_log_set_level (nullptr, VORN_LOG_PRIORITY_DEBUG);
}

LogCapture::~LogCapture ()
{
  vorn_log_set_hook (nullptr, nullptr);
  vorn_log_set_level (nullptr, -1);
}

void LogCapture::on_message (void *self, const char *tag, VornLogPriority priority,
                             const char *text)
{
  auto *capture = static_cast<LogCapture *> (self);
  const char *blank = strchr (text, ' ');
  LogLine line{tag, priority, blank ? std::string (text, blank) : std::string (),
               blank ? blank + 1 : text};
  std::lock_guard lock (capture->mutex_);
  capture->lines_.push_back (std::move (line));
}

std::vector<LogLine> LogCapture::lines () const
{
  std::lock_guard lock (mutex_);
  return lines_;
}

std::vector<std::string> LogCapture::texts (int priority) const
{
  std::vector<std::string> result;
  for (const auto &line : lines ())
    if (line.priority == priority)
      result.push_back (line.text);
  return result;
}

int LogCapture::count (const std::string &text, int priority) const
{
  const auto all = lines ();
  return static_cast<int> (std::count_if (all.begin (), all.end (), [&] (const LogLine &line) {
    return line.text == text && (priority == 0 || line.priority == priority);
  }));
}

void LogCapture::clear ()
{
  std::lock_guard lock (mutex_);
  lines_.clear ();
}

namespace
{

std::atomic<CriticalCapture *> current_capture;

GLogWriterOutput write_glib_message (GLogLevelFlags level, const GLogField *fields, gsize n_fields,
                                     gpointer)
{
  CriticalCapture *capture = current_capture;
  const bool critical = (level & (G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_ERROR)) != 0;
  if (!capture || !(critical || (level & G_LOG_LEVEL_WARNING) != 0))
    return g_log_writer_default (level, fields, n_fields, nullptr);
  const char *domain = "";
  const char *text = "";
  for (gsize i = 0; i < n_fields; i++) {
    if (strcmp (fields[i].key, "GLIB_DOMAIN") == 0)
      domain = static_cast<const char *> (fields[i].value);
    else if (strcmp (fields[i].key, "MESSAGE") == 0)
      text = static_cast<const char *> (fields[i].value);
  }
  capture->add (critical, domain, text);
  return G_LOG_WRITER_HANDLED;
}

} // namespace

CriticalCapture::CriticalCapture ()
{
  // GLib takes one writer for the life of the process.
  static const bool installed = [] {
    g_log_set_writer_func (write_glib_message, nullptr, nullptr);
    return true;
  }();
  (void)installed;
  current_capture = this;
}

CriticalCapture::~CriticalCapture ()
{
  current_capture = nullptr;
}

void CriticalCapture::add (bool critical, const char *domain, const char *text)
{
  std::lock_guard lock (mutex_);
  (critical ? criticals_ : warnings_).push_back ({domain, text});
}

std::vector<CriticalCapture::Line> CriticalCapture::criticals () const
{
  std::lock_guard lock (mutex_);
  return criticals_;
}

std::vector<CriticalCapture::Line> CriticalCapture::warnings () const
{
  std::lock_guard lock (mutex_);
  return warnings_;
}

bool CriticalCapture::has_assertion (const std::string &expression, const std::string &domain) const
{
  const auto all = criticals ();
  return std::any_of (all.begin (), all.end (), [&] (const Line &line) {
    return line.domain == domain &&
           line.text.find ("assertion '" + expression + "' failed") != std::string::npos;
  });
}

void CriticalCapture::clear ()
{
  std::lock_guard lock (mutex_);
  criticals_.clear ();
  warnings_.clear ();
}

bool soak ()
{
  const char *value = getenv ("VORN_SOAK");
  return value && strcmp (value, "1") == 0;
}
