// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The elements that write a recording's fragmented file, and the file's beginning and end.
#ifndef VORN_FRAMEWORK_RECORD_FILE_HPP
#define VORN_FRAMEWORK_RECORD_FILE_HPP

#include <functional>
#include <string>

#include <vorn/gst_raii.hpp>

namespace vorn
{

/** How a file has ended. */
struct RecordedFile {
  bool has_pictures = false;
  bool complete = false; // ended in order, nothing is missing
  Ref<GstTagList> tags;  // that the muxer had; may be none
  std::shared_ptr<const GError> error;
  bool no_space_left () const
  {
    return error &&
           g_error_matches (error.get (), GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_NO_SPACE_LEFT);
  }
};

/**
 * appsrc -> mp4mux -> filesink, inside a bin but a pipeline of their own as regards flow, errors
 * and state: a disk that is full or slow does not reach the encoder's side.
 */
class RecordFile
{
public:
  struct Events {
    std::function<void ()> first_picture; // the muxer has got it; streaming thread
    std::function<void ()> ended;         // by end_with_pipeline; the thread that changes the state
  };

  explicit RecordFile (Events events);
  ~RecordFile ();
  RecordFile (const RecordFile &) = delete;
  RecordFile &operator= (const RecordFile &) = delete;

  /** Adds the elements to the bin, stopped. name: what their names begin with. */
  bool build (GstBin *bin, const std::string &name);

  /** Begins a file; the bin must be playing. Framework's thread. */
  bool start (const std::string &path, GError **error);

  /** Writes a unit; those before the first key frame are left out. Blocks while the disk is behind.
   * True when it was taken. One streaming thread. */
  bool write (GstSample *unit);

  /** Ends the file if one is being written, within a second, and says how the last one has ended.
   * Framework's thread. */
  RecordedFile end ();

  // For the bin.
  void end_with_pipeline ();
  /** Whether the message was for the bin's own ears. */
  bool take_message (GstMessage *message);

private:
  enum class Phase { CLOSED, STARTING, WAITING_FOR_KEY_FRAME, WRITING, ENDING };

  bool is_mine (GstObject *object) const;
  void fail (GstMessage *message);
  void close ();
  void stop_elements ();

  Events events_;
  // Borrowed from the bin.
  GstBin *bin_ = nullptr;
  GstElement *source_ = nullptr;
  GstElement *muxer_ = nullptr;
  GstElement *sink_ = nullptr;

  GMutex end_lock_;   // held while a file is begun or ended; taken first
  GMutex write_lock_; // held while a unit is written; taken before lock_, never waited for by one
                      // who keeps the elements from taking the unit
  GMutex lock_;       // guards all below; held for moments only
  GCond changed_;     // of ended_ and error_
  Phase phase_ = Phase::CLOSED;
  bool ended_ = false; // the end of the stream has reached the file
  std::shared_ptr<const GError> error_;
  RecordedFile last_;
  GstClockTime first_time_ = 0; // running time of the first picture
};

} // namespace vorn

#endif
