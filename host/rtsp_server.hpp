// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Serves the encoded stream to RTSP clients, on a thread of its own: a client that connects slowly
// or stops reading holds up nobody but itself.
#ifndef HOST_RTSP_SERVER_HPP
#define HOST_RTSP_SERVER_HPP

#include <functional>
#include <memory>
#include <string>

#include <gst/gst.h>

struct RtspShared;
struct RtspThread;

struct RtspOptions {
  guint16 port = 0; // 0: the system chooses
  std::string address = "0.0.0.0";
  std::string path = "/front";
  /** Asks for a key frame soon; called on the server's threads. */
  std::function<void ()> request_key_frame;
};

struct RtspStatistics {
  guint clients = 0;       // connected now
  guint64 connections = 0; // ever
  guint64 units = 0;       // handed to the media
  guint64 drops = 0;       // units that found a full queue, or waited for a key frame after it
};

/** Runs from start to destruction. */
class RtspServer
{
public:
  /** NULL with the reason, which names the port. */
  static std::unique_ptr<RtspServer> start (const RtspOptions &options, std::string *error);
  ~RtspServer ();
  RtspServer (const RtspServer &) = delete;
  RtspServer &operator= (const RtspServer &) = delete;

  /** Hands over an access unit with its caps (avc, codec_data). Any thread; does not block. */
  void push (GstSample *unit);

  guint16 port () const { return port_; }
  /** rtsp://127.0.0.1:PORT/front */
  std::string uri () const;
  RtspStatistics statistics () const;

private:
  RtspServer ();

  std::shared_ptr<RtspShared> shared_;
  std::unique_ptr<RtspThread> thread_;
  std::string path_;
  guint16 port_ = 0;
};

#endif
