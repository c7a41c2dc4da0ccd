// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "vorn_morvik_zelto_front_virtual_camera.hpp"

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "front_modes_support.hpp"
#include "log_capture.hpp"
#include "test_view.hpp"
#include <vorn/raii.hpp>

namespace
{

constexpr char function_prefix[] = "vorn_morvik_zelto_front_virtual_camera_";

guint references (gpointer object)
{
  return G_OBJECT (object)->ref_count;
}

/** A camera whose last reference goes with this object, whatever others keep of it on purpose. */
class KeptCamera
{
public:
  explicit KeptCamera (const VornSensorConfiguration &sensor = {.resolution = {5344, 3200},
                                                                .framerate = {30000, 1001}})
  {
    const VornCameraParameters parameters = {.name = "front", .sensor_configuration = sensor};
    camera_ = vorn_camera_new (&parameters);
  }
  ~KeptCamera ()
  {
    while (references (camera_) > 1)
      g_object_unref (camera_);
    g_object_unref (camera_);
  }
  KeptCamera (const KeptCamera &) = delete;
  KeptCamera &operator= (const KeptCamera &) = delete;
  VornCamera *get () const { return camera_; }

private:
  VornCamera *camera_;
};

class FrontVirtualCamera : public testing::Test
{
protected:
  void make (Flavour flavour, VornCamera *front_camera,
             const VornProductConfiguration *configuration = nullptr)
  {
    owned_ = vorn::adopt (
        vorn_morvik_zelto_front_virtual_camera_new (front_camera, configuration, flavour));
    camera_ = owned_.get ();
    self_ = VORN_MORVIK_ZELTO_FRONT_VIRTUAL_CAMERA (camera_);
  }
  void make (Flavour flavour = VISIBLE) { make (flavour, front_.get (), &configuration_); }

  std::string text_property (const char *name) const
  {
    gchar *value = nullptr;
    g_object_get (camera_, name, &value, nullptr);
    const vorn::OwnedString owned (value);
    return value ? value : "";
  }

