// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
/**
 * Serves a simulated camera on a unix socket (see <vorn/camera_protocol.h>): any number of clients
 * up to a limit, each with a rectangle, size and rate of its own, on a thread of its own.
 */
#ifndef SIMULATOR_CAMERA_SERVER_HPP
#define SIMULATOR_CAMERA_SERVER_HPP

#include <atomic>
#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <thread>

#include "camera_model.hpp"
#include "camera_pose.hpp"
#include "camera_session.hpp"
#include "camera_socket.hpp"
#include "world.hpp"

namespace sim
{

struct CameraServerOptions {
  std::string path; // of the socket
  CameraDescription camera;
  unsigned most_clients = 16;
};

/** What happened since the start. */
struct CameraStatistics {
  uint64_t connections;
  uint64_t refused;
  uint64_t frames;
  uint64_t lost_frames;
  /** Rendering time of one thread per frame sent, ms. */
  double render_ms;
};

class CameraServer
{
public:
  /** Null when the camera cannot be served; error says why. */
  static std::unique_ptr<CameraServer> start (const CameraServerOptions &options,
                                              std::string *error);
  /** Ends all connections and removes the socket's file. */
  ~CameraServer ();
  CameraServer (const CameraServer &) = delete;
  CameraServer &operator= (const CameraServer &) = delete;

  const std::string &path () const { return socket_->path (); }
  /** Thread-safe. */
  CameraStatistics statistics () const;

private:
  struct Client {
    std::atomic<bool> done = false;
    std::thread thread;
  };
  CameraServer () = default;
  void run ();
  void accept_client ();
  void join_finished ();

  CameraServerOptions options_;
  std::unique_ptr<CameraSocket> socket_;
  vorn::Fd stop_;
  mutable CameraCounters counters_;
  std::list<Client> clients_;
  std::thread thread_;
};

} // namespace sim

#endif
