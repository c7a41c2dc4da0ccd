// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The show: what a run lets the drone do, step by step, so that everything is seen once.
#ifndef HOST_SHOW_HPP
#define HOST_SHOW_HPP

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <glib.h>

/** How a step ended. */
struct ShowResult {
  std::string error; // empty: well
  std::vector<std::string> files;
};

/** To be called once, in the thread of the show; later calls are left out. */
using ShowDone = std::function<void (const ShowResult &)>;

struct ShowStep {
  std::string name; // as people read it: "photo"
  double time_s;    // not before this long after the start
  std::function<void (ShowDone)> act;
  int needs = -1;     // index of the step without whose success this one makes no sense
  double pause_s = 0; // and not before this long after the former step's end
};

/** What the standard show asks of the host. What is empty is left out of the show. */
struct ShowActions {
  std::function<void (ShowDone)> start_recording;
  std::function<void (ShowDone)> stop_recording;
  std::function<void (ShowDone)> set_photo_mode; // single photos
  std::function<void (ShowDone)> take_photo;
  std::function<void (ShowDone)> set_burst_mode;
  std::function<void (ShowDone)> take_burst;
  std::function<void (bool active, ShowDone)> set_magic_carpet;
  std::function<void (ShowDone)> set_recording_mode; // back to video
};

/**
 * The standard show for a run of this length: recording, photo mode with a photo and a burst, magic
 * carpet on and off, back to video. Its last step begins well before the end.
 */
std::vector<ShowStep> standard_show (const ShowActions &actions, double duration_s);

/** What the show tells: a step begins (neither), is done, or failed. */
struct ShowNews {
  enum class What { begins, done, failed, skipped };
  What what;
  std::string step;
  ShowResult result; // failed, skipped: why
};

/**
 * Plays steps one after the other, each at its time or when the former has ended. A step that fails
 * does not stop the show; one that gives no answer within longest_step_s counts as failed. Bound to
 * the thread that runs the default main context. Ends silently when it is destroyed: answers that
 * come later go nowhere.
 */
class Show
{
public:
  Show (std::vector<ShowStep> steps, std::function<void (const ShowNews &)> tell,
        double longest_step_s = 30);
  ~Show ();
  Show (const Show &) = delete;
  Show &operator= (const Show &) = delete;

  /** Begins; the steps' times count from now. */
  void start ();
  /** All steps have ended. */
  bool over () const { return next_ >= steps_.size () && !playing_; }
  /** Steps that failed or were skipped. */
  unsigned failures () const { return failures_; }

private:
  void await_next ();
  void play ();
  void end (size_t step, ShowNews::What what, const ShowResult &result);
  void set_alarm (double seconds, GSourceFunc on_alarm);
  void clear_alarm ();
  static gboolean on_due (gpointer self);
  static gboolean on_late (gpointer self);

  std::vector<ShowStep> steps_;
  std::function<void (const ShowNews &)> tell_;
  double longest_step_s_;
  std::vector<bool> succeeded_;
  size_t next_ = 0; // or the one that plays
  bool playing_ = false;
  unsigned failures_ = 0;
  int64_t start_us_ = 0;
  int64_t ended_us_ = 0; // the former step
  guint alarm_ = 0;
  std::shared_ptr<bool> alive_ = std::make_shared<bool> (true);
};

#endif
