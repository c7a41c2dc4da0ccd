// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// A line for each access unit of the stream: when its frame was captured, when it was encoded.
#ifndef HOST_UNIT_LOG_HPP
#define HOST_UNIT_LOG_HPP

#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

/** Reentrant: made and destroyed on one thread, units may be added on another meanwhile. */
class UnitLog
{
public:
  /** Makes the file anew; NULL with the reason. */
  static std::unique_ptr<UnitLog> open (const std::string &path, std::string *error);
  /** What was lost on the way to the disk is logged. */
  ~UnitLog ();
  UnitLog (const UnitLog &) = delete;
  UnitLog &operator= (const UnitLog &) = delete;

  /** Times: ns of CLOCK_MONOTONIC; a capture time that is not known leaves its field empty. */
  void add (std::optional<int64_t> capture_ns, int64_t encoded_ns, uint64_t bytes);

private:
  explicit UnitLog (std::string path, FILE *file) : path_ (std::move (path)), file_ (file) {}

  std::string path_;
  FILE *file_;
};

#endif
