// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Switching the magic carpet while frames flow, while none do, and when it cannot be done.
#include <filesystem>
#include <functional>
#include <malloc.h>
#include <memory>
#include <random>
#include <thread>

#include "log_capture.hpp"
#include "own_namespace.hpp"
#include "vertical_camera_support.hpp"

namespace
{

using Texts = std::vector<std::string>;

constexpr std::array other_bins = {"condor-bin", "precise-hovering-bin", "precise-home-bin"};

class MagicCarpet : public testing::Test
{
protected:
  static void SetUpTestSuite () { prepare_test_camera (); }
  void SetUp () override { set_test_camera (live_frames); }

  OwnNamespace name_space_;
  LogCapture log_;
};

size_t open_files ()
{
  const std::filesystem::directory_iterator files ("/proc/self/fd");
  return static_cast<size_t> (std::distance (begin (files), end (files)));
}

/** Messages that nobody reads would be taken for a leak. */
void read_messages (const VerticalPipeline &pipeline)
{
  const auto bus = vorn::adopt (gst_element_get_bus (GST_ELEMENT (pipeline.bin ())));
  while (vorn::adopt (gst_bus_pop (bus.get ()))) {
  }
}

/** Switches on until frames come, then off; true when both could be seen. */
bool switch_once (VerticalPipeline &pipeline)
{
  const FrameCounter carpet (pipeline.child ("magic-carpet-bin"));
  pipeline.switch_carpet (true);
  if (!carpet.wait_for (1))
    return false;
  pipeline.switch_carpet (false);
  read_messages (pipeline);
  return eventually ([&] { return pipeline.tee_pads () == 3; });
}

// ---- While frames flow

TEST_F (MagicCarpet, SwitchesWithoutLosingAFrameOfTheOthers)
{
  constexpr int warm_up = 10;
  const int switches = soak () ? 1000 : 100;
  VerticalPipeline pipeline;
  const FrameCounter all (pipeline.child ("vision-tee"));
  std::vector<std::unique_ptr<FrameCounter>> others;
  for (const char *name : other_bins)
    others.push_back (std::make_unique<FrameCounter> (pipeline.child (name)));
  GstElement *tee = pipeline.child ("vision-tee");
  const auto pad = vorn::adopt (gst_element_get_static_pad (tee, "sink"));
  const int tee_references = GST_OBJECT_REFCOUNT_VALUE (tee);
  const int pad_references = GST_OBJECT_REFCOUNT_VALUE (pad.get ());
  ASSERT_TRUE (pipeline.play ());
  for (int i = 0; i < warm_up; i++)
    ASSERT_TRUE (switch_once (pipeline)) << i;

  const size_t files = open_files ();
  const size_t memory = mallinfo2 ().uordblks;
  for (int i = 0; i < switches; i++)
    ASSERT_TRUE (switch_once (pipeline)) << i;

  EXPECT_EQ (pipeline.tee_pads (), 3u);
  EXPECT_FALSE (pipeline.carpet_is_linked ());
  EXPECT_EQ (open_files (), files);
  // A frame is 12 KiB; some may be on their way.
  EXPECT_LT (mallinfo2 ().uordblks, memory + 128 * 1024);
  pipeline.stop ();
  // One of each for every request, and no others.
  const int requests = 2 * (warm_up + switches);
  EXPECT_EQ (GST_OBJECT_REFCOUNT_VALUE (tee), tee_references + requests);
  EXPECT_EQ (GST_OBJECT_REFCOUNT_VALUE (pad.get ()), pad_references + requests);
  EXPECT_GT (all.count (), static_cast<size_t> (switches));
  EXPECT_EQ (all.gaps (), 0u);
  for (const auto &other : others) {
    EXPECT_EQ (other->gaps (), 0u);
    EXPECT_GE (other->count () + 1, all.count ()) << "the last may have come while all stopped";
  }
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_WARNING), Texts{});
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_ERROR), Texts{});
}

