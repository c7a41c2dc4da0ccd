/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/* The tables that generate_tables.c computes at build time; all of them read-only data. */
#ifndef CAMANGLES_TABLES_H
#define CAMANGLES_TABLES_H

#include <stdint.h>

#define BUTTER2_IMPZLENGTH_ROWS 9981
#define KAISER_SINC_PHASES 128
#define KAISER_SINC_TAPS 20

#ifdef __cplusplus
extern "C" {
#endif

/* Samples until the impulse response of the Butterworth low-pass has decayed to 5e-5; row i is for
 * the normalised cut-off 0.001 + 0.0001 * i. */
extern const uint32_t butter2_impzlength_array[BUTTER2_IMPZLENGTH_ROWS];

/* Kaiser-windowed sinc in polyphase order: tap k of row p weighs the input sample k - 9 places
 * after the one before an output that lies p/128 of a sample behind it. */
extern const float KaiserSinc[KAISER_SINC_PHASES][KAISER_SINC_TAPS];

/* The same values for the factors 2, 4, ... 128, one table after the other: for each factor, tap by
 * tap, the phases that it uses side by side. The table of a factor starts at 20 * (factor - 2). */
extern const float KaiserSincByTap[KAISER_SINC_TAPS * (2 * KAISER_SINC_PHASES - 2)];

#ifdef __cplusplus
}
#endif

#endif
