// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#ifndef SIMULATOR_INSTANCE_CLAIM_HPP
#define SIMULATOR_INSTANCE_CLAIM_HPP

#include <memory>
#include <string>
#include <vector>

#include <vorn/raii.hpp>

namespace sim
{

/**
 * Makes this process the only simulator of an instance, for as long as the object lives, and keeps
 * the files in which it tells others where it serves.
 */
class InstanceClaim
{
public:
  /** Null when the instance cannot be claimed; error says why. instance may be null: the default.
   */
  static std::unique_ptr<InstanceClaim> make (const char *instance, std::string *error);
  ~InstanceClaim ();
  InstanceClaim (const InstanceClaim &) = delete;
  InstanceClaim &operator= (const InstanceClaim &) = delete;

  const std::string &name () const { return name_; }
  /** The instance's runtime directory. */
  const std::string &dir () const { return dir_; }
  /** Writes a line into a file of the runtime directory, at once for readers; its path, or empty.
   */
  std::string publish (const std::string &file, const std::string &line, std::string *error);

private:
  InstanceClaim () = default;
  std::string name_;
  std::string dir_;
  vorn::Fd lock_;
  std::vector<std::string> published_;
};

} // namespace sim

#endif
