// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What "vorn-host modes" prints, as tables and as JSON.
#include "host_fixture.hpp"

#include <filesystem>
#include <set>

#include <json-glib/json-glib.h>

#include <vorn/raii.hpp>

namespace
{

using Texts = std::vector<std::string>;

class Json : public testing::Test
{
protected:
  /** Runs the command and takes the only virtual camera. */
  void SetUp () override
  {
    const ProcessResult host = run_host ({"--config", desk_configuration (), "modes", "--json"});
    ASSERT_EQ (host.status, 0) << host.errors;
    vorn::ErrorOut error;
    parser_ = vorn::adopt (json_parser_new ());
    ASSERT_TRUE (
        json_parser_load_from_data (parser_.get (), host.output.c_str (), -1, error.out ()))
        << error.message ();
    JsonObject *root = json_node_get_object (json_parser_get_root (parser_.get ()));
    EXPECT_EQ (names (root), (std::set<std::string>{"virtual_cameras"}));
    JsonArray *cameras = json_object_get_array_member (root, "virtual_cameras");
    ASSERT_EQ (json_array_get_length (cameras), 1u);
    camera_ = json_array_get_object_element (cameras, 0);
  }

  static std::set<std::string> names (JsonObject *object)
  {
    std::set<std::string> result;
    const vorn::Owned<GList, g_list_free> members (json_object_get_members (object));
    for (const GList *item = members.get (); item; item = item->next)
      result.insert (static_cast<const char *> (item->data));
    return result;
  }
  static std::string text (JsonObject *object, const char *name)
  {
    return json_object_get_string_member_with_default (object, name, "(none)");
  }
  static Texts texts (JsonObject *object, const char *name)
  {
    Texts result;
    JsonArray *array = json_object_get_array_member (object, name);
    for (guint i = 0; i < json_array_get_length (array); i++)
      result.emplace_back (json_array_get_string_element (array, i));
    return result;
  }
  static std::string size (JsonObject *object, const char *name)
  {
    JsonObject *value = json_object_get_object_member (object, name);
    return std::to_string (json_object_get_int_member (value, "width")) + "x" +
           std::to_string (json_object_get_int_member (value, "height"));
  }
  JsonObject *member (const char *name) { return json_object_get_object_member (camera_, name); }

