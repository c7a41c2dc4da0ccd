// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The RTSP server with clients of GStreamer and FFmpeg, and with one that stops reading.
#include "rtsp_server.hpp"

#include <algorithm>
#include <memory>
#include <thread>
#include <vector>

#include <gio/gio.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include "log_capture.hpp"
#include "process.hpp"
#include "rtsp_support.hpp"

namespace
{

/** A server with a real stream behind it. */
class Rtsp : public testing::Test
{
protected:
  Rtsp ()
  {
    gst_init (nullptr, nullptr);
    RtspOptions options;
    options.request_key_frame = [this] {
      requests_++;
      if (EncodedStream *stream = stream_)
        stream->request_key_frame ();
    };
    std::string error;
    server_ = RtspServer::start (options, &error);
    EXPECT_TRUE (server_) << error;
    owned_stream_ =
        std::make_unique<EncodedStream> ([this] (GstSample *unit) { server_->push (unit); });
    stream_ = owned_stream_.get ();
  }
  ~Rtsp () override
  {
    // The server asks the stream, the stream feeds the server: neither may find the other gone.
    stream_ = nullptr;
    owned_stream_.reset ();
    server_.reset ();
  }

  std::atomic<int> requests_ = 0;
  std::atomic<EncodedStream *> stream_ = nullptr;
  std::unique_ptr<RtspServer> server_;
  std::unique_ptr<EncodedStream> owned_stream_;
};

TEST_F (Rtsp, AClientGetsTheStreamFromAKeyFrameOn)
{
  RtspClient client (server_->uri ());
  EXPECT_TRUE (await ([&client] { return client.units () >= 20; })) << client.error ();
  EXPECT_EQ (server_->statistics ().clients, 1u);
  EXPECT_GE (server_->statistics ().units, 20u);
  EXPECT_EQ (server_->statistics ().drops, 0u);
}

TEST_F (Rtsp, WhoJoinsLaterNeedNotWait)
{
  RtspClient first (server_->uri ());
  ASSERT_TRUE (await ([&first] { return first.units () >= 5; }));
  const int requests = requests_;
  RtspClient second (server_->uri ());
  // The encoder makes a key frame each 100 s by itself.
  EXPECT_TRUE (await ([&second] { return second.units () >= 5; })) << second.error ();
  EXPECT_GT (requests_, requests);
  EXPECT_EQ (server_->statistics ().clients, 2u);
}

TEST_F (Rtsp, FfmpegDecodesIt)
{
  for (const std::string transport : {"tcp", "udp"}) {
    const ProcessResult probe = run_process (
        {"ffprobe", "-v", "error", "-rtsp_transport", transport, "-count_frames", "-read_intervals",
         "%+#10", "-select_streams", "v", "-show_entries",
         "stream=codec_name,width,height,nb_read_frames", "-of", "csv=p=0", server_->uri ()});
    EXPECT_EQ (probe.status, 0) << transport << ": " << probe.errors;
    EXPECT_EQ (probe.output.find ("h264,320,240,"), 0u) << transport << ": " << probe.output;
  }
}

TEST_F (Rtsp, JoinsManyTimesEightAtOnce)
{
  constexpr int at_once = 8;
  const int joins = soak () ? 200 : 20;
  std::atomic<int> next = 0;
  std::atomic<int> served = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < at_once; i++)
    threads.emplace_back ([&] {
      while (next++ < joins) {
        RtspClient client (server_->uri ());
        if (await ([&client] { return client.units () >= 3; }))
          served++;
        else
          ADD_FAILURE () << client.units () << " units: " << client.error ();
      }
    });
  for (std::thread &thread : threads)
    thread.join ();
  EXPECT_EQ (served, joins);
  EXPECT_EQ (server_->statistics ().connections, guint64 (joins));
  EXPECT_TRUE (await ([this] { return server_->statistics ().clients == 0; }));
}

// ---- A client that stops reading

