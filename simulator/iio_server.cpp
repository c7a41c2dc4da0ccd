// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "iio_server.hpp"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <list>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <thread>
#include <vector>

#include <vorn/log.h>
#include <vorn/raii.hpp>

VORN_LOG_TAG ("iio_server");

namespace sim
{

namespace
{

constexpr int64_t ms = 1'000'000;
constexpr size_t receive_bytes = 4096;
constexpr int accepts_per_round = 16;
/** How long nobody is accepted after descriptors ran out, or while stalled nothing is looked at. */
constexpr int64_t pause_ns = 20 * ms;

struct Connection {
  vorn::Fd socket;
  IioSession session;
  bool broken = false;

  Connection (vorn::Fd accepted, const IioSource &source, IioShared &shared)
      : socket (std::move (accepted)), session (source, shared)
  {
  }
};

vorn::Fd make_listener (const IioServerOptions &options, sockaddr_in *address, std::string *error)
{
  *address = {};
  address->sin_family = AF_INET;
  address->sin_port = htons (options.port);
  const std::string name = options.address + ":" + std::to_string (options.port);
  if (inet_pton (AF_INET, options.address.c_str (), &address->sin_addr) != 1) {
    *error = "cannot listen on " + name + ": not a numeric IPv4 address";
    return {};
  }
  vorn::Fd listener (socket (AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  const int on = 1;
  socklen_t length = sizeof *address;
  // Quick restarts on the same port.
  if (!listener || setsockopt (listener.get (), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
      bind (listener.get (), reinterpret_cast<sockaddr *> (address), length) != 0 ||
      listen (listener.get (), SOMAXCONN) != 0 ||
      getsockname (listener.get (), reinterpret_cast<sockaddr *> (address), &length) != 0) {
    *error = "cannot listen on " + name + ": " + strerror (errno);
    return {};
  }
  return listener;
}

class PollingServer : public IioServer
{
public:
  PollingServer (IioSource source, const IioServerOptions &options, vorn::Fd listener,
                 const sockaddr_in &address)
      : source_ (std::move (source)), options_ (options), listener_ (std::move (listener)),
        wake_ (eventfd (0, EFD_NONBLOCK | EFD_CLOEXEC)), port_ (ntohs (address.sin_port)),
        uri_ ("ip:" + options.address + ":" + std::to_string (port_))
  {
    // Signals belong to the program's own thread.
    sigset_t all, former;
    sigfillset (&all);
    pthread_sigmask (SIG_SETMASK, &all, &former);
    thread_ = std::thread ([this] { run (); });
    pthread_sigmask (SIG_SETMASK, &former, nullptr);
  }

  ~PollingServer () override
  {
    stop_ = true;
    wake ();
    thread_.join ();
  }

  const std::string &uri () const override { return uri_; }
  uint16_t port () const override { return port_; }
  IioFaults &faults () override { return shared_.faults; }
  const IioStatistics &statistics () const override { return shared_.statistics; }
  void drop_connections () override
  {
    drop_ = true;
    wake ();
  }

private:
  void wake ()
  {
    const uint64_t one = 1;
    // It only fails when the counter is full, and then the thread is awake already.
    [[maybe_unused]] const ssize_t written = write (wake_.get (), &one, sizeof one);
  }

  void run ()
  {
    pthread_setname_np (pthread_self (), "iio-server");
    // Samples should leave when they are due, not up to 50 us later.
    prctl (PR_SET_TIMERSLACK, 1000);
    while (!stop_) {
      if (shared_.faults.stalled)
        wait_stalled ();
      else
        serve_round ();
    }
  }

  void wait_stalled ()
  {
    pollfd woken = {wake_.get (), POLLIN, 0};
    poll (&woken, 1, static_cast<int> (pause_ns / ms));
  }

  void serve_round ()
  {
    fill_poll_set ();
    const auto timeout = time_until_due ();
    if (ppoll (polled_.data (), polled_.size (), timeout ? &*timeout : nullptr, nullptr) < 0 &&
        errno != EINTR)
      VORN_LOG_ERROR ("poll: %m");
    if (stop_ || shared_.faults.stalled)
      return;
    clear_wake ();
    const int64_t now_ns = monotonic_ns ();
    size_t i = 2;
    for (auto &connection : connections_)
      serve (connection, polled_[i++].revents, now_ns);
    if (drop_.exchange (false))
      for (auto &connection : connections_)
        connection.broken = true;
    connections_.remove_if ([] (const Connection &c) { return is_over (c); });
    if (polled_[1].revents)
      accept_some (now_ns);
  }

  void fill_poll_set ()
  {
    const bool accepting = monotonic_ns () >= accept_after_ns_;
    polled_.clear ();
    polled_.push_back ({wake_.get (), POLLIN, 0});
    polled_.push_back ({listener_.get (), static_cast<short> (accepting ? POLLIN : 0), 0});
    for (auto &connection : connections_) {
      short events = connection.session.is_full () ? POLLRDHUP : POLLIN;
      if (!connection.session.output ().empty ())
        events |= POLLOUT;
      polled_.push_back ({connection.socket.get (), events, 0});
    }
  }

  std::optional<timespec> time_until_due () const
  {
    const int64_t now_ns = monotonic_ns ();
    int64_t due_ns = accept_after_ns_ > now_ns ? accept_after_ns_ : INT64_MAX;
    for (const auto &connection : connections_)
      due_ns = std::min (due_ns, connection.session.due_ns ().value_or (INT64_MAX));
    if (due_ns == INT64_MAX)
      return std::nullopt;
    const int64_t left_ns = std::max<int64_t> (due_ns - now_ns, 0);
    return timespec{left_ns / 1'000'000'000, left_ns % 1'000'000'000};
  }

  void clear_wake ()
  {
    uint64_t count = 0;
    if (polled_[0].revents) [[maybe_unused]]
      const ssize_t n = read (wake_.get (), &count, sizeof count);
  }

  static void serve (Connection &connection, short events, int64_t now_ns)
  {
    if (events & (POLLERR | POLLHUP | POLLNVAL | POLLRDHUP)) {
      connection.broken = true;
      return;
    }
    if (events & POLLIN)
      receive (connection, now_ns);
    connection.session.advance (now_ns);
    send_output (connection);
  }

  /** At most so many bytes a round: whoever talks without pause gets no more turns than others. */
  static void receive (Connection &connection, int64_t now_ns)
  {
    char bytes[receive_bytes];
    const ssize_t n = recv (connection.socket.get (), bytes, sizeof bytes, 0);
    if (n > 0)
      connection.session.receive ({bytes, static_cast<size_t> (n)}, now_ns);
    else if (n == 0)
      connection.session.hang_up (); // some clients just close, in the middle of anything
    else if (errno != EAGAIN && errno != EINTR)
      connection.broken = true;
  }

  static void send_output (Connection &connection)
  {
    std::string &output = connection.session.output ();
    if (output.empty ())
      return;
    const ssize_t n = send (connection.socket.get (), output.data (), output.size (), MSG_NOSIGNAL);
    if (n > 0)
      output.erase (0, static_cast<size_t> (n));
    else if (n < 0 && errno != EAGAIN && errno != EINTR)
      connection.broken = true;
  }

  static bool is_over (const Connection &connection)
  {
    const IioSession &session = connection.session;
    if (!connection.broken && !(session.is_finished () && session.is_sent ()))
      return false;
    if (session.fault ().empty ())
      VORN_LOG_DEBUG ("connection %d closed", connection.socket.get ());
    else
      VORN_LOG_WARNING ("connection refused further service: %s", session.fault ().c_str ());
    return true;
  }

  void accept_some (int64_t now_ns)
  {
    for (int i = 0; i < accepts_per_round; i++) {
      vorn::Fd accepted (
          accept4 (listener_.get (), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
      if (!accepted) {
        if (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS) {
          VORN_LOG_WARNING ("cannot accept a connection: %m");
          accept_after_ns_ = now_ns + pause_ns;
        }
        return;
      }
      add_connection (std::move (accepted));
    }
  }

  void add_connection (vorn::Fd accepted)
  {
    if (connections_.size () >= options_.max_connections) {
      // Whoever has not yet said anything sensible makes room.
      const auto stranger =
          std::find_if (connections_.begin (), connections_.end (),
                        [] (const Connection &c) { return !c.session.is_client (); });
      if (stranger == connections_.end ()) {
        VORN_LOG_WARNING ("%zu connections are enough, another one is refused",
                          connections_.size ());
        return;
      }
      connections_.erase (stranger);
    }
    const int on = 1;
    setsockopt (accepted.get (), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    VORN_LOG_DEBUG ("connection %d opened", accepted.get ());
    connections_.emplace_back (std::move (accepted), source_, shared_);
    shared_.statistics.connections++;
  }

  const IioSource source_;
  const IioServerOptions options_;
  vorn::Fd listener_;
  vorn::Fd wake_;
  const uint16_t port_;
  const std::string uri_;
  std::atomic<bool> stop_ = false;
  std::atomic<bool> drop_ = false;

  // The thread's own.
  IioShared shared_;                  // but for faults and statistics, which are atomic
  std::list<Connection> connections_; // oldest first
  std::vector<pollfd> polled_;        // wake, listener, then the connections
  int64_t accept_after_ns_ = 0;

  std::thread thread_; // last: it uses all the others
};

} // namespace

int64_t monotonic_ns ()
{
  timespec now = {};
  clock_gettime (CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

std::unique_ptr<IioServer> IioServer::start (IioSource source, const IioServerOptions &options,
                                             std::string *error)
{
  sockaddr_in address;
  vorn::Fd listener = make_listener (options, &address, error);
  if (!listener)
    return nullptr;
  return std::make_unique<PollingServer> (std::move (source), options, std::move (listener),
                                          address);
}

} // namespace sim
