// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Camera modes, activation and orientation.
#include "front_view_support.hpp"

#include "test_virtual_camera.hpp"
#include "vorn_morvik_zelto_front_modes.hpp"
#include "vorn_morvik_zelto_front_virtual_camera.hpp"

namespace
{

class FrontViewModes : public FrontViewTest
{
protected:
  void SetUp () override
  {
    make_view ();
    ASSERT_TRUE (vorn_view_prepare (base ()));
    log_.clear ();
    parent_calls ().clear ();
  }

  const VornViewClass *klass () const { return VORN_VIEW_GET_CLASS (view_); }
  const VornCapabilitySet *tables () const
  {
    return vorn_morvik_zelto_front_virtual_camera_get_caps (virtual_camera_.get ());
  }
  void store_former_state ()
  {
    store_relaxed (view_->mode_type, 7);
    store_relaxed (view_->photo_mode, 7);
  }
};

TEST_F (FrontViewModes, NullViewIsACritical)
{
  const VornCameraMode mode = recording_mode (1920, 1080, 30000, 1001);
  CriticalCapture criticals;
  EXPECT_FALSE (klass ()->update_camera_mode (nullptr, &mode));
  EXPECT_TRUE (criticals.has_assertion ("view"));
}

TEST_F (FrontViewModes, ModeThatNoTableHasIsRefused)
{
  const VornCameraMode rows[] = {recording_mode (8000, 6000, 30000, 1001),
                                 recording_mode (1920, 1080, 31, 1),
                                 recording_mode (1920, 1080, 30000, 0),
                                 recording_mode (1920, 1080, 30000, 1001, 9),
                                 photo_mode (9, 0, 0),
                                 photo_mode (0, 0, 9)};
  for (const VornCameraMode &mode : rows) {
    SCOPED_TRACE (&mode - rows);
    ASSERT_FALSE (vorn_morvik_zelto_front_modes_check_mode (&mode, tables ()));
    store_former_state ();
    log_.clear ();
    EXPECT_FALSE (klass ()->update_camera_mode (base (), &mode));
    EXPECT_EQ (complaints (), Texts{"E this camera mode is not supported!"});
    EXPECT_EQ (load_relaxed (view_->mode_type), 7u);
    EXPECT_EQ (vorn_view_get_capabilities (base ())->feature_mask, 0u);
  }
  EXPECT_EQ (parent_calls (), Texts{});
}

TEST_F (FrontViewModes, ViewWithoutAVirtualCameraHasNoModes)
{
  const auto alone = vorn::adopt (vorn_morvik_zelto_front_view_new (
      "alone", "Alone", camera_.get (), "unix:/x", product_.get ()));
  const VornCameraMode mode = recording_mode (1920, 1080, 30000, 1001);
  CriticalCapture criticals;
  EXPECT_FALSE (klass ()->update_camera_mode (alone.get (), &mode));
  EXPECT_EQ (complaints (), Texts{"E this camera mode is not supported!"});
  EXPECT_TRUE (criticals.criticals ().empty ());
}

TEST_F (FrontViewModes, RecordingModesSetFormatsAndCapabilities)
{
  const struct {
    VornResolution resolution;
    VornFramerate framerate;
  } rows[] = {
      {{3840, 2160}, {30000, 1001}}, {{1920, 1080}, {24000, 1001}}, {{1920, 1080}, {25, 1}}};
  for (const auto &row : rows) {
    const VornCameraMode mode = recording_mode (row.resolution.width, row.resolution.height,
                                                row.framerate.num, row.framerate.den);
    ASSERT_TRUE (vorn_morvik_zelto_front_modes_check_mode (&mode, tables ()));
    SCOPED_TRACE (row.resolution.width);
    parent_calls ().clear ();
    store_former_state ();
    EXPECT_TRUE (klass ()->update_camera_mode (base (), &mode));
    EXPECT_EQ (load_relaxed (view_->mode_type), 0u);
    const VornFormat camera = load_relaxed (view_->camera_format);
    EXPECT_EQ (camera.resolution.width, row.resolution.width);
    EXPECT_EQ (camera.resolution.height, row.resolution.height);
    EXPECT_EQ (camera.framerate.num, row.framerate.num);
    EXPECT_EQ (camera.framerate.den, row.framerate.den);
    // What the modes' own tables say of this mode.
    VornViewCapabilities expected = {};
    ASSERT_TRUE (vorn_morvik_zelto_front_modes_get_view_capabilities (&mode, &expected, tables (),
                                                                      FALSE, FALSE));
    EXPECT_EQ (memcmp (vorn_view_get_capabilities (base ()), &expected, sizeof expected), 0);
    EXPECT_TRUE (vorn_view_check_feature (base (), VORN_VIEW_FEATURE_RECORDING));
    EXPECT_TRUE (vorn_view_check_feature (base (), VORN_VIEW_FEATURE_STREAMING));
    EXPECT_FALSE (vorn_view_check_feature (base (), VORN_VIEW_FEATURE_SNAPSHOT));
    EXPECT_EQ (load_relaxed (view_->photo_mode), 7u); // no photo mode, no photo words
    // Defaults that the camera serves reach the framework, recording first; flag 1.
    for (const std::string &call : parent_calls ())
      EXPECT_EQ (call.substr (call.rfind (' ')), " 1") << call;
    const auto serves = [&] (const VornFramerate &rate) {
      return vorn_morvik_zelto_front_view_check_framerate (view_, rate.num, rate.den) != FALSE;
    };
    const bool recording =
        vorn_resolution_cmp (&expected.default_recording_resolution, &camera.resolution) &&
        serves (expected.default_recording_framerate);
    const bool streaming = serves (expected.default_streaming_framerate);
    Texts operations;
    for (const std::string &call : parent_calls ())
      operations.push_back (call.substr (0, call.find (' ')));
    Texts wanted;
    if (recording)
      wanted.emplace_back ("set_recording_format");
    if (streaming)
      wanted.emplace_back ("set_streaming_format");
    EXPECT_EQ (operations, wanted);
  }
}

TEST_F (FrontViewModes, PhotoModesSetThePhotoWords)
{
  const VornCameraMode mode = photo_mode (VORN_PHOTO_MODE_BRACKETING, VORN_PHOTO_FORMAT_RECTILINEAR,
                                          VORN_PHOTO_FILE_FORMAT_JPEG, 3);
  ASSERT_TRUE (vorn_morvik_zelto_front_modes_check_mode (&mode, tables ()));
  EXPECT_TRUE (klass ()->update_camera_mode (base (), &mode));
  EXPECT_EQ (load_relaxed (view_->mode_type), 1u);
  EXPECT_TRUE (vorn_view_check_feature (base (), VORN_VIEW_FEATURE_SNAPSHOT));
  EXPECT_FALSE (vorn_view_check_feature (base (), VORN_VIEW_FEATURE_RECORDING));
  EXPECT_EQ (load_relaxed (view_->photo_mode), 1u);
  EXPECT_EQ (load_relaxed (view_->photo_format), 1u);
  EXPECT_EQ (load_relaxed (view_->photo_file_format), 0u);
  EXPECT_EQ (load_relaxed (view_->photo_count), 3u);
  VornFormat crop = {};
  VornFormat stream = {};
  guint32 hdr = 0;
  ASSERT_TRUE (vorn_morvik_zelto_front_modes_get_camera_format (tables (), &mode, nullptr, &stream,
                                                                nullptr, &crop, &hdr, nullptr));
  const VornFormat photo = load_relaxed (view_->photo_format_size);
  EXPECT_EQ (memcmp (&photo, &crop, sizeof crop), 0);
  EXPECT_GT (photo.resolution.width, 0u);
  const VornFormat camera = load_relaxed (view_->camera_format);
  EXPECT_EQ (memcmp (&camera, &stream, sizeof stream), 0);
}

TEST_F (FrontViewModes, ModesFollowTheVirtualCamera)
{
  // A prepared view gets a new mode; a view that is prepared later gets the one in force.
  const VornCameraMode mode = recording_mode (1920, 1080, 30000, 1001);
  ASSERT_TRUE (vorn_virtual_camera_set_mode (virtual_camera_.get (), &mode));
  EXPECT_EQ (load_relaxed (view_->camera_format).resolution.width, 1920u);
  unprepare ();
  const VornCameraMode next = recording_mode (3840, 2160, 30000, 1001);
  ASSERT_TRUE (vorn_virtual_camera_set_mode (virtual_camera_.get (), &next));
  EXPECT_EQ (load_relaxed (view_->camera_format).resolution.width, 1920u);
  ASSERT_TRUE (vorn_view_prepare (base ()));
  EXPECT_EQ (load_relaxed (view_->camera_format).resolution.width, 3840u);
}

// ---- Activation

class FrontViewActivation : public FrontViewModes
{
protected:
  void SetUp () override
  {
    FrontViewModes::SetUp ();
    const VornCameraMode mode = recording_mode (1920, 1080, 30000, 1001);
    ASSERT_TRUE (vorn_virtual_camera_set_mode (virtual_camera_.get (), &mode));
    VornStreamSetup setup = {};
    ASSERT_TRUE (vorn_view_stream_setup (base (), &setup));
    ASSERT_TRUE (vorn_view_start_recording (base ()));
    parent_calls ().clear ();
  }
};

TEST_F (FrontViewActivation, ActivatingDoesNothing)
{
  EXPECT_TRUE (klass ()->set_activation (base (), TRUE));
  EXPECT_EQ (parent_calls (), Texts{});
  EXPECT_TRUE (vorn_view_is_recording (base ()));
  EXPECT_TRUE (vorn_view_is_streaming (base ()));
}

TEST_F (FrontViewActivation, DeactivatingEndsRecordingThenStream)
{
  EXPECT_TRUE (klass ()->set_activation (base (), FALSE));
  EXPECT_EQ (parent_calls (), (Texts{"stop_recording 2", "stream_teardown stream change"}));
  EXPECT_FALSE (vorn_view_is_recording (base ()));
  EXPECT_FALSE (vorn_view_is_streaming (base ()));
}

TEST_F (FrontViewActivation, RecordingThatDoesNotEndKeepsTheStream)
{
  parent_failing () = {"stop_recording"};
  EXPECT_FALSE (klass ()->set_activation (base (), FALSE));
  EXPECT_EQ (parent_calls (), Texts{"stop_recording 2"});
  EXPECT_TRUE (vorn_view_is_streaming (base ()));
}

TEST_F (FrontViewActivation, StreamThatDoesNotEndIsNoFailure)
{
  parent_failing () = {"stream_teardown"};
  EXPECT_TRUE (klass ()->set_activation (base (), FALSE));
}

TEST_F (FrontViewActivation, OnlyWhatTheModeHasIsEnded)
{
  ASSERT_TRUE (vorn_view_stop_recording (base (), 0));
  ASSERT_TRUE (vorn_view_stream_teardown (base (), "test"));
  parent_calls ().clear ();
  EXPECT_TRUE (klass ()->set_activation (base (), FALSE)); // idle
  const VornViewCapabilities none = {};
  vorn_view_set_capabilities (base (), &none);
  EXPECT_TRUE (klass ()->set_activation (base (), FALSE));
  EXPECT_EQ (parent_calls (), Texts{});
}

// ---- Orientation

TEST_F (FrontViewModes, OrientationReachesTheFiltersThatAreKept)
{
  const VornOrientation orientation = {.w = 0.5f, .x = -0.5f, .y = 0.5f, .z = 0.5f};
  // None is.
  EXPECT_TRUE (vorn_view_set_camera_orientation (base (), &orientation));
  for (GstElement **slot : {&view_->main_tovrinfilter, &view_->picture_tovrinfilter}) {
    *slot = vorn::adopt (gst_element_factory_make ("kavrel_tovrinfilter", nullptr)).release ();
    EXPECT_TRUE (klass ()->set_camera_orientation (base (), &orientation));
    gchar *text = nullptr;
    g_object_get (*slot, "out-camera-orientation-quat", &text, nullptr);
    EXPECT_STREQ (vorn::OwnedString (text).get (), "-0.500000, 0.500000, 0.500000, 0.500000");
    drop (*slot);
  }
}

} // namespace