  LogCapture log_;
  KeptCamera front_;
  VornProductConfiguration configuration_ = {};
  vorn::Ref<VornVirtualCamera> owned_;
  VornVirtualCamera *camera_ = nullptr;
  VornMorvikZeltoFrontVirtualCamera *self_ = nullptr;
};

// ---- Type and properties

TEST_F (FrontVirtualCamera, IsAVirtualCamera)
{
  make ();
  EXPECT_STREQ (G_OBJECT_TYPE_NAME (camera_), "VornMorvikZeltoFrontVirtualCamera");
  EXPECT_TRUE (VORN_IS_VIRTUAL_CAMERA (camera_));
  EXPECT_EQ (g_type_parent (vorn_morvik_zelto_front_virtual_camera_get_type ()),
             VORN_TYPE_VIRTUAL_CAMERA);
  EXPECT_EQ (g_type_get_plugin (vorn_morvik_zelto_front_virtual_camera_get_type ()), nullptr);
}

TEST_F (FrontVirtualCamera, PropertiesAsInstalled)
{
  make ();
  const struct {
    const char *name, *nick, *blurb;
    GType type;
    guint id;
  } rows[] = {
      {"front-camera", "Front Camera", "The front camera", VORN_TYPE_CAMERA, 1},
      {"thermal", "Thermal flavor", "Thermal virtual camera", G_TYPE_BOOLEAN, 2},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE (row.name);
    GParamSpec *pspec = g_object_class_find_property (G_OBJECT_GET_CLASS (camera_), row.name);
    ASSERT_NE (pspec, nullptr);
    EXPECT_EQ (pspec->owner_type, vorn_morvik_zelto_front_virtual_camera_get_type ());
    EXPECT_STREQ (g_param_spec_get_nick (pspec), row.nick);
    EXPECT_STREQ (g_param_spec_get_blurb (pspec), row.blurb);
    EXPECT_EQ (pspec->value_type, row.type);
    EXPECT_EQ (pspec->flags, static_cast<GParamFlags> (G_PARAM_READWRITE | G_PARAM_CONSTRUCT |
                                                       G_PARAM_STATIC_STRINGS));
    EXPECT_EQ (pspec->param_id, row.id);
  }
  const GParamSpec *thermal =
      g_object_class_find_property (G_OBJECT_GET_CLASS (camera_), "thermal");
  EXPECT_EQ (G_PARAM_SPEC_BOOLEAN (thermal)->default_value, FALSE);
}

TEST_F (FrontVirtualCamera, DefaultsOfAnObjectMadeWithoutProperties)
{
  const auto bare = vorn::adopt (
      VORN_VIRTUAL_CAMERA (g_object_new (VORN_TYPE_MORVIK_ZELTO_FRONT_VIRTUAL_CAMERA, nullptr)));
  VornCamera *front_camera = nullptr;
  gboolean thermal = TRUE;
  g_object_get (bare.get (), "front-camera", &front_camera, "thermal", &thermal, nullptr);
  EXPECT_EQ (front_camera, nullptr);
  EXPECT_FALSE (thermal);
}

TEST_F (FrontVirtualCamera, NamesOfBothFlavours)
{
  make (VISIBLE);
  const std::string schema = text_property ("schema-id");
  EXPECT_EQ (text_property ("name"), "front");
  EXPECT_EQ (text_property ("display-name"), "Front camera");
  EXPECT_NE (schema.find ('.'), std::string::npos);
  gboolean thermal = TRUE;
  g_object_get (camera_, "thermal", &thermal, nullptr);
  EXPECT_FALSE (thermal);
  EXPECT_EQ (self_->thermal, 0u);

  make (THERMAL);
  EXPECT_EQ (text_property ("name"), "front-thermal");
  EXPECT_EQ (text_property ("display-name"), "Front thermal camera");
  EXPECT_EQ (text_property ("schema-id"), schema);
  g_object_get (camera_, "thermal", &thermal, nullptr);
  EXPECT_TRUE (thermal);
  EXPECT_EQ (self_->thermal, 1u);
}

TEST_F (FrontVirtualCamera, ThermalCanBeSetLater)
{
  make (VISIBLE);
  g_object_set (camera_, "thermal", TRUE, nullptr);
  EXPECT_EQ (self_->thermal, 1u);
}

TEST_F (FrontVirtualCamera, UnknownPropertyIdsAreWarnedOf)
{
  make ();
  CriticalCapture criticals;
  GObjectClass *klass = G_OBJECT_GET_CLASS (camera_);
  GParamSpec *pspec = g_object_class_find_property (klass, "thermal");
  GValue value = G_VALUE_INIT;
  g_value_init (&value, G_TYPE_BOOLEAN);
  klass->set_property (G_OBJECT (camera_), 99, &value, pspec);
  klass->get_property (G_OBJECT (camera_), 99, &value, pspec);
  g_value_unset (&value);
  const auto warnings = criticals.warnings ();
  ASSERT_EQ (warnings.size (), 2u);
  for (const auto &warning : warnings) {
    EXPECT_EQ (warning.domain, "vornmorvikzelto");
    EXPECT_NE (warning.text.find ("invalid property id 99 for \"thermal\""), std::string::npos)
        << warning.text;
  }
}

// ---- References on the front camera

TEST_F (FrontVirtualCamera, FrontCameraCarriesTwoReferences)
{
  EXPECT_EQ (references (front_.get ()), 1u);
  make ();
  EXPECT_EQ (references (front_.get ()), 3u);
  VornCamera *same = nullptr;
  g_object_get (camera_, "front-camera", &same, nullptr);
  const auto owned = vorn::adopt (same);
  EXPECT_EQ (same, front_.get ());
}

TEST_F (FrontVirtualCamera, SettingTheSameCameraAgainKeepsOneMore)
{
  make ();
  g_object_set (camera_, "front-camera", front_.get (), nullptr);
  EXPECT_EQ (references (front_.get ()), 4u);
  g_object_set (camera_, "front-camera", front_.get (), nullptr);
  EXPECT_EQ (references (front_.get ()), 5u);
}

TEST_F (FrontVirtualCamera, SettingAnotherCameraReleasesOneOfTheFormer)
{
  const KeptCamera other;
  make ();
  g_object_set (camera_, "front-camera", other.get (), nullptr);
  EXPECT_EQ (references (front_.get ()), 2u);
  EXPECT_EQ (references (other.get ()), 3u);
  EXPECT_EQ (self_->front_camera, other.get ());
}

TEST_F (FrontVirtualCamera, SettingNoCameraReleasesOneOfTheFormer)
{
  make ();
  g_object_set (camera_, "front-camera", nullptr, nullptr);
  EXPECT_EQ (references (front_.get ()), 2u);
  EXPECT_EQ (self_->front_camera, nullptr);
}

TEST_F (FrontVirtualCamera, ReferencesOutliveTheObject)
{
  make ();
  owned_.reset ();
  EXPECT_EQ (references (front_.get ()), 3u);
}

// ---- Starting values

TEST_F (FrontVirtualCamera, StartingExposureAndWhiteBalance)
{
  for (const Flavour flavour : {VISIBLE, THERMAL}) {
    make (flavour);
    EXPECT_EQ (self_->exposure_mode, 0u);
    EXPECT_EQ (self_->exposure_region.left, -1.0f);
    EXPECT_EQ (self_->exposure_region.top, -1.0f);
    EXPECT_EQ (self_->exposure_region.width, -1.0f);
    EXPECT_EQ (self_->exposure_region.height, -1.0f);
    EXPECT_EQ (self_->exposure_lock, 0u);
    EXPECT_EQ (self_->shutter_speed, 0.0001);
    EXPECT_EQ (self_->iso, 50.0);
    EXPECT_EQ (self_->iso_max, 3200.0);
    EXPECT_EQ (self_->ev_compensation, 0.0);
    EXPECT_EQ (self_->wb_mode, 0u);
    EXPECT_EQ (self_->wb_temperature, 2250u);
  }
}

TEST_F (FrontVirtualCamera, StartingExposureRecordIsThatOfNoMode)
{
  // A mode of zeros is a recording without a rate: the visible table as it stands, for both.
  for (const Flavour flavour : {VISIBLE, THERMAL}) {
    make (flavour);
    const VornExposureCapabilities &expected = caps_of (VISIBLE).camera->exposure;
    EXPECT_EQ (memcmp (&self_->exposure_capabilities, &expected, sizeof expected), 0);
    EXPECT_EQ (self_->exposure_capabilities.exposure_time_max, 1.0);
    EXPECT_EQ (self_->exposure_capabilities.auto_exposure_time_limit, 0.01);
    EXPECT_EQ (self_->exposure_capabilities.mode_mask, 63u);
  }
}

TEST_F (FrontVirtualCamera, CapabilitiesAreTheTablesOfTheFlavour)
{
  for (const Flavour flavour : {VISIBLE, THERMAL}) {
    make (flavour);
    const VornCapabilitySet expected = caps_of (flavour);
    const VornCapabilitySet *caps = vorn_morvik_zelto_front_virtual_camera_get_caps (camera_);
    EXPECT_EQ (caps, &self_->caps);
    EXPECT_EQ (vorn_virtual_camera_get_capabilities (camera_), expected.camera);
    guint32 count = 99;
    EXPECT_EQ (vorn_virtual_camera_get_recording_capabilities (camera_, &count),
               expected.recording);
    EXPECT_EQ (count, flavour == THERMAL ? 1u : 4u);
    EXPECT_EQ (caps->recording_count, count);
    count = 99;
    EXPECT_EQ (vorn_virtual_camera_get_photo_capabilities (camera_, &count), expected.photo);
    EXPECT_EQ (count, flavour == THERMAL ? 1u : 6u);
    EXPECT_EQ (caps->photo_count, count);
  }
}

TEST_F (FrontVirtualCamera, DefaultState)
{
  for (const Flavour flavour : {VISIBLE, THERMAL}) {
    make (flavour);
    const VornDefaultState *state = vorn_virtual_camera_get_default_state (camera_);
    EXPECT_EQ (state, &self_->default_state);
    guint32 words[7];
    memcpy (words, state, sizeof words);
    const guint32 visible[] = {0, 3840, 2160, 30000, 1001, 15, 30000000};
    const guint32 thermal[] = {0, 1440, 1080, 9, 1, 15, 9000000};
    for (int i = 0; i < 7; i++)
      EXPECT_EQ (words[i], flavour == THERMAL ? thermal[i] : visible[i]) << "word " << i;
  }
}

TEST_F (FrontVirtualCamera, DefaultPhotoMode)
{
  for (const Flavour flavour : {VISIBLE, THERMAL}) {
    make (flavour);
    const VornDefaultPhotoMode *mode = vorn_virtual_camera_get_default_photo_mode (camera_);
    EXPECT_EQ (mode, &self_->default_photo_mode);
    EXPECT_EQ (mode->photo_mode, 0u);
    EXPECT_EQ (mode->format, flavour == THERMAL ? 1u : 0u);
    EXPECT_EQ (mode->file_format, 0u);
    EXPECT_EQ (mode->reserved, 0u);
    EXPECT_EQ (mode->bracketing_count, 3u);
    EXPECT_EQ (mode->bracketing_ev[0], -1.0);
    EXPECT_EQ (mode->bracketing_ev[1], 0.0);
    EXPECT_EQ (mode->bracketing_ev[2], 1.0);
    EXPECT_STREQ (mode->bracketing_preset, "PRESET_1EV");
    EXPECT_EQ (mode->burst_count, 14u);
    EXPECT_EQ (mode->burst_duration_ms, 1000u);
    EXPECT_STREQ (mode->burst_preset, "BURST_14_OVER_1S");
  }
}

// ---- Alignment offsets

/** A record that holds the number of each 32-bit word in this word. */
template <typename Record>
void number_words (Record *record, size_t first, size_t last)
{
  for (size_t i = first; i <= last; i++) {
    const auto word = static_cast<guint32> (i);
    memcpy (reinterpret_cast<guint8 *> (record) + 4 * i, &word, sizeof word);
  }
}

std::vector<guint32> alignment_words (VornVirtualCamera *camera)
{
  std::vector<guint32> words (9);
  memcpy (words.data (), vorn_virtual_camera_get_alignment_offsets_capabilities (camera), 36);
  return words;
}

TEST_F (FrontVirtualCamera, VisibleAlignmentIsTheSensorConfigurations)
{
  VornSensorConfiguration sensor = {};
  number_words (&sensor, 0, 21);
  const KeptCamera front (sensor);
  number_words (&configuration_, 29, 37);
  make (VISIBLE, front.get (), &configuration_);
  EXPECT_EQ (alignment_words (camera_), (std::vector<guint32>{13, 14, 15, 16, 17, 18, 19, 20, 21}));
  EXPECT_TRUE (log_.lines ().empty ());
}

TEST_F (FrontVirtualCamera, ThermalAlignmentIsTheProductConfigurations)
{
  VornSensorConfiguration sensor = {};
  number_words (&sensor, 0, 21);
  const KeptCamera front (sensor);
  number_words (&configuration_, 29, 37);
  make (THERMAL, front.get (), &configuration_);
  EXPECT_EQ (alignment_words (camera_), (std::vector<guint32>{29, 30, 31, 32, 33, 34, 35, 36, 37}));
  EXPECT_TRUE (log_.lines ().empty ());
}

TEST_F (FrontVirtualCamera, ThermalWithoutConfigurationLogsAndHasZeros)
{
  make (THERMAL, front_.get (), nullptr);
  EXPECT_EQ (alignment_words (camera_), std::vector<guint32> (9, 0));
  const auto lines = log_.lines ();
  ASSERT_EQ (lines.size (), 1u);
  EXPECT_EQ (lines[0].text, "failed to get vorn configuration");
  EXPECT_EQ (lines[0].priority, VORN_LOG_PRIORITY_ERROR);
  EXPECT_EQ (lines[0].prefix.find ("src/vorn_morvik_zelto_front_virtual_camera.cpp:"), 0u);
}

TEST_F (FrontVirtualCamera, VisibleNeedsNoProductConfiguration)
{
  make (VISIBLE, front_.get (), nullptr);
  EXPECT_TRUE (log_.lines ().empty ());
}

TEST_F (FrontVirtualCamera, VisibleWithoutCameraLogsAndHasZeros)
{
  make (VISIBLE, nullptr, &configuration_);
  EXPECT_EQ (alignment_words (camera_), std::vector<guint32> (9, 0));
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_ERROR),
             std::vector<std::string>{"failed to get sensor configuration"});
}

