// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The attitude provider that reads the blackboard section "accurate_attitude".
#ifndef VORN_TOVRIN_SHDATA_PROVIDER_HPP
#define VORN_TOVRIN_SHDATA_PROVIDER_HPP

#include "vorn_tovrin_provider.hpp"

#define VORN_TYPE_TOVRIN_SHDATA_PROVIDER (vorn_tovrin_shdata_provider_get_type ())
G_DECLARE_FINAL_TYPE (VornTovrinShdataProvider, vorn_tovrin_shdata_provider, VORN,
                      TOVRIN_SHDATA_PROVIDER, GInitiallyUnowned)

/** A new provider (a floating reference), or NULL (logged) while there is no such section. */
VornTovrinShdataProvider *vorn_tovrin_shdata_provider_new (void);

#endif
