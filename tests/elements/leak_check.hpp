// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_ELEMENTS_LEAK_CHECK_HPP
#define TESTS_ELEMENTS_LEAK_CHECK_HPP

/** First thing in main (). */
void leak_check_start ();

/** The libraries that are loaded now stay: the leak sanitizer names a leak by the library that made
 * it, and a GL driver is unloaded with its last context. */
void leak_check_keep_libraries ();

#endif