TEST_F (FrontVirtualCamera, AlignmentOffsetsAreZero)
{
  number_words (&configuration_, 29, 37);
  for (const Flavour flavour : {VISIBLE, THERMAL}) {
    make (flavour);
    const VornAlignmentOffsets *offsets = vorn_virtual_camera_get_alignment_offsets (camera_);
    EXPECT_EQ (offsets, &self_->alignment_offsets);
    EXPECT_EQ (offsets->yaw, 0.0f);
    EXPECT_EQ (offsets->pitch, 0.0f);
    EXPECT_EQ (offsets->roll, 0.0f);
  }
}

// ---- Settings

std::string stub_line (const std::string &operation)
{
  return "(" + std::string (function_prefix) + operation + ") stub";
}

TEST_F (FrontVirtualCamera, StubsLogTheirNameAndSucceed)
{
  make ();
  const VornExposureSettings exposure = {.mode = 5};
  const VornImageStyleParams style = {1, 2, 3};
  const struct {
    const char *operation;
    std::function<gboolean ()> call;
  } rows[] = {
      {"set_exposure", [&] { return vorn_virtual_camera_set_exposure (camera_, &exposure); }},
      {"set_ev_compensation",
       [&] { return vorn_virtual_camera_set_ev_compensation (camera_, 1.5); }},
      {"set_antiflicker_mode",
       [&] { return vorn_virtual_camera_set_antiflicker_mode (camera_, 2); }},
      {"set_image_style_params",
       [&] { return vorn_virtual_camera_set_image_style_params (camera_, &style); }},
      {"set_activation_state",
       [&] { return vorn_virtual_camera_set_activation_state (camera_, TRUE); }},
      {"set_activation_state",
       [&] { return vorn_virtual_camera_set_activation_state (camera_, FALSE); }},
  };
  for (const auto &row : rows) {
    log_.clear ();
    EXPECT_TRUE (row.call ());
    const auto lines = log_.lines ();
    ASSERT_EQ (lines.size (), 1u) << row.operation;
    EXPECT_EQ (lines[0].text, stub_line (row.operation));
    EXPECT_EQ (lines[0].priority, VORN_LOG_PRIORITY_INFO);
  }
}

