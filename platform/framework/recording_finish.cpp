// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "recording_finish.hpp"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <set>

#include <fcntl.h>
#include <unistd.h>

#include <gio/gio.h>

#include "framework_thread.hpp"
#include "mp4_boxes.hpp"
#include "recording_rewrite.hpp"
#include <vorn/log.h>
#include <vorn/recording.h>
#include <vorn/utils.h>

VORN_LOG_TAG ("vorn_recording");

namespace vorn
{

namespace
{

/** How many files are being finished, and who waits for that. Never freed: threads may still be
 * at it while the process exits. */
struct Pending {
  GMutex lock; // guards count
  GCond none;
  guint count = 0;
};

Pending &pending ()
{
  static Pending &instance = *new Pending ();
  return instance;
}

bool set_failed (GError **error, const std::string &message)
{
  g_propagate_error (error, vorn_resource_error_new (VORN_RESOURCE_ERROR_FAILED, message.c_str ()));
  return false;
}

/** Cuts off what is not complete; false, with an error, when nothing would be left. */
bool trim (const RecordingFile &file, GError **error)
{
  const auto found = mp4::find_fragments (file.fd ());
  if (!found || found->count == 0)
    return set_failed (error, "recording " + file.final_path () + " holds no picture");
  if (found->complete_size < found->file_size &&
      ftruncate (file.fd (), static_cast<off_t> (found->complete_size)) != 0)
    VORN_LOG_WARNING ("recording %s: the torn end cannot be cut off: %m",
                      file.final_path ().c_str ());
  return true;
}

/** What a process that is killed while it rewrites must not lose. */
void keep_tags (const FinishOrder &order)
{
  if (!order.tags || gst_tag_list_is_empty (order.tags.get ()))
    return;
  const OwnedString text (gst_tag_list_to_string (order.tags.get ()));
  g_file_set_contents (order.file.tags_path ().c_str (), text.get (), -1, nullptr);
}

Ref<GstTagList> kept_tags (const RecordingFile &file)
{
  gchar *text = nullptr;
  if (!g_file_get_contents (file.tags_path ().c_str (), &text, nullptr, nullptr))
    return nullptr;
  const OwnedString owner (text);
  return adopt (gst_tag_list_new_from_string (text));
}

bool fail_with_errno (GError **error, const std::string &what)
{
  const int number = errno;
  return set_failed (error, what + ": " + g_strerror (number));
}

/** A plain MP4 file beside the fragmented one, on disk as a whole. */
bool write_plain_file (const FinishOrder &order, GError **error)
{
  const std::string path = order.file.rewrite_path ();
  if (!rewrite_as_plain_mp4 (order.file.part_path (), path, order.tags.get (), error))
    return false;
  const Fd fd (open (path.c_str (), O_RDWR | O_CLOEXEC));
  if (!fd)
    return fail_with_errno (error, "cannot open " + path);
  // The muxer writes the time of the rewriting.
  const auto creation_time = mp4::read_creation_time (order.file.fd ());
  if (creation_time && !mp4::write_creation_time (fd.get (), *creation_time))
    VORN_LOG_WARNING ("recording %s: its time of creation cannot be written",
                      order.file.final_path ().c_str ());
  return fsync (fd.get ()) == 0 || fail_with_errno (error, "cannot write " + path);
}

bool rename_to_final (const RecordingFile &file, const std::string &path, GError **error)
{
  return rename (path.c_str (), file.final_path ().c_str ()) == 0 ||
         fail_with_errno (error, "cannot rename " + path);
}

} // namespace

bool finish_recording (FinishOrder order, GError **error)
{
  const RecordingFile &file = order.file;
  const std::string part = file.part_path ();
  if (!trim (file, error))
    return false;
  if (!order.as_it_is) {
    keep_tags (order);
    ErrorOut reason;
    if (write_plain_file (order, reason.out ()) &&
        rename_to_final (file, file.rewrite_path (), reason.out ())) {
      unlink (part.c_str ());
      unlink (file.tags_path ().c_str ());
      return true;
    }
    VORN_LOG_WARNING ("recording %s stays in fragments and has no cover: %s",
                      file.final_path ().c_str (), reason.message ());
    unlink (file.rewrite_path ().c_str ());
  }
  if (!rename_to_final (file, part, error))
    return false;
  unlink (file.tags_path ().c_str ());
  return true;
}

void finish_recording_in_background (FinishOrder order, FinishedFunc finished)
{
  struct Work {
    FinishOrder order;
    FinishedFunc finished;
  };
  {
    const Lock lock (&pending ().lock);
    pending ().count++;
  }
  const auto task = adopt (g_task_new (nullptr, nullptr, nullptr, nullptr));
  g_task_set_task_data (task.get (), new Work{std::move (order), std::move (finished)},
                        [] (gpointer data) { delete static_cast<Work *> (data); });
  g_task_run_in_thread (task.get (), [] (GTask *, gpointer, gpointer data, GCancellable *) {
    auto *work = static_cast<Work *> (data);
    GError *failure = nullptr;
    finish_recording (std::move (work->order), &failure);
    const std::shared_ptr<GError> error (failure, [] (GError *owned) { g_clear_error (&owned); });
    call_later ([error, done = std::move (work->finished)] { done (error.get ()); });
    const Lock lock (&pending ().lock);
    pending ().count--;
    g_cond_broadcast (&pending ().none);
  });
}

} // namespace vorn

