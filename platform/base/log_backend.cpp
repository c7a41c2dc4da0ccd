// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "log_backend.hpp"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <poll.h>
#include <unistd.h>

#include <glib.h>

namespace
{

char priority_letter (VornLogPriority priority)
{
  switch (priority) {
  case VORN_LOG_PRIORITY_ERROR:
    return 'E';
  case VORN_LOG_PRIORITY_WARNING:
    return 'W';
  case VORN_LOG_PRIORITY_INFO:
    return 'I';
  case VORN_LOG_PRIORITY_DEBUG:
    return 'D';
  }
  return '?';
}

const char *priority_colour (VornLogPriority priority)
{
  switch (priority) {
  case VORN_LOG_PRIORITY_ERROR:
    return "\033[1;31m";
  case VORN_LOG_PRIORITY_WARNING:
    return "\033[33m";
  case VORN_LOG_PRIORITY_DEBUG:
    return "\033[2m";
  default:
    return "";
  }
}

GLogLevelFlags glib_level (VornLogPriority priority)
{
  switch (priority) {
  case VORN_LOG_PRIORITY_ERROR:
    return G_LOG_LEVEL_CRITICAL;
  case VORN_LOG_PRIORITY_WARNING:
    return G_LOG_LEVEL_WARNING;
  case VORN_LOG_PRIORITY_DEBUG:
    return G_LOG_LEVEL_DEBUG;
  default:
    return G_LOG_LEVEL_INFO;
  }
}

std::string prefixed_text (const LogRecord &record)
{
  return record.file + ":" + std::to_string (record.line) + " " + record.text;
}

bool write_journal (const LogRecord &record)
{
  const std::string message = prefixed_text (record);
  const std::string line = std::to_string (record.line);
  const std::string priority = std::to_string (static_cast<int> (record.priority));
  const GLogField fields[] = {
      {"MESSAGE", message.c_str (), -1},       {"PRIORITY", priority.c_str (), -1},
      {"SYSLOG_IDENTIFIER", "vorn", -1},       {"VORN_TAG", record.tag.c_str (), -1},
      {"CODE_FILE", record.file.c_str (), -1}, {"CODE_LINE", line.c_str (), -1},
  };
  return g_log_writer_journald (glib_level (record.priority), fields, G_N_ELEMENTS (fields),
                                nullptr) == G_LOG_WRITER_HANDLED;
}

bool wants_colour (int fd)
{
  const char *terminal = getenv ("TERM");
  return isatty (fd) && !getenv ("NO_COLOR") && terminal && strcmp (terminal, "dumb") != 0;
}

} // namespace

std::string log_format_line (const LogRecord &record, bool with_date, bool coloured)
{
  timespec now = {};
  clock_gettime (CLOCK_REALTIME, &now);
  tm fields = {};
  localtime_r (&now.tv_sec, &fields);
  char time_text[48];
  const size_t length =
      strftime (time_text, sizeof time_text, with_date ? "%Y-%m-%d %H:%M:%S" : "%H:%M:%S", &fields);
  snprintf (time_text + length, sizeof time_text - length, ".%03d ",
            static_cast<int> (now.tv_nsec / 1000000));

  std::string line = time_text;
  const char *colour = coloured ? priority_colour (record.priority) : "";
  line += colour;
  line += priority_letter (record.priority);
  line += " " + record.tag + ": " + prefixed_text (record);
  while (line.back () == '\n')
    line.pop_back ();
  if (*colour)
    line += "\033[0m";
  line += '\n';
  return line;
}

int log_write_all (int fd, const std::string &text)
{
  size_t done = 0;
  while (done < text.size ()) {
    const ssize_t written = write (fd, text.data () + done, text.size () - done);
    if (written >= 0) {
      done += static_cast<size_t> (written);
    } else if (errno == EAGAIN) {
      pollfd room = {fd, POLLOUT, 0};
      poll (&room, 1, -1);
    } else if (errno != EINTR) {
      return -errno;
    }
  }
  return 0;
}

void log_write_backend (const LogRecord &record)
{
  // Asked anew each time: a daemon may exchange its stderr, and the calls cost less than the write.
  if (g_log_writer_is_journald (STDERR_FILENO) && write_journal (record))
    return;
  // Nowhere is left to report a failing stderr.
  log_write_all (STDERR_FILENO, log_format_line (record, false, wants_colour (STDERR_FILENO)));
}
