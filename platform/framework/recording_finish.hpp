// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What becomes of a recording's fragmented file once nobody writes to it any more.
#ifndef VORN_FRAMEWORK_RECORDING_FINISH_HPP
#define VORN_FRAMEWORK_RECORDING_FINISH_HPP

#include <functional>
#include <memory>

#include <vorn/gst_raii.hpp>

#include "recording_file.hpp"

namespace vorn
{

/** What is to be done with a file. */
struct FinishOrder {
  RecordingFile file;
  Ref<GstTagList> tags;  // that the finished file carries; may be none
  bool as_it_is = false; // no rewriting: there is no space for it
};

/**
 * Brings the file under its final name: rewritten as plain MP4, or as it is where that cannot be
 * done. False, with an error, when it holds no picture or there is no getting at it. Slow.
 */
bool finish_recording (FinishOrder order, GError **error);

/** Gets the error, NULL when the file lies under its final name. */
using FinishedFunc = std::function<void (const GError *error)>;

/** Does it on a thread of GTask's; calls finished on the framework's thread. */
void finish_recording_in_background (FinishOrder order, FinishedFunc finished);

} // namespace vorn

#endif
