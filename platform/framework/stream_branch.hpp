// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// A view's streaming branch: the bin "streamingbin".
#ifndef VORN_FRAMEWORK_STREAM_BRANCH_HPP
#define VORN_FRAMEWORK_STREAM_BRANCH_HPP

#include <functional>
#include <string>

#include "encoding_chain.hpp"
#include <vorn/gst_raii.hpp>
#include <vorn/view.h>

namespace vorn
{

/** Encodes, gives each unit to a function, and sends it as RTP over UDP when there is a client. */
class StreamBranch
{
public:
  /** Gets each unit, on a streaming thread. */
  using UnitFunc = std::function<void (GstSample *unit)>;

  StreamBranch (const std::string &view, UnitFunc on_unit);
  ~StreamBranch ();
  StreamBranch (const StreamBranch &) = delete;
  StreamBranch &operator= (const StreamBranch &) = delete;

  /** False, with an error logged, when it cannot be built. */
  bool build ();

  /** The bin; it has a pad "sink". */
  GstElement *bin () const { return bin_.get (); }
  EncodingChain &chain () { return chain_; }

  /** Opens the branch, for this client if it has an address. */
  void open (const VornStreamSetup &setup);
  void close ();
  /** The session description (SDP), empty when there is no client. */
  std::string describe () const;

private:
  bool build_units ();
  bool build_udp ();
  void set_client (const std::string &host, guint port);

  ChainSettings settings_;
  UnitFunc on_unit_;
  EncodingChain chain_;
  Ref<GstElement> bin_;
  // Borrowed from the bin.
  GstElement *udp_valve_ = nullptr;
  GstElement *payloader_ = nullptr;
  GstElement *udp_sink_ = nullptr;
  std::string host_;
  guint port_ = 0;
};

} // namespace vorn

#endif
