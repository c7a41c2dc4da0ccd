// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "record_file.hpp"

#include <gst/app/gstappsrc.h>

#include "mp4_settings.hpp"
#include <vorn/log.h>
#include <vorn/utils.h>

VORN_LOG_TAG ("vorn_recording");

namespace vorn
{

namespace
{

/** What is lost when the process is killed is the last fragment. */
constexpr guint fragment_ms = 1000;
/** How much may wait for the disk. */
constexpr guint64 largest_backlog = guint64{8} << 20;
constexpr gint64 longest_end_us = G_USEC_PER_SEC;

} // namespace

RecordFile::RecordFile (Events events) : events_ (std::move (events))
{
  for (GMutex *mutex : {&end_lock_, &write_lock_, &lock_})
    g_mutex_init (mutex);
  g_cond_init (&changed_);
}

RecordFile::~RecordFile ()
{
  for (GMutex *mutex : {&end_lock_, &write_lock_, &lock_})
    g_mutex_clear (mutex);
  g_cond_clear (&changed_);
}

bool RecordFile::build (GstBin *bin, const std::string &name)
{
  const auto make = [&] (const char *factory_name, const char *role) {
    GstElement *element = gst_element_factory_make (factory_name, (name + "-" + role).c_str ());
    if (element) {
      gst_element_set_locked_state (element, TRUE);
      gst_bin_add (bin, element);
    } else {
      VORN_LOG_ERROR ("recordings lack the element '%s'", factory_name);
    }
    return element;
  };
  bin_ = bin;
  source_ = make ("appsrc", "source");
  muxer_ = make ("mp4mux", "muxer");
  sink_ = make ("filesink", "filesink");
  if (!source_ || !muxer_ || !sink_)
    return false;
  g_object_set (source_, "format", GST_FORMAT_TIME, "block", TRUE, "max-bytes", largest_backlog,
                "max-buffers", guint64{0}, "max-time", guint64{0}, nullptr);
  g_object_set (muxer_, "fragment-duration", fragment_ms, nullptr);
  set_recording_timescale (muxer_);
  g_object_set (sink_, "async", FALSE, "sync", FALSE, "enable-last-sample", FALSE, nullptr);
  gst_util_set_object_arg (G_OBJECT (sink_), "buffer-mode", "unbuffered");
  return gst_element_link_pads (source_, "src", muxer_, "video_%u") &&
         gst_element_link (muxer_, sink_);
}

bool RecordFile::start (const std::string &path, GError **error)
{
  const Lock end_lock (&end_lock_);
  if (GST_STATE (bin_) != GST_STATE_PLAYING && GST_STATE_PENDING (bin_) != GST_STATE_PLAYING) {
    g_propagate_error (
        error, vorn_resource_error_new (VORN_RESOURCE_ERROR_FAILED, "the pipeline does not play"));
    return false;
  }
  {
    const Lock lock (&lock_);
    phase_ = Phase::STARTING;
    ended_ = false;
    error_.reset ();
    last_ = RecordedFile ();
  }
  // A cover that came after its recording had ended.
  gst_tag_setter_reset_tags (GST_TAG_SETTER (muxer_));
  g_object_set (sink_, "location", path.c_str (), nullptr);
  bool started = true;
  for (GstElement *element : {sink_, muxer_, source_}) {
    gst_element_set_locked_state (element, FALSE);
    gst_element_set_base_time (element, gst_element_get_base_time (GST_ELEMENT (bin_)));
    started =
        started && gst_element_set_state (element, GST_STATE_PLAYING) != GST_STATE_CHANGE_FAILURE;
  }
  {
    const Lock lock (&lock_);
    if (started && !error_) {
      phase_ = Phase::WAITING_FOR_KEY_FRAME;
      return true;
    }
    phase_ = Phase::CLOSED;
    g_propagate_error (
        error, vorn_resource_error_new (last_.no_space_left () ? VORN_RESOURCE_ERROR_NO_SPACE_LEFT
                                                               : VORN_RESOURCE_ERROR_FAILED,
                                        error_ ? error_->message : "its elements do not start"));
  }
  stop_elements ();
  return false;
}

bool RecordFile::write (GstSample *unit)
{
  const Lock write_lock (&write_lock_);
  GstBuffer *buffer = gst_sample_get_buffer (unit);
  const GstClockTime time = gst_segment_to_running_time (gst_sample_get_segment (unit),
                                                         GST_FORMAT_TIME, GST_BUFFER_PTS (buffer));
  bool first = false;
  {
    const Lock lock (&lock_);
    if (error_ || (phase_ != Phase::WAITING_FOR_KEY_FRAME && phase_ != Phase::WRITING))
      return false;
    first = phase_ == Phase::WAITING_FOR_KEY_FRAME;
    if (!GST_CLOCK_TIME_IS_VALID (time) ||
        (first && GST_BUFFER_FLAG_IS_SET (buffer, GST_BUFFER_FLAG_DELTA_UNIT)))
      return false;
    if (first) {
      phase_ = Phase::WRITING;
      first_time_ = time;
      last_.has_pictures = true;
    }
  }
  // The file begins at zero; without reordering frames are decoded when they are shown.
  auto timed = adopt (gst_buffer_copy (buffer));
  GST_BUFFER_PTS (timed.get ()) = time >= first_time_ ? time - first_time_ : 0;
  GST_BUFFER_DTS (timed.get ()) = GST_BUFFER_PTS (timed.get ());
  GstAppSrc *source = GST_APP_SRC (source_);
  gst_app_src_set_caps (source, gst_sample_get_caps (unit));
  if (gst_app_src_push_buffer (source, timed.release ()) != GST_FLOW_OK)
    return false;
  if (first)
    events_.first_picture ();
  return true;
}

/** To be called with end_lock_ held. */
void RecordFile::close ()
{
  bool has_pictures = false;
  {
    const Lock lock (&lock_);
    if (phase_ == Phase::CLOSED)
      return;
    phase_ = Phase::ENDING;
    has_pictures = last_.has_pictures;
  }
  // Also wakes who waits for the disk. Without a picture there is nothing to end, and the muxer
  // would be stopped in the midst of its first header.
  if (has_pictures)
    gst_app_src_end_of_stream (GST_APP_SRC (source_));
  {
    const Lock write_lock (&write_lock_); // nobody writes any more
  }
  const gint64 end_time = g_get_monotonic_time () + longest_end_us;
  {
    Lock lock (&lock_);
    while (last_.has_pictures && !ended_ && !error_)
      if (!lock.wait_until (&changed_, end_time))
        break;
    last_.complete = ended_ && !error_;
    last_.error = error_;
    if (last_.has_pictures && !ended_ && !error_)
      VORN_LOG_WARNING ("the disk is too slow, a recording's last fragment may be missing");
    phase_ = Phase::CLOSED;
  }
  // Going down, the muxer forgets them.
  if (const GstTagList *tags = gst_tag_setter_get_tag_list (GST_TAG_SETTER (muxer_)))
    last_.tags = adopt (gst_tag_list_copy (tags));
  stop_elements ();
  if (last_.complete)
    gst_element_post_message (
        GST_ELEMENT (bin_),
        gst_message_new_element (GST_OBJECT (bin_), gst_structure_new_empty ("record-done")));
}

void RecordFile::stop_elements ()
{
  for (GstElement *element : {sink_, muxer_, source_}) {
    gst_element_set_locked_state (element, TRUE);
    gst_element_set_state (element, GST_STATE_NULL);
  }
}

RecordedFile RecordFile::end ()
{
  const Lock end_lock (&end_lock_);
  close ();
  return last_;
}

void RecordFile::end_with_pipeline ()
{
  {
    const Lock end_lock (&end_lock_);
    {
      const Lock lock (&lock_);
      if (phase_ == Phase::CLOSED)
        return;
    }
    close ();
  }
  events_.ended ();
}

bool RecordFile::is_mine (GstObject *object) const
{
  return object == GST_OBJECT (source_) || object == GST_OBJECT (muxer_) ||
         object == GST_OBJECT (sink_);
}

bool RecordFile::take_message (GstMessage *message)
{
  if (!is_mine (GST_MESSAGE_SRC (message)))
    return false;
  if (GST_MESSAGE_TYPE (message) == GST_MESSAGE_ERROR) {
    fail (message);
    return true;
  }
  if (GST_MESSAGE_TYPE (message) == GST_MESSAGE_EOS) {
    const Lock lock (&lock_);
    ended_ = true;
    g_cond_broadcast (&changed_);
    return true;
  }
  return false;
}

/** The first error counts, the others follow from it. */
void RecordFile::fail (GstMessage *message)
{
  GError *parsed = nullptr;
  gst_message_parse_error (message, &parsed, nullptr);
  const std::shared_ptr<const GError> error (
      parsed, [] (const GError *owned) { g_error_free (const_cast<GError *> (owned)); });
  {
    const Lock lock (&lock_);
    if (error_)
      return;
    error_ = error;
    last_.error = error;
    g_cond_broadcast (&changed_);
    if (phase_ == Phase::STARTING || phase_ == Phase::CLOSED)
      return;
  }
  // Wakes who waits for the disk; nobody will read what is queued.
  gst_app_src_end_of_stream (GST_APP_SRC (source_));
  const bool full =
      g_error_matches (error.get (), GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_NO_SPACE_LEFT);
  gst_element_post_message (
      GST_ELEMENT (bin_),
      gst_message_new_element (GST_OBJECT (bin_),
                               gst_structure_new (full ? "no-space-left" : "record-done", "error",
                                                  G_TYPE_ERROR, error.get (), nullptr)));
}

} // namespace vorn
