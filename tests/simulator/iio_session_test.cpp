// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "iio_session.hpp"

#include <cstring>

#include <gtest/gtest.h>

using namespace sim;
using namespace std::string_literals;

namespace
{

constexpr int64_t ms = 1'000'000;

/** A session on a sensor whose readings are its index: x, -x, and 7. */
class Session : public testing::Test
{
protected:
  Session ()
  {
    source_.model = make_camera_imu_context (GyroModel (), 1000);
    source_.start_ns = 1000 * ms;
    source_.sample = [this] (uint64_t index) {
      const auto value = static_cast<int16_t> (index);
      return ImuSample{{value, static_cast<int16_t> (-value), 7}, source_.time_of (index)};
    };
  }

  /** Sends text at a time; what is answered at once. */
  std::string say (const std::string &text, int64_t now_ns = 0)
  {
    session_->receive (text, now_ns);
    return take ();
  }
  std::string at (int64_t now_ns)
  {
    session_->advance (now_ns);
    return take ();
  }
  std::string take () { return std::exchange (session_->output (), ""); }

  static std::string sample_bytes (int16_t x, int64_t timestamp_ns)
  {
    std::string bytes (16, '\0');
    const int16_t y = static_cast<int16_t> (-x);
    const int16_t z = 7;
    memcpy (&bytes[0], &x, 2);
    memcpy (&bytes[2], &y, 2);
    memcpy (&bytes[4], &z, 2);
    memcpy (&bytes[8], &timestamp_ns, 8);
    return bytes;
  }
  /** The answer of a whole block of five from an index on. */
  std::string block (int first) const
  {
    std::string answer = "80\n0000000f\n";
    for (int i = first; i < first + 5; i++)
      answer +=
          sample_bytes (static_cast<int16_t> (i), source_.time_of (static_cast<uint64_t> (i)));
    return answer;
  }
  /** Opens a buffer of all channels with the trigger attached, reading from sample 10 on. */
  void start ()
  {
    EXPECT_EQ (say ("SETTRIG iio:device0 trigger0\r\nOPEN iio:device0 5 0000000f\r\n", 1010 * ms),
               "0\n0\n");
  }

