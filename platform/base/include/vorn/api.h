/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
#ifndef VORN_API_H
#define VORN_API_H

/** Marks what a shared library of the platform offers; everything else is hidden. */
#define VORN_API __attribute__ ((visibility ("default")))

#ifdef __cplusplus
#define VORN_BEGIN_DECLS extern "C" {
#define VORN_END_DECLS }
#else
#define VORN_BEGIN_DECLS
#define VORN_END_DECLS
#endif

#endif