TEST_F (FrontVirtualCamera, WhiteBalanceIsKept)
{
  make ();
  guint32 mode = 99;
  guint32 temperature = 99;
  EXPECT_TRUE (vorn_virtual_camera_get_wb (camera_, &mode, &temperature));
  EXPECT_EQ (mode, 0u);
  EXPECT_EQ (temperature, 2250u);
  EXPECT_TRUE (vorn_virtual_camera_set_wb (camera_, 14, 6500));
  EXPECT_TRUE (vorn_virtual_camera_get_wb (camera_, &mode, nullptr));
  EXPECT_TRUE (vorn_virtual_camera_get_wb (camera_, nullptr, &temperature));
  EXPECT_TRUE (vorn_virtual_camera_get_wb (camera_, nullptr, nullptr));
  EXPECT_EQ (mode, 14u);
  EXPECT_EQ (temperature, 6500u);
  EXPECT_TRUE (log_.lines ().empty ());
}

TEST_F (FrontVirtualCamera, EvCompensationReadsAsZero)
{
  make ();
  gdouble ev = 2.0;
  EXPECT_TRUE (vorn_virtual_camera_set_ev_compensation (camera_, 1.0));
  log_.clear ();
  EXPECT_TRUE (vorn_virtual_camera_get_ev_compensation (camera_, &ev));
  EXPECT_EQ (ev, 0.0);
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_INFO),
             std::vector<std::string>{stub_line ("get_ev_compensation")});
}

