// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "camera_server.hpp"

#include <cerrno>
#include <cstring>

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <vorn/log.h>

VORN_LOG_TAG ("camera_server");

namespace sim
{

namespace
{

constexpr int out_of_descriptors_pause_ms = 200;

} // namespace

std::unique_ptr<CameraServer> CameraServer::start (const CameraServerOptions &options,
                                                   std::string *error)
{
  std::unique_ptr<CameraServer> server (new CameraServer);
  server->options_ = options;
  server->socket_ = CameraSocket::listen (options.path, error);
  if (!server->socket_)
    return nullptr;
  server->stop_ = vorn::Fd (eventfd (0, EFD_CLOEXEC | EFD_NONBLOCK));
  server->thread_ = std::thread ([self = server.get ()] { self->run (); });
  return server;
}

CameraServer::~CameraServer ()
{
  if (!thread_.joinable ())
    return;
  eventfd_write (stop_.get (), 1);
  thread_.join ();
  for (Client &client : clients_)
    client.thread.join ();
}

void CameraServer::join_finished ()
{
  for (auto client = clients_.begin (); client != clients_.end ();) {
    if (client->done) {
      client->thread.join ();
      client = clients_.erase (client);
    } else {
      ++client;
    }
  }
}

void CameraServer::accept_client ()
{
  vorn::Fd connection (accept4 (socket_->fd (), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (!connection) {
    if (errno == EMFILE || errno == ENFILE || errno == ENOMEM) {
      VORN_LOG_WARNING ("%s: no connection can be accepted: %s", options_.camera.name.c_str (),
                        strerror (errno));
      pollfd stop = {stop_.get (), POLLIN, 0};
      poll (&stop, 1, out_of_descriptors_pause_ms);
    }
    return;
  }
  join_finished ();
  counters_.connections++;
  if (clients_.size () >= options_.most_clients) {
    counters_.refused++;
    VORN_LOG_WARNING ("%s: client refused: there are %zu already", options_.camera.name.c_str (),
                      clients_.size ());
    VornCameraMessage message;
    vorn_camera_message_init (&message, VORN_CAMERA_REFUSAL);
    message.refusal.code = EUSERS;
    strcpy (message.refusal.text, "the camera has too many clients");
    vorn_camera_send (connection.get (), &message, nullptr, 0);
    return;
  }
  Client &client = clients_.emplace_back ();
  client.thread = std::thread ([this, &client, socket = std::move (connection)] () mutable {
    pthread_setname_np (pthread_self (), options_.camera.name.substr (0, 15).c_str ());
    CameraSession (std::move (socket), options_.camera, stop_.get (), &counters_).run ();
    client.done = true;
  });
}

void CameraServer::run ()
{
  for (;;) {
    pollfd polled[] = {{socket_->fd (), POLLIN, 0}, {stop_.get (), POLLIN, 0}};
    const int ready = poll (polled, 2, -1);
    if (ready < 0 && errno != EINTR) {
      VORN_LOG_ERROR ("%s: cannot wait for clients: %s", options_.camera.name.c_str (),
                      strerror (errno));
      return;
    }
    if (ready > 0 && polled[1].revents)
      return;
    if (ready > 0 && polled[0].revents)
      accept_client ();
  }
}

CameraStatistics CameraServer::statistics () const
{
  const uint64_t frames = counters_.frames;
  const double render_ms = static_cast<double> (counters_.render_ns) * 1e-6;
  return {counters_.connections, counters_.refused, frames, counters_.lost_frames,
          frames ? render_ms / static_cast<double> (frames) : 0};
}

} // namespace sim
