// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The socket file: made, taken over from the dead, refused beside the living, removed.
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "camera_socket.hpp"

namespace
{

class CameraSocketFile : public testing::Test
{
protected:
  void SetUp () override
  {
    char name[] = "/tmp/vorn-camera-XXXXXX";
    ASSERT_NE (mkdtemp (name), nullptr);
    folder_ = name;
  }
  void TearDown () override { std::filesystem::remove_all (folder_); }
  std::string path (const std::string &name = "c") const { return folder_ + "/" + name; }
  /** Why it cannot be listened on, after the path; "" when it can. */
  std::string refusal (const std::string &where)
  {
    std::string error;
    const auto socket = sim::CameraSocket::listen (where, &error);
    EXPECT_EQ (socket == nullptr, !error.empty ());
    const std::string prefix = "camera socket '" + where + "': ";
    EXPECT_TRUE (error.empty () || error.starts_with (prefix)) << error;
    return error.empty () ? "" : error.substr (prefix.size ());
  }

private:
  std::string folder_;
};

bool can_connect (const std::string &path)
{
  const vorn::Fd socket (::socket (AF_UNIX, SOCK_SEQPACKET, 0));
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  path.copy (address.sun_path, sizeof address.sun_path - 1);
  return connect (socket.get (), reinterpret_cast<sockaddr *> (&address), sizeof address) == 0;
}

TEST_F (CameraSocketFile, IsThereAsLongAsTheSocket)
{
  std::string error;
  {
    const auto socket = sim::CameraSocket::listen (path (), &error);
    ASSERT_TRUE (socket) << error;
    EXPECT_TRUE (can_connect (path ()));
  }
  EXPECT_FALSE (std::filesystem::exists (path ()));
}

TEST_F (CameraSocketFile, LeftByTheDeadIsTakenOver)
{
  const pid_t child = fork ();
  if (child == 0) {
    std::string error;
    const auto socket = sim::CameraSocket::listen (path (), &error);
    // Dies without tidying up.
    _exit (socket ? 0 : 1);
  }
  int status = 1;
  ASSERT_EQ (waitpid (child, &status, 0), child);
  ASSERT_EQ (status, 0);
  ASSERT_TRUE (std::filesystem::exists (path ()));
  EXPECT_FALSE (can_connect (path ()));

  std::string error;
  const auto socket = sim::CameraSocket::listen (path (), &error);
  ASSERT_TRUE (socket) << error;
  EXPECT_TRUE (can_connect (path ()));
}

TEST_F (CameraSocketFile, OfTheLivingIsLeftAlone)
{
  std::string error;
  const auto socket = sim::CameraSocket::listen (path (), &error);
  ASSERT_TRUE (socket) << error;
  EXPECT_EQ (refusal (path ()), "another process listens there");
  EXPECT_TRUE (can_connect (path ()));
}

TEST_F (CameraSocketFile, WithAFullQueueIsAlive)
{
  std::string error;
  const auto socket = sim::CameraSocket::listen (path (), &error);
  ASSERT_TRUE (socket) << error;
  std::vector<vorn::Fd> waiting;
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  path ().copy (address.sun_path, sizeof address.sun_path - 1);
  for (int i = 0; i < 100; i++) {
    waiting.emplace_back (::socket (AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0));
    if (connect (waiting.back ().get (), reinterpret_cast<sockaddr *> (&address), sizeof address) !=
        0)
      break;
  }
  ASSERT_LT (waiting.size (), 100u);
  EXPECT_EQ (refusal (path ()), "another process listens there");
}

TEST_F (CameraSocketFile, ThatIsNoneIsRefusedAndKept)
{
  std::ofstream (path ()) << "precious";
  EXPECT_EQ (refusal (path ()), "a file that is no socket has this name");
  EXPECT_EQ (std::filesystem::file_size (path ()), 8u);
}

TEST_F (CameraSocketFile, InImpossiblePlacesIsRefused)
{
  EXPECT_EQ (refusal (path ("none/c")), path ("none/") + ": No such file or directory");
  EXPECT_EQ (refusal ("/" + std::string (107, 'x')), "a path has 1 to 107 characters");
  EXPECT_EQ (refusal (""), "a path has 1 to 107 characters");
}

TEST_F (CameraSocketFile, ReplacedByAnotherIsNotRemoved)
{
  std::string error;
  auto first = sim::CameraSocket::listen (path (), &error);
  ASSERT_TRUE (first) << error;
  std::filesystem::rename (path (), path ("moved"));
  const auto second = sim::CameraSocket::listen (path (), &error);
  ASSERT_TRUE (second) << error;
  first.reset ();
  EXPECT_TRUE (can_connect (path ()));
}

TEST_F (CameraSocketFile, OfTwoThatFindALeftoverOneGetsIt)
{
  for (int round = 0; round < 20; round++) {
    // A leftover: bound, never listened on again.
    const vorn::Fd dead (::socket (AF_UNIX, SOCK_SEQPACKET, 0));
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path ().copy (address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ (bind (dead.get (), reinterpret_cast<sockaddr *> (&address), sizeof address), 0);
    std::unique_ptr<sim::CameraSocket> sockets[4];
    std::thread threads[4];
    for (int i = 0; i < 4; i++)
      threads[i] = std::thread ([&, i] {
        std::string error;
        sockets[i] = sim::CameraSocket::listen (path (), &error);
      });
    for (auto &thread : threads)
      thread.join ();
    int winners = 0;
    for (const auto &socket : sockets)
      winners += socket != nullptr;
    EXPECT_EQ (winners, 1);
  }
}

} // namespace
