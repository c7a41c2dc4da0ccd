// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <deque>
#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support.hpp"

namespace
{

constexpr char tag[] = "camangles_ring_buffer";

TEST (RingBuffer, LayoutIsThreeWords)
{
  static_assert (sizeof (ringBuffer_t) == 12);
  static_assert (offsetof (ringBuffer_t, size) == 0 && offsetof (ringBuffer_t, rd) == 4 &&
                 offsetof (ringBuffer_t, wr) == 8);
}

TEST (RingBuffer, FreshHandleIsEmpty)
{
  LogCapture log;
  ringBuffer_t ring = {1024, 0, 0};
  EXPECT_EQ (ringBufferDiff (&ring), 0);
  EXPECT_EQ (ringBufferMoveReader (&ring, 1), -1);
  ASSERT_EQ (log.lines ().size (), 1u);
  EXPECT_EQ (log.lines ()[0].tag, tag);
  EXPECT_EQ (log.lines ()[0].priority, log_error);
  EXPECT_EQ (log.lines ()[0].text, "error, can't move reader by 1, (wr 0 rd 0 sz 1024)");
  EXPECT_EQ (ring, (ringBuffer_t{1024, 0, 0}));
}

TEST (RingBuffer, NullHandleFailsSilently)
{
  LogCapture log;
  int32_t out;
  EXPECT_EQ (ringBufferWrapIndex (nullptr, 0), -1);
  EXPECT_EQ (ringBufferDiff (nullptr), -1);
  EXPECT_EQ (ringBufferMoveWriter (nullptr, 1), -1);
  EXPECT_EQ (ringBufferMoveReader (nullptr, 1), -1);
  EXPECT_EQ (ringBufferGetSamples (nullptr, &out, 0, 4, &out, 1), -1);
  EXPECT_THAT (log.lines (), testing::IsEmpty ());
}

TEST (RingBuffer, FullBufferLosesItsOldestOnOneMore)
{
  LogCapture log;
  ringBuffer_t ring = {1024, 0, 0};
  EXPECT_EQ (ringBufferMoveWriter (&ring, 1023), 0);
  EXPECT_EQ (ringBufferDiff (&ring), 1023);
  EXPECT_EQ (ringBufferMoveWriter (&ring, 1), -1);
  EXPECT_EQ (ringBufferDiff (&ring), 1023);
  EXPECT_EQ (ring, (ringBuffer_t{1024, 1, 0}));
  EXPECT_THAT (log.lines (), testing::IsEmpty ()) << "an overrun is the caller's to log";
}

TEST (RingBuffer, WriterMoveOfSizeIsRefused)
{
  LogCapture log;
  ringBuffer_t ring = {1024, 5, 5};
  EXPECT_EQ (ringBufferMoveWriter (&ring, 1024), -1);
  EXPECT_EQ (ring, (ringBuffer_t{1024, 5, 5}));
  EXPECT_EQ (log.texts (log_error),
             std::vector<std::string>{
                 "error, can't move writer, offset (1024) >= ring buffer size (1024)"});
  EXPECT_EQ (ringBufferMoveWriter (&ring, UINT32_MAX), -1);
  EXPECT_EQ (ringBufferMoveWriter (&ring, 1023), 0);
  EXPECT_EQ (ring, (ringBuffer_t{1024, 5, 4}));
}

TEST (RingBuffer, ReaderCountAboveInt32PassesTheSignedComparisonAndMovesNothing)
{
  LogCapture log;
  ringBuffer_t ring = {1024, 5, 9};
  EXPECT_EQ (ringBufferMoveReader (&ring, UINT32_MAX), 0);
  EXPECT_EQ (ring, (ringBuffer_t{1024, 5, 9}));
  EXPECT_THAT (log.lines (), testing::IsEmpty ());
}

TEST (RingBuffer, SizeZeroRefusesEverything)
{
  LogCapture log;
  ringBuffer_t ring = {0, 0, 0};
  char byte = 0;
  EXPECT_EQ (ringBufferWrapIndex (&ring, 0), -1);
  EXPECT_EQ (ringBufferMoveWriter (&ring, 0), -1);
  EXPECT_EQ (ringBufferMoveReader (&ring, 1), -1);
  EXPECT_EQ (ringBufferGetSamples (&ring, &byte, -1, 1, &byte, 1), -1);
}

struct WrapCase {
  int32_t index;
  int32_t wrapped;
};

TEST (RingBuffer, WrapIndexUnwrapsOneTurn)
{
  const ringBuffer_t ring = {1024, 0, 0};
  for (const auto &[index, wrapped] :
       {WrapCase{-1, 1023}, {0, 0}, {1023, 1023}, {1024, 0}, {2047, 1023}, {-1024, 0}})
    EXPECT_EQ (ringBufferWrapIndex (&ring, index), wrapped) << index;
  for (const int32_t index : {2048, -1025, INT32_MAX, INT32_MIN}) {
    LogCapture log;
    EXPECT_EQ (ringBufferWrapIndex (&ring, index), -1) << index;
    EXPECT_EQ (log.texts (log_error),
               std::vector<std::string>{"error, value (" + std::to_string (index) +
                                        ") out of range for unwraping"});
  }
}

TEST (RingBuffer, GetSamplesGoesOverTheEnd)
{
  const ringBuffer_t ring = {8, 6, 3};
  const std::array<int16_t, 8> data = {10, 11, 12, 13, 14, 15, 16, 17};
  std::array<int16_t, 8> out{};
  EXPECT_EQ (ringBufferGetSamples (&ring, data.data (), -1, sizeof (int16_t), out.data (), 8), 5);
  EXPECT_THAT (out, testing::ElementsAre (16, 17, 10, 11, 12, 0, 0, 0));
  EXPECT_EQ (ring.rd, 6u);
  EXPECT_EQ (ringBufferGetSamples (&ring, data.data (), 1, sizeof (int16_t), out.data (), 8), 2);
  EXPECT_THAT (out, testing::ElementsAre (11, 12, 10, 11, 12, 0, 0, 0));
  EXPECT_EQ (ringBufferGetSamples (&ring, data.data (), -1, sizeof (int16_t), out.data (), 1), 1);
  EXPECT_EQ (out[0], 16);
}

TEST (RingBuffer, GetSamplesRefusesSilently)
{
  LogCapture log;
  const ringBuffer_t ring = {8, 2, 5};
  const ringBuffer_t empty = {8, 2, 2};
  const std::array<int32_t, 8> data{};
  std::array<int32_t, 8> out{};
  EXPECT_EQ (ringBufferGetSamples (&ring, nullptr, -1, 4, out.data (), 8), -1);
  EXPECT_EQ (ringBufferGetSamples (&ring, data.data (), -1, 4, nullptr, 8), -1);
  EXPECT_EQ (ringBufferGetSamples (&ring, data.data (), -1, 0, out.data (), 8), -1);
  EXPECT_EQ (ringBufferGetSamples (&ring, data.data (), -1, 4, out.data (), 0), -1);
  EXPECT_EQ (ringBufferGetSamples (&empty, data.data (), -1, 4, out.data (), 8), -1);
  EXPECT_EQ (ringBufferGetSamples (&ring, data.data (), 5, 4, out.data (), 8), -1) << "at writer";
  EXPECT_EQ (ringBufferGetSamples (&ring, data.data (), 8, 4, out.data (), 8), -1) << "outside";
  EXPECT_THAT (log.lines (), testing::IsEmpty ());
}

TEST (RingBuffer, MergeWriterNeedsMatchingHandles)
{
  const ringBuffer_t small = {1024, 0, 5};
  ringBuffer_t large = {2048, 0, 0};
  ringBuffer_t same = {1024, 0, 0};
  const std::vector<std::string> expected = {"error, both handlers don't match"};
  {
    LogCapture log;
    EXPECT_EQ (ringBufferMergeWriter (&small, &large), -1);
    EXPECT_EQ (log.texts (log_error), expected);
  }
  {
    LogCapture log;
    EXPECT_EQ (ringBufferMergeWriter (nullptr, &same), -1);
    EXPECT_EQ (log.texts (log_error), expected);
  }
  {
    LogCapture log;
    EXPECT_EQ (ringBufferMergeWriter (&small, nullptr), -1);
    EXPECT_EQ (log.texts (log_error), expected);
  }
  EXPECT_EQ (ringBufferMergeWriter (&small, &same), 0);
  EXPECT_EQ (same, (ringBuffer_t{1024, 0, 5}));
}

/** What a ring buffer is: the last size - 1 values that were written and not yet read. */
class Model
{
public:
  explicit Model (uint32_t size) : size_ (size) {}
  bool write (int value)
  {
    values_.push_back (value);
    if (values_.size () < size_)
      return true;
    values_.pop_front ();
    return false;
  }
  void read (uint32_t count) { values_.erase (values_.begin (), values_.begin () + count); }
  const std::deque<int> &values () const { return values_; }

private:
  uint32_t size_;
  std::deque<int> values_;
};

class RingBufferModel : public testing::TestWithParam<uint32_t>
{
};

/** A producer handle and a consumer handle that follows it, both against their models. */
TEST_P (RingBufferModel, AgreesWithADeque)
{
  const uint32_t size = GetParam ();
  LogCapture log;
  std::mt19937 random (size);
  std::vector<int> data (size);
  ringBuffer_t producer = {size, 0, 0};
  ringBuffer_t consumer = producer;
  Model producer_model (size), consumer_model (size);
  int next = 0;
  const int steps = soak () ? 2000000 : 20000;
  for (int step = 0; step < steps; step++) {
    const auto amount = static_cast<uint32_t> (random () % size);
    switch (random () % 4) {
    case 0: {
      uint32_t slot = producer.wr;
      bool kept = true;
      for (uint32_t i = 0; i < amount; i++) {
        data[slot] = next;
        slot = static_cast<uint32_t> (
            ringBufferWrapIndex (&producer, static_cast<int32_t> (slot + 1)));
        kept &= producer_model.write (next);
        consumer_model.write (next);
        next++;
      }
      ASSERT_EQ (ringBufferMoveWriter (&producer, amount), kept ? 0 : -1);
      const auto lag = static_cast<uint32_t> (ringBufferDiff (&consumer)) + amount;
      ASSERT_EQ (ringBufferMergeWriter (&producer, &consumer), lag > size - 1 ? -1 : 0);
      break;
    }
    case 1:
    case 2: {
      const bool second = random () % 2;
      ringBuffer_t &ring = second ? consumer : producer;
      Model &model = second ? consumer_model : producer_model;
      const bool possible = amount <= model.values ().size ();
      ASSERT_EQ (ringBufferMoveReader (&ring, amount), possible ? 0 : -1);
      if (possible)
        model.read (amount);
      break;
    }
    default: {
      const auto &values = consumer_model.values ();
      std::vector<int> out (size);
      const auto wanted = static_cast<int32_t> (amount);
      const auto count = std::min<size_t> (amount, values.size ());
      ASSERT_EQ (
          ringBufferGetSamples (&consumer, data.data (), -1, sizeof (int), out.data (), wanted),
          count > 0 ? static_cast<int32_t> (count) : -1);
      out.resize (count);
      ASSERT_EQ (out,
                 std::vector<int> (values.begin (), values.begin () + static_cast<long> (count)));
    }
    }
    ASSERT_EQ (ringBufferDiff (&producer), static_cast<int> (producer_model.values ().size ()));
    ASSERT_EQ (ringBufferDiff (&consumer), static_cast<int> (consumer_model.values ().size ()));
    ASSERT_LT (producer.rd, size);
    ASSERT_LT (producer.wr, size);
    ASSERT_LT (consumer.rd, size);
    ASSERT_EQ (consumer.wr, producer.wr);
    if (step % 64 == 0)
      log.clear ();
  }
}

INSTANTIATE_TEST_SUITE_P (Sizes, RingBufferModel, testing::Range (2u, 65u));
INSTANTIATE_TEST_SUITE_P (ContextSize, RingBufferModel, testing::Values (1024u));

} // namespace
