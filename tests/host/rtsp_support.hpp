// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Streams to serve and clients that join them.
#ifndef TESTS_RTSP_SUPPORT_HPP
#define TESTS_RTSP_SUPPORT_HPP

#include <atomic>
#include <functional>
#include <string>

#include <gst/gst.h>

#include <vorn/gst_raii.hpp>

/** Waits for a condition, a minute at most. */
bool await (const std::function<bool ()> &condition);

/** A unit that looks like one: a slice of so many bytes that nobody can decode. */
vorn::Ref<GstSample> make_unit (bool key, size_t size);

/** A real stream: encoded test pictures, 30 a second, a key frame when it is asked for one. */
class EncodedStream
{
public:
  explicit EncodedStream (std::function<void (GstSample *)> on_unit);
  ~EncodedStream ();
  EncodedStream (const EncodedStream &) = delete;
  EncodedStream &operator= (const EncodedStream &) = delete;

  /** Any thread. */
  void request_key_frame ();

private:
  static GstFlowReturn on_sample (GstElement *sink, gpointer self);

  std::function<void (GstSample *)> on_unit_;
  vorn::Ref<GstElement> pipeline_;
  vorn::Ref<GstElement> sink_;
};

/** A client over TCP that counts what it can decode: from the first key frame on. */
class RtspClient
{
public:
  explicit RtspClient (const std::string &uri);
  ~RtspClient ();
  RtspClient (const RtspClient &) = delete;
  RtspClient &operator= (const RtspClient &) = delete;

  int units () const { return units_; }
  /** The error that ended it, or empty. */
  std::string error () const;

private:
  static void on_unit (GstElement *sink, GstBuffer *buffer, GstPad *pad, gpointer self);

  vorn::Ref<GstElement> pipeline_;
  std::atomic<int> units_ = 0;
};

#endif
