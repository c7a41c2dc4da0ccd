/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/**
 * The log facility: module tags, syslog priorities, printf-style messages.
 *
 * A source file names its tag once, at file scope, and then logs:
 *
 *     VORN_LOG_TAG ("frame_postprocessor");
 *     ...
 *     VORN_LOG_WARNING ("empty buffer");
 *
 * Every message is prefixed by the source path relative to the project root, a colon, the line
 * number and a blank. A tag logs up to its level (default: info). Levels come from the
 * environment variable VORN_LOG, read when a tag is used for the first time: a list of "level" (for
 * all tags) and "tag=level" entries separated by commas, level being one of "none", "error",
 * "warning", "info", "debug"; the last fitting entry counts; an entry that is none of these is
 * reported on the backend and ignored. Example: VORN_LOG=warning,camangles=debug
 *
 * A message goes to the journal when stderr is connected to it (fields MESSAGE, PRIORITY, VORN_TAG,
 * CODE_FILE, CODE_LINE), else as one line to stderr: "HH:MM:SS.mmm I tag: path:line message",
 * coloured on a terminal unless NO_COLOR is set. Messages of any length are written whole; errno is
 * the same after a call as before it, and "%m" works.
 *
 * A flood is folded: of equal messages from one place five pass within a second, the others are
 * counted and written as "message (repeated N times)" once the second is over and anything else is
 * logged, or on vorn_log_flush, or at exit.
 *
 * Plain C, needs nothing but libc. All functions are thread-safe (not async-signal-safe) and may be
 * called before main and while the process exits.
 */
#ifndef VORN_LOG_H
#define VORN_LOG_H

#include <stdarg.h>

#include <vorn/api.h>

VORN_BEGIN_DECLS

/** Priorities, with the numbers of syslog. */
typedef enum {
  VORN_LOG_PRIORITY_ERROR = 3,
  VORN_LOG_PRIORITY_WARNING = 4,
  VORN_LOG_PRIORITY_INFO = 6,
  VORN_LOG_PRIORITY_DEBUG = 7,
} VornLogPriority;

/** A module's tag. Static storage only; level is the facility's (0: not read yet; accessed
 * atomically). */
typedef struct {
  const char *name;
  int level;
} VornLogTag;

/** Declares the file's tag; the VORN_LOG_* macros below use it. */
#define VORN_LOG_TAG(tag_name) static VornLogTag vorn_log_tag = {tag_name, 0}

/** Logs one message; file and line become the prefix. Cheap when the tag's level is below priority.
 */
VORN_API void vorn_log (VornLogTag *tag, VornLogPriority priority, const char *file, int line,
                        const char *format, ...) __attribute__ ((format (printf, 5, 6)));

/** As vorn_log, with the arguments as a list. */
VORN_API void vorn_log_valist (VornLogTag *tag, VornLogPriority priority, const char *file,
                               int line, const char *format, va_list args)
    __attribute__ ((format (printf, 5, 0)));

#define VORN_LOG_ERROR(...)                                                                        \
  vorn_log (&vorn_log_tag, VORN_LOG_PRIORITY_ERROR, __FILE__, __LINE__, __VA_ARGS__)
#define VORN_LOG_WARNING(...)                                                                      \
  vorn_log (&vorn_log_tag, VORN_LOG_PRIORITY_WARNING, __FILE__, __LINE__, __VA_ARGS__)
#define VORN_LOG_INFO(...)                                                                         \
  vorn_log (&vorn_log_tag, VORN_LOG_PRIORITY_INFO, __FILE__, __LINE__, __VA_ARGS__)
#define VORN_LOG_DEBUG(...)                                                                        \
  vorn_log (&vorn_log_tag, VORN_LOG_PRIORITY_DEBUG, __FILE__, __LINE__, __VA_ARGS__)

/**
 * Receives every message that passes its tag's level, before repeats are folded. text is the
 * message with its "path:line " prefix, valid during the call only. Called from whatever thread
 * logs, one call at a time; it must not log.
 */
typedef void (*VornLogHook) (void *user_data, const char *tag, VornLogPriority priority,
                             const char *text);

/**
 * Installs the capture hook (NULL removes it). When it returns, no call of the former hook is
 * running any more. While a hook is installed nothing goes to journal or stderr; the log file still
 * gets everything.
 */
VORN_API void vorn_log_set_hook (VornLogHook hook, void *user_data);

/**
 * Sets a tag's level for all places that carry this name, those that have logged before included,
 * whatever the environment says. level: the highest priority number that passes (0: nothing; above
 * 7 is 7), or -1: back to the environment's. name NULL: all tags, those set one by one before
 * included.
 */
VORN_API void vorn_log_set_level (const char *name, int level);

/**
 * Appends all messages to this file as well, folded, each line led by the date (NULL: stop).
 * Returns 0, or a negative errno when the file cannot be opened; the former file then stays. A file
 * that can no longer be written (disk full) is reported once on journal or stderr.
 */
VORN_API int vorn_log_set_file (const char *path);

/** Writes out what folding still holds back ("repeated N times"). Done at exit as well. */
VORN_API void vorn_log_flush (void);

VORN_END_DECLS

#endif
