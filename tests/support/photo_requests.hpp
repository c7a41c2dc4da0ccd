// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_PHOTO_REQUESTS_HPP
#define TESTS_PHOTO_REQUESTS_HPP

#include <vorn/view.h>

/** Single photos, then series of three, by turns: the request of this number. */
inline VornSnapshotRequest request_of (int number)
{
  static constexpr VornPhotoGroupingType series[] = {
      VORN_PHOTO_GROUPING_BRACKETING, VORN_PHOTO_GROUPING_BURST, VORN_PHOTO_GROUPING_PANORAMA};
  const int position = number % 4;
  if (position == 0)
    return {};
  return {.photo_grouping = static_cast<guint32> (series[number / 4 % 3]),
          .sequence_number = static_cast<guint16> (position - 1),
          .panorama_type = "spherical",
          .shot_count = 3};
}

#endif
