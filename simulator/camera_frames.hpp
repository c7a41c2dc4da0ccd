// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The memory in which a stream's frames travel.
#ifndef SIMULATOR_CAMERA_FRAMES_HPP
#define SIMULATOR_CAMERA_FRAMES_HPP

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <vorn/raii.hpp>

namespace sim
{

/** Buffers that are either ours or the client's. Bound to one thread. */
class FramePool
{
public:
  FramePool () = default;
  FramePool (const FramePool &) = delete;
  FramePool &operator= (const FramePool &) = delete;
  ~FramePool ();

  /** Makes the buffers, sealed as the protocol wants them; the reason of a failure, or empty. */
  std::string make (unsigned count, uint64_t frame_size);

  std::vector<int> descriptors () const;
  uint8_t *data (uint32_t buffer) const { return buffers_[buffer].data; }
  /** A buffer that is ours. */
  std::optional<uint32_t> find_free () const;
  /** Hands a buffer of ours to the client. */
  void lend (uint32_t buffer) { buffers_[buffer].lent = true; }
  /** False when the buffer was not the client's to return. */
  bool take_back (uint32_t buffer);

private:
  struct Buffer {
    vorn::Fd memory;
    uint8_t *data;
    bool lent;
  };
  std::vector<Buffer> buffers_;
  uint64_t frame_size_ = 0;
};

} // namespace sim

#endif
