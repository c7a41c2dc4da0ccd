// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
/**
 * The element that a vision algorithm is written into: it gets every frame, passes it on as it is,
 * holds the camera's calibration and keeps the statistics. docs/vision.md tells how an algorithm
 * goes in. Thread rule: as any GstElement.
 */
#ifndef VISION_ELEMENT_HPP
#define VISION_ELEMENT_HPP

#include <span>

#include <gst/video/gstvideofilter.h>

#include "vision_calibration.hpp"
#include "vision_statistics.hpp"

namespace vision
{

/** An element type: what its algorithm wants to know of the camera. */
struct Kind {
  const char *type_name;
  const char *description;
  std::span<const Field> fields;
};

struct State;

} // namespace vision

struct KavrelVision {
  GstVideoFilter parent;
  vision::State *state;
};

struct KavrelVisionClass {
  GstVideoFilterClass parent_class;

  /**
   * The algorithm. Called for each frame on the streaming thread, one at a time; frames that come
   * meanwhile are thrown away by the queue before it, so it may take its time. frame: mapped for
   * reading, valid during the call. capture_ns: when the frame was captured, ns of the system's
   * monotonic clock. The base class's does nothing.
   */
  void (*process) (KavrelVision *self, const GstVideoFrame *frame, guint64 capture_ns);
};

namespace vision
{

/**
 * The static type of this kind; the kind must live for ever. All kinds have the property "section"
 * (the telemetry section of the statistics, from the next start on; empty: none), the statistics
 * and their fields, and may be derived from.
 */
GType type_of (const Kind &kind);

/** For algorithms: the element's calibration, lent. */
const Calibration &calibration_of (KavrelVision *self);

Snapshot statistics_of (KavrelVision *self);

/** A frame was thrown away before it reached the element. Thread-safe. */
void note_drop (KavrelVision *self);

/** Mean luma, 0 to 255, of every fourth pixel of every fourth row; RGB by the weights of BT.601. */
double mean_luma (const GstVideoFrame &frame);

} // namespace vision

#endif
