// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Runs a pipeline as gst-launch-1.0 would, without anything of the product, and writes for each
// buffer that reaches its element "units" what "vorn-host run --units" writes:
// capture_ns,encoded_ns,bytes.
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>

#include <glib-unix.h>
#include <gst/gst.h>

#include <vorn/frame_meta.h>
#include <vorn/framework.h>
#include <vorn/gst_raii.hpp>

namespace
{

int64_t monotonic_ns ()
{
  timespec now = {};
  clock_gettime (CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

void add_line (GstBuffer *buffer, FILE *file)
{
  const int64_t now_ns = monotonic_ns ();
  const VornFrameMeta *meta = vorn_frame_meta_get (buffer);
  guint64 capture_ns = 0;
  if (meta &&
      gst_structure_get_uint64 (meta->structure, VORN_FRAME_META_CAPTURE_TIMESTAMP, &capture_ns))
    fprintf (file, "%" PRIu64, capture_ns);
  fprintf (file, ",%" PRId64 ",%zu\n", now_ns, gst_buffer_get_size (buffer));
}

GstPadProbeReturn on_unit (GstPad *, GstPadProbeInfo *info, gpointer file)
{
  add_line (GST_PAD_PROBE_INFO_BUFFER (info), static_cast<FILE *> (file));
  return GST_PAD_PROBE_OK;
}

struct Run {
  vorn::Owned<GMainLoop, g_main_loop_unref> loop{g_main_loop_new (nullptr, FALSE)};
  GstElement *pipeline = nullptr;
  bool failed = false;
};

gboolean on_message (GstBus *, GstMessage *message, gpointer data)
{
  auto *run = static_cast<Run *> (data);
  if (GST_MESSAGE_TYPE (message) == GST_MESSAGE_ERROR) {
    vorn::ErrorOut error;
    gst_message_parse_error (message, error.out (), nullptr);
    fprintf (stderr, "stock-pipeline: %s\n", error.message ());
    run->failed = true;
  } else if (GST_MESSAGE_TYPE (message) != GST_MESSAGE_EOS)
    return G_SOURCE_CONTINUE;
  g_main_loop_quit (run->loop.get ());
  return G_SOURCE_CONTINUE;
}

gboolean on_signal (gpointer pipeline)
{
  gst_element_send_event (GST_ELEMENT (pipeline), gst_event_new_eos ());
  return G_SOURCE_CONTINUE;
}

int fail (const std::string &reason)
{
  fprintf (stderr, "stock-pipeline: %s\n", reason.c_str ());
  return 1;
}

} // namespace

int main (int argc, char **argv)
{
  if (argc != 4 || strcmp (argv[1], "--help") == 0) {
    puts ("usage: stock-pipeline ELEMENTS-FOLDER UNITS-FILE DESCRIPTION\n\n"
          "Runs the pipeline until SIGTERM ends its stream; its element 'units' is measured.");
    return argc == 2 && strcmp (argv[1], "--help") == 0 ? 0 : 2;
  }
  vorn_framework_init (nullptr, nullptr);
  gst_registry_scan_path (gst_registry_get (), argv[1]);
  vorn::ErrorOut error;
  const auto pipeline = vorn::adopt (gst_parse_launch (argv[3], error.out ()));
  if (!pipeline || error)
    return fail (error.message ());
  const auto units = vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline.get ()), "units"));
  if (!units)
    return fail ("the pipeline has no element 'units'");
  const vorn::Owned<FILE, fclose> file (fopen (argv[2], "we"));
  if (!file)
    return fail (std::string (argv[2]) + ": " + strerror (errno));
  fputs ("capture_ns,encoded_ns,bytes\n", file.get ());
  const auto pad = vorn::adopt (gst_element_get_static_pad (units.get (), "sink"));
  gst_pad_add_probe (pad.get (), GST_PAD_PROBE_TYPE_BUFFER, on_unit, file.get (), nullptr);

  Run run;
  run.pipeline = pipeline.get ();
  const auto bus = vorn::adopt (gst_element_get_bus (pipeline.get ()));
  gst_bus_add_watch (bus.get (), on_message, &run);
  g_unix_signal_add (SIGTERM, on_signal, pipeline.get ());
  gst_element_set_state (pipeline.get (), GST_STATE_PLAYING);
  puts ("stock-pipeline: playing");
  fflush (stdout);
  g_main_loop_run (run.loop.get ());
  gst_element_set_state (pipeline.get (), GST_STATE_NULL);
  gst_bus_remove_watch (bus.get ());
  return run.failed;
}