TEST_F (MagicCarpet, AnyOrderOfRequestsEndsAsTheLastOneSays)
{
  VerticalPipeline pipeline;
  const FrameCounter all (pipeline.child ("vision-tee"));
  const FrameCounter other (pipeline.child ("precise-home-bin"));
  const FrameCounter carpet (pipeline.child ("magic-carpet-bin"));
  ASSERT_TRUE (pipeline.play ());
  std::mt19937 random (7);
  for (int round = 0; round < (soak () ? 500 : 50); round++) {
    bool active = false;
    // Not waiting for anything: several requests between two frames.
    const auto requests = 1 + random () % 5;
    for (unsigned long i = 0; i < requests; i++) {
      active = random () % 2;
      pipeline.switch_carpet (active);
    }
    // All that waits for data has had some.
    ASSERT_TRUE (all.wait_for (all.count () + 2)) << round;
    EXPECT_EQ (pipeline.carpet_is_linked (), active) << round;
    EXPECT_EQ (pipeline.tee_pads (), active ? 4u : 3u) << round;
    if (active) {
      ASSERT_TRUE (carpet.wait_for (carpet.count () + 1)) << round;
    }
  }
  pipeline.stop ();
  EXPECT_EQ (all.gaps (), 0u);
  EXPECT_EQ (other.gaps (), 0u);
  EXPECT_GE (other.count () + 1, all.count ());
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_ERROR), Texts{});
}

TEST_F (MagicCarpet, EnabledTwiceWarnsOnceAndKeepsOneLink)
{
  VerticalPipeline pipeline;
  const FrameCounter carpet (pipeline.child ("magic-carpet-bin"));
  ASSERT_TRUE (pipeline.play ());
  pipeline.switch_carpet (true);
  ASSERT_TRUE (carpet.wait_for (2));
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_WARNING), Texts{});
  pipeline.switch_carpet (true);
  const size_t before = carpet.count ();
  ASSERT_TRUE (carpet.wait_for (before + 3));
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_WARNING), Texts{"magic carpet already running"});
  EXPECT_EQ (pipeline.tee_pads (), 4u);
  EXPECT_EQ (carpet.gaps (), 0u);
}

TEST_F (MagicCarpet, SurvivesARestartOfThePipeline)
{
  VerticalPipeline pipeline;
  const FrameCounter carpet (pipeline.child ("magic-carpet-bin"));
  ASSERT_TRUE (pipeline.play ());
  pipeline.switch_carpet (true);
  ASSERT_TRUE (carpet.wait_for (2));
  pipeline.stop ();
  const size_t before = carpet.count ();
  ASSERT_TRUE (pipeline.play ());
  EXPECT_TRUE (carpet.wait_for (before + 2));
  pipeline.switch_carpet (false);
  EXPECT_TRUE (eventually ([&] { return pipeline.tee_pads () == 3; }));
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_WARNING), Texts{});
}

// ---- A slow bin

/** While it lives, the algorithm of a bin is stuck with its next frame. */
class StuckAlgorithm
{
public:
  explicit StuckAlgorithm (GstElement *algorithm)
      : pad_ (vorn::adopt (gst_element_get_static_pad (algorithm, "src")))
  {
    probe_ = gst_pad_add_probe (
        pad_.get (),
        static_cast<GstPadProbeType> (GST_PAD_PROBE_TYPE_BLOCK | GST_PAD_PROBE_TYPE_BUFFER),
        [] (GstPad *, GstPadProbeInfo *, gpointer) { return GST_PAD_PROBE_OK; }, nullptr, nullptr);
  }
  ~StuckAlgorithm () { gst_pad_remove_probe (pad_.get (), probe_); }

private:
  vorn::Ref<GstPad> pad_;
  gulong probe_;
};

guint64 statistic (GstElement *bin, const char *name)
{
  guint64 value = 0;
  g_object_get (bin, name, &value, nullptr);
  return value;
}

