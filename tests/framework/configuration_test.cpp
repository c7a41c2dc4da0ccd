// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/product.h>

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "log_capture.hpp"
#include "temp_dir.hpp"
#include <vorn/framework.h>
#include <vorn/raii.hpp>

namespace
{

using Configuration = vorn::Owned<VornProductConfiguration, vorn_product_configuration_free>;

const std::string front = "[camera-front]\n"
                          "video-device=unix:/tmp/front.sock\n"
                          "sensor-size=5344x3200\n"
                          "framerate=30000/1001\n";

class ConfigurationTest : public testing::Test
{
protected:
  static void SetUpTestSuite () { vorn_framework_init (nullptr, nullptr); }

  Configuration load (const std::string &text)
  {
    path_ = dir_.write ("product.conf", text);
    return Configuration (vorn_product_configuration_load (path_.c_str (), error_.out ()));
  }
  /** Fails with exactly this message, %s being the path. */
  void expect_error (const std::string &text, gint code, const std::string &message)
  {
    SCOPED_TRACE (text);
    EXPECT_FALSE (load (text));
    ASSERT_TRUE (error_);
    EXPECT_EQ (error_->domain, VORN_CONFIGURATION_ERROR);
    EXPECT_EQ (error_->code, code);
    EXPECT_EQ (error_->message, path_ + ": " + message);
  }

