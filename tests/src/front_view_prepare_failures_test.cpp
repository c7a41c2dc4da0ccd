// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What prepare says, leaves and takes back when something is missing or refused.
#include "front_view_support.hpp"

#include <functional>

namespace
{

const Texts full_start = {"W failed to create camera imu", "W failed to create Shdata provider"};
const std::string main_end = "E failed to populate front streaming pipeline";
const std::string picture_end = "E failed to populate front picture pipeline";

Texts operator+ (Texts texts, const Texts &more)
{
  texts.insert (texts.end (), more.begin (), more.end ());
  return texts;
}

struct Row {
  const char *name;
  std::function<void ()> break_it;
  Texts complaints; // between those of a build that succeeds and the last one
};

class FrontViewPrepareFailures : public FrontViewTest
{
protected:
  void prepare_fails ()
  {
    make_view ("kavrel_morviksrc");
    log_.clear ();
    parent_calls ().clear ();
    CriticalCapture messages;
    EXPECT_FALSE (vorn_view_prepare (base ()));
    EXPECT_TRUE (messages.criticals ().empty ()) << messages.criticals ()[0].text;
    EXPECT_TRUE (messages.warnings ().empty ()) << messages.warnings ()[0].text;
    EXPECT_FALSE (vorn_view_is_prepared (base ()));
    EXPECT_EQ (parent_calls (), Texts{}); // never got to the framework's
    gchar *streaming = nullptr;
    gchar *recording = nullptr;
    g_object_get (view_, "streaming-preset", &streaming, "recording-preset", &recording, nullptr);
    EXPECT_STREQ (vorn::OwnedString (streaming).get (), "ZeltoStreaming720p");
    EXPECT_STREQ (vorn::OwnedString (recording).get (), "ZeltoRecording2160p");
  }

  /** The main pipeline failed: nothing is kept, and the picture pipeline was never begun. */
  void expect_no_pipelines ()
  {
    EXPECT_EQ (view_->main_pipeline, nullptr);
    EXPECT_EQ (view_->picture_pipeline, nullptr);
    EXPECT_EQ (view_->camera_source, nullptr);
    EXPECT_EQ (pipeline ("front-streaming-pipeline"), nullptr);
    EXPECT_EQ (pipeline ("front-picture-pipeline"), nullptr);
    expect_all_gone ();
  }

  /** The picture pipeline failed: the main one stays until the view goes. */
  void expect_main_pipeline_only ()
  {
    ASSERT_NE (view_->main_pipeline, nullptr);
    EXPECT_EQ (view_->main_pipeline, pipeline ("front-streaming-pipeline"));
    EXPECT_GT (child_count (view_->main_pipeline), 0u);
    EXPECT_EQ (view_->picture_pipeline, nullptr);
    EXPECT_EQ (pipeline ("front-picture-pipeline"), nullptr);
    gpointer main = view_->main_pipeline;
    g_object_add_weak_pointer (G_OBJECT (main), &main);
    expect_all_gone ();
    EXPECT_EQ (main, nullptr);
    EXPECT_EQ (pipeline ("front-streaming-pipeline"), nullptr);
  }

  /** With the view all is gone, but for the camera with its element. */
  void expect_all_gone ()
  {
    gpointer view = view_;
    g_object_add_weak_pointer (G_OBJECT (view), &view);
    drop_view ();
    EXPECT_EQ (view, nullptr);
    EXPECT_EQ (G_OBJECT (camera_.get ())->ref_count, 3u); // ours and the two kept on purpose
    GstElement *element = vorn_camera_get_element (camera_.get ());
    if (element) {
      EXPECT_EQ (GST_OBJECT_PARENT (element), nullptr);
      EXPECT_EQ (G_OBJECT (element)->ref_count, 1u);
    }
    g_object_unref (camera_.get ());
    g_object_unref (camera_.get ());
    faults = {};
  }