  vorn::Ref<JsonParser> parser_;
  JsonObject *camera_ = nullptr;
};

TEST_F (Json, ModeAndDefaults)
{
  EXPECT_EQ (text (camera_, "name"), "front");
  JsonObject *mode = member ("mode");
  EXPECT_EQ (text (mode, "type"), "recording");
  EXPECT_EQ (text (mode, "sub_mode"), "standard");
  EXPECT_EQ (size (mode, "resolution"), "3840x2160");
  EXPECT_EQ (text (mode, "framerate"), "30000/1001");

  JsonObject *state = member ("default_state");
  EXPECT_EQ (text (state, "type"), "recording");
  EXPECT_EQ (size (state, "resolution"), "3840x2160");
  EXPECT_EQ (text (state, "framerate"), "30000/1001");
  EXPECT_EQ (json_object_get_int_member (state, "bitrate"), 30000000);

  JsonObject *photo = member ("default_photo_mode");
  EXPECT_EQ (text (photo, "mode"), "single");
  EXPECT_EQ (text (photo, "format"), "wide");
  EXPECT_EQ (text (photo, "file_format"), "jpeg");
  EXPECT_EQ (text (photo, "bracketing"), "PRESET_1EV");
  EXPECT_EQ (text (photo, "burst"), "BURST_14_OVER_1S");
}

TEST_F (Json, Exposure)
{
  JsonObject *exposure = member ("exposure");
  EXPECT_EQ (texts (exposure, "modes"),
             (Texts{"automatic", "automatic, prefer ISO", "automatic, prefer shutter", "manual ISO",
                    "manual shutter", "manual"}));
  EXPECT_EQ (json_object_get_int_member (exposure, "iso_min"), 100);
  EXPECT_EQ (json_object_get_int_member (exposure, "iso_max"), 3200);
  EXPECT_EQ (json_object_get_int_member (exposure, "iso_default"), 100);
  EXPECT_EQ (json_object_get_double_member (exposure, "ev_compensation_min"), -3.0);
  EXPECT_EQ (json_object_get_double_member (exposure, "ev_compensation_max"), 3.0);
  EXPECT_DOUBLE_EQ (json_object_get_double_member (exposure, "exposure_time_min_s"), 0.0001);
  // Bound by the frames of the mode in force.
  EXPECT_DOUBLE_EQ (json_object_get_double_member (exposure, "exposure_time_max_s"),
                    1001.0 / 30000.0);
}

TEST_F (Json, RecordingModes)
{
  const struct {
    Texts sub_modes;
    std::string min, max, standard; // resolutions
    std::string min_rate, max_rate, rate;
    bool hdr;
    std::string sensor;
  } rows[] = {
      {{"standard"},
       "4096x2160",
       "4096x2160",
       "4096x2160",
       "24000/1001",
       "24000/1001",
       "24000/1001",
       true,
       "5344x3200"},
      {{"standard", "hyperlapse"},
       "1920x1080",
       "3840x2160",
       "3840x2160",
       "24000/1001",
       "30000/1001",
       "30000/1001",
       true,
       "5344x3200"},
      {{"slow motion", "high framerate"},
       "1280x720",
       "1920x1080",
       "1920x1080",
       "48000/1001",
       "60000/1001",
       "60000/1001",
       false,
       "2656x1600"},
      {{"slow motion", "high framerate"},
       "1280x720",
       "1280x720",
       "1280x720",
       "120/1",
       "120/1",
       "120/1",
       false,
       "1312x788"},
  };
  JsonArray *modes = json_object_get_array_member (camera_, "recording_modes");
  ASSERT_EQ (json_array_get_length (modes), std::size (rows));
  for (const auto &row : rows) {
    const auto index = static_cast<guint> (&row - rows);
    SCOPED_TRACE (index);
    JsonObject *mode = json_array_get_object_element (modes, index);
    EXPECT_EQ (texts (mode, "sub_modes"), row.sub_modes);
    EXPECT_EQ (size (mode, "min_resolution"), row.min);
    EXPECT_EQ (size (mode, "max_resolution"), row.max);
    EXPECT_EQ (size (mode, "default_resolution"), row.standard);
    EXPECT_EQ (text (mode, "min_framerate"), row.min_rate);
    EXPECT_EQ (text (mode, "max_framerate"), row.max_rate);
    EXPECT_EQ (text (mode, "default_framerate"), row.rate);
    EXPECT_EQ (json_object_get_boolean_member (mode, "hdr") != FALSE, row.hdr);
    EXPECT_EQ (size (mode, "sensor_resolution"), row.sensor);
  }
}

TEST_F (Json, PhotoModes)
{
  const struct {
    Texts modes, formats, file_formats;
    bool hdr;
    std::string size;
  } rows[] = {
      {{"single"}, {"wide"}, {"dng+jpeg"}, true, "5344x4016"},
      {{"single", "burst"}, {"wide"}, {"jpeg"}, true, "5344x4016"},
      {{"single", "burst"}, {"rectilinear"}, {"jpeg"}, true, "4608x3456"},
      {{"single", "bracketing"}, {"wide"}, {"dng+jpeg"}, false, "5344x4016"},
      {{"single", "bracketing", "burst"}, {"wide"}, {"jpeg"}, false, "5344x4016"},
      {{"single", "bracketing", "burst"}, {"rectilinear"}, {"jpeg"}, false, "4608x3456"},
  };
  JsonArray *modes = json_object_get_array_member (camera_, "photo_modes");
  ASSERT_EQ (json_array_get_length (modes), std::size (rows));
  for (const auto &row : rows) {
    const auto index = static_cast<guint> (&row - rows);
    SCOPED_TRACE (index);
    JsonObject *mode = json_array_get_object_element (modes, index);
    EXPECT_EQ (texts (mode, "modes"), row.modes);
    EXPECT_EQ (texts (mode, "formats"), row.formats);
    EXPECT_EQ (texts (mode, "file_formats"), row.file_formats);
    EXPECT_EQ (json_object_get_boolean_member (mode, "hdr") != FALSE, row.hdr);
    EXPECT_EQ (size (mode, "resolution"), row.size);
  }
}

// ---- Tables

TEST (Table, AlignedRowsOfEverything)
{
  const ProcessResult host = run_host ({"--config", desk_configuration (), "modes"});
  ASSERT_EQ (host.status, 0) << host.errors;
  const std::string expected =
      R"(front (Front camera)
  mode           recording, standard, 3840x2160 at 30000/1001
  default state  recording, 3840x2160 at 30000/1001, 30 Mbit/s
  default photo  single, wide, jpeg, bracketing PRESET_1EV, burst BURST_14_OVER_1S
  exposure       ISO 100 to 3200 (default 100), EV -3.0 to +3.0, 0.1 ms to 33.37 ms
  exposure modes automatic; automatic, prefer ISO; automatic, prefer shutter; manual ISO; manual shutter; manual
  recording modes
    sub-modes                    resolution              framerate                 default                  HDR  sensor
    standard                     4096x2160               24000/1001                4096x2160 at 24000/1001  yes  5344x3200
    standard, hyperlapse         1920x1080 to 3840x2160  24000/1001 to 30000/1001  3840x2160 at 30000/1001  yes  5344x3200
    slow motion, high framerate  1280x720 to 1920x1080   48000/1001 to 60000/1001  1920x1080 at 60000/1001  no   2656x1600
    slow motion, high framerate  1280x720                120/1                     1280x720 at 120/1        no   1312x788
  photo modes
    modes                      format       file format  HDR  size
    single                     wide         dng+jpeg     yes  5344x4016
    single, burst              wide         jpeg         yes  5344x4016
    single, burst              rectilinear  jpeg         yes  4608x3456
    single, bracketing         wide         dng+jpeg     no   5344x4016
    single, bracketing, burst  wide         jpeg         no   5344x4016
    single, bracketing, burst  rectilinear  jpeg         no   4608x3456
)";
  EXPECT_EQ (host.output, expected);
}

