// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "flight.hpp"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <sstream>
#include <unistd.h>

#include <gtest/gtest.h>

using namespace sim;

namespace
{

/** A flight written as a log. */
std::string log_of (const Flight &flight, double start_s, double seconds, double rate_hz)
{
  std::ostringstream text;
  text << std::setprecision (17);
  for (int i = 0; i <= static_cast<int> (seconds * rate_hz); i++) {
    const double t = i / rate_hz;
    const auto s = flight.at (t);
    // Either sign is the same attitude, and loggers may switch at any time.
    const double sign = i % 3 == 0 ? -1 : 1;
    text << start_s + t << ", " << s.position_m.x << ", " << s.position_m.y << ", "
         << s.position_m.z << ", " << sign * s.attitude.x << ", " << sign * s.attitude.y << ", "
         << sign * s.attitude.z << ", " << sign * s.attitude.w << "\n";
  }
  return text.str ();
}

std::unique_ptr<Flight> parsed (const std::string &text)
{
  std::string error;
  auto flight = parse_flight_log (text, "test.csv", &error);
  EXPECT_TRUE (flight) << error;
  return flight;
}

TEST (FlightLog, FollowsTheFlightItWasRecordedFrom)
{
  const auto truth = make_named_flight ("aggressive", 1);
  const auto flight = parsed (log_of (*truth, 1e6, 10, 1000));
  ASSERT_TRUE (flight);
  EXPECT_NEAR (flight->duration_s ().value (), 10, 1e-9);
  for (int i = 0; i < 1221; i++) {
    const double t = 0.5 + i * 0.00737;
    const auto expected = truth->at (t);
    const auto actual = flight->at (t);
    EXPECT_LT (angle_between (actual.attitude, expected.attitude), 2e-6) << t;
    EXPECT_LT (length (actual.rate_rad_s - expected.rate_rad_s), 5e-3) << t;
    EXPECT_LT (length (actual.position_m - expected.position_m), 1e-6) << t;
    EXPECT_LT (length (actual.velocity_m_s - expected.velocity_m_s), 1e-4) << t;
  }
}

TEST (FlightLog, RateIsTheDerivativeOfTheInterpolatedAttitude)
{
  const auto flight = parsed (log_of (*make_named_flight ("survey", 1), 0, 20, 20));
  ASSERT_TRUE (flight);
  const double h = 1e-4;
  for (int i = 0; i < 536; i++) {
    const double t = 0.01 + i * 0.0371;
    const auto state = flight->at (t);
    const Quat a = flight->at (t - h).attitude;
    const Quat b = flight->at (t + h).attitude;
    const Quat step = conjugate (a) * b;
    const Vec3 rate = Vec3{step.x, step.y, step.z} * (1 / h);
    EXPECT_LT (length (rate - state.rate_rad_s), 1e-4) << t;
  }
}

TEST (FlightLog, ConstantTurnHasItsRate)
{
  std::ostringstream text;
  text << std::setprecision (17);
  for (int i = 0; i <= 100; i++)
    text << i * 0.02 << ",0,0,0,0,0," << std::sin (i * 0.01) << "," << std::cos (i * 0.01) << "\n";
  const auto flight = parsed (text.str ());
  ASSERT_TRUE (flight);
  for (int i = 0; i < 113; i++)
    EXPECT_LT (length (flight->at (0.3 + i * 0.0123).rate_rad_s - Vec3{0, 0, 1}), 1e-6) << i;
}

TEST (FlightLog, RateHasNoJumpsAtSamples)
{
  const auto flight = parsed (log_of (*make_named_flight ("aggressive", 1), 0, 5, 50));
  ASSERT_TRUE (flight);
  for (int i = 1; i < 249; i++) {
    const double knot = flight->duration_s ().value () * i / 250;
    EXPECT_LT (length (flight->at (knot - 1e-9).rate_rad_s - flight->at (knot + 1e-9).rate_rad_s),
               1e-5);
  }
}

TEST (FlightLog, HoldsFirstAndLastSampleOutside)
{
  const auto flight = parsed ("5,0,0,0,0,0,0,1\n6,1,2,-3,0,0,0.1,0.995\n");
  ASSERT_TRUE (flight);
  for (const double t : {-1.0, 1.5, 100.0}) {
    const auto state = flight->at (t);
    EXPECT_EQ (length (state.rate_rad_s), 0);
    EXPECT_EQ (length (state.velocity_m_s), 0);
    EXPECT_EQ (state.position_m.z, t < 0 ? 0 : -3);
  }
  EXPECT_NEAR (length (flight->at (0.5).velocity_m_s), std::sqrt (14.0), 1e-12);
}

struct GoodCase {
  const char *name;
  const char *text;
};

TEST (FlightLog, Forms)
{
  for (const auto &[name, text] : {
           GoodCase{"plain", "0,1,2,3,0,0,0,1\n1,1,2,3,0,0,0,1\n"},
           GoodCase{"no final newline", "0,1,2,3,0,0,0,1\n1,1,2,3,0,0,0,1"},
           GoodCase{"windows", "0,1,2,3,0,0,0,1\r\n1,1,2,3,0,0,0,1\r\n"},
           GoodCase{"blanks and comments",
                    "# a log\n\n 0 ,\t1, 2, 3, 0, 0, 0, 1 \n  \n#x\n1,1,2,3,0,0,0,1\n"},
           GoodCase{"numbers", "0,+1,2e0,3.0,-0,0,0,1\n1e0,1,2,3,0,0,0,.995\n"},
           GoodCase{"header", "qw,time_s,note,qx,qy,qz,down_m,east_m,north_m\n"
                              "1,0,start,0,0,0,3,2,1\n1,1,end,0,0,0,3,2,1\n"},
       }) {
    const auto flight = parsed (text);
    ASSERT_TRUE (flight) << name;
    const auto state = flight->at (0);
    EXPECT_LT (length (state.position_m - Vec3{1, 2, 3}), 1e-12) << name;
    EXPECT_LT (angle_between (state.attitude, {0, 0, 0, 1}), 1e-12) << name;
    EXPECT_EQ (flight->duration_s (), 1) << name;
  }
}

struct BadCase {
  const char *text;
  const char *error;
};

TEST (FlightLog, RefusalsNameTheLine)
{
  for (const auto &[text, expected] : {
           BadCase{"", "test.csv:0: a flight needs at least two samples, found 0"},
           BadCase{"0,0,0,0,0,0,0,1\n", "test.csv:1: a flight needs at least two samples, found 1"},
           BadCase{"0,0,0,0,0,0,0,1\n1,0,0,0,0,0,1\n", "test.csv:2: expected 8 fields, found 7"},
           BadCase{"0,0,0,0,0,0,0,1,9\n", "test.csv:1: expected 8 fields, found 9"},
           BadCase{"0,0,0,0,0,0,0,1\n\n1,0,x,0,0,0,0,1\n",
                   "test.csv:3: east_m: 'x' is not a finite number"},
           BadCase{"0,0,0,nan,0,0,0,1\n", "test.csv:1: down_m: 'nan' is not a finite number"},
           BadCase{"0,0,0,1e999,0,0,0,1\n", "test.csv:1: down_m: '1e999' is not a finite number"},
           BadCase{"0,0,0,,0,0,0,1\n", "test.csv:1: down_m: '' is not a finite number"},
           BadCase{"0,0,0,0,0,0,0,1\n0,0,0,0,0,0,0,1\n", "test.csv:2: the time does not grow"},
           BadCase{"0,0,0,0,0,0,0,0.5\n", "test.csv:1: the quaternion's length is 0.5, not 1"},
           BadCase{"0,0,0,0,0,0,0,0\n", "test.csv:1: the quaternion's length is 0, not 1"},
           BadCase{"0,0,0,0,0,0,0,1\n1,0,0,0,0,0,1,0\n",
                   "test.csv:2: the attitude turns by 90 degrees or more since the sample before; "
                   "log at a higher rate"},
           BadCase{"time_s,north_m,east_m,down_m,qx,qy,qz\n",
                   "test.csv:1: the header has no column 'qw'"},
       }) {
    std::string error;
    EXPECT_EQ (parse_flight_log (text, "test.csv", &error), nullptr) << text;
    EXPECT_EQ (error, expected);
  }
}

TEST (FlightLog, FilesAreReadAndTheirAbsenceIsNamed)
{
  std::string error;
  EXPECT_EQ (load_flight_log ("/nonexistent.csv", &error), nullptr);
  EXPECT_EQ (error, "/nonexistent.csv: No such file or directory");
  EXPECT_EQ (load_flight_log ("/tmp", &error), nullptr);
  EXPECT_EQ (error, "/tmp: cannot be read or is empty");

  char path[] = "/tmp/vorn-flight-log-XXXXXX";
  close (mkstemp (path));
  std::ofstream (path) << "0,1,2,3,0,0,0,1\n1,1,2,3,0,0,0,1\n";
  EXPECT_NE (load_flight_log (path, &error), nullptr) << error;
  std::filesystem::remove (path);
}

} // namespace
