// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// A namespace of its own for each test program, and owners for the handles.
#ifndef TESTS_BLACKBOARD_FIXTURE_HPP
#define TESTS_BLACKBOARD_FIXTURE_HPP

#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include <unistd.h>

#include <gtest/gtest.h>

#include <vorn/blackboard.h>
#include <vorn/raii.hpp>

#include "log_capture.hpp"
#include "sample_pattern.hpp"

using Writer = vorn::Owned<VornBlackboardWriter, vorn_blackboard_writer_close>;

/** A reader with its revision. */
class Reader
{
public:
  Reader () = default;
  explicit Reader (const char *name) : reader_ (vorn_blackboard_open (name, &revision_)) {}
  Reader (Reader &&other) noexcept
      : revision_ (std::exchange (other.revision_, nullptr)),
        reader_ (std::exchange (other.reader_, nullptr))
  {
  }
  Reader &operator= (Reader &&other) noexcept
  {
    std::swap (revision_, other.revision_);
    std::swap (reader_, other.reader_);
    return *this;
  }
  ~Reader ()
  {
    if (reader_)
      vorn_blackboard_close (reader_, revision_);
  }
  VornBlackboardReader *get () const { return reader_; }
  VornBlackboardRevision *revision () const { return revision_; }
  explicit operator bool () const { return reader_ != nullptr; }

private:
  VornBlackboardRevision *revision_ = nullptr;
  VornBlackboardReader *reader_ = nullptr;
};

class BlackboardTest : public testing::Test
{
protected:
  BlackboardTest ()
  {
    // By the environment, so that child processes share it.
    setenv ("VORN_NAMESPACE", name_space ().c_str (), 1);
    EXPECT_EQ (vorn_blackboard_set_namespace (nullptr), 0);
  }
  ~BlackboardTest () override
  {
    EXPECT_GE (vorn_blackboard_remove_namespace (name_space ().c_str ()), 0);
  }

  static std::string name_space () { return "test-" + std::to_string (getpid ()); }
  /** The object of a section as the system shows it. */
  static std::string object_path (const std::string &section, const char *kind = "blackboard")
  {
    return "/dev/shm/vorn." + name_space () + "." + kind + "." + section;
  }

  static Writer create (const char *name, VornBlackboardHeader header)
  {
    return Writer (vorn_blackboard_create (name, &header));
  }
  /** Appends pattern sample number k at a time, or at its own. */
  static int write (const Writer &writer, size_t size, uint64_t k, uint64_t time_ns = 0)
  {
    std::vector<std::byte> sample (size);
    pattern_fill (sample.data (), size, k);
    const auto time = timespec_of (time_ns ? time_ns : pattern_time_ns (k));
    return vorn_blackboard_write (writer.get (), sample.data (), &time);
  }
  static int select_latest (const Reader &reader)
  {
    return vorn_blackboard_select (reader.get (), nullptr, VORN_BLACKBOARD_LATEST, 0);
  }
  static int select (const Reader &reader, uint64_t time_ns, uint32_t method, uint32_t count = 0)
  {
    const auto time = timespec_of (time_ns);
    return vorn_blackboard_select (reader.get (), &time, method, count);
  }
  /** The numbers of the selected samples; fails the test when one is not whole. */
  static std::vector<uint64_t> read_numbers (const Reader &reader, size_t room = 4096)
  {
    VornBlackboardHeader header = {};
    EXPECT_EQ (vorn_blackboard_get_header (reader.get (), &header), 0);
    std::vector<std::byte> samples (room * header.sample_size);
    const int n = vorn_blackboard_read (reader.get (), 0, samples.data (), samples.size ());
    EXPECT_GE (n, 0);
    std::vector<uint64_t> numbers;
    for (int i = 0; i < n; i++) {
      uint64_t k = 0;
      const auto *sample = samples.data () + static_cast<size_t> (i) * header.sample_size;
      EXPECT_TRUE (pattern_whole (sample, header.sample_size, &k));
      numbers.push_back (k);
    }
    return numbers;
  }

  /** Waits until the condition holds; false after a time far beyond what it can take. */
  static bool await (const std::function<bool ()> &condition)
  {
    const auto end = std::chrono::steady_clock::now () + std::chrono::seconds (30);
    while (!condition ()) {
      if (std::chrono::steady_clock::now () > end)
        return false;
      std::this_thread::sleep_for (std::chrono::milliseconds (1));
    }
    return true;
  }
};

#endif
