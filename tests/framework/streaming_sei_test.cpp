// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <cerrno>
#include <vector>

#include <gtest/gtest.h>

#include <vorn/streaming_sei.h>

namespace
{

using Payload = std::array<uint8_t, 8>;
using Uuid = std::array<uint8_t, 16>;

// b9a1f0d2-6c3e-4f57-8e04-3d7b52c816ea, as receivers know it
constexpr Uuid known_uuid = {0xb9, 0xa1, 0xf0, 0xd2, 0x6c, 0x3e, 0x4f, 0x57,
                             0x8e, 0x04, 0x3d, 0x7b, 0x52, 0xc8, 0x16, 0xea};

} // namespace

TEST (StreamingSei, PayloadIsTheSliceLayoutInBigEndian)
{
  struct Case {
    VornStreamingSeiSliceLayout layout;
    std::array<uint8_t, 4> bytes;
  };
  const Case cases[] = {
      {{1, 3600}, {0x00, 0x01, 0x0e, 0x10}}, // 1280x720 in one slice
      {{4, 2040}, {0x00, 0x04, 0x07, 0xf8}}, // 1920x1080 in four
      {{1, 0}, {0x00, 0x01, 0x00, 0x00}},           {{0x1234, 0xabcd}, {0x12, 0x34, 0xab, 0xcd}},
      {{0xffff, 0xffff}, {0xff, 0xff, 0xff, 0xff}},
  };
  for (const Case &c : cases) {
    Payload payload;
    payload.fill (0xee);
    Uuid uuid = {};
    size_t size = 4;
    ASSERT_EQ (vorn_streaming_sei_write (&c.layout, payload.data (), &size, uuid.data ()), 0);
    EXPECT_EQ (size, 4u);
    EXPECT_TRUE (std::equal (c.bytes.begin (), c.bytes.end (), payload.begin ()));
    EXPECT_EQ (payload[4], 0xee);
    EXPECT_EQ (uuid, known_uuid);
  }
}

TEST (StreamingSei, ALargerAreaIsReportedAsFourBytes)
{
  const VornStreamingSeiSliceLayout layout = {1, 3600};
  Payload payload;
  Uuid uuid;
  size_t size = payload.size ();
  ASSERT_EQ (vorn_streaming_sei_write (&layout, payload.data (), &size, uuid.data ()), 0);
  EXPECT_EQ (size, 4u);
}

TEST (StreamingSei, RefusesAndChangesNothing)
{
  const VornStreamingSeiSliceLayout good = {1, 3600};
  const VornStreamingSeiSliceLayout no_slices = {0, 3600};
  Payload payload = {};
  Uuid uuid = {};
  for (size_t small = 0; small < 4; small++) {
    size_t size = small;
    EXPECT_EQ (vorn_streaming_sei_write (&good, payload.data (), &size, uuid.data ()), -ENOSPC);
    EXPECT_EQ (size, small);
  }
  size_t size = 4;
  EXPECT_EQ (vorn_streaming_sei_write (&no_slices, payload.data (), &size, uuid.data ()), -ERANGE);
  EXPECT_EQ (vorn_streaming_sei_write (nullptr, payload.data (), &size, uuid.data ()), -EINVAL);
  EXPECT_EQ (vorn_streaming_sei_write (&good, nullptr, &size, uuid.data ()), -EINVAL);
  EXPECT_EQ (vorn_streaming_sei_write (&good, payload.data (), nullptr, uuid.data ()), -EINVAL);
  EXPECT_EQ (vorn_streaming_sei_write (&good, payload.data (), &size, nullptr), -EINVAL);
  EXPECT_EQ (payload, Payload{});
  EXPECT_EQ (uuid, Uuid{});
  EXPECT_EQ (size, 4u);
}
