// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "log_fold.hpp"
#include "log_levels.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

constexpr int64_t ms = 1'000'000;

class Fold : public testing::Test
{
protected:
  /** Logs a message and gives the texts that come out. */
  std::vector<std::string> log (int64_t now_ns, const std::string &text, int line = 1)
  {
    std::vector<LogRecord> out;
    fold_.admit ({"tag", VORN_LOG_PRIORITY_ERROR, "file.cpp", line, text}, now_ns, out);
    return texts (out);
  }
  std::vector<std::string> flush ()
  {
    std::vector<LogRecord> out;
    fold_.flush (out);
    return texts (out);
  }
  void fill (int64_t now_ns, int count, const std::string &text = "x")
  {
    for (int i = 0; i < count; i++)
      log (now_ns, text);
  }
  static std::vector<std::string> texts (const std::vector<LogRecord> &records)
  {
    std::vector<std::string> result;
    for (const auto &record : records) {
      EXPECT_EQ (record.tag, "tag");
      EXPECT_EQ (record.file, "file.cpp");
      result.push_back (record.text);
    }
    return result;
  }
  LogFold fold_;
};

TEST_F (Fold, FiveEqualMessagesPassInAWindow)
{
  for (int i = 0; i < 5; i++)
    EXPECT_THAT (log (i, "x"), ElementsAre ("x"));
  for (int i = 5; i < 100; i++)
    EXPECT_THAT (log (i, "x"), IsEmpty ());
  EXPECT_THAT (flush (), ElementsAre ("x (repeated 95 times)"));
  EXPECT_THAT (flush (), IsEmpty ());
}

TEST_F (Fold, NextWindowWritesTheCountFirst)
{
  fill (0, 6);
  EXPECT_THAT (log (999 * ms, "x"), IsEmpty ());
  EXPECT_THAT (log (1000 * ms, "x"), ElementsAre ("x (repeated 2 times)", "x"));
  EXPECT_THAT (log (1001 * ms, "x"), ElementsAre ("x"));
}

TEST_F (Fold, AnyMessageEndsWindowsThatAreOver)
{
  fill (0, 6);
  EXPECT_THAT (log (10 * ms, "y"), ElementsAre ("y"));
  EXPECT_THAT (log (1000 * ms, "z"), ElementsAre ("x (repeated 1 time)", "z"));
}

TEST_F (Fold, AlternatingMessagesFoldEach)
{
  for (int i = 0; i < 50; i++) {
    log (i, "x");
    log (i, "y");
  }
  EXPECT_THAT (flush (), ElementsAre ("x (repeated 45 times)", "y (repeated 45 times)"));
}

TEST_F (Fold, AnotherPlaceIsAnotherMessage)
{
  fill (0, 5);
  EXPECT_THAT (log (0, "x", 2), ElementsAre ("x"));
  EXPECT_THAT (log (0, "x", 1), IsEmpty ());
}

TEST_F (Fold, ManyDifferentMessagesPushOutTheOldestWithItsCount)
{
  fill (0, 7, "oldest");
  for (size_t i = 0; i < LogFold::max_windows - 1; i++) {
    const auto text = std::to_string (i);
    EXPECT_THAT (log (1, text), ElementsAre (text));
  }
  EXPECT_THAT (log (2, "one more"), ElementsAre ("oldest (repeated 2 times)", "one more"));
  EXPECT_THAT (flush (), IsEmpty ());
}

struct LevelCase {
  const char *environment;
  const char *tag;
  int level;
  std::vector<std::string> errors = {};
};

class Levels : public testing::TestWithParam<LevelCase>
{
};

TEST_P (Levels, OfEnvironment)
{
  std::vector<std::string> errors;
  const auto levels = LogLevels::parse (GetParam ().environment, &errors);
  EXPECT_EQ (levels.level_of (GetParam ().tag), GetParam ().level);
  EXPECT_EQ (errors, GetParam ().errors);
}

INSTANTIATE_TEST_SUITE_P (
    Table, Levels,
    testing::Values (
        LevelCase{"", "a", 6}, LevelCase{"debug", "a", 7}, LevelCase{"none", "a", 0},
        LevelCase{"error", "a", 3}, LevelCase{"warning", "a", 4}, LevelCase{"info", "a", 6},
        LevelCase{"a=debug", "a", 7}, LevelCase{"a=debug", "b", 6}, LevelCase{"a=debug", "ab", 6},
        LevelCase{"warning,a=debug", "a", 7}, LevelCase{"warning,a=debug", "b", 4},
        LevelCase{"a=debug,warning", "a", 4}, LevelCase{"a=debug,a=error", "a", 3},
        LevelCase{" a = debug , ,", "a", 7},
        LevelCase{"loud", "a", 6, {"unknown level 'loud' (none, error, warning, info or debug)"}},
        LevelCase{
            "a=7,a=error", "a", 3, {"unknown level '7' (none, error, warning, info or debug)"}},
        LevelCase{"a=", "a", 6, {"unknown level '' (none, error, warning, info or debug)"}},
        LevelCase{"=debug", "a", 6, {"no tag before '=' in '=debug'"}}));

TEST (LevelOverrides, LastCallCounts)
{
  LogOverrides overrides;
  EXPECT_EQ (overrides.level_of ("a"), std::nullopt);
  overrides.set ("a", 3);
  EXPECT_EQ (overrides.level_of ("a"), 3);
  EXPECT_EQ (overrides.level_of ("b"), std::nullopt);
  overrides.set (nullptr, 7);
  EXPECT_EQ (overrides.level_of ("a"), 7);
  overrides.set ("a", -1);
  EXPECT_EQ (overrides.level_of ("a"), std::nullopt);
  EXPECT_EQ (overrides.level_of ("b"), 7);
  overrides.set ("a", 99);
  EXPECT_EQ (overrides.level_of ("a"), 7);
  overrides.set (nullptr, -1);
  EXPECT_EQ (overrides.level_of ("a"), std::nullopt);
}

} // namespace
