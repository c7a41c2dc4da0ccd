// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Runs the program blackboard-helper, which lies in the folder base beside the test program, as
// another process.
#ifndef TESTS_CHILD_PROCESS_HPP
#define TESTS_CHILD_PROCESS_HPP

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <vorn/raii.hpp>

/** Started with its standard input and output as pipes; killed on destruction. */
class ChildProcess
{
public:
  explicit ChildProcess (std::vector<std::string> arguments)
  {
    const auto helper = std::filesystem::read_symlink ("/proc/self/exe").parent_path () / "base" /
                        "blackboard-helper";
    arguments.insert (arguments.begin (), helper.string ());
    std::vector<char *> argv;
    argv.reserve (arguments.size () + 1);
    for (auto &argument : arguments)
      argv.push_back (argument.data ());
    argv.push_back (nullptr);

    int in[2];
    int out[2];
    if (pipe2 (in, O_CLOEXEC) != 0 || pipe2 (out, O_CLOEXEC) != 0)
      throw std::runtime_error ("no pipes");
    const vorn::Fd child_in (in[0]);
    const vorn::Fd child_out (out[1]);
    input_ = vorn::Fd (in[1]);
    output_ = vorn::Fd (out[0]);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init (&actions);
    posix_spawn_file_actions_adddup2 (&actions, child_in.get (), STDIN_FILENO);
    posix_spawn_file_actions_adddup2 (&actions, child_out.get (), STDOUT_FILENO);
    if (posix_spawn (&pid_, helper.c_str (), &actions, nullptr, argv.data (), environ) != 0)
      pid_ = -1;
    posix_spawn_file_actions_destroy (&actions);
  }
  ~ChildProcess () { kill_hard (); }
  ChildProcess (const ChildProcess &) = delete;
  ChildProcess &operator= (const ChildProcess &) = delete;

  bool started () const { return pid_ > 0; }
  pid_t pid () const { return pid_; }

  /** Waits for the child's next line; empty when it ended instead. */
  std::string read_line ()
  {
    std::string line;
    char c;
    while (read (output_.get (), &c, 1) == 1 && c != '\n')
      line += c;
    return line;
  }

  /** kill -9; nothing of the child is left running when it returns. */
  void kill_hard ()
  {
    if (pid_ <= 0)
      return;
    kill (pid_, SIGKILL);
    waitpid (std::exchange (pid_, -1), nullptr, 0);
  }

  /** Lets the child end in an orderly way; returns its exit status. */
  int finish ()
  {
    input_ = vorn::Fd ();
    int status = -1;
    waitpid (std::exchange (pid_, -1), &status, 0);
    return WIFEXITED (status) ? WEXITSTATUS (status) : -1;
  }

private:
  pid_t pid_ = -1;
  vorn::Fd input_;
  vorn::Fd output_;
};

#endif
