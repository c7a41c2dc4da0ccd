// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// A section in shared memory: the ring of blackboard_ring.hpp with a name, an owner and a life.
#ifndef VORN_BLACKBOARD_SECTION_HPP
#define VORN_BLACKBOARD_SECTION_HPP

#include <memory>
#include <optional>
#include <vector>

#include <sys/types.h>

#include "blackboard_ring.hpp"
#include "section_name.hpp"
#include "shared_memory.hpp"

namespace vorn::blackboard
{

/** The time in nanoseconds; nothing when it is NULL or out of range. */
inline std::optional<uint64_t> time_to_ns (const struct timespec *time)
{
  // One second less than what fits, so that sums with small durations fit as well.
  constexpr int64_t max_seconds = 18446744072;
  if (!time || time->tv_sec < 0 || time->tv_sec > max_seconds || time->tv_nsec < 0 ||
      time->tv_nsec > 999999999)
    return std::nullopt;
  return static_cast<uint64_t> (time->tv_sec) * 1000000000u + static_cast<uint64_t> (time->tv_nsec);
}

/** The writing end; destruction withdraws the section. */
class SectionWriter
{
public:
  /** Creates the section, or sets errno and says why not. */
  static std::unique_ptr<SectionWriter> create (const Address &address,
                                                const VornBlackboardHeader &header, Kind kind,
                                                const std::vector<std::byte> &annex);
  ~SectionWriter ();
  SectionWriter (const SectionWriter &) = delete;
  SectionWriter &operator= (const SectionWriter &) = delete;

  void write (const void *sample, uint64_t time_ns)
  {
    if (ring_.goes_back (time_ns)) [[unlikely]]
      warn_of_step_back (time_ns);
    ring_.write (sample, time_ns);
  }

private:
  explicit SectionWriter (const Address &address) : address_ (address) {}
  Refusal make (const VornBlackboardHeader &header, Kind kind, const std::vector<std::byte> &annex);
  void warn_of_step_back (uint64_t time_ns) const;

  Address address_;
  Fd fd_; // holds the writer's lock
  Mapping mapping_;
  RingWriter ring_;
};

/** A reading end. Starts detached; refresh looks for the section. */
class SectionReader
{
public:
  SectionReader (Address address, Kind kind) : address_ (std::move (address)), kind_ (kind) {}

  /**
   * Makes sure that the section at hand is the one that has the name now. Returns 0, -ENOENT
   * (silently) when there is none, or another negative errno when it cannot be used; the same
   * refusal is logged once.
   */
  int refresh ()
  {
    if (ring_ && ring_->state () == state_ready && !idle_and_gone ()) [[likely]]
      return 0;
    return attach ();
  }

  /** Which object is attached: differs after each one. 0 before the first. */
  uint64_t attachment () const { return attachment_; }
  /** Of the object attached now or last. */
  const Geometry &geometry () const { return geometry_; }
  const std::vector<std::byte> &annex () const { return annex_; }
  const std::string &name () const { return address_.name; }
  /** Samples written so far; only after refresh returned 0. */
  uint64_t written () const { return ring_->done (); }

  /** As the public calls; select only after refresh returned 0. */
  int select (uint64_t time_ns, uint32_t method, uint32_t count);
  int read (void *buffer, size_t size) const;
  int read_times (struct timespec *times, size_t count) const;
  int end_read ();
  /** Drops the selection. */
  void forget () { selected_ = false; }

private:
  int attach ();
  Refusal open_object ();
  /** Whether the object lost its name or its size behind our back; looked at when nothing new
   * comes. */
  bool idle_and_gone ();

  Address address_;
  Kind kind_;
  Fd fd_;
  Mapping mapping_;
  Geometry geometry_;
  std::vector<std::byte> annex_;
  std::optional<RingReader> ring_; // none while detached
  uint64_t attachment_ = 0;
  uint64_t last_done_ = 0;
  uint32_t idle_selects_ = 0;
  int64_t last_look_ns_ = 0;
  std::string last_refusal_;
  bool selected_ = false;
  Selection selection_;
};

/** Reads and checks an image's header; nothing of the object is mapped. size: the object's. */
Refusal examine_image (int fd, uint64_t size, Kind kind, Geometry *geometry);

} // namespace vorn::blackboard

#endif