TEST_F (FrontVirtualCamera, EvCompensationWithoutOutFailsAndLogs)
{
  make ();
  EXPECT_FALSE (vorn_virtual_camera_get_ev_compensation (camera_, nullptr));
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_INFO),
             std::vector<std::string>{stub_line ("get_ev_compensation")});
}

TEST_F (FrontVirtualCamera, ImageStyleNeedsAView)
{
  make ();
  EXPECT_FALSE (vorn_virtual_camera_set_image_style (camera_, 1));
}

// ---- Exposure and mode

struct Exposure {
  guint32 mode = 99;
  guint64 shutter_speed_ns = 99;
  gdouble iso = 99.0;
  gdouble iso_max = 99.0;
  guint32 lock = 99;
  VornExposureRegion region = {9.0f, 9.0f, 9.0f, 9.0f};
  VornExposureCapabilities capabilities = {};
};

Exposure read_exposure (VornVirtualCamera *camera)
{
  Exposure result;
  EXPECT_TRUE (vorn_virtual_camera_get_exposure (camera, &result.mode, &result.shutter_speed_ns,
                                                 &result.iso, &result.iso_max, &result.lock,
                                                 &result.region, &result.capabilities));
  return result;
}

TEST_F (FrontVirtualCamera, GetExposureResetsAndReports)
{
  make ();
  self_->exposure_mode = 5;
  self_->exposure_lock = 7;
  self_->exposure_region = {0.25f, 0.5f, 0.125f, 0.0625f};
  const Exposure exposure = read_exposure (camera_);
  EXPECT_EQ (exposure.mode, 0u);
  EXPECT_EQ (exposure.shutter_speed_ns, 0u);
  EXPECT_EQ (exposure.iso, 0.0);
  EXPECT_EQ (exposure.iso_max, 0.0);
  EXPECT_EQ (exposure.lock, 7u);
  EXPECT_EQ (exposure.region.left, 0.25f);
  EXPECT_EQ (exposure.region.top, 0.5f);
  EXPECT_EQ (exposure.region.width, 0.125f);
  EXPECT_EQ (exposure.region.height, 0.0625f);
  EXPECT_EQ (
      memcmp (&exposure.capabilities, &self_->exposure_capabilities, sizeof exposure.capabilities),
      0);
  // The starting values are gone with the first read.
  EXPECT_EQ (self_->exposure_mode, 0u);
  EXPECT_EQ (self_->shutter_speed, 0.0);
  EXPECT_EQ (self_->iso, 0.0);
  EXPECT_EQ (self_->iso_max, 0.0);
  EXPECT_EQ (self_->exposure_lock, 7u);
  EXPECT_EQ (self_->ev_compensation, 0.0);
}

