// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Runs the camangles-replay program (its path is the first argument) on recordings made here.
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <numbers>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support.hpp"

namespace
{

std::string program;

class Replay : public testing::Test
{
protected:
  Replay ()
  {
    std::string name =
        (std::filesystem::temp_directory_path () / "camangles-replay-XXXXXX").string ();
    folder_ = mkdtemp (name.data ());
  }
  ~Replay () override { std::filesystem::remove_all (folder_); }

  std::string path (const std::string &name) const { return (folder_ / name).string (); }
  std::string write (const std::string &name, const std::string &text) const
  {
    std::ofstream (path (name)) << text;
    return path (name);
  }
  std::string read (const std::string &name) const
  {
    std::ifstream file (path (name));
    return {std::istreambuf_iterator<char> (file), {}};
  }
  /** Runs it with these arguments (shell words); output and errors are kept. Returns the exit
   * status. */
  int run (const std::string &arguments)
  {
    const std::string command =
        "'" + program + "' " + arguments + " >'" + path ("out") + "' 2>'" + path ("err") + "'";
    const int status = std::system (command.c_str ());
    out_ = read ("out");
    err_ = read ("err");
    return WIFEXITED (status) ? WEXITSTATUS (status) : -1;
  }

  std::filesystem::path folder_;
  std::string out_, err_;
};

struct Row {
  double time;
  std::string timestamp;
  QuatD attitude;
  double roll, pitch, yaw;
};

std::vector<Row> parse (const std::string &text)
{
  std::istringstream stream (text);
  std::string line;
  std::getline (stream, line);
  EXPECT_EQ (line, "time_s,timestamp,qx,qy,qz,qw,roll_deg,pitch_deg,yaw_deg");
  std::vector<Row> rows;
  while (std::getline (stream, line)) {
    std::vector<std::string> fields;
    std::istringstream parts (line);
    for (std::string field; std::getline (parts, field, ',');)
      fields.push_back (field);
    EXPECT_EQ (fields.size (), 9u) << line;
    if (fields.size () != 9)
      break;
    const auto number = [&] (size_t i) { return std::strtod (fields[i].c_str (), nullptr); };
    rows.push_back ({number (0), fields[1], QuatD (number (2), number (3), number (4), number (5)),
                     number (6), number (7), number (8)});
  }
  return rows;
}

/** A pan of 90 degrees a second about z for n samples at 1 kHz. */
std::string pan (int n, const char *tail = "")
{
  std::ostringstream text;
  text << "timestamp,x,y,z\n";
  for (int i = 0; i < n; i++)
    text << 1000000 + 1000 * i << ",0,0," << std::numbers::pi / 2 << tail << "\n";
  return text.str ();
}

TEST_F (Replay, Help)
{
  EXPECT_EQ (run ("--help"), 0);
  EXPECT_THAT (out_, testing::StartsWith ("usage: camangles-replay [option...] [INPUT]"));
  for (const char *option :
       {"--output", "--log2-factor", "--rate", "--exposure", "--convergence", "--bias-gain",
        "--init-samples", "--filter-min", "--filter-max", "--window", "--help"})
    EXPECT_THAT (out_, testing::HasSubstr (option));
  EXPECT_EQ (err_, "");
}

TEST_F (Replay, PanTurnsTheYaw)
{
  ASSERT_EQ (run (write ("pan.csv", pan (1000))), 0) << err_;
  const auto rows = parse (out_);
  ASSERT_EQ (rows.size (), 1000u);
  for (size_t i = 0; i < rows.size (); i++) {
    ASSERT_NEAR (rows[i].yaw, 0.09 * static_cast<double> (i + 1), 1e-3);
    ASSERT_NEAR (rows[i].roll, 0, 1e-3);
    ASSERT_NEAR (rows[i].time, 0.001 * static_cast<double> (i), 1e-9);
    ASSERT_EQ (rows[i].timestamp, std::to_string (1000000 + 1000 * i));
  }
  EXPECT_EQ (err_, "");
}

TEST_F (Replay, StandardInputAndOutputFile)
{
  write ("pan.csv", pan (10));
  EXPECT_EQ (run ("-o '" + path ("result.csv") + "' - <'" + path ("pan.csv") + "'"), 0) << err_;
  EXPECT_EQ (out_, "");
  EXPECT_EQ (parse (read ("result.csv")).size (), 10u);
}

TEST_F (Replay, ResamplingInterpolatesAndSaysWhatItHeldBack)
{
  ASSERT_EQ (run ("--log2-factor 2 " + write ("pan.csv", pan (100))), 0) << err_;
  const auto rows = parse (out_);
  ASSERT_EQ (rows.size (), 360u);
  for (size_t i = 0; i < rows.size (); i++) {
    ASSERT_EQ (rows[i].timestamp, i % 4 == 0 ? std::to_string (1000000 + 250 * i) : "");
    ASSERT_NEAR (rows[i].time, 0.00025 * static_cast<double> (i), 1e-9);
  }
  EXPECT_EQ (err_, "camangles-replay: filter and resampler held the last 10 of 100 samples back\n");
}

TEST_F (Replay, ReferenceAndConvergence)
{
  const char yawed[] = ",0,0,0.70710678,0.70710678";
  ASSERT_EQ (run ("--convergence 1 " + write ("pan.csv", pan (20, yawed))), 0) << err_;
  for (const Row &row : parse (out_))
    ASSERT_NEAR (row.yaw, 90, 1e-3);
  ASSERT_EQ (run ("--convergence 0 " + path ("pan.csv")), 0) << err_;
  EXPECT_NEAR (parse (out_).back ().yaw, 1.8, 1e-3);
}

TEST_F (Replay, InitSamplesLearnTheBias)
{
  /* All of the pan's rate is taken for bias. */
  ASSERT_EQ (run ("--init-samples 100 " + write ("pan.csv", pan (200))), 0) << err_;
  for (const Row &row : parse (out_))
    ASSERT_NEAR (row.yaw, 0, 1e-4);
}

TEST_F (Replay, BiasGainFindsTheBias)
{
  std::ostringstream text;
  for (int i = 0; i < 6000; i++)
    text << i << ",0.05,0,0,0,0,0,1\n";
  const std::string file = write ("bias.csv", text.str ());
  ASSERT_EQ (run ("--convergence 0.02 " + file), 0) << err_;
  /* Rest error b dt (1 - c) / c, in degrees. */
  EXPECT_NEAR (parse (out_).back ().roll, 0.05 * 0.001 * 49 * 180 / std::numbers::pi, 3e-3);
  ASSERT_EQ (run ("--convergence 0.02 --bias-gain 0.04 " + file), 0) << err_;
  EXPECT_NEAR (parse (out_).back ().roll, 0, 1e-4);
}

TEST_F (Replay, ExposureFilters)
{
  ASSERT_EQ (run ("--exposure 0.00333 --window 20 --filter-min 10 --filter-max 200 --rate 1000 " +
                  write ("pan.csv", pan (300))),
             0)
      << err_;
  EXPECT_THAT (err_, testing::HasSubstr ("held the last"));
  EXPECT_EQ (parse (out_).size () % 20, 0u);
}

TEST_F (Replay, RealRecordingShapes)
{
  EXPECT_EQ (run (write ("a.csv", "# drone 7\r\n\r\n1,0,0,0\r\n# gap\r\n2,0,0,0")), 0) << err_;
  EXPECT_EQ (parse (out_).size (), 2u);
}

TEST_F (Replay, MalformedInputNamesFileAndLine)
{
  const std::string file = write ("bad.csv", "timestamp,x,y,z\n1,0,0,0\n\n2,0,zero,0\n3,0,0,0\n");
  EXPECT_EQ (run (file), 1);
  EXPECT_EQ (err_, "camangles-replay: " + file + ":4: y 'zero' is not a number\n");
  EXPECT_EQ (run ("<'" + file + "'"), 1);
  EXPECT_EQ (err_, "camangles-replay: standard input:4: y 'zero' is not a number\n");
}

TEST_F (Replay, FilesThatCannotBeUsed)
{
  const std::string missing = path ("missing.csv");
  EXPECT_EQ (run (missing), 1);
  EXPECT_EQ (err_, "camangles-replay: cannot read " + missing + ": No such file or directory\n");
  EXPECT_EQ (run (folder_.string ()), 1);
  EXPECT_EQ (err_, "camangles-replay: cannot read " + folder_.string () + ": Is a directory\n");
  const std::string empty = write ("empty.csv", "# nothing\n");
  EXPECT_EQ (run (empty), 1);
  EXPECT_EQ (err_, "camangles-replay: " + empty + ": no samples\n");
  const std::string nowhere = path ("none/out.csv");
  EXPECT_EQ (run ("-o " + nowhere + " " + write ("pan.csv", pan (3))), 1);
  EXPECT_EQ (err_, "camangles-replay: cannot write " + nowhere + ": No such file or directory\n");
  EXPECT_EQ (run ("-o /dev/full " + path ("pan.csv")), 1);
  EXPECT_EQ (err_, "camangles-replay: cannot write /dev/full: No space left on device\n");
}

TEST_F (Replay, WrongCommandLines)
{
  const std::pair<const char *, const char *> rows[] = {
      {"--log2-factor 8", "--log2-factor '8' is not 0 to 7"},
      {"--log2-factor -1", "--log2-factor '-1' is not 0 to 7"},
      {"--rate 0", "--rate '0' is not a rate above 0"},
      {"--rate fast", "--rate 'fast' is not a rate above 0"},
      {"--exposure nan", "--exposure 'nan' is not a time of 0 or more"},
      {"--convergence 1.5", "--convergence '1.5' is not 0 to 1"},
      {"--bias-gain x", "--bias-gain 'x' is not a number"},
      {"--init-samples -3", "--init-samples '-3' is not a number of samples"},
      {"--window 0", "--window '0' is not 1 to 1000"},
      {"--filter-min -1", "--filter-min '-1' is not a frequency of 0 or more"},
      {"--filter-min 100 --filter-max 100", "--filter-max must be above --filter-min"},
      {"a b", "unexpected argument 'b'"},
      {"--nonsense", "see camangles-replay --help"},
      {"--rate", "see camangles-replay --help"},
  };
  for (const auto &[arguments, message] : rows) {
    EXPECT_EQ (run (arguments), 2) << arguments;
    EXPECT_THAT (err_, testing::EndsWith (std::string ("camangles-replay: ") + message + "\n"));
  }
}

} // namespace

int main (int argc, char **argv)
{
  testing::InitGoogleMock (&argc, argv);
  if (argc != 2) {
    fprintf (stderr, "usage: %s PATH-OF-CAMANGLES-REPLAY\n", argv[0]);
    return 2;
  }
  program = argv[1];
  return RUN_ALL_TESTS ();
}
