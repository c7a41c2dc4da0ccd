// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "tovrinfilter_orientation.hpp"

#include <glib.h>

namespace tovrin
{

std::optional<Quaternion> parse_orientation (const char *text)
{
  double values[4];
  for (int i = 0; i < 4; i++) {
    gchar *end = nullptr;
    values[i] = g_ascii_strtod (text, &end);
    if (end == text)
      return std::nullopt;
    while (g_ascii_isspace (*end))
      end++;
    if (*end != (i < 3 ? ',' : '\0'))
      return std::nullopt;
    text = end + 1;
  }
  const Quaternion q = {values[0], values[1], values[2], values[3]};
  // A comparison that NaN fails.
  if (!(std::abs (norm (q) - 1) <= 0.01))
    return std::nullopt;
  return normalized (q);
}

} // namespace tovrin