TEST_F (FrontVirtualCamera, GetExposureLogsThatItAsksNoSensor)
{
  make ();
  read_exposure (camera_);
  const auto lines = log_.lines ();
  ASSERT_EQ (lines.size (), 1u);
  EXPECT_EQ (lines[0].text, "(" + std::string (function_prefix) +
                                "get_exposure) stub get exposure settings from sensor");
  EXPECT_EQ (lines[0].priority, VORN_LOG_PRIORITY_DEBUG);
}

TEST_F (FrontVirtualCamera, GetExposureReportsTheWholePictureAtFirst)
{
  make ();
  const Exposure exposure = read_exposure (camera_);
  EXPECT_EQ (exposure.lock, 0u);
  EXPECT_EQ (exposure.region.left, -1.0f);
  EXPECT_EQ (exposure.region.height, -1.0f);
}

TEST_F (FrontVirtualCamera, GetExposureWithoutAnyOut)
{
  make ();
  EXPECT_TRUE (vorn_virtual_camera_get_exposure (camera_, nullptr, nullptr, nullptr, nullptr,
                                                 nullptr, nullptr, nullptr));
  EXPECT_EQ (self_->iso, 0.0);
}

TEST_F (FrontVirtualCamera, ExposureRecordFollowsTheMode)
{
  const struct {
    Flavour flavour;
    VornCameraMode mode;
    gdouble time_max, auto_limit;
  } rows[] = {
      {VISIBLE, recording_mode (4096, 2160, 24000, 1001), 1001.0 / 24000.0, 1001.0 / 24000.0},
      {VISIBLE, recording_mode (1280, 720, 120, 1, 2), 1.0 / 120.0, 1.0 / 120.0},
      {VISIBLE, photo_mode (0, 0, 0), 1.0, 0.01},
      {THERMAL, recording_mode (1440, 1080, 9, 1), 1.0 / 9.0, 1.0 / 9.0},
      {THERMAL, photo_mode (0, 0, 0), 1.0, 0.01},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE (&row - rows);
    make (row.flavour);
    ASSERT_TRUE (vorn_virtual_camera_set_mode (camera_, &row.mode));
    const VornExposureCapabilities capabilities = read_exposure (camera_).capabilities;
    EXPECT_EQ (capabilities.exposure_time_max, row.time_max);
    EXPECT_EQ (capabilities.auto_exposure_time_limit, row.auto_limit);
    // The thermal camera too has the visible camera's modes.
    EXPECT_EQ (capabilities.mode_mask, 63u);
    EXPECT_EQ (capabilities.default_mode, 1u);
    EXPECT_EQ (capabilities.ev_compensation_min, -3.0);
  }
}

