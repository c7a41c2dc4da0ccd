// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_MAIN_CONTEXT_HPP
#define TESTS_MAIN_CONTEXT_HPP

#include <glib.h>

/** Runs the default main context until the condition holds; false when it does not within 30 s. */
template <typename Condition>
bool run_until (Condition condition)
{
  const gint64 deadline = g_get_monotonic_time () + 30 * G_USEC_PER_SEC;
  // Wakes a context in which nothing happens, so that the deadline is noticed.
  const guint alarm = g_timeout_add (
      100, [] (gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr);
  bool done = condition ();
  while (!done && g_get_monotonic_time () < deadline) {
    g_main_context_iteration (nullptr, TRUE);
    done = condition ();
  }
  g_source_remove (alarm);
  return done;
}

/** Runs what is pending in the default main context. */
inline void run_pending ()
{
  while (g_main_context_iteration (nullptr, FALSE)) {
  }
}

#endif
