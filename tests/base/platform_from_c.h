/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
#ifndef TESTS_PLATFORM_FROM_C_H
#define TESTS_PLATFORM_FROM_C_H

#include <vorn/api.h>

VORN_BEGIN_DECLS

/** Each writes one sample and reads it back; return the number of steps that failed. */
int blackboard_from_c (void);
int telemetry_from_c (void);

VORN_END_DECLS

#endif
