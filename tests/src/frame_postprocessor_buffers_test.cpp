// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The frame postprocessor on buffers of every kind, whole and damaged: slices are never lost, never
// copied, and what belongs to others is never written.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vorn/frame_meta.h>
#include <vorn/framework.h>

#include "frame_postprocessor_support.hpp"
#include "log_capture.hpp"

using namespace postprocessing;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

constexpr int warning = VORN_LOG_PRIORITY_WARNING;

class FramePostprocessorBuffers : public testing::Test
{
protected:
  static void SetUpTestSuite () { vorn_framework_init (nullptr, nullptr); }

  int process (GstBuffer *buffer)
  {
    return frame_postprocessor_process (state_.get (), &frame_size, buffer);
  }

  /** A new state sees this as its first access unit. */
  void process_first (const BufferRef &buffer)
  {
    state_.reset (frame_postprocessor_new ());
    set_meta (buffer.get (), 0, true);
    EXPECT_NE (process (buffer.get ()), 0);
  }

  const Bytes delimiter_ = h264::make_access_unit_delimiter ();
  const Bytes sps_ = h264::make_sps ({});
  const Bytes pps_ = h264::make_pps ();
  const Bytes unit_ = access_unit ({delimiter_, sps_, pps_, idr_slice (), idr_slice (20)});
  const size_t vcl_offset_ = access_unit ({delimiter_, sps_, pps_}).size ();
  const Bytes slices_ = access_unit ({idr_slice (), idr_slice (20)});
  LogCapture log_;
  Postprocessor state_{frame_postprocessor_new ()};
};

bool ends_with (const Bytes &bytes, const Bytes &end)
{
  return bytes.size () >= end.size () && std::equal (end.rbegin (), end.rend (), bytes.rbegin ());
}

/** Where the last memory's bytes lie. */
const guint8 *last_memory (GstBuffer *buffer)
{
  const vorn::MemoryMap map (gst_buffer_peek_memory (buffer, gst_buffer_n_memory (buffer) - 1),
                             GST_MAP_READ);
  return map.data ();
}

} // namespace

TEST_F (FramePostprocessorBuffers, PreconditionsAreNamed)
{
  CriticalCapture criticals;
  auto buffer = buffer_of (unit_);
  EXPECT_EQ (frame_postprocessor_process (nullptr, &frame_size, buffer.get ()), 0);
  EXPECT_TRUE (criticals.has_assertion ("state != nullptr"));
  EXPECT_EQ (frame_postprocessor_process (state_.get (), nullptr, buffer.get ()), 0);
  EXPECT_TRUE (criticals.has_assertion ("frame_size != nullptr"));
}

TEST_F (FramePostprocessorBuffers, BufferOfAnotherHolderIsLeftAlone)
{
  auto buffer = buffer_of (unit_);
  set_meta (buffer.get (), 0, true);
  const BufferRef other (buffer.get ());
  {
    CriticalCapture criticals;
    EXPECT_EQ (process (buffer.get ()), 0);
    EXPECT_TRUE (criticals.has_assertion ("buffer == nullptr || gst_buffer_is_writable (buffer)"));
    EXPECT_EQ (criticals.criticals ().size (), 1u);
  }
  EXPECT_EQ (bytes_of (other.get ()), unit_);
  EXPECT_EQ (state_->first_buffer, 1u);
  EXPECT_THAT (log_.lines (), IsEmpty ());

  // Made writable, as a probe does, it is another buffer over the same memory.
  auto writable = vorn::adopt (gst_buffer_make_writable (buffer.release ()));
  EXPECT_NE (process (writable.get ()), 0);
  EXPECT_THAT (types_of (nal_units (writable.get ())), ElementsAre (7, 8, 6, 5, 5));
  EXPECT_EQ (bytes_of (other.get ()), unit_);
}

TEST_F (FramePostprocessorBuffers, SlicesStayWhereTheyAre)
{
  auto buffer = buffer_of (unit_);
  const guint8 *const data = last_memory (buffer.get ());
  process_first (buffer);
  EXPECT_EQ (last_memory (buffer.get ()), data + vcl_offset_);
  // SPS, PPS, SEI, slices.
  EXPECT_EQ (gst_buffer_n_memory (buffer.get ()), 4u);
}

TEST_F (FramePostprocessorBuffers, ReadOnlyMemoryIsOnlyRead)
{
  Bytes bytes = unit_;
  auto buffer = vorn::adopt (gst_buffer_new_wrapped_full (
      GST_MEMORY_FLAG_READONLY, bytes.data (), bytes.size (), 0, bytes.size (), nullptr, nullptr));
  process_first (buffer);
  EXPECT_THAT (types_of (nal_units (buffer.get ())), ElementsAre (7, 8, 6, 5, 5));
  EXPECT_TRUE (ends_with (bytes_of (buffer.get ()), slices_));
  EXPECT_EQ (last_memory (buffer.get ()), bytes.data () + vcl_offset_);
  EXPECT_EQ (bytes, unit_);
}