TEST_F (FrontVirtualCamera, SetModeCorrectsInvalidManualExposure)
{
  const auto mode = recording_mode (3840, 2160, 30000, 1001);
  for (guint32 exposure_mode = 0; exposure_mode <= 6; exposure_mode++) {
    SCOPED_TRACE ("exposure mode " + std::to_string (exposure_mode));
    make ();
    read_exposure (camera_);
    self_->exposure_mode = exposure_mode;
    log_.clear ();
    ASSERT_TRUE (vorn_virtual_camera_set_mode (camera_, &mode));
    const bool manual = exposure_mode >= 3 && exposure_mode <= 5;
    EXPECT_EQ (self_->iso, manual ? 100.0 : 0.0);
    EXPECT_EQ (self_->shutter_speed, manual ? 1001.0 / 30000.0 : 0.0);
    EXPECT_EQ (self_->iso_max, 0.0);
    EXPECT_EQ (log_.count (stub_line ("set_exposure"), VORN_LOG_PRIORITY_INFO), manual ? 1 : 0);
  }
}

TEST_F (FrontVirtualCamera, SetModeKeepsValidManualExposure)
{
  const struct {
    gdouble iso, shutter_speed;
    gdouble kept_iso, kept_shutter_speed;
  } rows[] = {
      {100.0, 0.0001, 100.0, 0.0001},
      {3200.0, 1001.0 / 30000.0, 3200.0, 1001.0 / 30000.0},
      {3200.9, 0.01, 3200.9, 0.01},  // compared as an integer, kept as it is
      {50.0, 0.0001, 100.0, 0.0001}, // the starting values: only the ISO is wrong
      {99.9, 0.02, 100.0, 0.02},
      {3201.0, 0.02, 100.0, 0.02},
      {400.0, 0.04, 400.0, 1001.0 / 30000.0}, // longer than a frame
      {400.0, 0.00005, 400.0, 1001.0 / 30000.0},
  };
  const auto mode = recording_mode (3840, 2160, 30000, 1001);
  for (const auto &row : rows) {
    SCOPED_TRACE (&row - rows);
    make ();
    self_->exposure_mode = 5;
    self_->iso = row.iso;
    self_->shutter_speed = row.shutter_speed;
    ASSERT_TRUE (vorn_virtual_camera_set_mode (camera_, &mode));
    EXPECT_EQ (self_->iso, row.kept_iso);
    EXPECT_EQ (self_->shutter_speed, row.kept_shutter_speed);
  }
}

