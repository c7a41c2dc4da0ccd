// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "record_bin.hpp"

#include "record_file.hpp"

struct _VornRecordBin {
  GstBin parent;
  vorn::RecordFile *file; // borrowed; accessed atomically: messages come from any thread
};

static vorn::RecordFile *file_of (VornRecordBin *bin)
{
  return static_cast<vorn::RecordFile *> (g_atomic_pointer_get (&bin->file));
}

G_DEFINE_TYPE (VornRecordBin, vorn_record_bin, GST_TYPE_BIN)

static GstStateChangeReturn vorn_record_bin_change_state (GstElement *element,
                                                          GstStateChange transition)
{
  vorn::RecordFile *file = file_of (VORN_RECORD_BIN (element));
  // Before the sinks are told: in PAUSED they take nothing any more.
  if (transition == GST_STATE_CHANGE_PLAYING_TO_PAUSED && file)
    file->end_with_pipeline ();
  return GST_ELEMENT_CLASS (vorn_record_bin_parent_class)->change_state (element, transition);
}

static void vorn_record_bin_handle_message (GstBin *bin, GstMessage *message)
{
  vorn::RecordFile *file = file_of (VORN_RECORD_BIN (bin));
  if (file && file->take_message (message)) {
    gst_message_unref (message);
    return;
  }
  GST_BIN_CLASS (vorn_record_bin_parent_class)->handle_message (bin, message);
}

static void vorn_record_bin_class_init (VornRecordBinClass *klass)
{
  GstElementClass *element_class = GST_ELEMENT_CLASS (klass);
  element_class->change_state = vorn_record_bin_change_state;
  GST_BIN_CLASS (klass)->handle_message = vorn_record_bin_handle_message;
  gst_element_class_set_static_metadata (
      element_class, "Recording branch of the framework", "Sink/File/Video",
      "Encodes and writes recordings that survive", "the vornmorvikzelto authors");
}

static void vorn_record_bin_init (VornRecordBin *) {}

void vorn::record_bin_set_file (VornRecordBin *bin, RecordFile *file)
{
  g_atomic_pointer_set (&bin->file, file);
}