  void run_main (bool simple, const std::vector<Row> &rows)
  {
    const PropertyValue build ("ro.simple-front-cam", simple ? "1" : "0");
    for (const Row &row : rows)
      for (const char *camera : {"0", "1"}) {
        SCOPED_TRACE (std::string (row.name) + ", camera " + camera);
        const PropertyValue with_camera ("ro.with-front-cam", camera);
        faults = {};
        row.break_it ();
        prepare_fails ();
        EXPECT_EQ (complaints (),
                   (simple ? Texts{} : full_start) + row.complaints + Texts{main_end});
        expect_no_pipelines ();
      }
  }

  void run_picture (bool simple, bool with_camera, const std::vector<Row> &rows)
  {
    const PropertyValue build ("ro.simple-front-cam", simple ? "1" : "0");
    const PropertyValue camera ("ro.with-front-cam", with_camera ? "1" : "0");
    for (const Row &row : rows) {
      SCOPED_TRACE (row.name);
      faults = {};
      row.break_it ();
      prepare_fails ();
      EXPECT_EQ (complaints (), (simple ? Texts{} : full_start + Texts{"W filter already set"}) +
                                    row.complaints + Texts{picture_end});
      expect_main_pipeline_only ();
    }
  }
};

std::function<void ()> missing (const std::string &factory, int after = 0)
{
  return [=] { faults.missing[factory] = after; };
}

std::function<void ()> broken (const std::string &link, int after = 0)
{
  return [=] {
    faults.broken_link = link;
    faults.links_before = after;
  };
}

// ---- Main pipeline

TEST_F (FrontViewPrepareFailures, MainSimpleLinks)
{
  run_main (true, {{"converter and filter",
                    broken ("videoconvert>capsfilter"),
                    {"E failed to link camera with videoconvert"}},
                   {"no converter", missing ("videoconvert"), {"E missing elements: videoconvert"}},
                   {"no filter", missing ("capsfilter"), {"E missing elements: capsfilter"}},
                   {"source pad", [] { faults.refused_kinds = 3; }, {}}});
}

TEST_F (FrontViewPrepareFailures, MainWithoutASource)
{
  const struct {
    const char *simple;
    const char *camera;
    const char *element_factory;
  } rows[] = {{"1", "0", nullptr}, {"0", "0", nullptr}, {"1", "1", nullptr}, {"0", "1", nullptr}};
  for (const auto &row : rows) {
    SCOPED_TRACE (&row - rows);
    const PropertyValue build ("ro.simple-front-cam", row.simple);
    const PropertyValue camera ("ro.with-front-cam", row.camera);
    faults.missing["videotestsrc"] = 0;
    make_view (row.element_factory); // the camera has no element of its own
    log_.clear ();
    EXPECT_FALSE (vorn_view_prepare (base ()));
    const bool simple = *row.simple == '1';
    EXPECT_EQ (complaints (),
               (simple ? Texts{} : full_start) + Texts{"E failed to get camera video source"} +
                   (simple ? Texts{} : Texts{"E failed to add camera to front-pipeline"}) +
                   Texts{main_end});
    expect_no_pipelines ();
  }
}

TEST_F (FrontViewPrepareFailures, MainFullElements)
{
  const std::string end = "E failed to add camera to front-pipeline";
  run_main (
      false,
      {{"no tee", missing ("tee"), {"E failed to create tee"}},
       {"no upload", missing ("glupload"), {"E missing elements: glupload", end}},
       {"no converter", missing ("videoconvert"), {"E missing elements: conv", end}},
       {"no second converter", missing ("videoconvert", 1), {"E missing elements:", end}},
       {"no filter", missing ("kavrel_tovrinfilter"), {"E missing elements: tovrinfilter", end}},
       {"no download", missing ("gldownload"), {"E missing elements: gldownload", end}},
       {"none at all",
        [] {
          for (const char *one : {"glupload", "videoconvert", "kavrel_tovrinfilter", "gldownload"})
            faults.missing[one] = 0;
        },
        {"E missing elements: glupload conv tovrinfilter gldownload", end}}});
}

TEST_F (FrontViewPrepareFailures, MainFullLinks)
{
  const std::string end = "E failed to add camera to front-pipeline";
  const std::string middle =
      "E failed to link glupload with tovrin filter, gldownload, videoconvert";
  run_main (false,
            {{"converter",
              broken ("videoconvert>glupload"),
              {"E failed to link videoconvert and glupload", end}},
             {"filter", broken ("glupload>kavrel_tovrinfilter"), {middle, end}},
             {"download", broken ("kavrel_tovrinfilter>gldownload"), {middle, end}},
             {"second converter", broken ("gldownload>videoconvert"), {middle, end}},
             {"tee", broken ("videoconvert>tee"), {"E failed to link videoconvert and tee", end}}});
  for (const bool with_camera : {false, true}) {
    const PropertyValue build ("ro.simple-front-cam", "0");
    const PropertyValue camera ("ro.with-front-cam", with_camera ? "1" : "0");
    broken (with_camera ? "kavrel_morviksrc>videoconvert" : "videotestsrc>videoconvert") ();
    prepare_fails ();
    EXPECT_EQ (complaints (), (full_start + Texts{"E failed to link video source with videoconvert",
                                                  end, main_end}));
    expect_no_pipelines ();
  }
}

TEST_F (FrontViewPrepareFailures, MainFullBranches)
{
  run_main (false, {{"no first pad",
                     [] { faults.request_pads = 0; },
                     {"W filter already set", "E failed to get a src pad from tee for streaming",
                      "E failed to make streaming branch"}},
                    {"no second pad",
                     [] { faults.request_pads = 1; },
                     {"W filter already set", "E failed to get a src pad from tee for recording",
                      "E failed to make recording branch"}},
                    {"streaming refused",
                     [] { faults.refused_kinds = VORN_PIPELINE_KIND_STREAMING; },
                     {"W filter already set", "E failed to set tee pad as a streaming source",
                      "E failed to make streaming branch"}},
                    {"recording refused",
                     [] { faults.refused_kinds = VORN_PIPELINE_KIND_RECORDING; },
                     {"W filter already set", "E failed to set tee pad as a recording source",
                      "E failed to make recording branch"}}});
}

TEST_F (FrontViewPrepareFailures, BranchOfAnotherKindIsCalledRecording)
{
  make_view ();
  const Element tee = vorn::adopt (gst_element_factory_make ("tee", nullptr));
  log_.clear ();
  EXPECT_FALSE (vorn_morvik_zelto_front_view_make_branch (view_, 7, tee.get ()));
  EXPECT_EQ (complaints (), (Texts{"E failed to set tee pad as a recording source",
                                   "E failed to make recording branch"}));
  EXPECT_EQ (tee->numsrcpads, 0); // its pad went back
}

// ---- Picture pipeline

TEST_F (FrontViewPrepareFailures, PictureFullElements)
{
  const std::vector<Row> rows = {
      {"converters", missing ("videoconvert", 2), {"E missing elements: videoconvert"}},
      {"upload", missing ("glupload", 1), {"E missing elements: glupload"}},
      {"filter", missing ("kavrel_tovrinfilter", 1), {"E missing elements: kavrel_tovrinfilter"}},
      {"download", missing ("gldownload", 1), {"E missing elements: gldownload"}},
      {"caps", missing ("capsfilter"), {"E missing elements: capsfilter"}},
      {"tee", missing ("tee", 1), {"E missing elements: tee"}}};
  run_picture (false, false, rows);
  run_picture (false, true, rows);
  const auto all = [] {
    faults.missing = {{"videotestsrc", 1}, {"videoconvert", 2},        {"glupload", 1},
                      {"gldownload", 1},   {"kavrel_tovrinfilter", 1}, {"capsfilter", 0},
                      {"tee", 1},          {"kavrel_morviksrc", 0}};
  };
  const std::string rest = " videoconvert glupload kavrel_tovrinfilter gldownload capsfilter tee";
  run_picture (false, false,
               {{"source", missing ("videotestsrc", 1), {"E missing elements: videotestsrc"}},
                {"all", all, {"E missing elements: videotestsrc" + rest}}});
  run_picture (false, true,
               {{"source", missing ("kavrel_morviksrc"), {"E missing elements: kavrel_morviksrc"}},
                {"all", all, {"E missing elements: kavrel_morviksrc" + rest}}});
}

TEST_F (FrontViewPrepareFailures, PictureSimpleElements)
{
  const auto all = [] {
    faults.missing = {{"videotestsrc", 1},
                      {"kavrel_morviksrc", 0},
                      {"videoconvert", 1},
                      {"capsfilter", 1},
                      {"tee", 0}};
  };
  const std::vector<Row> rows = {
      {"converter", missing ("videoconvert", 1), {"E missing elements: videoconvert"}},
      {"caps", missing ("capsfilter", 1), {"E missing elements: capsfilter"}},
      {"tee", missing ("tee"), {"E missing elements: tee"}}};
  run_picture (true, false, rows);
  run_picture (true, true, rows);
  run_picture (true, false,
               {{"source", missing ("videotestsrc", 1), {"E missing elements: videotestsrc"}},
                {"all", all, {"E missing elements: videotestsrc videoconvert capsfilter tee"}}});
  run_picture (
      true, true,
      {{"source", missing ("kavrel_morviksrc"), {"E missing elements: kavrel_morviksrc"}},
       {"all", all, {"E missing elements: kavrel_morviksrc videoconvert capsfilter tee"}}});
}

TEST_F (FrontViewPrepareFailures, PictureLinks)
{
  const std::string rest = "E failed to link glupload with tovrin filter, gldownload, "
                           "videoconvert, capsfilter, tee";
  const std::string source = "E failed to link video source with videoconvert";
  const std::vector<Row> rows = {
      {"upload",
       broken ("videoconvert>glupload", 1),
       {"E failed to link videoconvert and glupload"}},
      {"filter", broken ("glupload>kavrel_tovrinfilter", 1), {rest}},
      {"download", broken ("kavrel_tovrinfilter>gldownload", 1), {rest}},
      {"second converter", broken ("gldownload>videoconvert", 1), {rest}},
      {"caps", broken ("videoconvert>capsfilter"), {rest}},
      {"tee", broken ("capsfilter>tee"), {rest}}};
  run_picture (false, false, rows);
  run_picture (false, true, rows);
  run_picture (false, false, {{"source", broken ("videotestsrc>videoconvert", 1), {source}}});
  run_picture (false, true, {{"source", broken ("kavrel_morviksrc>videoconvert", 1), {source}}});

  const std::string simple = "E failed to link morviksrc with videoconvert, capsfilter and tee";
  for (const bool with_camera : {false, true})
    run_picture (true, with_camera,
                 {{"caps", broken ("videoconvert>capsfilter", 1), {simple}},
                  {"tee", broken ("capsfilter>tee"), {simple}}});
}

TEST_F (FrontViewPrepareFailures, PictureBranches)
{
  for (const bool with_camera : {false, true}) {
    const Texts photo = {"E failed to populate main picture pipeline"};
    const Texts thumbnail = {"E failed to populate thumbnail pipeline"};
    const auto no_photo = [] { faults.no_photo_branch = true; };
    const auto no_thumbnail = [] { faults.no_thumbnail_branch = true; };
    run_picture (true, with_camera,
                 {{"photo", no_photo, photo}, {"thumbnail", no_thumbnail, thumbnail}});
    run_picture (false, with_camera,
                 {{"photo", no_photo, Texts{"W filter already set"} + photo},
                  {"thumbnail", no_thumbnail, Texts{"W filter already set"} + thumbnail}});
  }
}

TEST_F (FrontViewPrepareFailures, NoCameraIsAnAssertion)
{
  GTEST_FLAG_SET (death_test_style, "threadsafe");
  EXPECT_DEATH (
      {
        gpointer plain = g_object_new (VORN_TYPE_MORVIK_ZELTO_FRONT_VIEW, nullptr);
        vorn_view_prepare (VORN_VIEW (plain));
      },
      "assertion failed: \\(cam\\)");
}

} // namespace