  TempDir dir_;
  LogCapture log_;
  std::string path_;
  vorn::ErrorOut error_;
};

VornCamera *camera_at (const Configuration &configuration, guint index)
{
  return VORN_CAMERA (g_list_nth_data (configuration->cameras, index));
}

TEST_F (ConfigurationTest, ErrorDomainHasItsName)
{
  EXPECT_STREQ (g_quark_to_string (VORN_CONFIGURATION_ERROR), "vorn-configuration-error-quark");
}

TEST_F (ConfigurationTest, LeastThatACameraNeeds)
{
  const auto configuration = load (front);
  ASSERT_TRUE (configuration) << error_.message ();
  ASSERT_EQ (g_list_length (configuration->cameras), 1u);
  VornCamera *camera = camera_at (configuration, 0);
  EXPECT_EQ (G_OBJECT (camera)->ref_count, 1u);
  EXPECT_STREQ (vorn_camera_get_name (camera), "front");
  EXPECT_STREQ (vorn_camera_get_video_device (camera), "unix:/tmp/front.sock");
  const VornSensorConfiguration *sensor = vorn_camera_get_sensor_configuration (camera);
  EXPECT_EQ (sensor->resolution.width, 5344u);
  EXPECT_EQ (sensor->resolution.height, 3200u);
  EXPECT_EQ (sensor->framerate.num, 30000u);
  EXPECT_EQ (sensor->framerate.den, 1001u);
  // The whole sensor is captured, and no correction is offered.
  EXPECT_EQ (sensor->capture_left, 0u);
  EXPECT_EQ (sensor->capture_top, 0u);
  EXPECT_EQ (sensor->capture_width, 5344u);
  EXPECT_EQ (sensor->capture_height, 3200u);
  const VornAlignmentOffsetsCapabilities none = {};
  EXPECT_EQ (memcmp (&sensor->alignment_offsets, &none, sizeof none), 0);
  EXPECT_EQ (memcmp (&configuration->thermal_alignment_offsets, &none, sizeof none), 0);
  EXPECT_EQ (vorn_sensor_get_width (vorn_camera_get_sensor (camera)), 5344u);
  EXPECT_EQ (vorn_sensor_get_height (vorn_camera_get_sensor (camera)), 3200u);
  gdouble x = 0.0;
  gdouble y = 0.0;
  gdouble z = 1.0;
  vorn_camera_get_optical_center (camera, &x, &y);
  EXPECT_EQ (x, 2672.0);
  EXPECT_EQ (y, 1600.0);
  EXPECT_EQ (vorn_camera_get_focal_length (camera), 4.0);
  vorn_camera_get_position (camera, &x, &y, &z);
  EXPECT_EQ (x, 0.0);
  EXPECT_EQ (z, 0.0);
  EXPECT_NE (configuration->key_file, nullptr);
  EXPECT_TRUE (log_.lines ().empty ());
}

TEST_F (ConfigurationTest, EverythingThatACameraCanHave)
{
  const auto configuration = load (front + "element=videotestsrc\n"
                                           "capture-rect=16,8,640,480\n"
                                           "optical-center=100.5;200.25\n"
                                           "focal-length=3.5\n"
                                           "orientation=1;-2;3.5\n"
                                           "factory-orientation=0.1;0.2;-0.3\n"
                                           "position=0.01;0.02;-0.03\n"
                                           "alignment-offsets=-5;5;0.5;-4;4;0.25;-3;3;0.125\n"
                                           "[product]\n"
                                           "thermal-alignment-offsets=1;2;3;4;5;6;7;8;9\n");
  ASSERT_TRUE (configuration) << error_.message ();
  EXPECT_TRUE (log_.lines ().empty ());
  VornCamera *camera = camera_at (configuration, 0);
  const VornSensorConfiguration *sensor = vorn_camera_get_sensor_configuration (camera);
  EXPECT_EQ (sensor->capture_left, 16u);
  EXPECT_EQ (sensor->capture_top, 8u);
  EXPECT_EQ (sensor->capture_width, 640u);
  EXPECT_EQ (sensor->capture_height, 480u);
  const gfloat alignment[] = {-5.0f, 5.0f, 0.5f, -4.0f, 4.0f, 0.25f, -3.0f, 3.0f, 0.125f};
  EXPECT_EQ (memcmp (&sensor->alignment_offsets, alignment, sizeof alignment), 0);
  const gfloat thermal[] = {1.0f, 2.0f, 3.0f, 4.0f, 5.0f, 6.0f, 7.0f, 8.0f, 9.0f};
  EXPECT_EQ (memcmp (&configuration->thermal_alignment_offsets, thermal, sizeof thermal), 0);
  gdouble x = 0.0;
  gdouble y = 0.0;
  gdouble z = 0.0;
  vorn_camera_get_optical_center (camera, &x, &y);
  EXPECT_EQ (x, 100.5);
  EXPECT_EQ (y, 200.25);
  EXPECT_EQ (vorn_camera_get_focal_length (camera), 3.5);
  vorn_camera_get_camera_orientation (camera, &x, &y, &z);
  EXPECT_EQ (x, 1.0);
  EXPECT_EQ (y, -2.0);
  EXPECT_EQ (z, 3.5);
  vorn_camera_get_factory_orientation (camera, &x, &y, &z);
  EXPECT_EQ (x, 0.1);
  EXPECT_EQ (y, 0.2);
  EXPECT_EQ (z, -0.3);
  vorn_camera_get_position (camera, &x, &y, &z);
  EXPECT_EQ (x, 0.01);
  EXPECT_EQ (y, 0.02);
  EXPECT_EQ (z, -0.03);
}

TEST_F (ConfigurationTest, CamerasInTheOrderOfTheFile)
{
  std::string vertical = front;
  vertical.replace (vertical.find ("front"), 5, "vertical");
  const auto configuration = load ("[other]\nkey=value\n" + vertical + front);
  ASSERT_TRUE (configuration) << error_.message ();
  ASSERT_EQ (g_list_length (configuration->cameras), 2u);
  EXPECT_STREQ (vorn_camera_get_name (camera_at (configuration, 0)), "vertical");
  EXPECT_STREQ (vorn_camera_get_name (camera_at (configuration, 1)), "front");
}

TEST_F (ConfigurationTest, SpacesAndCommentsAreFine)
{
  const auto configuration = load ("# the front camera\n\n[camera-front]\n"
                                   "video-device = unix:/x\n"
                                   "sensor-size = 640x480\n"
                                   "framerate = 25/1\n");
  ASSERT_TRUE (configuration) << error_.message ();
}

TEST_F (ConfigurationTest, UnreadableFiles)
{
  const std::string missing = dir_.at ("missing.conf");
  EXPECT_EQ (vorn_product_configuration_load (missing.c_str (), error_.out ()), nullptr);
  EXPECT_EQ (error_->code, VORN_CONFIGURATION_ERROR_FILE);
  EXPECT_EQ (std::string (error_->message).find ("cannot read configuration " + missing + ": "), 0u)
      << error_->message;

  for (const std::string text : {"no key file at all", "[camera-front\nx=1\n", "key=value\n",
                                 "[camera-front]\nno value\n", "[camera-front]\n=5\n"}) {
    EXPECT_FALSE (load (text));
    ASSERT_TRUE (error_) << text;
    EXPECT_EQ (error_->code, VORN_CONFIGURATION_ERROR_FILE);
    EXPECT_EQ (std::string (error_->message).find ("cannot read configuration " + path_ + ": "), 0u)
        << error_->message;
  }

  EXPECT_EQ (vorn_product_configuration_load (dir_.path ().c_str (), error_.out ()), nullptr);
  EXPECT_EQ (error_->code, VORN_CONFIGURATION_ERROR_FILE);
  // A caller that does not care why.
  EXPECT_EQ (vorn_product_configuration_load (missing.c_str (), nullptr), nullptr);
}

TEST_F (ConfigurationTest, WithoutCameras)
{
  const std::string message = "no camera is configured: there is no group 'camera-NAME' "
                              "(camera-front, camera-vertical)";
  for (const std::string text : {"", "# only a comment\n", "[product]\n", "[camera]\nx=1\n"})
    expect_error (text, VORN_CONFIGURATION_ERROR_CAMERAS, message);
}

std::string without (const std::string &key)
{
  const size_t from = front.find (key + "=");
  return front.substr (0, from) + front.substr (front.find ('\n', from) + 1);
}

TEST_F (ConfigurationTest, MissingKeys)
{
  for (const std::string key : {"video-device", "sensor-size", "framerate"})
    expect_error (without (key), VORN_CONFIGURATION_ERROR_VALUE,
                  "group 'camera-front', key '" + key + "': missing");
  std::string vertical = without ("framerate");
  vertical.replace (vertical.find ("front"), 5, "vertical");
  expect_error (front + vertical, VORN_CONFIGURATION_ERROR_VALUE,
                "group 'camera-vertical', key 'framerate': missing");
}

TEST_F (ConfigurationTest, WrongValues)
{
  const std::string size_form = "' is not of the form 1280x720 (width x height)";
  const std::string rate_form = "' is not of the form 30000/1001 (numerator / denominator)";
  const std::string rect_form = "' is not of the form 0,0,1280,720 (left, top, width, height)";
  const std::string rect_fit = "the rectangle is empty or reaches beyond the sensor";
  const struct {
    const char *key;
    std::string value;
    std::string message;
  } rows[] = {
      {"video-device", "", "empty"},
      {"element", "", "empty"},
      {"sensor-size", "", "empty"},
      {"sensor-size", "0x3200", "a size of zero"},
      {"sensor-size", "5344x0", "a size of zero"},
      {"sensor-size", "0x0", "a size of zero"},
      {"sensor-size", "5344", "'5344" + size_form},
      {"sensor-size", "5344x", "'5344x" + size_form},
      {"sensor-size", "x3200", "'x3200" + size_form},
      {"sensor-size", "5344*3200", "'5344*3200" + size_form},
      {"sensor-size", "5344x3200x2", "'5344x3200x2" + size_form},
      {"sensor-size", "5344 x 3200", "'5344 x 3200" + size_form},
      {"sensor-size", "-5344x3200", "'-5344x3200" + size_form},
      {"sensor-size", "4294967296x1", "'4294967296x1" + size_form},
      {"sensor-size", "wide", "'wide" + size_form},
      {"framerate", "0/1", "a framerate of zero"},
      {"framerate", "30/0", "a framerate of zero"},
      {"framerate", "0/0", "a framerate of zero"},
      {"framerate", "30", "'30" + rate_form},
      {"framerate", "29.97", "'29.97" + rate_form},
      {"framerate", "30000/1001 fps", "'30000/1001 fps" + rate_form},
      {"framerate", "30/-1", "'30/-1" + rate_form},
      {"capture-rect", "0,0,0,3200", rect_fit},
      {"capture-rect", "0,0,5344,0", rect_fit},
      {"capture-rect", "0,0,5345,3200", rect_fit},
      {"capture-rect", "0,0,5344,3201", rect_fit},
      {"capture-rect", "1,0,5344,3200", rect_fit},
      {"capture-rect", "0,1,5344,3200", rect_fit},
      {"capture-rect", "5344,3200,1,1", rect_fit},
      // Sums that would wrap around.
      {"capture-rect", "4294967295,0,2,2", rect_fit},
      {"capture-rect", "0,4294967295,2,2", rect_fit},
      {"capture-rect", "0,0,4294967295,4294967295", rect_fit},
      {"capture-rect", "0,0,640", "'0,0,640" + rect_form},
      {"capture-rect", "0;0;640;480", "'0;0;640;480" + rect_form},
      {"capture-rect", "-1,0,640,480", "'-1,0,640,480" + rect_form},
      {"capture-rect", "", "empty"},
      {"optical-center", "100", "2 numbers expected, there are 1"},
      {"optical-center", "1;2;3", "2 numbers expected, there are 3"},
      {"optical-center", "", "2 numbers expected, there are 0"},
      {"optical-center", "nan;1", "a number that is not finite"},
      {"optical-center", "1;inf", "a number that is not finite"},
      {"focal-length", "0", "must be above 0"},
      {"focal-length", "-4", "must be above 0"},
      {"focal-length", "nan", "a number that is not finite"},
      {"focal-length", "4;5", "1 numbers expected, there are 2"},
      {"orientation", "1;2", "3 numbers expected, there are 2"},
      {"factory-orientation", "1;2;3;4", "3 numbers expected, there are 4"},
      {"position", "1", "3 numbers expected, there are 1"},
      {"alignment-offsets", "1;2;3", "9 numbers expected, there are 3"},
  };
  for (const auto &row : rows) {
    const bool given = front.find (std::string (row.key) + "=") != std::string::npos;
    const std::string text = (given ? without (row.key) : front) + row.key + "=" + row.value + "\n";
    expect_error (text, VORN_CONFIGURATION_ERROR_VALUE,
                  std::string ("group 'camera-front', key '") + row.key + "': " + row.message);
  }
}

TEST_F (ConfigurationTest, WhatGLibFindsWrongIsNamedToo)
{
  for (const std::string line :
       {"focal-length=long", "position=1;two;3", "optical-center=1;2x", "element=bad\\qescape"}) {
    EXPECT_FALSE (load (front + line + "\n"));
    ASSERT_TRUE (error_) << line;
    EXPECT_EQ (error_->code, VORN_CONFIGURATION_ERROR_VALUE);
    const std::string start =
        path_ + ": group 'camera-front', key '" + line.substr (0, line.find ('=')) + "': ";
    EXPECT_EQ (std::string (error_->message).find (start), 0u) << error_->message;
    EXPECT_GT (strlen (error_->message), start.size ());
  }
}

TEST_F (ConfigurationTest, WrongThermalAlignment)
{
  expect_error (
      front + "[product]\nthermal-alignment-offsets=1;2\n", VORN_CONFIGURATION_ERROR_VALUE,
      "group 'product', key 'thermal-alignment-offsets': 9 numbers expected, there are 2");
}

TEST_F (ConfigurationTest, CameraWithoutName)
{
  std::string nameless = front;
  nameless.replace (nameless.find ("camera-front"), 12, "camera-");
  expect_error (nameless, VORN_CONFIGURATION_ERROR_VALUE,
                "group 'camera-', key '*': the camera has no name");
}

TEST_F (ConfigurationTest, FirstMistakeIsTheOneThatIsNamed)
{
  expect_error ("[camera-front]\nsensor-size=0x0\nframerate=0/0\n", VORN_CONFIGURATION_ERROR_VALUE,
                "group 'camera-front', key 'video-device': missing");
}

TEST_F (ConfigurationTest, UnknownKeysAreWarnedOf)
{
  const auto configuration = load (front + "sensor-sise=1x1\nfocal=5\n[product]\nthermal=1\n");
  ASSERT_TRUE (configuration) << error_.message ();
  const std::string start = path_ + ": group '";
  const std::string end = "' is not known and has no effect";
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_WARNING),
             (std::vector<std::string>{start + "product': key 'thermal" + end,
                                       start + "camera-front': key 'sensor-sise" + end,
                                       start + "camera-front': key 'focal" + end}));
}

