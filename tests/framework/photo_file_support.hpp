// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Takes pictures the way products do, and reads what is in their files with another program.
#ifndef TESTS_PHOTO_FILE_SUPPORT_HPP
#define TESTS_PHOTO_FILE_SUPPORT_HPP

#include <functional>
#include <map>
#include <string>
#include <vector>

#include <gst/gst.h>

#include <vorn/gst_raii.hpp>
#include <vorn/gst_view.h>

/** A pipeline with a JPEG muxer and its sink, attached to a view before or after it was built. */
class PhotoPipeline
{
public:
  /** location: the sink's pattern. source: what gives raw frames. */
  explicit PhotoPipeline (const std::string &location,
                          const std::string &source = "videotestsrc num-buffers=1 ! "
                                                      "video/x-raw,width=640,height=480",
                          bool attach_first = false);
  ~PhotoPipeline ();
  PhotoPipeline (const PhotoPipeline &) = delete;
  PhotoPipeline &operator= (const PhotoPipeline &) = delete;

  GstElement *muxer () const { return muxer_.get (); }
  GstElement *sink () const { return sink_.get (); }
  GstElement *pipeline () const { return pipeline_.get (); }
  VornGstView *view () const { return view_.get (); }

  /** Sets tags on the muxer, in the arguments of gst_tag_list_add. */
  void set_tags (const char *first, ...) G_GNUC_NULL_TERMINATED;

  /** Plays until the end of the stream, then stops; FALSE when an error came instead. */
  bool run ();
  /** The two halves of run, for pipelines that are to play at once. */
  void start ();
  bool finish ();

  /** The names in the sink's messages, in order. */
  const std::vector<std::string> &files () const { return files_; }
  /** The errors on the bus, in order. */
  const std::vector<vorn::OwnedError> &errors () const { return errors_; }

private:
  void on_message (GstMessage *message);

  vorn::Ref<VornGstView> view_;
  vorn::Ref<GstElement> pipeline_;
  vorn::Ref<GstElement> muxer_;
  vorn::Ref<GstElement> sink_;
  std::vector<std::string> files_;
  std::vector<vorn::OwnedError> errors_;
  bool ended_ = false;
};

/** A JPEG picture of a test pattern. */
vorn::Ref<GstSample> make_thumbnail (int width, int height, const char *pattern = "smpte");

/** A sample of these bytes. */
vorn::Ref<GstSample> make_sample (const std::string &bytes, const char *caps = "image/jpeg");

std::string bytes_of (GstSample *sample);

/** What exiftool reads of a file, by group and name ("GPS:GPSLatitude"), enumerations as numbers.
 */
class Metadata
{
public:
  explicit Metadata (const std::string &file);
  bool has (const std::string &key) const { return values_.contains (key); }
  /** As text; "(none)" when there is none. */
  std::string text (const std::string &key) const;
  double number (const std::string &key) const;
  /** All of it, for messages. */
  std::string all () const;

private:
  std::map<std::string, std::string> values_;
};

/** The bytes of a binary field of a file. */
std::string binary (const std::string &file, const std::string &field);

/** The colours of the pixels that a JPEG file decodes to, as I420. */
std::string pixels_of (const std::string &file);

#endif