TEST_F (FrontVirtualCamera, SetModeOfAPhotoFallsBackToTheLongLimit)
{
  make ();
  self_->exposure_mode = 4;
  self_->iso = 100.0;
  self_->shutter_speed = 2.0;
  const auto mode = photo_mode (0, 0, 0);
  ASSERT_TRUE (vorn_virtual_camera_set_mode (camera_, &mode));
  EXPECT_EQ (self_->shutter_speed, 0.01);
}

TEST_F (FrontVirtualCamera, RefusedModeChangesNothing)
{
  make ();
  self_->exposure_mode = 5;
  const auto unknown = recording_mode (640, 480, 30, 1);
  EXPECT_FALSE (vorn_virtual_camera_set_mode (camera_, &unknown));
  EXPECT_EQ (self_->iso, 50.0);
  EXPECT_EQ (self_->exposure_capabilities.exposure_time_max, 1.0);
  EXPECT_EQ (log_.count (stub_line ("set_exposure")), 0);
}

TEST_F (FrontVirtualCamera, SetModePublishesHdrAgain)
{
  make ();
  struct Published {
    std::vector<std::pair<bool, bool>> states;
  } published;
  g_signal_connect (
      camera_, "hdr-changed",
      G_CALLBACK (+[] (VornVirtualCamera *, gboolean state, gboolean availability, gpointer data) {
        static_cast<Published *> (data)->states.emplace_back (state, availability);
      }),
      &published);
  vorn_virtual_camera_set_hdr_state (camera_, TRUE);
  published.states.clear ();
  const auto with_hdr = recording_mode (3840, 2160, 30000, 1001);
  ASSERT_TRUE (vorn_virtual_camera_set_mode (camera_, &with_hdr));
  ASSERT_GE (published.states.size (), 2u);
  EXPECT_EQ (published.states.back (), std::pair (true, true));
  EXPECT_TRUE (vorn_virtual_camera_get_hdr_state (camera_));
  EXPECT_TRUE (vorn_virtual_camera_get_hdr_availability (camera_));

  published.states.clear ();
  const auto without_hdr = recording_mode (1280, 720, 120, 1, 2);
  ASSERT_TRUE (vorn_virtual_camera_set_mode (camera_, &without_hdr));
  ASSERT_GE (published.states.size (), 2u);
  EXPECT_EQ (published.states.back (), std::pair (true, false));
  EXPECT_FALSE (vorn_virtual_camera_get_hdr_availability (camera_));
}

TEST_F (FrontVirtualCamera, CountsNeedNoOut)
{
  make ();
  EXPECT_EQ (vorn_virtual_camera_get_recording_capabilities (camera_, nullptr),
             caps_of (VISIBLE).recording);
  EXPECT_EQ (vorn_virtual_camera_get_photo_capabilities (camera_, nullptr),
             caps_of (VISIBLE).photo);
  const auto *klass = VORN_VIRTUAL_CAMERA_GET_CLASS (camera_);
  EXPECT_EQ (klass->get_recording_capabilities (camera_, nullptr), caps_of (VISIBLE).recording);
  EXPECT_EQ (klass->get_photo_capabilities (camera_, nullptr), caps_of (VISIBLE).photo);
}

} // namespace