TEST_F (ConfigurationTest, FreeingNothingIsFine)
{
  vorn_product_configuration_free (nullptr);
  CriticalCapture criticals;
  EXPECT_EQ (vorn_product_configuration_load (nullptr, nullptr), nullptr);
  EXPECT_EQ (criticals.criticals ().size (), 1u);
}

// ---- What a camera makes of it

TEST_F (ConfigurationTest, CameraElementIsMadeOnceAndLent)
{
  const auto configuration = load (front + "element=fakesrc\n");
  ASSERT_TRUE (configuration) << error_.message ();
  VornCamera *camera = camera_at (configuration, 0);
  GstElement *element = vorn_camera_get_element (camera);
  ASSERT_NE (element, nullptr);
  EXPECT_EQ (vorn_camera_get_element (camera), element);
  EXPECT_EQ (G_OBJECT (element)->ref_count, 1u);
  EXPECT_FALSE (g_object_is_floating (element));
}

TEST_F (ConfigurationTest, MetadataAreChecked)
{
  EXPECT_TRUE (load (front + "[metadata]\nmanufacturer=Ma\nmodel=Mo\nmodel-id=Mi\nserial=Se\n"
                             "software-version=1\nbuild-id=Bu\nflight-uid=Fl\nrun-id=Ru\n"
                             "accuracy-horizontal=0\naccuracy-vertical=2.5\n"
                             "takeoff-altitude=-12.5\n"))
      << error_.message ();
  EXPECT_TRUE (log_.lines ().empty ());
  EXPECT_TRUE (load (front + "[metadata]\nmanufactuer=Ma\n"));
  EXPECT_TRUE (log_.has (path_ + ": group 'metadata': key 'manufactuer' is not known and has no "
                                 "effect",
                         VORN_LOG_PRIORITY_WARNING));
  const struct {
    const char *line;
    const char *message;
  } cases[] = {
      {"serial=", "group 'metadata', key 'serial': empty"},
      {"run-id=", "group 'metadata', key 'run-id': empty"},
      {"accuracy-horizontal=-0.1",
       "group 'metadata', key 'accuracy-horizontal': must not be below 0"},
      {"accuracy-vertical=1;2",
       "group 'metadata', key 'accuracy-vertical': 1 numbers expected, there are 2"},
      {"takeoff-altitude=nan",
       "group 'metadata', key 'takeoff-altitude': a number that is not finite"},
  };
  for (const auto &c : cases)
    expect_error (front + "[metadata]\n" + c.line + "\n", VORN_CONFIGURATION_ERROR_VALUE,
                  c.message);
}

