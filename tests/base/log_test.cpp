// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "log_capture.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

VORN_LOG_TAG ("log_test");

TEST (Log, MessageCarriesTagPriorityAndSourcePath)
{
  LogCapture capture;
  VORN_LOG_WARNING ("value %d", 7);
  const int line = __LINE__ - 1;
  const auto lines = capture.lines ();
  ASSERT_EQ (lines.size (), 1u);
  EXPECT_EQ (lines[0], (LogLine{"log_test", 4, "tests/base/log_test.cpp:" + std::to_string (line),
                                "value 7"}));
}
