// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "rtsp_server.hpp"

#include <atomic>

#include <gst/rtsp-server/rtsp-server.h>

#include "rtsp_feed.hpp"
#include <vorn/raii.hpp>

/** What clients and media refer to; the last of them may outlive the server. */
struct RtspShared {
  explicit RtspShared (std::function<void ()> request_key_frame)
      : feed (std::move (request_key_frame))
  {
  }
  RtspFeed feed;
  std::atomic<guint> clients = 0;
  std::atomic<guint64> connections = 0;
};

/** The server's own main loop. Its callbacks run on this thread or on those of its clients. */
struct RtspThread {
  vorn::Owned<GMainContext, g_main_context_unref> context{g_main_context_new ()};
  vorn::Owned<GMainLoop, g_main_loop_unref> loop{g_main_loop_new (context.get (), FALSE)};
  vorn::Ref<GstRTSPServer> server = vorn::adopt (gst_rtsp_server_new ());
  vorn::Owned<GSource, g_source_unref> source;
  GThread *thread = nullptr;

  void run ();
  void end ();
};

namespace
{

// The units carry their parameter sets and must reach the clients as they are: no parser.
constexpr char media_pipeline[] =
    "( appsrc name=src ! rtph264pay name=pay0 pt=96 config-interval=-1 )";

using Shared = std::shared_ptr<RtspShared>;

/** Connects a callback whose data is its own share. */
void connect (gpointer object, const char *signal, GCallback callback, const Shared &shared)
{
  g_signal_connect_data (
      object, signal, callback, new Shared (shared),
      [] (gpointer data, GClosure *) { delete static_cast<Shared *> (data); },
      static_cast<GConnectFlags> (0));
}

RtspShared &shared_of (gpointer data)
{
  return **static_cast<Shared *> (data);
}

/** Ties a media's source to the feed for as long as the media lives. */
struct Tie {
  Shared shared;
  vorn::Ref<GstAppSrc> source;
};

void on_media_configure (GstRTSPMediaFactory *, GstRTSPMedia *media, gpointer data)
{
  const auto pipeline = vorn::adopt (gst_rtsp_media_get_element (media));
  GstElement *source = gst_bin_get_by_name_recurse_up (GST_BIN (pipeline.get ()), "src");
  auto *tie = new Tie{*static_cast<Shared *> (data), vorn::adopt (GST_APP_SRC (source))};
  tie->shared->feed.add (tie->source.get ());
  g_object_set_data_full (G_OBJECT (media), "vorn-feed", tie, [] (gpointer tied) {
    auto *ended = static_cast<Tie *> (tied);
    ended->shared->feed.remove (ended->source.get ());
    delete ended;
  });
}

void on_play_request (GstRTSPClient *, GstRTSPContext *, gpointer data)
{
  // Who joins a stream that others watch would see nothing before the next key frame.
  shared_of (data).feed.request_key_frame ();
}

void on_closed (GstRTSPClient *, gpointer data)
{
  shared_of (data).clients--;
}

void on_client_connected (GstRTSPServer *, GstRTSPClient *client, gpointer data)
{
  const Shared &shared = *static_cast<Shared *> (data);
  shared->clients++;
  shared->connections++;
  connect (client, "play-request", G_CALLBACK (on_play_request), shared);
  connect (client, "closed", G_CALLBACK (on_closed), shared);
}

GstRTSPFilterResult remove_client (GstRTSPServer *, GstRTSPClient *, gpointer)
{
  return GST_RTSP_FILTER_REMOVE;
}

vorn::Ref<GstRTSPMediaFactory> make_factory (const Shared &shared)
{
  auto factory = vorn::adopt (gst_rtsp_media_factory_new ());
  gst_rtsp_media_factory_set_launch (factory.get (), media_pipeline);
  gst_rtsp_media_factory_set_shared (factory.get (), TRUE);
  gst_rtsp_media_factory_set_latency (factory.get (), 0);
  connect (factory.get (), "media-configure", G_CALLBACK (on_media_configure), shared);
  return factory;
}

} // namespace

void RtspThread::run ()
{
  thread = g_thread_new (
      "rtsp",
      [] (gpointer data) -> gpointer {
        auto *self = static_cast<RtspThread *> (data);
        g_main_context_push_thread_default (self->context.get ());
        g_main_loop_run (self->loop.get ());
        g_main_context_pop_thread_default (self->context.get ());
        return nullptr;
      },
      this);
}

void RtspThread::end ()
{
  // On the server's thread, between its callbacks.
  g_main_context_invoke (
      context.get (),
      [] (gpointer data) -> gboolean {
        auto *self = static_cast<RtspThread *> (data);
        g_source_destroy (self->source.get ());
        const vorn::Owned<GList, g_list_free> none (
            gst_rtsp_server_client_filter (self->server.get (), remove_client, nullptr));
        g_main_loop_quit (self->loop.get ());
        return G_SOURCE_REMOVE;
      },
      this);
  g_thread_join (thread);
}

RtspServer::RtspServer () = default;

std::unique_ptr<RtspServer> RtspServer::start (const RtspOptions &options, std::string *error)
{
  std::unique_ptr<RtspServer> server (new RtspServer);
  server->path_ = options.path;
  server->shared_ = std::make_shared<RtspShared> (options.request_key_frame);
  auto thread = std::make_unique<RtspThread> ();
  GstRTSPServer *rtsp = thread->server.get ();
  gst_rtsp_server_set_address (rtsp, options.address.c_str ());
  gst_rtsp_server_set_service (rtsp, std::to_string (options.port).c_str ());
  const auto mounts = vorn::adopt (gst_rtsp_server_get_mount_points (rtsp));
  gst_rtsp_mount_points_add_factory (mounts.get (), options.path.c_str (),
                                     make_factory (server->shared_).release ());
  connect (rtsp, "client-connected", G_CALLBACK (on_client_connected), server->shared_);

  vorn::ErrorOut failure;
  thread->source.reset (gst_rtsp_server_create_source (rtsp, nullptr, failure.out ()));
  if (!thread->source) {
    *error = "RTSP port " + std::to_string (options.port) +
             " cannot be used: " + failure.message () + "; choose another with --port (0: any)";
    return nullptr;
  }
  g_source_attach (thread->source.get (), thread->context.get ());
  server->port_ = static_cast<guint16> (gst_rtsp_server_get_bound_port (rtsp));
  thread->run ();
  server->thread_ = std::move (thread);
  return server;
}

RtspServer::~RtspServer ()
{
  if (thread_)
    thread_->end ();
  shared_->feed.end_requests ();
}

void RtspServer::push (GstSample *unit)
{
  shared_->feed.push (unit);
}

std::string RtspServer::uri () const
{
  return "rtsp://127.0.0.1:" + std::to_string (port_) + path_;
}

RtspStatistics RtspServer::statistics () const
{
  return {shared_->clients, shared_->connections, shared_->feed.units (), shared_->feed.drops ()};
}
