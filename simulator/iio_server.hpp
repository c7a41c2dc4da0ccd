// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#ifndef SIMULATOR_IIO_SERVER_HPP
#define SIMULATOR_IIO_SERVER_HPP

#include <memory>
#include <string>

#include "iio_session.hpp"

namespace sim
{

struct IioServerOptions {
  std::string address = "127.0.0.1"; // IPv4, numeric: clients resolve names badly
  uint16_t port = 0;                 // 0: the system chooses
  size_t max_connections = 128;
};

/**
 * Serves IIO devices to libiio's network clients. One thread multiplexes all connections and never
 * waits for a single one, so that no client can keep another from its samples. Functions are
 * thread-safe; the server stops when it is destroyed.
 */
class IioServer
{
public:
  /** Null when the address cannot be listened on; error names it and the reason. */
  static std::unique_ptr<IioServer> start (IioSource source, const IioServerOptions &options,
                                           std::string *error);
  virtual ~IioServer () = default;

  /** What clients take: "ip:127.0.0.1:40001". */
  virtual const std::string &uri () const = 0;
  virtual uint16_t port () const = 0;
  virtual IioFaults &faults () = 0;
  virtual const IioStatistics &statistics () const = 0;
  /** Cuts all connections, as a server that died does; the server itself goes on. */
  virtual void drop_connections () = 0;
};

/** CLOCK_MONOTONIC. */
int64_t monotonic_ns ();

} // namespace sim

#endif