TEST_F (MagicCarpet, SlowBinTakesNothingFromTheOthers)
{
  const std::string algorithms[] = {"condor", "precise-hovering", "precise-home", "visioncarpet"};
  VerticalPipeline pipeline;
  ASSERT_TRUE (pipeline.play ());
  {
    const FrameCounter carpet (pipeline.child ("magic-carpet-bin"));
    pipeline.switch_carpet (true);
    ASSERT_TRUE (carpet.wait_for (1));
  }
  for (size_t slow = 0; slow < vision_bins.size (); slow++) {
    SCOPED_TRACE (vision_bins[slow]);
    GstElement *slow_bin = pipeline.child (vision_bins[slow]);
    const guint64 drops = statistic (slow_bin, "drops");
    {
      const StuckAlgorithm stuck (pipeline.child (algorithms[slow]));
      std::vector<std::unique_ptr<FrameCounter>> sinks;
      for (const char *name : vision_bins)
        sinks.push_back (std::make_unique<FrameCounter> (pipeline.child (name)));
      const guint64 slow_frames = statistic (slow_bin, "frames");
      // The tee serves all of them, the stuck one as well.
      for (const auto &sink : sinks) {
        EXPECT_TRUE (sink->wait_for (40));
        EXPECT_EQ (sink->gaps (), 0u);
      }
      for (size_t i = 0; i < vision_bins.size (); i++) {
        if (i == slow)
          continue;
        GstElement *bin = pipeline.child (vision_bins[i]);
        const guint64 frames = statistic (bin, "frames");
        EXPECT_TRUE (eventually ([&] { return statistic (bin, "frames") > frames + 20; }))
            << vision_bins[i];
      }
      EXPECT_LE (statistic (slow_bin, "frames"), slow_frames + 1);
      EXPECT_GT (statistic (slow_bin, "drops"), drops + 30);
    }
    const guint64 frames = statistic (slow_bin, "frames");
    EXPECT_TRUE (eventually ([&] { return statistic (slow_bin, "frames") > frames + 5; }));
  }
}

TEST_F (MagicCarpet, StuckCarpetCanBeSwitchedOff)
{
  VerticalPipeline pipeline;
  ASSERT_TRUE (pipeline.play ());
  const FrameCounter carpet (pipeline.child ("magic-carpet-bin"));
  const FrameCounter other (pipeline.child ("condor-bin"));
  const StuckAlgorithm stuck (pipeline.child ("visioncarpet"));
  pipeline.switch_carpet (true);
  ASSERT_TRUE (carpet.wait_for (10));
  pipeline.switch_carpet (false);
  const size_t before = other.count ();
  EXPECT_TRUE (other.wait_for (before + 10));
  EXPECT_EQ (other.gaps (), 0u);
  EXPECT_EQ (pipeline.tee_pads (), 3u);
}

// ---- While none flow

TEST_F (MagicCarpet, LastRequestBeforeTheFirstFrameWins)
{
  set_test_camera (pushed_frames);
  const struct {
    std::vector<bool> requests;
    bool linked;
    Texts warnings;
  } rows[] = {
      {{true}, true, {}},
      {{false}, false, {}},
      {{true, false}, false, {}},
      {{true, false, true}, true, {}},
      {{false, true, false}, false, {}},
      {{true, true}, true, {"magic carpet already running"}},
      {{true, true, false}, false, {}},
      {{true, true, false, true}, true, {}},
      {{true, false, false, true, false}, false, {}},
  };
  for (const bool playing : {true, false})
    for (const auto &row : rows) {
      SCOPED_TRACE (std::string (playing ? "playing" : "stopped") + ", row " +
                    std::to_string (&row - rows));
      log_.clear ();
      VerticalPipeline pipeline;
      const FrameCounter frames (pipeline.child ("precise-home-bin"));
      if (playing) {
        ASSERT_TRUE (pipeline.play ());
      }
      for (const bool active : row.requests)
        pipeline.switch_carpet (active);
      if (!playing) {
        ASSERT_TRUE (pipeline.play ());
      }
      pipeline.push_frame (0);
      pipeline.push_frame (1);
      ASSERT_TRUE (frames.wait_for (2));
      EXPECT_EQ (pipeline.carpet_is_linked (), row.linked);
      EXPECT_EQ (pipeline.tee_pads (), row.linked ? 4u : 3u);
      EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_WARNING), row.warnings);
      EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_ERROR), Texts{});
    }
}

TEST_F (MagicCarpet, RequestThatNoFrameFollowsIsForgottenWithThePipeline)
{
  set_test_camera (pushed_frames);
  VerticalPipeline pipeline;
  ASSERT_TRUE (pipeline.play ());
  pipeline.switch_carpet (true);
  EXPECT_FALSE (pipeline.carpet_is_linked ());
}

// ---- When it cannot be done

/** A sink whose change to a state can be made to fail. */
struct StubbornSink {
  GstElement parent_instance;
};
struct StubbornSinkClass {
  GstElementClass parent_class;
};
GstStateChange refused_change = GST_STATE_CHANGE_NULL_TO_NULL;
std::function<void ()> on_start; // called when it leaves NULL

