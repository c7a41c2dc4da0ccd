// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// "vorn-host modes": what each virtual camera of a product can do.
#ifndef HOST_MODES_COMMAND_HPP
#define HOST_MODES_COMMAND_HPP

#include <vorn/product.h>

/** Prints tables for people on stdout. */
void print_modes (VornProduct *product);

/** Prints the same as one JSON document. */
void print_modes_json (VornProduct *product);

#endif