TEST_F (FramePostprocessorBuffers, SharedMemoryIsSharedOn)
{
  for (const GstMemoryFlags flag : {GstMemoryFlags{}, GST_MEMORY_FLAG_NO_SHARE}) {
    Bytes bytes = unit_;
    auto original = vorn::adopt (gst_buffer_new_wrapped_full (flag, bytes.data (), bytes.size (), 0,
                                                              bytes.size (), nullptr, nullptr));
    auto buffer = vorn::adopt (gst_buffer_copy (original.get ()));
    process_first (buffer);
    EXPECT_THAT (types_of (nal_units (buffer.get ())), ElementsAre (7, 8, 6, 5, 5));
    EXPECT_EQ (bytes_of (original.get ()), unit_);
    if (flag == 0) {
      EXPECT_EQ (last_memory (buffer.get ()), bytes.data () + vcl_offset_);
    }
  }
}

TEST_F (FramePostprocessorBuffers, StoredParameterSetsAreNotWrittenThroughTheBuffer)
{
  auto buffer = buffer_of (unit_);
  process_first (buffer);
  const Bytes stored = bytes_of (state_->sps);
  gst_buffer_memset (buffer.get (), 0, 0xee, 20);
  EXPECT_EQ (bytes_of (state_->sps), stored);
}

TEST_F (FramePostprocessorBuffers, SeveralMemoriesCutAnywhere)
{
  auto whole = buffer_of (unit_);
  process_first (whole);
  const Bytes expected = bytes_of (whole.get ());
  for (size_t first = 1; first + 1 < unit_.size (); first++) {
    auto buffer = buffer_of (unit_, {first});
    process_first (buffer);
    ASSERT_EQ (bytes_of (buffer.get ()), expected) << first;
    // The same where merging cannot be kept.
    buffer = buffer_of (unit_, {first, std::min (first + 3, unit_.size () - 1)});
    process_first (buffer);
    ASSERT_EQ (bytes_of (buffer.get ()), expected) << first;
  }
  EXPECT_THAT (log_.texts (warning), IsEmpty ());
}

TEST_F (FramePostprocessorBuffers, OneMemoryAUnitIsNeverCopied)
{
  auto buffer = buffer_of (unit_, {delimiter_.size () + 4, delimiter_.size () + sps_.size () + 8,
                                   vcl_offset_, vcl_offset_ + 44});
  const guint8 *const data = last_memory (buffer.get ());
  process_first (buffer);
  EXPECT_THAT (types_of (nal_units (buffer.get ())), ElementsAre (7, 8, 6, 5, 5));
  EXPECT_EQ (gst_buffer_n_memory (buffer.get ()), 5u);
  EXPECT_EQ (last_memory (buffer.get ()), data);
}

TEST_F (FramePostprocessorBuffers, AsManyMemoriesAsABufferTakes)
{
  std::vector<size_t> cuts;
  for (guint i = 1; i < gst_buffer_get_max_memory (); i++)
    cuts.push_back (vcl_offset_ + i * 2);
  auto buffer = buffer_of (unit_, cuts);
  ASSERT_EQ (gst_buffer_n_memory (buffer.get ()), gst_buffer_get_max_memory ());
  process_first (buffer);
  EXPECT_THAT (types_of (nal_units (buffer.get ())), ElementsAre (7, 8, 6, 5, 5));
  EXPECT_TRUE (ends_with (bytes_of (buffer.get ()), slices_));
}

TEST_F (FramePostprocessorBuffers, ChangedParameterSetsAreFollowedAcrossMemories)
{
  const Bytes changed = access_unit (
      {h264::make_sps ({.num_units_in_tick = 1, .time_scale = 50}), pps_, idr_slice ()});
  for (size_t cut = 1; cut < changed.size (); cut++) {
    auto buffer = buffer_of (unit_);
    process_first (buffer);
    buffer = buffer_of (changed, {cut});
    set_meta (buffer.get (), 0, true);
    process (buffer.get ());
    ASSERT_EQ (state_->time_scale, 50u) << cut;
    ASSERT_THAT (types_of (nal_units (buffer.get ())), ElementsAre (6, 5)) << cut;
  }
}

TEST_F (FramePostprocessorBuffers, EmptyBuffer)
{
  auto buffer = vorn::adopt (gst_buffer_new ());
  process_first (buffer);
  EXPECT_EQ (gst_buffer_get_size (buffer.get ()), 0u);
  EXPECT_TRUE (log_.has ("failed to insert SPS/PPS", warning));

  state_.reset (frame_postprocessor_new ());
  buffer = buffer_of (unit_);
  process_first (buffer);
  buffer = vorn::adopt (gst_buffer_new ());
  set_meta (buffer.get (), 0, false);
  EXPECT_NE (process (buffer.get ()), 0);
  EXPECT_THAT (types_of (nal_units (buffer.get ())), ElementsAre (6));
}