G_DEFINE_TYPE (StubbornSink, stubborn_sink, GST_TYPE_ELEMENT)

GstStateChangeReturn stubborn_sink_change_state (GstElement *element, GstStateChange change)
{
  if (change == refused_change)
    return GST_STATE_CHANGE_FAILURE;
  if (change == GST_STATE_CHANGE_NULL_TO_READY && on_start)
    on_start ();
  return GST_ELEMENT_CLASS (stubborn_sink_parent_class)->change_state (element, change);
}

void stubborn_sink_class_init (StubbornSinkClass *klass)
{
  klass->parent_class.change_state = stubborn_sink_change_state;
}

void stubborn_sink_init (StubbornSink *sink)
{
  GstPad *pad = gst_pad_new ("sink", GST_PAD_SINK);
  gst_pad_set_chain_function (pad, [] (GstPad *, GstObject *, GstBuffer *buffer) {
    gst_buffer_unref (buffer);
    return GST_FLOW_OK;
  });
  gst_element_add_pad (GST_ELEMENT (sink), pad);
}

/** A running pipeline of a tee and whatever stands for the carpet's bin. */
class BareBin
{
public:
  explicit BareBin (GstElement *carpet, bool with_tee = true)
      : pipeline_ (vorn::adopt (gst_pipeline_new (nullptr)))
  {
    if (with_tee) {
      tee_ = vorn::adopt (gst_element_factory_make ("tee", "vision-tee"));
      g_object_set (tee_.get (), "allow-not-linked", TRUE, nullptr);
      gst_bin_add (bin (), tee_.get ());
    }
    if (carpet)
      gst_bin_add (bin (), carpet);
    gst_element_set_state (pipeline_.get (), GST_STATE_PLAYING);
  }
  ~BareBin ()
  {
    refused_change = GST_STATE_CHANGE_NULL_TO_NULL;
    gst_element_set_state (pipeline_.get (), GST_STATE_NULL);
    if (!tee_)
      return;
    gst_element_set_state (tee_.get (), GST_STATE_NULL);
    const auto pad = vorn::adopt (gst_element_get_static_pad (tee_.get (), "sink"));
    for (; switches_ > 0; switches_--) {
      gst_object_unref (tee_.get ());
      gst_object_unref (pad.get ());
    }
  }
  BareBin (const BareBin &) = delete;
  BareBin &operator= (const BareBin &) = delete;

  GstBin *bin () const { return GST_BIN (pipeline_.get ()); }
  GstElement *tee () const { return tee_.get (); }
  guint16 tee_pads () const { return tee_->numsrcpads; }
  void switch_carpet (bool active)
  {
    if (tee_)
      switches_++;
    EXPECT_TRUE (vertical_camera_pipeline_set_magic_carpet_active (bin (), active));
  }
  /** An event, the first data that comes, on this thread. */
  void flow () const
  {
    const auto pad = vorn::adopt (gst_element_get_static_pad (tee_.get (), "sink"));
    gst_pad_send_event (pad.get (), gst_event_new_stream_start ("test"));
  }

private:
  vorn::Ref<GstElement> pipeline_;
  vorn::Ref<GstElement> tee_;
  unsigned switches_ = 0;
};

GstElement *carpet_of (const char *factory)
{
  return gst_element_factory_make (factory, "magic-carpet-bin");
}

GstElement *stubborn_carpet ()
{
  return GST_ELEMENT (
      g_object_new (stubborn_sink_get_type (), "name", "magic-carpet-bin", nullptr));
}

TEST_F (MagicCarpet, EnableSaysWhatIsMissing)
{
  {
    BareBin bare (nullptr);
    bare.switch_carpet (true);
    EXPECT_TRUE (log_.lines ().empty ()) << "nothing flows yet";
    bare.flow ();
    EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_WARNING), Texts{"failed to retrieve magiccarpetcbin"});
  }
  log_.clear ();
  {
    BareBin bare (carpet_of ("fakesrc"));
    bare.switch_carpet (true);
    bare.flow ();
    EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_WARNING),
               Texts{"failed to retrieve magiccarpetcbin sink pad"});
  }
  log_.clear ();
  {
    // The tee goes between the request and the first data.
    BareBin bare (carpet_of ("fakesink"));
    bare.switch_carpet (true);
    gst_bin_remove (bare.bin (), bare.tee ());
    bare.flow ();
    EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_WARNING), Texts{"failed to retrieve tee"});
  }
  log_.clear ();
  {
    BareBin bare (nullptr, false);
    bare.switch_carpet (true);
    bare.switch_carpet (false);
    EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_WARNING),
               (Texts{"failed to retrieve tee", "failed to retrieve tee"}));
  }
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_ERROR), Texts{});
}

