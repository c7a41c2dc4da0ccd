// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
/**
 * One client's conversation: bytes in, bytes out, time as an argument. No sockets here, so that
 * tests and the fuzz target talk to it directly.
 */
#ifndef SIMULATOR_IIO_SESSION_HPP
#define SIMULATOR_IIO_SESSION_HPP

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "iio_device.hpp"
#include "iio_protocol.hpp"

namespace sim
{

/** What is served, and how. Constant while sessions live. */
struct IioSource {
  IioContextModel model;
  /** The sample with this index; its timestamp is time_of (index). Thread-safe. */
  std::function<ImuSample (uint64_t index)> sample;
  int64_t start_ns = 0; // CLOCK_MONOTONIC of sample 0
  int64_t period_ns = 1000000;
  /** Samples kept for a reader that is late; older ones are lost to it. 0: all. */
  uint64_t queue_depth = 2000;

  int64_t time_of (uint64_t index) const
  {
    return start_ns + static_cast<int64_t> (index) * period_ns;
  }
  /** The first sample at or after a time. */
  uint64_t first_after (int64_t time_ns) const;
};

/** What happens next to blocks that clients ask for; for tests of clients. Thread-safe. */
struct IioFaults {
  std::atomic<int> failing_blocks = 0; // so many blocks answer with error_code
  std::atomic<int> error_code = -5;
  std::atomic<int> short_block_samples = -1; // the next block ends after so many (-1: whole)
  std::atomic<bool> stalled = false;         // the server answers nothing and accepts nobody
};

/** Counted over all sessions. */
struct IioStatistics {
  std::atomic<uint64_t> connections = 0;
  std::atomic<uint64_t> refused_requests = 0;
  std::atomic<uint64_t> blocks = 0;
  std::atomic<uint64_t> samples = 0;
  std::atomic<uint64_t> lost_samples = 0;
};

/** What sessions share. Trigger and faults belong to the device, not to a connection. */
struct IioShared {
  std::string trigger_id; // attached to the sensor; empty: none, no samples flow
  int64_t trigger_since_ns = 0;
  IioFaults faults;
  IioStatistics statistics;
};

/** Bound to one thread, like the shared state's trigger. */
class IioSession
{
public:
  IioSession (const IioSource &source, IioShared &shared) : source_ (source), shared_ (shared) {}

  /** Takes bytes from the client and answers what can be answered at once. */
  void receive (std::string_view bytes, int64_t now_ns);
  /** The client sends no more: what is answered already still goes out. */
  void hang_up () { end_session (""); }
  /** Answers what has become due and goes on with requests that had to wait. */
  void advance (int64_t now_ns);
  /** When advance has something to do next. */
  std::optional<int64_t> due_ns () const;

  /** What is to be sent; the caller takes away what it has sent. */
  std::string &output () { return output_; }
  bool is_sent () const { return output_.empty (); }
  /** No more input is wanted for now: the client is ahead of its answers. */
  bool is_full () const;
  /** The conversation is over once the output is sent. */
  bool is_finished () const { return finished_; }
  /** Why it was ended by this side; empty when the client asked for it. */
  const std::string &fault () const { return fault_; }
  /** The client has said at least one thing that makes sense. */
  bool is_client () const { return is_client_; }
  bool has_buffer () const { return device_ != nullptr; }

private:
  void answer_requests (int64_t now_ns);
  bool take_line (std::string_view *line);
  void handle_line (std::string_view line, int64_t now_ns);
  void handle (const IioRequest &request, int64_t now_ns);
  void read_attribute (const IioDevice &device, const IioRequest &request, int64_t now_ns);
  void start_write (const IioRequest &request);
  void finish_write ();
  void open (const IioDevice &device, const IioRequest &request, int64_t now_ns);
  void set_trigger (const IioDevice &device, const IioRequest &request, int64_t now_ns);
  void get_trigger (const IioDevice &device);
  void start_block (const IioRequest &request, int64_t now_ns);
  void answer_piece ();
  void append_piece (uint32_t samples);
  bool spend_fault ();
  uint64_t next_index () const;
  void place_reader ();
  void skip_lost_samples (int64_t now_ns);
  void answer (int64_t number);
  void answer_text (std::string_view text);
  void end_session (const std::string &fault);

  const IioSource &source_;
  IioShared &shared_;
  std::string input_;
  std::string output_;
  bool finished_ = false;
  bool is_client_ = false;
  std::string fault_;
  int refused_in_a_row_ = 0;

  // WRITE: the bytes still to be swallowed, and what is answered then.
  std::optional<uint32_t> write_bytes_;
  std::string written_;
  int write_result_ = 0;
  std::string write_expected_; // the only value that is accepted

  // The open buffer.
  const IioDevice *device_ = nullptr;
  uint32_t mask_ = 0;
  IioSampleLayout layout_;
  int64_t opened_ns_ = 0;
  std::optional<uint64_t> next_index_; // not yet known while no trigger is attached
  int64_t placed_for_trigger_ns_ = 0;
  uint32_t pending_samples_ = 0; // still to come of the block being waited for; 0: none
  bool is_first_piece_ = false;
};

} // namespace sim

#endif
