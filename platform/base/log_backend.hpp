// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#ifndef VORN_LOG_BACKEND_HPP
#define VORN_LOG_BACKEND_HPP

#include <string>

#include "log_fold.hpp"

/** "12:34:56.789 W tag: path:line text" and a line feed. with_date: the date goes before. */
std::string log_format_line (const LogRecord &record, bool with_date, bool coloured);

/** Writes one message to the journal when stderr is connected to it, else as a line on stderr. */
void log_write_backend (const LogRecord &record);

/** Writes all of text to the descriptor, in one call where the system allows. 0 or -errno. */
int log_write_all (int fd, const std::string &text);

#endif