/** Talks RTSP by hand, and falls silent after PLAY. */
class DeafClient
{
public:
  explicit DeafClient (const RtspServer &server) : uri_ (server.uri ())
  {
    const auto client = vorn::adopt (g_socket_client_new ());
    connection_ = vorn::adopt (g_socket_client_connect_to_host (client.get (), "127.0.0.1",
                                                                server.port (), nullptr, nullptr));
    EXPECT_TRUE (connection_);
    // Small, so that the server's side fills up soon.
    g_socket_set_option (g_socket_connection_get_socket (connection_.get ()), SOL_SOCKET, SO_RCVBUF,
                         4096, nullptr);
    ask ("DESCRIBE " + uri_ + " RTSP/1.0\r\nAccept: application/sdp\r\n");
    const std::string setup = ask ("SETUP " + uri_ +
                                   "/stream=0 RTSP/1.0\r\n"
                                   "Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n");
    const auto at = setup.find ("Session: ");
    EXPECT_NE (at, std::string::npos) << setup;
    const std::string session = setup.substr (at + 9, setup.find_first_of (";\r", at) - at - 9);
    ask ("PLAY " + uri_ + " RTSP/1.0\r\nSession: " + session + "\r\n");
  }

private:
  std::string ask (const std::string &request)
  {
    const std::string text = request + "CSeq: " + std::to_string (++sequence_) + "\r\n\r\n";
    GIOStream *stream = G_IO_STREAM (connection_.get ());
    g_output_stream_write_all (g_io_stream_get_output_stream (stream), text.data (), text.size (),
                               nullptr, nullptr, nullptr);
    char answer[4096];
    const gssize size = g_input_stream_read (g_io_stream_get_input_stream (stream), answer,
                                             sizeof answer, nullptr, nullptr);
    const std::string received (answer, size > 0 ? static_cast<size_t> (size) : 0);
    EXPECT_EQ (received.find ("RTSP/1.0 200"), 0u) << request << received;
    return received;
  }

  std::string uri_;
  int sequence_ = 0;
  vorn::Ref<GSocketConnection> connection_;
};

TEST (RtspDeaf, AClientThatStopsReadingCostsOnlyItself)
{
  gst_init (nullptr, nullptr);
  std::atomic<bool> key_wanted = false;
  RtspOptions options;
  options.request_key_frame = [&key_wanted] { key_wanted = true; };
  std::string error;
  const auto server = RtspServer::start (options, &error);
  ASSERT_TRUE (server) << error;
  // 8 MB a second: any buffer between us and the deaf one is full within seconds.
  std::atomic<bool> end = false;
  std::atomic<int> pushed = 0;
  std::thread stream ([&] {
    const auto key = make_unit (true, 250'000);
    const auto other = make_unit (false, 250'000);
    while (!end) {
      server->push (key_wanted.exchange (false) ? key.get () : other.get ());
      pushed++;
      std::this_thread::sleep_for (std::chrono::milliseconds (33));
    }
  });
  {
    RtspClient hearing (server->uri ());
    EXPECT_TRUE (await ([&hearing] { return hearing.units () >= 3; })) << hearing.error ();
    const DeafClient deaf (*server);
    EXPECT_TRUE (await ([&server] { return server->statistics ().clients == 2; }));
    const int before = hearing.units ();
    const int pushed_before = pushed;
    // 75 MB: beyond what buffers hold, and beyond the server's patience with the deaf one.
    EXPECT_TRUE (await ([&] { return pushed >= pushed_before + 300; }));
    EXPECT_TRUE (await ([&] { return hearing.units () >= before + 250; }))
        << hearing.units () - before << " of " << pushed - pushed_before << ", "
        << server->statistics ().drops << " drops, " << hearing.error ();
    EXPECT_EQ (server->statistics ().drops, 0u);
  }
  end = true;
  stream.join ();
}

// ---- Ports

TEST (RtspPort, TakenIsTold)
{
  gst_init (nullptr, nullptr);
  std::string error;
  const auto first = RtspServer::start ({}, &error);
  ASSERT_TRUE (first) << error;
  EXPECT_GT (first->port (), 0);
  RtspOptions options;
  options.port = first->port ();
  EXPECT_FALSE (RtspServer::start (options, &error));
  EXPECT_EQ (error.find ("RTSP port " + std::to_string (first->port ()) + " cannot be used: "), 0u)
      << error;
  EXPECT_NE (error.find ("; choose another with --port (0: any)"), std::string::npos) << error;
}

TEST (RtspPort, IsFreeAgainAfterTheEnd)
{
  gst_init (nullptr, nullptr);
  std::string error;
  auto first = RtspServer::start ({}, &error);
  RtspOptions options;
  options.port = first->port ();
  first.reset ();
  EXPECT_TRUE (RtspServer::start (options, &error)) << error;
}

TEST (RtspPort, OnlyTheMountThereIsIsServed)
{
  gst_init (nullptr, nullptr);
  std::string error;
  const auto server = RtspServer::start ({}, &error);
  ASSERT_TRUE (server) << error;
  RtspClient client ("rtsp://127.0.0.1:" + std::to_string (server->port ()) + "/other");
  std::string refusal;
  EXPECT_TRUE (await ([&] {
    refusal = client.error ();
    return !refusal.empty ();
  }));
  EXPECT_EQ (client.units (), 0);
}

} // namespace
