// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "show.hpp"

#include <algorithm>
#include <cmath>

std::vector<ShowStep> standard_show (const ShowActions &actions, double duration_s)
{
  std::vector<ShowStep> steps;
  // Parts of the run; what is left at the end is for what takes longer than planned.
  const auto add = [&] (const char *name, double part, const std::function<void (ShowDone)> &act,
                        int needs, double pause_part = 0) {
    if (!act)
      return -1;
    steps.push_back ({name, part * duration_s, act, needs, pause_part * duration_s});
    return static_cast<int> (steps.size ()) - 1;
  };
  const int recording = add ("recording starts", 0.05, actions.start_recording, -1);
  if (recording >= 0)
    add ("recording ends", 0.42, actions.stop_recording, recording, 0.2);
  const int photo_mode = add ("photo mode", 0.46, actions.set_photo_mode, -1);
  add ("photo", 0.50, actions.take_photo, photo_mode);
  const int burst_mode = add ("burst mode", 0.54, actions.set_burst_mode, -1);
  add ("burst of photos", 0.57, actions.take_burst, burst_mode);
  if (actions.set_magic_carpet) {
    const auto carpet = [act = actions.set_magic_carpet] (bool active) {
      return [act, active] (const ShowDone &done) { act (active, done); };
    };
    const int on = add ("magic carpet on", 0.68, carpet (true), -1);
    add ("magic carpet off", 0.76, carpet (false), on, 0.05);
  }
  add ("back to video", 0.80, actions.set_recording_mode, -1);
  return steps;
}

Show::Show (std::vector<ShowStep> steps, std::function<void (const ShowNews &)> tell,
            double longest_step_s)
    : steps_ (std::move (steps)), tell_ (std::move (tell)), longest_step_s_ (longest_step_s),
      succeeded_ (steps_.size ())
{
}

Show::~Show ()
{
  *alive_ = false;
  clear_alarm ();
}

void Show::start ()
{
  start_us_ = ended_us_ = g_get_monotonic_time ();
  await_next ();
}

void Show::set_alarm (double seconds, GSourceFunc on_alarm)
{
  clear_alarm ();
  alarm_ = g_timeout_add (static_cast<guint> (std::clamp (std::ceil (seconds * 1000), 0.0, 1e9)),
                          on_alarm, this);
}

void Show::clear_alarm ()
{
  if (alarm_)
    g_source_remove (alarm_);
  alarm_ = 0;
}

void Show::await_next ()
{
  if (next_ >= steps_.size ())
    return;
  const ShowStep &step = steps_[next_];
  const int64_t now_us = g_get_monotonic_time ();
  const double gone_s = static_cast<double> (now_us - start_us_) * 1e-6;
  const double paused_s = static_cast<double> (now_us - ended_us_) * 1e-6;
  // Even what is due comes from the main loop: a step may end within its own call.
  set_alarm (std::max (step.time_s - gone_s, step.pause_s - paused_s), on_due);
}

gboolean Show::on_due (gpointer self)
{
  auto *show = static_cast<Show *> (self);
  show->alarm_ = 0;
  show->play ();
  return G_SOURCE_REMOVE;
}

gboolean Show::on_late (gpointer self)
{
  auto *show = static_cast<Show *> (self);
  show->alarm_ = 0;
  show->end (show->next_, ShowNews::What::failed, {"it gave no answer", {}});
  return G_SOURCE_REMOVE;
}

void Show::play ()
{
  const size_t index = next_;
  const ShowStep step = steps_[index]; // it may end the show
  playing_ = true;
  if (step.needs >= 0 && !succeeded_.at (static_cast<size_t> (step.needs)))
    return end (index, ShowNews::What::skipped,
                {"'" + steps_[static_cast<size_t> (step.needs)].name + "' failed", {}});
  const auto alive = alive_;
  const auto tell = tell_;
  tell ({ShowNews::What::begins, step.name, {}});
  if (!*alive)
    return;
  set_alarm (longest_step_s_, on_late);
  step.act ([this, index, alive] (const ShowResult &result) {
    if (*alive)
      end (index, result.error.empty () ? ShowNews::What::done : ShowNews::What::failed, result);
  });
}

void Show::end (size_t step, ShowNews::What what, const ShowResult &result)
{
  // Too late, or a second time.
  if (!playing_ || step != next_)
    return;
  clear_alarm ();
  playing_ = false;
  ended_us_ = g_get_monotonic_time ();
  succeeded_[step] = what == ShowNews::What::done;
  failures_ += what != ShowNews::What::done;
  next_++;
  // Who is told may end the show.
  const auto alive = alive_;
  const auto tell = tell_;
  tell ({what, steps_[step].name, result});
  if (*alive)
    await_next ();
}