TEST_F (FramePostprocessorBuffers, TimestampsFlagsAndMetaStay)
{
  auto buffer = buffer_of (unit_);
  GST_BUFFER_PTS (buffer.get ()) = 5;
  GST_BUFFER_DTS (buffer.get ()) = 4;
  GST_BUFFER_DURATION (buffer.get ()) = 3;
  GST_BUFFER_FLAG_SET (buffer.get (), GST_BUFFER_FLAG_DELTA_UNIT);
  process_first (buffer);
  EXPECT_EQ (GST_BUFFER_PTS (buffer.get ()), 5u);
  EXPECT_EQ (GST_BUFFER_DTS (buffer.get ()), 4u);
  EXPECT_EQ (GST_BUFFER_DURATION (buffer.get ()), 3u);
  EXPECT_TRUE (GST_BUFFER_FLAG_IS_SET (buffer.get (), GST_BUFFER_FLAG_DELTA_UNIT));
  EXPECT_NE (vorn_frame_meta_get (buffer.get ()), nullptr);
}

// --- damage ---

TEST_F (FramePostprocessorBuffers, CutAtEveryByteLosesNoSlice)
{
  for (size_t size = 0; size < unit_.size (); size++) {
    const Bytes cut (unit_.begin (), unit_.begin () + static_cast<std::ptrdiff_t> (size));
    // Once the slice's header byte is there it is a slice; before, all bytes stay.
    const size_t begin = size > vcl_offset_ + 4 ? vcl_offset_ : 0;
    const Bytes kept (cut.begin () + static_cast<std::ptrdiff_t> (begin), cut.end ());
    for (const bool later : {false, true}) {
      state_.reset (frame_postprocessor_new ());
      auto buffer = buffer_of (unit_);
      set_meta (buffer.get (), 0, true);
      if (later)
        process (buffer.get ());
      buffer = buffer_of (cut);
      set_meta (buffer.get (), 0, true);
      EXPECT_NE (process (buffer.get ()), 0);
      const Bytes result = bytes_of (buffer.get ());
      ASSERT_TRUE (ends_with (result, kept)) << size;
      // What was put before is whole.
      const std::vector<Bytes> before = nal_units (
          Bytes (result.begin (), result.end () - static_cast<std::ptrdiff_t> (kept.size ())));
      for (const unsigned type : types_of (before))
        ASSERT_THAT (type, testing::AnyOf (6u, 7u, 8u)) << size;
    }
  }
}

TEST_F (FramePostprocessorBuffers, CutParameterSetIsNotKept)
{
  Bytes cut = access_unit ({delimiter_, sps_});
  cut.pop_back ();
  process_first (buffer_of (cut));
  EXPECT_EQ (state_->sps, nullptr);
}

TEST_F (FramePostprocessorBuffers, WrongLengthsBeforeTheSlicesKeepEverything)
{
  for (const uint32_t length : {0u, 1000u, 0x7fffffffu, 0xfffffff8u, 0xffffffffu}) {
    Bytes bytes = unit_;
    const size_t at = delimiter_.size () + 4; // the SPS's
    for (size_t i = 0; i < 4; i++)
      bytes[at + i] = static_cast<uint8_t> (length >> (24 - 8 * i));
    auto buffer = buffer_of (bytes);
    process_first (buffer);
    EXPECT_EQ (bytes_of (buffer.get ()), bytes) << length;
  }
}

TEST_F (FramePostprocessorBuffers, ASliceLongerThanTheBufferIsASlice)
{
  Bytes bytes = unit_;
  bytes[vcl_offset_ + 2] = 0xff;
  auto buffer = buffer_of (bytes);
  process_first (buffer);
  const Bytes kept (bytes.begin () + static_cast<std::ptrdiff_t> (vcl_offset_), bytes.end ());
  const Bytes result = bytes_of (buffer.get ());
  EXPECT_TRUE (ends_with (result, kept));
  EXPECT_LT (result.size () - kept.size (), sps_.size () + pps_.size () + 100);
  EXPECT_TRUE (log_.has ("VCL offset = " + std::to_string (vcl_offset_)));
  // What is there of it, and nothing after it.
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_DEBUG).at (3),
             "found nal unit of type 5 (" + std::to_string (unit_.size () - vcl_offset_ - 4) +
                 " bytes at offset " + std::to_string (vcl_offset_ + 4) + ")");
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_DEBUG).size (), 5u);
}

TEST_F (FramePostprocessorBuffers, RandomBytesKeepAllFromTheFirstSliceOn)
{
  h264::Random random (4);
  const int rounds = soak () ? 200000 : 3000;
  for (int i = 0; i < rounds; i++) {
    Bytes bytes = unit_;
    bytes.resize (random () % unit_.size ());
    if (i % 2 == 0)
      bytes.clear ();
    const Bytes rest = h264::random_bytes (random, 60);
    bytes.insert (bytes.end (), rest.begin (), rest.end ());
    for (int k = 0; k < i % 4; k++)
      bytes[random () % bytes.size ()] = static_cast<uint8_t> (random ());
    const auto begin = static_cast<std::ptrdiff_t> (first_slice (bytes));
    auto buffer = i % 3 == 0 ? buffer_of (bytes, {random () % bytes.size ()}) : buffer_of (bytes);
    process_first (buffer);
    ASSERT_TRUE (ends_with (bytes_of (buffer.get ()), Bytes (bytes.begin () + begin, bytes.end ())))
        << i;
  }
}