namespace
{

namespace fs = std::filesystem;

/** The unfinished recordings of a folder, in order. */
std::set<std::string> find_parts (const fs::path &folder)
{
  std::set<std::string> parts;
  std::error_code error;
  fs::directory_iterator entry (folder, error);
  for (; !error && entry != fs::directory_iterator (); entry.increment (error))
    if (entry->path ().extension () == ".part" && entry->is_regular_file (error))
      parts.insert (entry->path ());
  return parts;
}

void set_aside (const vorn::RecordingFile &file, bool empty, const char *reason)
{
  const std::string part = file.part_path ();
  const std::string damaged = file.final_path () + ".damaged";
  const bool done =
      empty ? unlink (part.c_str ()) == 0 : rename (part.c_str (), damaged.c_str ()) == 0;
  VORN_LOG_WARNING ("%s%s", reason,
                    !done   ? ""
                    : empty ? ": removed"
                            : ": kept with the ending .damaged");
}

/** Whether the recording has its final name now. */
bool recover (const std::string &part)
{
  auto file = vorn::RecordingFile::adopt (part);
  if (!file)
    return false;
  unlink (file->rewrite_path ().c_str ());
  std::error_code error;
  if (fs::exists (file->final_path (), error)) { // killed when it was all but done
    unlink (part.c_str ());
    unlink (file->tags_path ().c_str ());
    return true;
  }
  const bool empty = fs::file_size (part, error) == 0;
  vorn::ErrorOut reason;
  auto tags = vorn::kept_tags (*file);
  const std::string final_path = file->final_path ();
  if (!vorn::finish_recording ({*std::move (file), std::move (tags)}, reason.out ())) {
    if (auto again = vorn::RecordingFile::adopt (part))
      set_aside (*again, empty, reason.message ());
    return false;
  }
  VORN_LOG_INFO ("recording %s was left unfinished and is finished now", final_path.c_str ());
  return true;
}

} // namespace

guint vorn_recordings_recover (const gchar *folder)
{
  g_return_val_if_fail (folder != nullptr, 0);
  guint finished = 0;
  for (const fs::path &place : {fs::path (folder), fs::path (folder) / "videos"})
    for (const std::string &part : find_parts (place))
      finished += recover (part) ? 1 : 0;
  return finished;
}

gboolean vorn_recordings_wait (guint timeout_ms)
{
  const gint64 end_time = g_get_monotonic_time () + gint64{timeout_ms} * 1000;
  vorn::Lock lock (&vorn::pending ().lock);
  while (vorn::pending ().count > 0)
    if (!lock.wait_until (&vorn::pending ().none, end_time))
      return vorn::pending ().count == 0;
  return TRUE;
}
