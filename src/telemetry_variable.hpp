// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Telemetry variables by their C++ type: the type code and size follow from where the value lies.
#ifndef TELEMETRY_VARIABLE_HPP
#define TELEMETRY_VARIABLE_HPP

#include <type_traits>

#include <glib.h>
#include <vorn/telemetry.h>

template <typename T>
constexpr VornTelemetryType telemetry_type ()
{
  if constexpr (std::is_same_v<T, gfloat>)
    return VORN_TELEMETRY_F32;
  else if constexpr (std::is_same_v<T, gdouble>)
    return VORN_TELEMETRY_F64;
  else if constexpr (std::is_integral_v<T> && sizeof (T) == 2)
    return VORN_TELEMETRY_INT16;
  else {
    static_assert (std::is_integral_v<T> && sizeof (T) == 4, "the bus has no such type");
    return VORN_TELEMETRY_INT32;
  }
}

/** Registers one value with a producer; the result is the bus's. */
template <typename T>
int telemetry_register (VornTelemetryProducer *producer, const char *name, const T &value)
{
  return vorn_telemetry_producer_register (producer, name, telemetry_type<T> (), sizeof (T), 1,
                                           &value);
}

/** An entry of a consumer that stores one value. */
template <typename T>
VornTelemetryEntry telemetry_entry (const char *name, T &destination)
{
  return {name, telemetry_type<T> (), sizeof (T), 1, &destination};
}

#endif
