// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The host below a prefix that nobody knew at build time.
#include "host_fixture.hpp"

#include <filesystem>

namespace fs = std::filesystem;

namespace
{

TEST (Installed, RunsBelowAnyPrefix)
{
  const TempDir dir;
  // Builds what of the default targets is not built yet: all of it is installed.
  const ProcessResult install = run_process (
      {"meson", "install", "-C", environment ("VORN_TEST_BUILD"), "--destdir", dir.path ()});
  ASSERT_EQ (install.status, 0) << install.output << install.errors;
  std::string host_installed;
  std::string configuration;
  for (const auto &entry : fs::recursive_directory_iterator (dir.path ())) {
    if (entry.path ().filename () == "vorn-host")
      host_installed = entry.path ();
    if (entry.path ().filename () == "desk.conf")
      configuration = entry.path ();
  }
  ASSERT_FALSE (host_installed.empty ());
  ASSERT_FALSE (configuration.empty ());
  // The test harness shows programs the libraries of the build folder; here they must not be found.
  const ProcessResult host = run_process (
      {"env", "-u", "LD_LIBRARY_PATH", host_installed, "--config", configuration, "modes"}, "/");
  EXPECT_TRUE (host.exited);
  EXPECT_EQ (host.status, 0) << host.errors;
  EXPECT_EQ (host.output, run_host ({"--config", desk_configuration (), "modes"}).output);
}

} // namespace
