// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What the fuzz targets of platform/base share: bytes taken from the front of an input, a namespace
// of the process, silence.
#ifndef FUZZ_SCOPE_HPP
#define FUZZ_SCOPE_HPP

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include <unistd.h>

#include <vorn/blackboard.h>
#include <vorn/log.h>

/** Takes an input apart; gives zeros when it is used up. */
class Bytes
{
public:
  Bytes (const uint8_t *data, size_t size) : data_ (data), size_ (size) {}

  template <typename T>
  T take ()
  {
    T value{};
    const size_t n = std::min (sizeof value, size_);
    if (n > 0)
      memcpy (&value, data_, n);
    skip (n);
    return value;
  }
  /** Up to a zero byte, which is taken as well. */
  std::string take_text ()
  {
    const auto *end = static_cast<const uint8_t *> (size_ > 0 ? memchr (data_, 0, size_) : nullptr);
    std::string text (reinterpret_cast<const char *> (data_),
                      end ? static_cast<size_t> (end - data_) : size_);
    skip (text.size () + (end ? 1 : 0));
    return text;
  }
  const uint8_t *rest () const { return data_; }
  size_t left () const { return size_; }

private:
  void skip (size_t n)
  {
    data_ += n;
    size_ -= n;
  }

  const uint8_t *data_;
  size_t size_;
};

/** Chooses a namespace of this process and drops all messages, once. */
inline const std::string &fuzz_namespace ()
{
  static const std::string name = [] {
    vorn_log_set_hook ([] (void *, const char *, VornLogPriority, const char *) {}, nullptr);
    std::string chosen = "fuzz-" + std::to_string (getpid ());
    if (vorn_blackboard_set_namespace (chosen.c_str ()) != 0)
      abort ();
    return chosen;
  }();
  return name;
}

/** Ends the process so that the input is kept; not an assert, which a release build drops. */
inline void require (bool condition)
{
  if (!condition)
    abort ();
}

#endif
