// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "end_request.hpp"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

#include <glib-unix.h>
#include <unistd.h>

namespace
{

// What a signal handler may touch.
volatile sig_atomic_t signals_seen = 0;
int pipe_ends[2] = {-1, -1};

void say (const char *text)
{
  [[maybe_unused]] const ssize_t n = write (STDERR_FILENO, text, strlen (text));
}

void on_end_signal (int number)
{
  const int saved = errno;
  if (signals_seen) {
    say ("vorn-host: interrupted again: ended at once\n");
    _exit (exit_forced);
  }
  signals_seen = number;
  alarm (longest_end_s);
  const char byte = 0;
  [[maybe_unused]] const ssize_t n = write (pipe_ends[1], &byte, 1);
  errno = saved;
}

void on_alarm (int)
{
  say ("vorn-host: did not end within 8 s: given up\n");
  _exit (1);
}

void handle (int number, void (*handler) (int))
{
  struct sigaction action = {};
  action.sa_handler = handler;
  action.sa_flags = SA_RESTART;
  sigemptyset (&action.sa_mask);
  sigaction (number, &action, nullptr);
}

} // namespace

static_assert (longest_end_s == 8, "the text above says so");

EndRequest::EndRequest (std::function<void (const char *reason)> on_end)
    : on_end_ (std::move (on_end))
{
  signals_seen = 0;
  g_unix_open_pipe (pipe_ends, FD_CLOEXEC, nullptr);
  watch_ = g_unix_fd_add (pipe_ends[0], G_IO_IN, on_signal, this);
  handle (SIGALRM, on_alarm);
  for (const int number : {SIGINT, SIGTERM})
    handle (number, on_end_signal);
}

EndRequest::~EndRequest ()
{
  // The next signal, and a hanging exit, end the process as ever.
  for (const int number : {SIGINT, SIGTERM})
    handle (number, SIG_DFL);
  if (watch_)
    g_source_remove (watch_);
  for (int &fd : pipe_ends)
    close (std::exchange (fd, -1));
}

void EndRequest::end (const char *reason)
{
  if (const auto on_end = std::exchange (on_end_, nullptr))
    on_end (reason);
}

void EndRequest::request (const char *reason)
{
  alarm (longest_end_s);
  end (reason);
}

void EndRequest::lift_limit ()
{
  alarm (0);
}

bool EndRequest::requested ()
{
  return signals_seen != 0;
}

gboolean EndRequest::on_signal (gint, GIOCondition, gpointer self)
{
  auto *request = static_cast<EndRequest *> (self);
  request->watch_ = 0;
  request->end (signals_seen == SIGTERM ? "terminated" : "interrupted");
  return G_SOURCE_REMOVE;
}