TEST (Table, NeedsNoDroneAndLeavesNothing)
{
  const ProcessResult host = run_host ({"--config", desk_configuration (), "modes"});
  EXPECT_EQ (host.status, 0);
  EXPECT_EQ (host.errors, "") << "of a camera that is not there, of sections that stay";
}

TEST (Table, StartsInTheModeOfItsSensor)
{
  const TempDir dir;
  const struct {
    std::string sensor;
    std::string mode;
    bool warned;
  } rows[] = {
      {"sensor-size=5344x3200\nframerate=24000/1001\n",
       "recording, standard, 4096x2160 at 24000/1001", false},
      {"sensor-size=2656x1600\nframerate=50/1\n", "recording, slow motion, 1920x1080 at 50/1",
       false},
      {"sensor-size=1312x788\nframerate=120/1\n", "recording, slow motion, 1280x720 at 120/1",
       false},
      {"sensor-size=1280x720\nframerate=24000/1001\n",
       "recording, standard, 4096x2160 at 24000/1001", true},
  };
  for (const auto &row : rows) {
    const std::string path =
        dir.write ("drone.conf", "[camera-front]\nvideo-device=unix:/x\n" + row.sensor);
    const ProcessResult host = run_host ({"--config", path, "modes"});
    EXPECT_EQ (host.status, 0) << host.errors;
    EXPECT_TRUE (contains (host.output, "\n  mode           " + row.mode + "\n")) << host.output;
    EXPECT_EQ (contains (host.errors, "no mode found with sensor configuration: use default one"),
               row.warned);
  }
}

} // namespace
