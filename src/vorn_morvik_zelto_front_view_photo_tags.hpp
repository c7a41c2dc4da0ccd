// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What a photo is tagged with, as tag lists. All functions are reentrant.
#ifndef VORN_MORVIK_ZELTO_FRONT_VIEW_PHOTO_TAGS_HPP
#define VORN_MORVIK_ZELTO_FRONT_VIEW_PHOTO_TAGS_HPP

#include <vorn/gst_raii.hpp>
#include <vorn/metadata_provider.h>
#include <vorn/view.h>

/**
 * Tags of what is known before a photo is taken. photo_mode: VornPhotoMode of the view, which names
 * a photo that belongs to no series. An unknown grouping is taken for none, with a warning. Texts
 * that are NULL or empty are left out: a tag list cannot hold them.
 */
vorn::Ref<GstTagList> make_untimed_photo_tags (const VornUntimedMetadata &metadata,
                                               const VornSnapshotRequest &request,
                                               guint32 photo_mode);

/** Sets all that tells the exposure to zero: the simulated camera has none. */
void clear_photo_exposure (VornTimedPhotoMetadata *metadata);

/**
 * Tags of what held when a photo was captured, at this time (ns). photo_format: VornPhotoFormat.
 * The date is the current one, in local time.
 */
vorn::Ref<GstTagList> make_timed_photo_tags (const VornTimedPhotoMetadata &metadata,
                                             guint32 photo_format, guint64 capture_time_ns);

#endif
