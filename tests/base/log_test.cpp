// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "log_capture.hpp"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <thread>
#include <unistd.h>

#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vorn/raii.hpp>

VORN_LOG_TAG ("log_test");

namespace
{

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

/** Logs in its destructor, which runs after the facility's own clean-up at exit. */
struct LogsWhileExiting {
  bool wanted = false;
  ~LogsWhileExiting ()
  {
    if (wanted)
      for (int i = 0; i < 8; i++)
        VORN_LOG_INFO ("very late");
  }
} logs_while_exiting;

/** Logs before main. */
struct LogsBeforeMain {
  static std::string &seen ()
  {
    static std::string text;
    return text;
  }
  LogsBeforeMain ()
  {
    vorn_log_set_hook (
        [] (void *, const char *, VornLogPriority, const char *text) { seen () = text; }, nullptr);
    VORN_LOG_INFO ("very early");
    vorn_log_set_hook (nullptr, nullptr);
  }
} logs_before_main;

/** A file name of this test, removed at the end. */
class TemporaryFile
{
public:
  TemporaryFile ()
  {
    char name[] = "/tmp/vorn-log-test-XXXXXX";
    vorn::Fd created (mkstemp (name));
    path_ = name;
  }
  ~TemporaryFile () { std::filesystem::remove (path_); }
  const char *path () const { return path_.c_str (); }
  std::vector<std::string> lines () const
  {
    std::ifstream file (path_);
    std::vector<std::string> result;
    for (std::string line; std::getline (file, line);)
      result.push_back (line);
    return result;
  }

private:
  std::string path_;
};

class Log : public testing::Test
{
protected:
  void TearDown () override
  {
    vorn_log_set_file (nullptr);
    unsetenv ("VORN_LOG");
    vorn_log_set_level (nullptr, -1);
  }
  static std::string stderr_of (const std::function<void ()> &body)
  {
    testing::internal::CaptureStderr ();
    body ();
    return testing::internal::GetCapturedStderr ();
  }
};

bool matches (const std::string &text, const char *pattern)
{
  return g_regex_match_simple (pattern, text.c_str (), GRegexCompileFlags (0),
                               GRegexMatchFlags (0));
}

/** How many messages a written line stands for. */
int messages_of (const std::string &line)
{
  const auto summary = line.rfind (" (repeated ");
  return summary == std::string::npos ? 1 : atoi (line.c_str () + summary + strlen (" (repeated "));
}

void flood (int count)
{
  for (int i = 0; i < count; i++)
    VORN_LOG_WARNING ("flood");
}

TEST_F (Log, MessageCarriesTagPriorityAndSourcePath)
{
  LogCapture capture;
  VORN_LOG_WARNING ("value %d", 7);
  const int line = __LINE__ - 1;
  const auto lines = capture.lines ();
  ASSERT_EQ (lines.size (), 1u);
  EXPECT_EQ (lines[0], (LogLine{"log_test", 4, "tests/base/log_test.cpp:" + std::to_string (line),
                                "value 7"}));
}

TEST_F (Log, LineOnStderr)
{
  const std::string text = stderr_of ([] { VORN_LOG_ERROR ("broken %s\n", "pipe"); });
  EXPECT_TRUE (matches (
      text, R"(^\d\d:\d\d:\d\d\.\d{3} E log_test: tests/base/log_test\.cpp:\d+ broken pipe\n\z)"))
      << text;
}

TEST_F (Log, PriorityLetters)
{
  vorn_log_set_level ("log_test", 7);
  const std::string text = stderr_of ([] {
    VORN_LOG_ERROR ("a");
    VORN_LOG_WARNING ("b");
    VORN_LOG_INFO ("c");
    VORN_LOG_DEBUG ("d");
  });
  for (const char *letter : {" E ", " W ", " I ", " D "})
    EXPECT_THAT (text, HasSubstr (letter));
  EXPECT_THAT (text, Not (HasSubstr ("\033"))) << "colours belong on a terminal only";
}

TEST_F (Log, ColouredOnATerminalUnlessRefused)
{
  const vorn::Fd terminal (posix_openpt (O_RDWR | O_NOCTTY));
  if (!terminal || grantpt (terminal.get ()) != 0 || unlockpt (terminal.get ()) != 0)
    GTEST_SKIP () << "no pseudo terminals here";
  const vorn::Fd slave (open (ptsname (terminal.get ()), O_RDWR | O_NOCTTY));
  ASSERT_TRUE (slave);
  const auto shown = [&] {
    const vorn::Fd saved (dup (STDERR_FILENO));
    dup2 (slave.get (), STDERR_FILENO);
    VORN_LOG_ERROR ("shown");
    vorn_log_flush ();
    dup2 (saved.get (), STDERR_FILENO);
    char buffer[512];
    const ssize_t length = read (terminal.get (), buffer, sizeof buffer);
    return std::string (buffer, static_cast<size_t> (std::max<ssize_t> (length, 0)));
  };
  setenv ("TERM", "xterm", 1);
  unsetenv ("NO_COLOR");
  EXPECT_THAT (shown (), HasSubstr ("\033[1;31mE log_test: "));
  setenv ("NO_COLOR", "1", 1);
  EXPECT_THAT (shown (), Not (HasSubstr ("\033")));
  unsetenv ("NO_COLOR");
  setenv ("TERM", "dumb", 1);
  EXPECT_THAT (shown (), Not (HasSubstr ("\033")));
}

TEST_F (Log, LongMessagesAreWhole)
{
  for (const size_t length : {510u, 511u, 512u, 513u, 5000u, 100000u}) {
    const std::string body = std::string (length - 1, 'x') + "e";
    {
      LogCapture capture;
      VORN_LOG_INFO ("%s", body.c_str ());
      EXPECT_TRUE (capture.has (body)) << length;
    }
    EXPECT_THAT (stderr_of ([&] { VORN_LOG_INFO ("%s", body.c_str ()); }),
                 HasSubstr (" " + body + "\n"));
  }
}

TEST_F (Log, ErrnoIsKeptAndFormatted)
{
  LogCapture capture;
  errno = ENOSPC;
  VORN_LOG_ERROR ("write: %m");
  EXPECT_EQ (errno, ENOSPC);
  EXPECT_TRUE (capture.has ("write: No space left on device"));
  vorn_log_set_level (nullptr, 0);
  errno = ENOSPC;
  VORN_LOG_ERROR ("write: %m");
  EXPECT_EQ (errno, ENOSPC);
}

TEST_F (Log, LevelFollowsEnvironmentAtFirstUse)
{
  setenv ("VORN_LOG", "error,log_first_use=debug", 1);
  VornLogTag named = {"log_first_use", 0};
  VornLogTag other = {"log_first_use_other", 0};
  const std::string text = stderr_of ([&] {
    vorn_log (&named, VORN_LOG_PRIORITY_DEBUG, "f.c", 1, "named debug");
    vorn_log (&other, VORN_LOG_PRIORITY_WARNING, "f.c", 2, "other warning");
    vorn_log (&other, VORN_LOG_PRIORITY_ERROR, "f.c", 3, "other error");
  });
  EXPECT_THAT (text, HasSubstr ("D log_first_use: f.c:1 named debug\n"));
  EXPECT_THAT (text, Not (HasSubstr ("other warning")));
  EXPECT_THAT (text, HasSubstr ("other error"));
}

TEST_F (Log, SetLevelReachesTagsInUse)
{
  const auto warnings = [] {
    return stderr_of ([] {
      VORN_LOG_WARNING ("w");
      vorn_log_flush ();
    });
  };
  EXPECT_NE (warnings (), "");
  vorn_log_set_level ("log_test", VORN_LOG_PRIORITY_ERROR);
  EXPECT_EQ (warnings (), "");
  vorn_log_set_level ("another", VORN_LOG_PRIORITY_DEBUG);
  EXPECT_EQ (warnings (), "");
  vorn_log_set_level (nullptr, VORN_LOG_PRIORITY_WARNING);
  EXPECT_NE (warnings (), "") << "all tags includes those set one by one";
  setenv ("VORN_LOG", "none", 1);
  vorn_log_set_level ("log_test", -1);
  EXPECT_EQ (warnings (), "") << "back to the environment's";
}

TEST_F (Log, UnknownLevelInEnvironmentIsReportedOnce)
{
  setenv ("VORN_LOG", "loud", 1);
  vorn_log_set_level (nullptr, -1);
  const std::string text = stderr_of ([] {
    VORN_LOG_INFO ("shown");
    vorn_log_set_level (nullptr, -1);
    VORN_LOG_INFO ("shown too");
  });
  const std::string warning =
      "VORN_LOG: unknown level 'loud' (none, error, warning, info or debug)\n";
  EXPECT_THAT (text, HasSubstr (warning));
  EXPECT_EQ (text.find (warning), text.rfind (warning));
  EXPECT_THAT (text, HasSubstr ("shown\n"));
}

TEST_F (Log, HookSeesAFloodUnfoldedAndStderrNothing)
{
  std::string text;
  {
    LogCapture capture;
    text = stderr_of ([] { flood (100); });
    EXPECT_EQ (capture.count ("flood", 4), 100);
  }
  vorn_log_flush ();
  EXPECT_EQ (text, "");
}

TEST_F (Log, FloodIsFoldedAndFlushWritesTheCount)
{
  // A slow machine may spread the flood over several windows; the sum stays.
  const std::string text = stderr_of ([] {
    flood (1000);
    vorn_log_flush ();
  });
  int written = 0;
  int lines_written = 0;
  std::istringstream lines (text);
  for (std::string line; std::getline (lines, line); lines_written++)
    written += messages_of (line);
  EXPECT_EQ (written, 1000);
  EXPECT_LT (lines_written, 500);
}

TEST_F (Log, FileGetsDatedLinesAndAppends)
{
  TemporaryFile file;
  ASSERT_EQ (vorn_log_set_file (file.path ()), 0);
  stderr_of ([] { VORN_LOG_INFO ("first"); });
  ASSERT_EQ (vorn_log_set_file (nullptr), 0);
  stderr_of ([] { VORN_LOG_INFO ("unseen"); });
  ASSERT_EQ (vorn_log_set_file (file.path ()), 0);
  {
    LogCapture capture;
    VORN_LOG_INFO ("second");
  }
  const auto lines = file.lines ();
  ASSERT_EQ (lines.size (), 2u);
  EXPECT_TRUE (matches (
      lines[0], R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} I log_test: tests/.*:\d+ first$)"))
      << lines[0];
  EXPECT_THAT (lines[1], HasSubstr (" second"));
}

TEST_F (Log, FileThatCannotBeOpenedLeavesTheFormer)
{
  TemporaryFile file;
  ASSERT_EQ (vorn_log_set_file (file.path ()), 0);
  EXPECT_EQ (vorn_log_set_file ("/nonexistent/folder/log"), -ENOENT);
  EXPECT_EQ (vorn_log_set_file ("/"), -EISDIR);
  stderr_of ([] { VORN_LOG_INFO ("kept"); });
  EXPECT_EQ (file.lines ().size (), 1u);
}

TEST_F (Log, FullDiskIsReportedOnce)
{
  ASSERT_EQ (vorn_log_set_file ("/dev/full"), 0);
  const std::string text = stderr_of ([] {
    VORN_LOG_INFO ("one");
    VORN_LOG_INFO ("two");
  });
  const std::string error = "cannot write the log file '/dev/full': No space left on device\n";
  EXPECT_THAT (text, HasSubstr (error));
  EXPECT_EQ (text.find (error), text.rfind (error));
  EXPECT_THAT (text, HasSubstr ("one\n"));
  EXPECT_THAT (text, HasSubstr ("two\n"));
}

TEST_F (Log, WorksBeforeMain)
{
  EXPECT_THAT (LogsBeforeMain::seen (), HasSubstr ("tests/base/log_test.cpp:"));
  EXPECT_THAT (LogsBeforeMain::seen (), HasSubstr (" very early"));
}

TEST_F (Log, ExitWritesWhatFoldingHoldsBackAndThenFoldsNoMore)
{
  GTEST_FLAG_SET (death_test_style, "threadsafe");
  EXPECT_EXIT (
      {
        flood (105);
        logs_while_exiting.wanted = true;
        exit (0);
      },
      testing::ExitedWithCode (0),
      testing::AllOf (HasSubstr ("flood (repeated "), testing::ContainsRegex ("(very late.*){8}")));
}

TEST_F (Log, ThreadsLogWhileSettingsChange)
{
  TemporaryFile file;
  std::atomic<int> seen = 0;
  constexpr int n_threads = 4;
  constexpr int n_messages = 2000;
  vorn_log_set_hook ([] (void *data, const char *, VornLogPriority,
                         const char *) { ++*static_cast<std::atomic<int> *> (data); },
                     &seen);
  ASSERT_EQ (vorn_log_set_file (file.path ()), 0);
  std::vector<std::thread> threads;
  threads.reserve (n_threads);
  for (int t = 0; t < n_threads; t++)
    threads.emplace_back ([t] {
      for (int i = 0; i < n_messages; i++)
        VORN_LOG_INFO ("thread %d", t);
    });
  for (int i = 0; i < 200; i++) {
    vorn_log_set_level ("log_test", i % 2 ? 6 : 7);
    vorn_log_flush ();
    EXPECT_EQ (vorn_log_set_file (file.path ()), 0);
  }
  for (auto &thread : threads)
    thread.join ();
  vorn_log_set_hook (nullptr, nullptr);
  EXPECT_EQ (seen, n_threads * n_messages);
  vorn_log_set_file (nullptr);

  int written = 0;
  for (const auto &line : file.lines ())
    written += messages_of (line);
  EXPECT_EQ (written, n_threads * n_messages) << "nothing is dropped silently";
}

} // namespace
