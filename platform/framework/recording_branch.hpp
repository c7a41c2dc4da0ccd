// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// A view's recording branch: the bin "recordbin".
#ifndef VORN_FRAMEWORK_RECORDING_BRANCH_HPP
#define VORN_FRAMEWORK_RECORDING_BRANCH_HPP

#include <string>

#include "encoding_chain.hpp"
#include "record_bin.hpp"
#include "record_file.hpp"

namespace vorn
{

/** Encodes, and writes one file at a time. Bound to the framework's thread. */
class RecordingBranch
{
public:
  RecordingBranch (const std::string &view, RecordFile::Events events);
  ~RecordingBranch ();
  RecordingBranch (const RecordingBranch &) = delete;
  RecordingBranch &operator= (const RecordingBranch &) = delete;

  /** False, with an error logged, when it cannot be built. */
  bool build ();

  /** The bin; it has a pad "sink". */
  GstElement *bin () const { return GST_ELEMENT (bin_.get ()); }
  EncodingChain &chain () { return chain_; }

  /** Begins to write a file; the pipeline plays by then. */
  bool start (const std::string &path, GError **error);
  /** Ends the file, in a second at most; how it, or the last one, has ended. */
  RecordedFile end ();

private:
  bool build_units ();

  ChainSettings settings_;
  EncodingChain chain_;
  RecordFile file_;
  Ref<VornRecordBin> bin_;
};

} // namespace vorn

#endif
