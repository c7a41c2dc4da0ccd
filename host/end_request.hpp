// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// How a running host is told to end, and what happens when it cannot.
#ifndef HOST_END_REQUEST_HPP
#define HOST_END_REQUEST_HPP

#include <functional>

#include <glib.h>

/** When a host that is ending is given up, seconds. */
constexpr unsigned longest_end_s = 8;

/** Exit status after a second Ctrl-C: that of a shell's interrupted command. */
constexpr int exit_forced = 130;

/**
 * From its making on SIGINT and SIGTERM ask for the end; one a process. A second signal ends the
 * process at once, and so does an end that takes longer than longest_end_s, whatever the
 * framework's thread hangs in. Bound to the framework's thread.
 */
class EndRequest
{
public:
  /** on_end: called once, in the default main context. */
  explicit EndRequest (std::function<void (const char *reason)> on_end);
  ~EndRequest ();
  EndRequest (const EndRequest &) = delete;
  EndRequest &operator= (const EndRequest &) = delete;

  /** Asks for the end as a signal does. */
  void request (const char *reason);
  /** What is still to be done takes as long as it takes; a second signal ends it as before. */
  static void lift_limit ();
  /** Whether it was asked for, also when on_end has not been called yet. */
  static bool requested ();

private:
  static gboolean on_signal (gint fd, GIOCondition condition, gpointer self);
  void end (const char *reason);

  std::function<void (const char *reason)> on_end_;
  guint watch_ = 0;
};

#endif