TEST_F (MagicCarpet, BinThatDoesNotStartIsNotLinked)
{
  BareBin bare (stubborn_carpet ());
  gst_element_set_state (vorn::adopt (gst_bin_get_by_name (bare.bin (), "magic-carpet-bin")).get (),
                         GST_STATE_NULL);
  refused_change = GST_STATE_CHANGE_READY_TO_PAUSED;
  bare.switch_carpet (true);
  bare.flow ();
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_ERROR),
             Texts{"failed to sync magiccarpetcbin with parent"});
  EXPECT_EQ (bare.tee_pads (), 0);
}

TEST_F (MagicCarpet, BinThatCannotBeLinkedLeavesNoPad)
{
  GstElement *carpet = stubborn_carpet ();
  const auto pad = vorn::adopt (gst_element_get_static_pad (carpet, "sink"));
  gst_pad_set_link_function (pad.get (),
                             [] (GstPad *, GstObject *, GstPad *) { return GST_PAD_LINK_REFUSED; });
  BareBin bare (carpet);
  bare.switch_carpet (true);
  bare.flow ();
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_ERROR),
             Texts{"failed to link magiccarpetcbin into vertical pipeline"});
  EXPECT_EQ (bare.tee_pads (), 0);
}

TEST_F (MagicCarpet, DisableSaysWhatIsMissing)
{
  {
    BareBin bare (nullptr);
    bare.switch_carpet (false);
    EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_WARNING), Texts{"failed to retrieve magic carpet"});
  }
  log_.clear ();
  {
    BareBin bare (stubborn_carpet ());
    bare.switch_carpet (true);
    bare.flow ();
    EXPECT_EQ (bare.tee_pads (), 1);
    refused_change = GST_STATE_CHANGE_READY_TO_NULL;
    bare.switch_carpet (false);
    EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_WARNING),
               Texts{"failed to set magiccarpetcbin to NULL"});
    EXPECT_EQ (bare.tee_pads (), 0) << "unlinked it is all the same";
  }
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_ERROR), Texts{});
}

TEST_F (MagicCarpet, SwitchedOffWhileItIsBeingSwitchedOn)
{
  BareBin bare (stubborn_carpet ());
  const auto carpet = vorn::adopt (gst_bin_get_by_name (bare.bin (), "magic-carpet-bin"));
  gst_element_set_state (carpet.get (), GST_STATE_NULL);
  bare.switch_carpet (true);
  std::mutex mutex;
  std::condition_variable changed;
  bool starting = false;
  on_start = [&] {
    std::unique_lock lock (mutex);
    starting = true;
    changed.notify_all ();
    // The other step is given time to get in between, which it must not.
    changed.wait_for (lock, std::chrono::milliseconds (100), [] { return false; });
  };
  std::thread streaming ([&] { bare.flow (); });
  {
    std::unique_lock lock (mutex);
    EXPECT_TRUE (changed.wait_for (lock, std::chrono::seconds (30), [&] { return starting; }));
  }
  bare.switch_carpet (false);
  streaming.join ();
  on_start = nullptr;
  EXPECT_EQ (bare.tee_pads (), 0);
  EXPECT_EQ (GST_STATE (carpet.get ()), GST_STATE_NULL);
}

TEST_F (MagicCarpet, LinksAFreshTeePadEachTime)
{
  BareBin bare (carpet_of ("fakesink"));
  for (int i = 0; i < 3; i++) {
    bare.switch_carpet (true);
    bare.flow ();
    EXPECT_EQ (bare.tee_pads (), 1);
    bare.switch_carpet (false);
    EXPECT_EQ (bare.tee_pads (), 0);
  }
  EXPECT_TRUE (log_.lines ().empty ());
}

} // namespace