TEST_F (ConfigurationTest, CameraElementThatThereIsNotIsAnError)
{
  const auto configuration = load (front + "element=nosuchelement\n");
  ASSERT_TRUE (configuration) << error_.message ();
  EXPECT_EQ (vorn_camera_get_element (camera_at (configuration, 0)), nullptr);
  EXPECT_TRUE (
      log_.has ("camera 'front': there is no element 'nosuchelement'", VORN_LOG_PRIORITY_ERROR));
}

TEST (Camera, KeepsCopiesOfItsParameters)
{
  vorn::Ref<VornCamera> camera;
  {
    std::string name = "short-lived";
    VornCameraParameters parameters = {.name = name.c_str ()};
    camera = vorn::adopt (vorn_camera_new (&parameters));
    name.assign ("overwritten");
  }
  EXPECT_STREQ (vorn_camera_get_name (camera.get ()), "short-lived");
  EXPECT_EQ (vorn_camera_get_video_device (camera.get ()), nullptr);
  EXPECT_EQ (vorn_camera_get_element (camera.get ()), nullptr);
}

TEST (Camera, WrongCallsAreCriticals)
{
  CriticalCapture criticals;
  const VornCameraParameters nameless = {};
  gdouble x = 5.0;
  gdouble y = 5.0;
  gdouble z = 5.0;
  EXPECT_EQ (vorn_camera_new (nullptr), nullptr);
  EXPECT_EQ (vorn_camera_new (&nameless), nullptr);
  EXPECT_EQ (vorn_camera_get_name (nullptr), nullptr);
  EXPECT_EQ (vorn_camera_get_video_device (nullptr), nullptr);
  EXPECT_EQ (vorn_camera_get_sensor_configuration (nullptr), nullptr);
  EXPECT_EQ (vorn_camera_get_sensor (nullptr), nullptr);
  EXPECT_EQ (vorn_camera_get_element (nullptr), nullptr);
  EXPECT_EQ (vorn_camera_get_focal_length (nullptr), 0.0);
  vorn_camera_get_optical_center (nullptr, &x, &y);
  vorn_camera_get_camera_orientation (nullptr, &x, &y, &z);
  vorn_camera_get_factory_orientation (nullptr, &x, &y, &z);
  vorn_camera_get_position (nullptr, &x, &y, &z);
  EXPECT_EQ (vorn_sensor_get_width (nullptr), 0u);
  EXPECT_EQ (vorn_sensor_get_height (nullptr), 0u);
  EXPECT_EQ (criticals.criticals ().size (), 14u);
  EXPECT_NE (criticals.criticals ()[2].text.find ("assertion 'VORN_IS_CAMERA (camera)' failed"),
             std::string::npos);
}

} // namespace
