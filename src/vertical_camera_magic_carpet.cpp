// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Takes the magic carpet's bin into the running pipeline and out of it.
#include "vertical_camera_pipeline.hpp"

#include <vorn/gst_raii.hpp>
#include <vorn/log.h>

VORN_LOG_TAG ("vertical_camera_pipeline");

namespace
{

/** What the requests of one tee have in common; lives as long as the tee. */
struct Switch {
  /** Held during a step: an idle pad's probe runs on the caller's thread, and the blocked pad's on
   * the streaming thread may run at the same time. No lock of ours is taken under it. */
  GMutex mutex;
  /** How often switching off was asked for; written on the framework's thread, with the mutex. */
  guint offs = 0;

  Switch () { g_mutex_init (&mutex); }
  ~Switch () { g_mutex_clear (&mutex); }
  Switch (const Switch &) = delete;
  Switch &operator= (const Switch &) = delete;
};

/** A request on its way to the streaming thread. */
struct Request {
  GWeakRef bin;
  Switch *common; // the tee's, and the probe's pad is the tee's
  guint offs;     // that came before it

  Request (GstBin *of_bin, Switch *of_tee, guint before) : common (of_tee), offs (before)
  {
    g_weak_ref_init (&bin, of_bin);
  }
  ~Request () { g_weak_ref_clear (&bin); }
  Request (const Request &) = delete;
  Request &operator= (const Request &) = delete;
};

Switch *switch_of (GstElement *tee)
{
  static const GQuark quark = g_quark_from_static_string ("vertical-camera-magic-carpet");
  auto *common = static_cast<Switch *> (g_object_get_qdata (G_OBJECT (tee), quark));
  if (!common) {
    common = new Switch;
    g_object_set_qdata_full (G_OBJECT (tee), quark, common,
                             [] (gpointer data) { delete static_cast<Switch *> (data); });
  }
  return common;
}

vorn::Ref<GstElement> find (GstBin *bin, const char *name)
{
  return vorn::adopt (gst_bin_get_by_name (bin, name));
}

void enable (GstBin *bin)
{
  const auto carpet = find (bin, "magic-carpet-bin");
  if (!carpet) {
    VORN_LOG_WARNING ("failed to retrieve magiccarpetcbin");
    return;
  }
  const auto sink = vorn::adopt (gst_element_get_static_pad (carpet.get (), "sink"));
  if (!sink) {
    VORN_LOG_WARNING ("failed to retrieve magiccarpetcbin sink pad");
    return;
  }
  if (gst_pad_is_linked (sink.get ())) {
    VORN_LOG_WARNING ("magic carpet already running");
    return;
  }
  const auto tee = find (bin, "vision-tee");
  if (!tee) {
    VORN_LOG_WARNING ("failed to retrieve tee");
    return;
  }
  // It must take frames before the tee has any for it.
  if (!gst_element_sync_state_with_parent (carpet.get ())) {
    VORN_LOG_ERROR ("failed to sync magiccarpetcbin with parent");
    return;
  }
  if (!gst_element_link_pads_full (tee.get (), "src_%u", carpet.get (), "sink",
                                   GST_PAD_LINK_CHECK_NO_RECONFIGURE))
    VORN_LOG_ERROR ("failed to link magiccarpetcbin into vertical pipeline");
}

/** Takes the tee's pad away before the bin is shut: a tee forgets what a pad that has gone said of
 * a frame, while one that is shut would end the stream of all. */
void unlink (GstElement *tee, GstElement *carpet)
{
  const auto sink = vorn::adopt (gst_element_get_static_pad (carpet, "sink"));
  const auto from_tee = vorn::adopt (sink ? gst_pad_get_peer (sink.get ()) : nullptr);
  if (!from_tee)
    return;
  gst_pad_unlink (from_tee.get (), sink.get ());
  gst_element_release_request_pad (tee, from_tee.get ());
}

void disable (GstBin *bin)
{
  const auto tee = find (bin, "vision-tee");
  if (!tee) {
    VORN_LOG_WARNING ("failed to retrieve tee");
    return;
  }
  const auto carpet = find (bin, "magic-carpet-bin");
  if (!carpet) {
    VORN_LOG_WARNING ("failed to retrieve magic carpet");
    return;
  }
  unlink (tee.get (), carpet.get ());
  if (gst_element_set_state (carpet.get (), GST_STATE_NULL) == GST_STATE_CHANGE_FAILURE)
    VORN_LOG_WARNING ("failed to set magiccarpetcbin to NULL");
}

/** Runs a step for a request, unless switching off was asked for after it. */
template <void step (GstBin *)>
GstPadProbeReturn on_probe (GstPad *, GstPadProbeInfo *, gpointer data)
{
  auto *request = static_cast<Request *> (data);
  const auto bin = vorn::adopt (static_cast<GstBin *> (g_weak_ref_get (&request->bin)));
  const vorn::Lock lock (&request->common->mutex);
  if (bin && request->offs == request->common->offs)
    step (bin.get ());
  return GST_PAD_PROBE_REMOVE;
}

} // namespace

gboolean vertical_camera_pipeline_set_magic_carpet_active (GstBin *bin, gboolean active)
{
  g_return_val_if_fail (GST_IS_BIN (bin), TRUE);
  // Both references stay with the request.
  GstElement *tee = find (bin, "vision-tee").release ();
  if (!tee) {
    VORN_LOG_WARNING ("failed to retrieve tee");
    return TRUE;
  }
  GstPad *pad = gst_element_get_static_pad (tee, "sink");
  Switch *common = switch_of (tee);
  guint offs;
  {
    const vorn::Lock lock (&common->mutex);
    offs = active ? common->offs : ++common->offs;
  }
  auto *request = new Request (bin, common, offs);
  gst_pad_add_probe (pad, active ? GST_PAD_PROBE_TYPE_BLOCK_DOWNSTREAM : GST_PAD_PROBE_TYPE_IDLE,
                     active ? on_probe<enable> : on_probe<disable>, request,
                     [] (gpointer data) { delete static_cast<Request *> (data); });
  return TRUE;
}
