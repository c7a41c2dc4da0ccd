// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The show's steps: their order, their times, and what happens when one goes wrong.
#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "main_context.hpp"
#include "show.hpp"

using testing::ElementsAre;

namespace
{

/** What a show told, as "what step: reason". */
struct Told {
  std::vector<std::string> lines;
  std::function<void (const ShowNews &)> listener ()
  {
    return [this] (const ShowNews &news) {
      static constexpr const char *names[] = {"begins", "done", "failed", "skipped"};
      lines.push_back (std::string (names[static_cast<int> (news.what)]) + " " + news.step +
                       (news.result.error.empty () ? "" : ": " + news.result.error));
    };
  }
};

void succeed (const ShowDone &done)
{
  done ({});
}

void fail (const ShowDone &done)
{
  done ({"no room", {}});
}

double seconds_since (gint64 start_us)
{
  return static_cast<double> (g_get_monotonic_time () - start_us) * 1e-6;
}

TEST (Show, StepsComeInOrderAndInTime)
{
  const gint64 start_us = g_get_monotonic_time ();
  std::vector<double> times;
  const auto note = [&] (const ShowDone &done) {
    times.push_back (seconds_since (start_us));
    done ({{}, {"a.jpg"}});
  };
  std::vector<std::string> files;
  Show show ({{"one", 0.05, note}, {"two", 0.15, note}, {"three", 0.1, note}},
             [&] (const ShowNews &news) {
               files.insert (files.end (), news.result.files.begin (), news.result.files.end ());
             });
  EXPECT_FALSE (show.over ());
  show.start ();
  EXPECT_TRUE (times.empty ()) << "nothing happens within start";
  EXPECT_TRUE (run_until ([&] { return show.over (); }));
  ASSERT_EQ (times.size (), 3u);
  EXPECT_GE (times[0], 0.05);
  EXPECT_GE (times[1], 0.15);
  EXPECT_GE (times[2], times[1]) << "its time is over, it comes next";
  EXPECT_EQ (show.failures (), 0u);
  EXPECT_EQ (files.size (), 3u);
}

TEST (Show, APauseIsKeptHoweverLateItIs)
{
  ShowDone pending;
  gint64 ended_us = 0;
  double paused_s = 0;
  Show show ({{"on", 0, [&] (const ShowDone &done) { pending = done; }},
              {"off", 0,
               [&] (const ShowDone &done) {
                 paused_s = seconds_since (ended_us);
                 done ({});
               },
               0, 0.1}},
             [] (const ShowNews &) {});
  show.start ();
  EXPECT_TRUE (run_until ([&] { return pending != nullptr; }));
  ended_us = g_get_monotonic_time ();
  pending ({});
  EXPECT_TRUE (run_until ([&] { return show.over (); }));
  EXPECT_GE (paused_s, 0.1);
}

TEST (Show, OneStepEndsBeforeTheNextBegins)
{
  Told told;
  ShowDone pending;
  Show show ({{"slow", 0, [&] (const ShowDone &done) { pending = done; }}, {"next", 0, succeed}},
             told.listener ());
  show.start ();
  EXPECT_TRUE (run_until ([&] { return pending != nullptr; }));
  run_pending ();
  EXPECT_THAT (told.lines, ElementsAre ("begins slow"));
  pending ({});
  EXPECT_TRUE (run_until ([&] { return show.over (); }));
  EXPECT_THAT (told.lines, ElementsAre ("begins slow", "done slow", "begins next", "done next"));
  pending ({"a second answer", {}});
  EXPECT_EQ (told.lines.size (), 4u);
  EXPECT_EQ (show.failures (), 0u);
}

TEST (Show, AFailureStopsOnlyWhatNeedsIt)
{
  Told told;
  Show show (
      {{"mode", 0, fail}, {"photo", 0, succeed, 0}, {"more", 0, succeed, 1}, {"other", 0, succeed}},
      told.listener ());
  show.start ();
  EXPECT_TRUE (run_until ([&] { return show.over (); }));
  EXPECT_THAT (told.lines,
               ElementsAre ("begins mode", "failed mode: no room", "skipped photo: 'mode' failed",
                            "skipped more: 'photo' failed", "begins other", "done other"));
  EXPECT_EQ (show.failures (), 3u);
}

TEST (Show, AStepThatNeverAnswers)
{
  Told told;
  ShowDone late;
  Show show ({{"mute", 0, [&] (const ShowDone &done) { late = done; }}, {"next", 0, succeed}},
             told.listener (), 0.05);
  show.start ();
  EXPECT_TRUE (run_until ([&] { return show.over (); }));
  late ({});
  EXPECT_THAT (told.lines, ElementsAre ("begins mute", "failed mute: it gave no answer",
                                        "begins next", "done next"));
}

TEST (Show, AnswersAfterItsEndGoNowhere)
{
  Told told;
  ShowDone pending;
  auto show = std::make_unique<Show> (
      std::vector<ShowStep>{{"slow", 0, [&] (const ShowDone &done) { pending = done; }},
                            {"never", 0, succeed}},
      told.listener ());
  show->start ();
  EXPECT_TRUE (run_until ([&] { return pending != nullptr; }));
  show.reset ();
  pending ({});
  run_pending ();
  EXPECT_THAT (told.lines, ElementsAre ("begins slow"));
}

TEST (Show, WhoIsToldMayEndIt)
{
  for (const auto what : {ShowNews::What::begins, ShowNews::What::done}) {
    std::unique_ptr<Show> show;
    int told = 0;
    const auto end = [&] (const ShowNews &news) {
      told++;
      if (news.what == what)
        show.reset ();
    };
    show = std::make_unique<Show> (std::vector<ShowStep>{{"one", 0, succeed}, {"two", 0, succeed}},
                                   end);
    show->start ();
    EXPECT_TRUE (run_until ([&] { return !show; }));
    run_pending ();
    EXPECT_EQ (told, what == ShowNews::What::begins ? 1 : 2);
  }
}

TEST (Show, EndedBeforeItsFirstStep)
{
  Told told;
  {
    Show show ({{"one", 0, succeed}}, told.listener ());
    show.start ();
  }
  run_pending ();
  EXPECT_TRUE (told.lines.empty ());
}

TEST (Show, WithoutSteps)
{
  Show show ({}, [] (const ShowNews &) { FAIL (); });
  EXPECT_TRUE (show.over ());
  show.start ();
  run_pending ();
}

// ---- The standard one

std::vector<std::string> names_of (const std::vector<ShowStep> &steps)
{
  std::vector<std::string> names;
  for (const ShowStep &step : steps)
    names.push_back (step.name);
  return names;
}

TEST (StandardShow, ShowsEverythingWithinTheRun)
{
  std::vector<bool> carpet;
  const ShowActions actions = {succeed,
                               succeed,
                               succeed,
                               succeed,
                               succeed,
                               succeed,
                               [&] (bool active, const ShowDone &done) {
                                 carpet.push_back (active);
                                 done ({});
                               },
                               succeed};
  const auto steps = standard_show (actions, 20);
  EXPECT_THAT (names_of (steps),
               ElementsAre ("recording starts", "recording ends", "photo mode", "photo",
                            "burst mode", "burst of photos", "magic carpet on", "magic carpet off",
                            "back to video"));
  for (size_t i = 1; i < steps.size (); i++)
    EXPECT_GT (steps[i].time_s, steps[i - 1].time_s);
  EXPECT_GT (steps.front ().time_s, 0);
  EXPECT_LE (steps.back ().time_s, 17);
  EXPECT_NEAR (steps[1].time_s - steps[0].time_s, 7.4, 1e-9) << "long enough to be looked at";
  EXPECT_NEAR (steps[1].pause_s, 4, 1e-9) << "even when the start took its time";
  EXPECT_NEAR (steps[7].pause_s, 1, 1e-9);
  Show show (standard_show (actions, 0.2), [] (const ShowNews &) {});
  show.start ();
  EXPECT_TRUE (run_until ([&] { return show.over (); }));
  EXPECT_EQ (show.failures (), 0u);
  EXPECT_THAT (carpet, ElementsAre (true, false));
}

TEST (StandardShow, LeavesOutWhatTheHostDoesNotOffer)
{
  ShowActions actions;
  EXPECT_TRUE (standard_show (actions, 20).empty ());
  actions.take_photo = succeed;
  actions.stop_recording = succeed;
  actions.set_recording_mode = succeed;
  const auto steps = standard_show (actions, 20);
  EXPECT_THAT (names_of (steps), ElementsAre ("photo", "back to video"))
      << "what was not started is not ended";
  EXPECT_EQ (steps[0].needs, -1);
}

TEST (StandardShow, WithoutPhotoModeNoPhotos)
{
  Told told;
  Show show (
      standard_show ({succeed, succeed, fail, succeed, fail, succeed, nullptr, succeed}, 0.1),
      told.listener ());
  show.start ();
  EXPECT_TRUE (run_until ([&] { return show.over (); }));
  EXPECT_THAT (told.lines, testing::IsSupersetOf ({"skipped photo: 'photo mode' failed",
                                                   "skipped burst of photos: 'burst mode' failed",
                                                   "done back to video"}));
}

} // namespace
