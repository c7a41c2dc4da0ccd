// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The instance that a command is about, and the claim of the host that runs it.
#ifndef HOST_INSTANCE_CLAIM_HPP
#define HOST_INSTANCE_CLAIM_HPP

#include <memory>
#include <string>
#include <vector>

#include <vorn/raii.hpp>

/** An instance by name. */
struct Instance {
  std::string name;
  std::string dir; // its runtime directory

  std::string at (const std::string &file) const { return dir + "/" + file; }
  /** Where its host listens for commands. */
  std::string control_socket () const { return at ("vorn-host.sock"); }
};

/**
 * Finds the instance (empty: the environment's), makes its runtime directory and makes its
 * namespace the current one. False with the reason.
 */
bool choose_instance (const std::string &wanted, Instance *instance, std::string *error);

/** Keeps other hosts off the instance while it lives; the system lifts it when the process dies. */
class InstanceClaim
{
public:
  /** NULL with the reason when a host runs there already. */
  static std::unique_ptr<InstanceClaim> make (const Instance &instance, std::string *error);
  ~InstanceClaim ();
  InstanceClaim (const InstanceClaim &) = delete;
  InstanceClaim &operator= (const InstanceClaim &) = delete;

  /** Writes a file of the runtime directory, gone when the claim goes. False with the reason. */
  bool publish (const std::string &file, const std::string &text, std::string *error);

private:
  explicit InstanceClaim (Instance instance) : instance_ (std::move (instance)) {}

  Instance instance_;
  vorn::Fd lock_;
  std::vector<std::string> published_;
};

#endif