  IioSource source_;
  IioShared shared_;
  std::unique_ptr<IioSession> session_ = std::make_unique<IioSession> (source_, shared_);
};

struct AnswerCase {
  const char *request;
  std::string answer;
};

TEST_F (Session, Answers)
{
  const std::string xml = source_.model.xml ();
  for (const auto &[request, answer] : {
           AnswerCase{"PRINT\r\n", std::to_string (xml.size ()) + "\n" + xml + "\n"},
           AnswerCase{"PRINT\n", std::to_string (xml.size ()) + "\n" + xml + "\n"},
           AnswerCase{"ZPRINT\r\n", "-22\n"},
           AnswerCase{"VERSION\r\n", "0.24.v0.24  \n"},
           AnswerCase{"TIMEOUT 2500\r\n", "0\n"},
           AnswerCase{"\r\n\n\r\n", ""},
           AnswerCase{"READ iio:device0 in_anglvel_scale\r\n", "12\n0.000266316\0\n"s},
           AnswerCase{"READ iio-cam_imu in_anglvel_scale\r\n", "12\n0.000266316\0\n"s},
           AnswerCase{"READ iio:device0 in_anglvel_matrix\r\n",
                      "26\n1, 0, 0; 0, 1, 0; 0, 0, 1\0\n"s},
           AnswerCase{"READ iio:device0 INPUT anglvel_x scale\r\n", "12\n0.000266316\0\n"s},
           AnswerCase{"READ trigger0 sampling_frequency\r\n", "5\n1000\0\n"s},
           AnswerCase{"READ iio:device0 absent\r\n", "-2\n"},
           AnswerCase{"READ iio:device0 INPUT anglvel_x absent\r\n", "-2\n"},
           AnswerCase{"READ iio:device0 INPUT anglvel_w raw\r\n", "-2\n"},
           AnswerCase{"READ iio:device0 OUTPUT anglvel_x raw\r\n", "-2\n"},
           AnswerCase{"READ iio:device0 DEBUG x\r\n", "-2\n"},
           AnswerCase{"READ iio:device9 in_anglvel_scale\r\n", "-19\n"},
           AnswerCase{"SET iio:device0 BUFFERS_COUNT 4\r\n", "0\n"},
           AnswerCase{"GETTRIG iio:device0\r\n", "0\n"},
           AnswerCase{"SETTRIG iio:device0 trigger9\r\n", "-22\n"},
           AnswerCase{"SETTRIG iio:device0 iio:device0\r\n", "-22\n"},
           AnswerCase{"SETTRIG trigger0 trigger0\r\n", "-22\n"},
           AnswerCase{"SETTRIG iio:device0 trigger0\r\n", "0\n"},
           AnswerCase{"GETTRIG iio:device0\r\n", "12\nimu_cam_trig\n"},
           AnswerCase{"GETTRIG trigger0\r\n", "0\n"},
           AnswerCase{"SETTRIG iio:device0\r\n", "0\n"},
           AnswerCase{"GETTRIG iio:device0\r\n", "0\n"},
           AnswerCase{"OPEN iio:device9 5 0000000f\r\n", "-19\n"},
           AnswerCase{"OPEN trigger0 5 00000001\r\n", "-22\n"},
           AnswerCase{"OPEN iio:device0 5 00000000\r\n", "-22\n"},
           AnswerCase{"OPEN iio:device0 5 0000001f\r\n", "-22\n"},
           AnswerCase{"OPEN iio:device0 5 000000010000000f\r\n", "-22\n"},
           AnswerCase{"OPEN iio:device0 5 0000000f CYCLIC\r\n", "-22\n"},
           AnswerCase{"READBUF iio:device0 80\r\n", "-9\n"},
           AnswerCase{"CLOSE iio:device0\r\n", "-9\n"},
           AnswerCase{"OPEN iio:device0 5 0000000f\r\n", "0\n"},
           AnswerCase{"OPEN iio:device0 5 0000000f\r\n", "-16\n"},
           AnswerCase{"READBUF iio:device0 81\r\n", "-22\n"},
           AnswerCase{"READBUF trigger0 80\r\n", "-9\n"},
           AnswerCase{"CLOSE iio:device0\r\n", "0\n"},
           AnswerCase{"WRITE iio:device0 in_anglvel_scale 3\r\n1.0", "-13\n"},
           AnswerCase{"WRITE iio:device9 x 3\r\n1.0", "-19\n"},
           AnswerCase{"WRITE iio:device0 INPUT anglvel_x raw 2\r\n1\n", "-13\n"},
       }) {
    EXPECT_EQ (say (request, 0), answer) << request;
  }
}

TEST_F (Session, TriggerKeepsItsRate)
{
  EXPECT_EQ (say ("WRITE trigger0 sampling_frequency 5\r\n1000\0"s), "5\n");
  EXPECT_EQ (say ("WRITE trigger0 sampling_frequency 4\r\n1000"), "4\n");
  EXPECT_EQ (say ("WRITE trigger0 sampling_frequency 4\r\n100\n"), "-22\n");
  EXPECT_EQ (say ("WRITE trigger0 other 1\r\n1"), "-13\n");
}

TEST_F (Session, WrittenBytesAreSwallowedWhateverTheyAre)
{
  EXPECT_EQ (say ("WRITE iio:device0 x 11\r\nEXI"), "");
  EXPECT_EQ (say ("T\r\nEXIT"), "");
  EXPECT_EQ (say ("\nVERSION\r\n"), "-13\n0.24.v0.24  \n");
  EXPECT_EQ (say ("WRITE iio:device0 x 0\r\n"), "-13\n");
  EXPECT_FALSE (session_->is_finished ());
}

TEST_F (Session, AnswersComeWhateverTheChunks)
{
  const std::string requests = "VERSION\r\nREAD iio:device0 in_anglvel_scale\r\nTIMEOUT 1\r\n";
  const std::string answers = say (requests);
  for (size_t chunk = 1; chunk < requests.size (); chunk++) {
    std::string got;
    for (size_t at_byte = 0; at_byte < requests.size (); at_byte += chunk)
      got += say (requests.substr (at_byte, chunk));
    EXPECT_EQ (got, answers) << chunk;
  }
}

TEST_F (Session, CurrentReading)
{
  EXPECT_EQ (say ("READ iio:device0 INPUT anglvel_x raw\r\n", 1012 * ms), "3\n12\0\n"s);
  EXPECT_EQ (say ("READ iio:device0 INPUT anglvel_y raw\r\n", 1012 * ms + 999999), "4\n-12\0\n"s);
  EXPECT_EQ (say ("READ iio:device0 INPUT anglvel_z raw\r\n", 0), "2\n7\0\n"s)
      << "before the start";
}

TEST_F (Session, BlockComesWhenItsLastSampleIsDue)
{
  start ();
  EXPECT_EQ (say ("READBUF iio:device0 80\r\n", 1010 * ms), "");
  EXPECT_EQ (session_->due_ns (), 1014 * ms);
  EXPECT_EQ (at (1014 * ms - 1), "");
  EXPECT_EQ (at (1014 * ms), block (10));
  EXPECT_EQ (session_->due_ns (), std::nullopt);
  EXPECT_EQ (say ("READBUF iio:device0 80\r\n", 1014 * ms), "");
  EXPECT_EQ (at (1019 * ms), block (15));
  EXPECT_EQ (say ("READBUF iio:device0 80\r\n", 1060 * ms), block (20)) << "late: at once";
}

TEST_F (Session, RequestsBehindABlockWaitForIt)
{
  start ();
  EXPECT_EQ (say ("READBUF iio:device0 80\r\nVERSION\r\nCLOSE iio:device0\r\n", 1010 * ms), "");
  EXPECT_EQ (at (1014 * ms), block (10) + "0.24.v0.24  \n0\n");
}

TEST_F (Session, NoTriggerNoSamples)
{
  EXPECT_EQ (say ("OPEN iio:device0 5 0000000f\r\nREADBUF iio:device0 80\r\n", 1010 * ms), "0\n");
  EXPECT_EQ (session_->due_ns (), std::nullopt);
  EXPECT_EQ (at (5000 * ms), "");
  // The trigger comes over another connection, while the block is waited for.
  IioSession other (source_, shared_);
  other.receive ("SETTRIG iio:device0 trigger0\r\n", 6000 * ms);
  EXPECT_EQ (other.output (), "0\n");
  EXPECT_EQ (session_->due_ns (), 6004 * ms);
  EXPECT_EQ (at (6004 * ms), block (5000));
}

TEST_F (Session, TriggerTakenAwayAndAttachedAgain)
{
  start ();
  say ("READBUF iio:device0 80\r\n", 1010 * ms);
  IioSession other (source_, shared_);
  other.receive ("SETTRIG iio:device0\r\n", 1012 * ms);
  EXPECT_EQ (at (1020 * ms), "");
  other.receive ("SETTRIG iio:device0 trigger0\r\n", 1100 * ms);
  EXPECT_EQ (at (1104 * ms), block (100)) << "nothing was sampled in between";
  other.receive ("SETTRIG iio:device0 trigger0\r\n", 1200 * ms);
  EXPECT_EQ (say ("READBUF iio:device0 80\r\n", 1200 * ms), block (105))
      << "attaching what is attached changes nothing";
}

struct LayoutCase {
  const char *mask;
  const char *bytes; // of one sample
  std::string data;  // of sample 1
};

TEST_F (Session, LayoutFollowsTheMask)
{
  const int64_t time_ns = 1001 * ms;
  std::string timestamp (8, '\0');
  memcpy (timestamp.data (), &time_ns, 8);
  const std::string two_ff_padded = "\xff\xff\0\0\0\0\0\0"s;
  for (const auto &[mask, bytes, data] : {
           LayoutCase{"0000000f", "16", sample_bytes (1, time_ns)},
           LayoutCase{"00000001", "2", "\1\0"s},
           LayoutCase{"00000002", "2", "\xff\xff"},
           LayoutCase{"00000007", "6", "\1\0\xff\xff\7\0"s},
           LayoutCase{"00000008", "8", timestamp},
           LayoutCase{"0000000a", "16", two_ff_padded + timestamp},
           LayoutCase{"0000000000000007", "6", "\1\0\xff\xff\7\0"s},
       }) {
    session_ = std::make_unique<IioSession> (source_, shared_);
    EXPECT_EQ (
        say ("SETTRIG iio:device0 trigger0\r\nOPEN iio:device0 1 "s.append (mask).append ("\r\n"),
             1001 * ms),
        "0\n0\n");
    const std::string short_mask = std::string (mask).substr (strlen (mask) - 8);
    EXPECT_EQ (say ("READBUF iio:device0 "s.append (bytes).append ("\r\n"), 1001 * ms),
               std::string (bytes).append ("\n").append (short_mask).append ("\n").append (data))
        << mask;
  }
}

TEST_F (Session, LongBlocksComeInPieces)
{
  start ();
  EXPECT_EQ (say ("READBUF iio:device0 9600\r\n", 1010 * ms), ""); // 600 samples
  EXPECT_EQ (session_->due_ns (), (1010 + 255) * ms);
  const std::string first = at ((1010 + 255) * ms);
  EXPECT_EQ (first.substr (0, 14), "4096\n0000000f\n");
  EXPECT_EQ (first.size (), 14 + 4096u);
  EXPECT_EQ (first.substr (14, 16), sample_bytes (10, 1010 * ms));
  const std::string second = at ((1010 + 511) * ms);
  EXPECT_EQ (second.substr (0, 5), "4096\n");
  EXPECT_EQ (second.substr (5, 16), sample_bytes (266, 1266 * ms)) << "no mask line";
  EXPECT_EQ (session_->due_ns (), (1010 + 599) * ms);
  const std::string third = at ((1010 + 599) * ms);
  EXPECT_EQ (third.substr (0, 5), "1408\n");
  EXPECT_EQ (third.size (), 5 + 1408u);
  EXPECT_EQ (session_->due_ns (), std::nullopt);
}

TEST_F (Session, LateReaderLosesWhatTheQueueCannotHold)
{
  source_.queue_depth = 20;
  session_ = std::make_unique<IioSession> (source_, shared_);
  start ();
  EXPECT_EQ (say ("READBUF iio:device0 80\r\n", 1014 * ms), block (10));
  // A second later the samples 15 to 1014 wait; the queue holds the last twenty.
  EXPECT_EQ (say ("READBUF iio:device0 80\r\n", 2014 * ms), block (1014 - 19));
  EXPECT_EQ (shared_.statistics.lost_samples, 980u);
  EXPECT_EQ (say ("READBUF iio:device0 80\r\n", 2014 * ms), block (1000)) << "exactly one gap";
}

TEST_F (Session, UnlimitedQueueLosesNothing)
{
  source_.queue_depth = 0;
  session_ = std::make_unique<IioSession> (source_, shared_);
  start ();
  for (int i = 0; i < 100; i++)
    EXPECT_EQ (say ("READBUF iio:device0 80\r\n", 100000 * ms), block (10 + 5 * i));
  EXPECT_EQ (shared_.statistics.lost_samples, 0u);
}

TEST_F (Session, InjectedErrorsAndShortBlocksKeepTheConnectionInStep)
{
  start ();
  shared_.faults.failing_blocks = 2;
  EXPECT_EQ (say ("READBUF iio:device0 80\r\n", 1010 * ms), "") << "an error comes when due";
  EXPECT_EQ (at (1014 * ms), "-5\n");
  shared_.faults.error_code = -32;
  EXPECT_EQ (say ("READBUF iio:device0 80\r\n", 1019 * ms), "-32\n");
  EXPECT_EQ (say ("READBUF iio:device0 80\r\n", 1024 * ms), block (20));

  shared_.faults.short_block_samples = 2;
  EXPECT_EQ (say ("READBUF iio:device0 80\r\n", 1029 * ms),
             "32\n0000000f\n" + sample_bytes (25, 1025 * ms) + sample_bytes (26, 1026 * ms) +
                 "0\n");
  shared_.faults.short_block_samples = 0;
  EXPECT_EQ (say ("READBUF iio:device0 80\r\n", 1034 * ms), "0\n");
  EXPECT_EQ (say ("READBUF iio:device0 80\r\n", 1039 * ms), block (35));
}

TEST_F (Session, GarbageIsAnsweredAndThenEnded)
{
  for (int i = 0; i < 99; i++)
    ASSERT_EQ (say ("garbage\r\n"), "-22\n");
  EXPECT_FALSE (session_->is_client ());
  EXPECT_FALSE (session_->is_finished ());
  EXPECT_EQ (say ("VERSION\r\n"), "0.24.v0.24  \n") << "still in step";
  for (int i = 0; i < 100; i++)
    say ("garbage\r\n");
  EXPECT_TRUE (session_->is_finished ());
  EXPECT_EQ (session_->fault (), "nothing but garbage");
  EXPECT_EQ (say ("VERSION\r\n"), "");
}

TEST_F (Session, LineWithoutEnd)
{
  EXPECT_EQ (say (std::string (512, 'x')), "");
  EXPECT_FALSE (session_->is_finished ());
  say ("x");
  EXPECT_TRUE (session_->is_finished ());
  EXPECT_EQ (session_->fault (), "a line without end");
}

TEST_F (Session, WriteOfUnknownLengthCannotBeFollowed)
{
  EXPECT_EQ (say ("WRITE iio:device0 x 99999999999\r\n"), "-22\n");
  EXPECT_TRUE (session_->is_finished ());
  EXPECT_EQ (session_->fault (), "a WRITE whose length is not known");
}

TEST_F (Session, ExitEndsQuietly)
{
  EXPECT_EQ (say ("VERSION\r\n\r\nEXIT\r\nVERSION\r\n"), "0.24.v0.24  \n");
  EXPECT_TRUE (session_->is_finished ());
  EXPECT_EQ (session_->fault (), "");
}

TEST_F (Session, ClientThatDoesNotReadIsNotAnsweredWithoutEnd)
{
  for (int i = 0; i < 1000; i++)
    session_->receive ("PRINT\r\nPRINT\r\nPRINT\r\nPRINT\r\n", 0);
  EXPECT_TRUE (session_->is_full ());
  EXPECT_LT (session_->output ().size (), 100000u);
  const auto first = take ();
  session_->advance (0);
  EXPECT_FALSE (session_->output ().empty ()) << "goes on when it has read";
}

TEST (IioContext, DescriptionOfTheCameraImu)
{
  const std::string xml = make_camera_imu_context (GyroModel (), 1000).xml ();
  EXPECT_EQ (xml.find ('\n'), std::string::npos);
  for (
      const char *part :
      {R"(<device id="iio:device0" name="iio-cam_imu" >)",
       R"(<channel id="anglvel_x" type="input" ><scan-element index="0" format="le:S16/16&gt;&gt;0" />)",
       R"(<attribute name="raw" filename="in_anglvel_y_raw" />)",
       R"(<attribute name="scale" filename="in_anglvel_scale" />)",
       R"(<channel id="timestamp" type="input" ><scan-element index="3" format="le:S64/64&gt;&gt;0" /></channel>)",
       R"(<attribute name="in_anglvel_scale" /><attribute name="in_anglvel_matrix" /></device>)",
       R"(<device id="trigger0" name="imu_cam_trig" ><attribute name="sampling_frequency" /></device></context>)"})
    EXPECT_NE (xml.find (part), std::string::npos) << part;
}

TEST (IioContext, NamesAreEscaped)
{
  IioContextModel model;
  model.devices.push_back ({"a", R"(<&">)", {}, {}});
  EXPECT_NE (model.xml ().find (R"(name="&lt;&amp;&quot;&gt;")"), std::string::npos);
}

} // namespace
