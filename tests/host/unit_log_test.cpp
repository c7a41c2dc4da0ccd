// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <glib.h>
#include <gtest/gtest.h>

#include "log_capture.hpp"
#include "temp_dir.hpp"
#include "unit_log.hpp"
#include <vorn/raii.hpp>

TEST (UnitLogFile, ALineForEachUnit)
{
  const TempDir folder;
  const std::string path = folder.write ("units.csv", "what stood there before\n");
  std::string error;
  {
    const auto log = UnitLog::open (path, &error);
    ASSERT_TRUE (log) << error;
    log->add (1'000'000'000'123, 1'000'050'000'456, 4711);
    log->add (std::nullopt, 1'000'083'000'000, 12);
  }
  gchar *text = nullptr;
  ASSERT_TRUE (g_file_get_contents (path.c_str (), &text, nullptr, nullptr));
  const vorn::OwnedString owned (text);
  EXPECT_STREQ (text, "capture_ns,encoded_ns,bytes\n"
                      "1000000000123,1000050000456,4711\n"
                      ",1000083000000,12\n");
}

TEST (UnitLogFile, WhereNoneCanBeTheReasonIsTold)
{
  const TempDir folder;
  std::string error;
  EXPECT_FALSE (UnitLog::open (folder.at ("none/units.csv"), &error));
  EXPECT_EQ (error, folder.at ("none/units.csv") + ": No such file or directory");
}

TEST (UnitLogFile, AFullDiskIsLogged)
{
  const LogCapture capture;
  std::string error;
  auto log = UnitLog::open ("/dev/full", &error);
  ASSERT_TRUE (log) << error;
  log->add (1, 2, 3);
  log.reset ();
  EXPECT_TRUE (capture.has ("/dev/full: not all units could be written", VORN_LOG_PRIORITY_ERROR));
}
