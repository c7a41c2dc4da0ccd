// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The beginning that a view's branches have in common: from raw frames to access units.
#ifndef VORN_FRAMEWORK_ENCODING_CHAIN_HPP
#define VORN_FRAMEWORK_ENCODING_CHAIN_HPP

#include <atomic>
#include <memory>
#include <string>

#include <gst/gst.h>

#include "rate_limit.hpp"
#include <vorn/modes.h>

namespace vorn
{

struct ChainSettings {
  std::string name;   // of the branch's bin, in front of the names of all that is in it
  std::string view;   // for the log
  const char *what;   // "streaming" or "recording", for the log
  guint queue_frames; // how many frames may wait for the encoder before the oldest is dropped
  bool scales;        // whether frames are brought to the format's size
  guint longest_key_frame_interval_ms;
};

/**
 * In a bin: queue (bounded, leaky) -> valve (closed at first) -> rate limit -> [scaling] -> encoder
 * -> tee. What the valve holds back is neither converted nor encoded. Bound to the framework's
 * thread where nothing else is said.
 */
class EncodingChain
{
public:
  explicit EncodingChain (ChainSettings settings);

  /** Adds the elements to the bin, with a ghost pad "sink"; false, with an error logged, when one
   * is missing. */
  bool build (GstBin *bin);

  void open (bool opened);
  bool is_open () const { return opened_; }
  /** NULL: frames go as the source gives them. */
  void set_format (const VornFormat *format);
  /** All zero when there is none. */
  const VornFormat &format () const { return format_; }
  /** Nothing happens with an empty name; a warning is logged for one that is not known. */
  void load_preset (const std::string &preset);
  /** bit/s, 0: the preset's. Thread-safe. */
  void set_bitrate (guint bitrate);
  GstElement *encoder () const { return encoder_; }
  /** Its request pads "src_%u" give the access units. */
  GstElement *tee () const { return tee_; }

  // Since it was built; any thread.
  struct Counters {
    std::atomic<guint64> frames_in = 0;
    std::atomic<guint64> frames_out = 0;
    std::atomic<guint64> bytes = 0;
    std::atomic<guint64> drops = 0;
  };
  Counters &counters () { return counters_; }

private:
  GstElement *append (GstBin *bin, GstElement *element, const char *factory_name, GstElement *last);
  void fit_borders (const GstCaps *caps);

  ChainSettings settings_;
  RateLimit rate_limit_;
  Counters counters_;
  std::atomic<bool> opened_ = false;
  VornFormat format_ = {};
  // Borrowed from the bin.
  GstElement *queue_ = nullptr;
  GstElement *valve_ = nullptr;
  GstElement *scale_ = nullptr;
  GstElement *filter_ = nullptr;
  GstElement *encoder_ = nullptr;
  GstElement *tee_ = nullptr;
  std::atomic<double> aspect_ = 0; // of the format; 0: the source's
};

/** Asks an encoder for a key frame at once. Thread-safe. */
void request_key_frame (GstElement *encoder);

/** Makes an element, or logs that it is missing for this branch. */
GstElement *make_element (const ChainSettings &settings, const char *factory_name,
                          const char *role);

} // namespace vorn

#endif
