// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What stands in the pictures of a pipeline that a view was given, read by exiftool.
#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <gst/tag/tag.h>

#include "log_capture.hpp"
#include "photo_file_support.hpp"
#include "temp_dir.hpp"
#include "test_gst_view.hpp"
#include <vorn/framework.h>
#include <vorn/photo_tags.h>

namespace
{

using OwnedDate = vorn::Owned<GstDateTime, gst_date_time_unref>;

/** 2026-03-09 23:59:59.042 two hours east of Greenwich. */
OwnedDate good_date ()
{
  return OwnedDate (gst_date_time_new (2.0F, 2026, 3, 9, 23, 59, 59.042));
}

class PhotoFile : public testing::Test
{
protected:
  static void SetUpTestSuite () { vorn_framework_init (nullptr, nullptr); }
  void TearDown () override
  {
    EXPECT_TRUE (criticals_.criticals ().empty ());
    EXPECT_TRUE (criticals_.warnings ().empty ());
    if (!expects_messages_) {
      EXPECT_TRUE (log_.texts (VORN_LOG_PRIORITY_ERROR).empty ());
      EXPECT_TRUE (log_.texts (VORN_LOG_PRIORITY_WARNING).empty ());
    }
  }

  std::string pattern () const { return dir_.at ("photo_%04d.jpg"); }
  std::string file (int index = 0) const
  {
    return dir_.at ("photo_000" + std::to_string (index) + ".jpg");
  }
  bool has_message (const std::string &text, int priority)
  {
    expects_messages_ = true;
    return log_.has (text, priority);
  }

  TempDir dir_;
  LogCapture log_;
  CriticalCapture criticals_;
  bool expects_messages_ = false;
};

/** What a product sets when a picture is asked for. */
void set_drone_tags (PhotoPipeline &photo)
{
  photo.set_tags ("description", "Zelto 7.1a", "device-manufacturer", "Maker", "device-model",
                  "Zelto", "image-orientation", "rotate-0", "image-horizontal-ppi", 72.0,
                  "image-vertical-ppi", 72.0, "application-name", "build-5", "chroma-positioning",
                  "centered", "capturing-metering-mode", "center-weighted-average",
                  "components-configuration", "1230", "capturing-flash-fired", FALSE, "color-space",
                  "s-rgb", "capturing-source", "dsc", "capturing-scene-capture-type", "standard",
                  "capturing-focal-length", 4.0, "capturing-focal-length-35mm", 23.0,
                  "capturing-focal-ratio", 2.4, "capturing-focal-plane-resolution-unit", "cm",
                  "sequence-number", 3u, "panorama-type", "spherical", "photo-count", 42u,
                  "drone-roll", 1.25, "drone-pitch", -2.5, "drone-yaw", 33.75, nullptr);
  photo.set_tags ("device-model-id", "model-id-1", "device-serial", "SN-0042", "vehicle-uuid",
                  "SN-0042", "software-version", "v7.1", "software-build-id", "build-5", "boot-id",
                  "0dd2c1ab-boot", "above-takeoff-altitude", 20.125, "photo-mode", "panorama",
                  "run-date", "flight-9", "flight-uid", "flight-9", "run-id", "run-8", nullptr);
}

/** What a product sets with the picture itself. */
void set_picture_tags (PhotoPipeline &photo)
{
  const auto date = good_date ();
  photo.set_tags ("datetime", date.get (), "milliseconds", 42u, "capturing-shutter-speed", 1, 250,
                  "capturing-exposure-program", "normal", "capturing-iso-speed", 200,
                  "capturing-exposure-compensation", -0.5, "compressed-image-width", 640u,
                  "compressed-image-height", 480u, "capturing-exposure-mode", "auto-exposure",
                  "capturing-white-balance-r-gain", 1.5, "capturing-white-balance-b-gain", 2.25,
                  "capturing-focal-plane-x-resolution", 62500.0 / 7,
                  "capturing-focal-plane-y-resolution", 62500.0 / 7, "capturing-contrast", "soft",
                  "capturing-saturation", "high-saturation", "capturing-sharpness", "hard",
                  "capturing-timestamp", G_GUINT64_CONSTANT (9007199254740993),
                  "geo-location-latitude", 45.123456789, "geo-location-longitude", -6.987654321,
                  "geo-location-elevation", 512.345, "geo-satellites-count", 14u,
                  "geo-accuracy-horizontal", 1.5, "geo-accuracy-vertical", 3.25, nullptr);
  photo.set_tags ("camera-roll", 0.5, "camera-pitch", -30.25, "camera-yaw", 120.5,
                  "pix4d-camera-roll", 0.125, "pix4d-camera-pitch", 59.75, "pix4d-camera-yaw",
                  120.25, "visible-camera-roll", 0.0, "visible-camera-pitch", -30.5,
                  "visible-camera-yaw", 121.0, "video-codec", "image/jpeg",
                  "capturing-white-balance", "auto", nullptr);
}

struct Expectation {
  const char *key;
  const char *value; // a number is compared as one
};

void expect (const Metadata &metadata, const std::vector<Expectation> &expectations)
{
  for (const auto &[key, value] : expectations) {
    char *end = nullptr;
    const double number = g_ascii_strtod (value, &end);
    if (*end == '\0' && std::isfinite (number))
      EXPECT_NEAR (metadata.number (key), number, std::abs (number) * 1e-9) << key;
    else
      EXPECT_EQ (metadata.text (key), value) << key;
  }
}

TEST_F (PhotoFile, CarriesEveryTag)
{
  PhotoPipeline photo (pattern ());
  set_drone_tags (photo);
  set_picture_tags (photo);
  ASSERT_TRUE (photo.run ());
  ASSERT_EQ (photo.files (), std::vector<std::string>{file ()});
  const Metadata metadata (file ());
  expect (metadata, {
                        {"IFD0:ImageDescription", "Zelto 7.1a"},
                        {"IFD0:Make", "Maker"},
                        {"IFD0:Model", "Zelto"},
                        {"IFD0:Orientation", "1"},
                        {"IFD0:XResolution", "72"},
                        {"IFD0:YResolution", "72"},
                        {"IFD0:ResolutionUnit", "2"},
                        {"IFD0:Software", "build-5"},
                        {"IFD0:YCbCrPositioning", "1"},
                        {"ExifIFD:MeteringMode", "2"},
                        {"ExifIFD:ComponentsConfiguration", "1 2 3 0"},
                        {"ExifIFD:Flash", "0"},
                        {"ExifIFD:ColorSpace", "1"},
                        {"ExifIFD:FileSource", "3"},
                        {"ExifIFD:SceneCaptureType", "0"},
                        {"ExifIFD:FocalLength", "4"},
                        {"ExifIFD:FocalLengthIn35mmFormat", "23"},
                        {"ExifIFD:FNumber", "2.4"},
                        {"ExifIFD:FocalPlaneResolutionUnit", "3"},
                        {"XMP-vorn:SequenceNumber", "3"},
                        {"XMP-vorn:PanoramaType", "spherical"},
                        {"XMP-vorn:PhotoCount", "42"},
                        {"XMP-vorn:DroneRoll", "1.25"},
                        {"XMP-vorn:DronePitch", "-2.5"},
                        {"XMP-vorn:DroneYaw", "33.75"},
                        {"XMP-vorn:DeviceModelId", "model-id-1"},
                        {"ExifIFD:SerialNumber", "SN-0042"},
                        {"XMP-vorn:VehicleUuid", "SN-0042"},
                        {"XMP-vorn:SoftwareVersion", "v7.1"},
                        {"XMP-vorn:SoftwareBuildId", "build-5"},
                        {"XMP-vorn:BootId", "0dd2c1ab-boot"},
                        {"XMP-vorn:AboveTakeoffAltitude", "20.125"},
                        {"XMP-vorn:PhotoMode", "panorama"},
                        {"XMP-vorn:RunDate", "flight-9"},
                        {"XMP-vorn:FlightUid", "flight-9"},
                        {"XMP-vorn:RunId", "run-8"},
                        {"IFD0:ModifyDate", "2026:03:09 23:59:59"},
                        {"ExifIFD:DateTimeOriginal", "2026:03:09 23:59:59"},
                        {"ExifIFD:CreateDate", "2026:03:09 23:59:59"},
                        {"ExifIFD:SubSecTime", "042"},
                        {"ExifIFD:SubSecTimeOriginal", "042"},
                        {"ExifIFD:SubSecTimeDigitized", "042"},
                        {"ExifIFD:OffsetTime", "+02:00"},
                        {"ExifIFD:OffsetTimeOriginal", "+02:00"},
                        {"ExifIFD:OffsetTimeDigitized", "+02:00"},
                        {"ExifIFD:ExifVersion", "0232"},
                        {"ExifIFD:ExposureTime", "0.004"},
                        {"ExifIFD:ExposureProgram", "2"},
                        {"ExifIFD:ISO", "200"},
                        {"ExifIFD:ExposureCompensation", "-0.5"},
                        {"ExifIFD:ExifImageWidth", "640"},
                        {"ExifIFD:ExifImageHeight", "480"},
                        {"XMP-vorn:CompressedImageWidth", "640"},
                        {"XMP-vorn:CompressedImageHeight", "480"},
                        {"ExifIFD:ExposureMode", "0"},
                        {"XMP-vorn:CapturingWhiteBalanceRGain", "1.5"},
                        {"XMP-vorn:CapturingWhiteBalanceBGain", "2.25"},
                        {"ExifIFD:FocalPlaneXResolution", "8928.571428571428"},
                        {"ExifIFD:FocalPlaneYResolution", "8928.571428571428"},
                        {"ExifIFD:Contrast", "1"},
                        {"ExifIFD:Saturation", "2"},
                        {"ExifIFD:Sharpness", "2"},
                        {"GPS:GPSLatitudeRef", "N"},
                        {"GPS:GPSLongitudeRef", "W"},
                        {"GPS:GPSAltitudeRef", "0"},
                        {"GPS:GPSAltitude", "512.345"},
                        {"GPS:GPSVersionID", "2 3 0 0"},
                        {"GPS:GPSMapDatum", "WGS-84"},
                        {"GPS:GPSDateStamp", "2026:03:09"},
                        {"GPS:GPSTimeStamp", "21:59:59.042"},
                        {"GPS:GPSSatellites", "14"},
                        {"GPS:GPSHPositioningError", "1.5"},
                        {"XMP-Camera:GPSXYAccuracy", "1.5"},
                        {"XMP-Camera:GPSZAccuracy", "3.25"},
                        {"XMP-vorn:CameraRoll", "0.5"},
                        {"XMP-vorn:CameraPitch", "-30.25"},
                        {"XMP-vorn:CameraYaw", "120.5"},
                        {"XMP-Camera:Roll", "0.125"},
                        {"XMP-Camera:Pitch", "59.75"},
                        {"XMP-Camera:Yaw", "120.25"},
                        {"XMP-vorn:VisibleCameraRoll", "0"},
                        {"XMP-vorn:VisibleCameraPitch", "-30.5"},
                        {"XMP-vorn:VisibleCameraYaw", "121"},
                        {"ExifIFD:CameraElevationAngle", "-30.5"},
                        {"GPS:GPSImgDirection", "121"},
                        {"GPS:GPSImgDirectionRef", "T"},
                        {"XMP-dc:Format", "image/jpeg"},
                        {"ExifIFD:WhiteBalance", "0"},
                        {"ExifIFD:LightSource", "0"},
                    });
  EXPECT_EQ (metadata.text ("XMP-vorn:CapturingTimestamp"), "9007199254740993");
  // Within 10 micrometres.
  EXPECT_NEAR (metadata.number ("GPS:GPSLatitude"), 45.123456789, 1e-10);
  EXPECT_NEAR (metadata.number ("GPS:GPSLongitude"), 6.987654321, 1e-10);
  EXPECT_FALSE (metadata.has ("XMP-vorn:Milliseconds")) << metadata.all ();
  EXPECT_FALSE (metadata.has ("IFD1:ThumbnailImage")) << metadata.all ();
  EXPECT_FALSE (metadata.has ("ExifTool:Warning")) << metadata.text ("ExifTool:Warning");
  EXPECT_EQ (pixels_of (file ()).size (), 640u * 480 * 3 / 2);
}

TEST_F (PhotoFile, EachTagOfOursHasAPlace)
{
  // Whatever is added to the table of tags is in the file, too.
  PhotoPipeline photo (pattern ());
  size_t count = 0;
  const VornPhotoTag *tags = vorn_photo_tags_get (&count);
  ASSERT_GT (count, 40u);
  for (size_t i = 0; i < count; i++) {
    const std::string text = "value-" + std::to_string (i);
    const auto number = static_cast<guint> (500 + i);
    switch (tags[i].type) {
    case G_TYPE_STRING:
      photo.set_tags (tags[i].name, text.c_str (), nullptr);
      break;
    case G_TYPE_UINT:
      photo.set_tags (tags[i].name, number, nullptr);
      break;
    case G_TYPE_UINT64:
      photo.set_tags (tags[i].name, guint64{number}, nullptr);
      break;
    default:
      ASSERT_EQ (tags[i].type, G_TYPE_DOUBLE) << tags[i].name;
      photo.set_tags (tags[i].name, static_cast<double> (number), nullptr);
    }
  }
  const auto date = good_date ();
  photo.set_tags ("datetime", date.get (), nullptr);
  ASSERT_TRUE (photo.run ());
  const std::string all = Metadata (file ()).all ();
  for (size_t i = 0; i < count; i++) {
    const bool is_text = tags[i].type == G_TYPE_STRING;
    const std::string value = is_text ? "value-" + std::to_string (i) : std::to_string (500 + i);
    EXPECT_NE (all.find (" = " + value + "\n"), std::string::npos) << tags[i].name << "\n" << all;
  }
}

TEST_F (PhotoFile, MuxersInsideOrStillToComeAreWatchedAlike)
{
  for (const bool attach_first : {false, true}) {
    PhotoPipeline photo (pattern (), "videotestsrc num-buffers=1", attach_first);
    photo.set_tags ("run-id", attach_first ? "later" : "before", nullptr);
    ASSERT_TRUE (photo.run ());
    EXPECT_EQ (Metadata (file ()).text ("XMP-vorn:RunId"), attach_first ? "later" : "before");
  }
}

TEST_F (PhotoFile, PipelineIsWatchedOnceWhateverViewsItGoesThrough)
{
  const auto pipeline = vorn::adopt (gst_pipeline_new (nullptr));
  for (int i = 0; i < 3; i++) {
    const auto view = vorn::adopt (test_gst_view_new ("front"));
    EXPECT_TRUE (vorn_gst_view_attach_element (view.get (), pipeline.get ()));
  }
  const guint signal = g_signal_lookup ("deep-element-added", GST_TYPE_BIN);
  int handlers = 0;
  while (const gulong handler = g_signal_handler_find (pipeline.get (), G_SIGNAL_MATCH_ID, signal,
                                                       0, nullptr, nullptr, nullptr)) {
    g_signal_handler_disconnect (pipeline.get (), handler);
    handlers++;
  }
  EXPECT_EQ (handlers, 1);
}

TEST_F (PhotoFile, BufferKeepsItsTimes)
{
  PhotoPipeline photo (pattern (), "videotestsrc num-buffers=3 timestamp-offset=5000000000 ! "
                                   "video/x-raw,framerate=10/1");
  struct Seen {
    std::vector<GstClockTime> times;
    std::vector<int> references;
  } seen;
  const auto pad = vorn::adopt (gst_element_get_static_pad (photo.sink (), "sink"));
  gst_pad_add_probe (
      pad.get (), GST_PAD_PROBE_TYPE_BUFFER,
      [] (GstPad *, GstPadProbeInfo *info, gpointer data) {
        auto *to = static_cast<Seen *> (data);
        to->times.push_back (GST_BUFFER_PTS (GST_PAD_PROBE_INFO_BUFFER (info)));
        to->references.push_back (
            GST_MINI_OBJECT_REFCOUNT_VALUE (GST_PAD_PROBE_INFO_BUFFER (info)));
        return GST_PAD_PROBE_OK;
      },
      &seen, nullptr);
  ASSERT_TRUE (photo.run ());
  EXPECT_EQ (seen.times, (std::vector<GstClockTime>{5000000000, 5100000000, 5200000000}));
  EXPECT_EQ (seen.references, (std::vector<int>{1, 1, 1}));
  EXPECT_EQ (photo.files (), (std::vector<std::string>{file (0), file (1), file (2)}));
}

TEST_F (PhotoFile, PictureItselfIsTheEncoders)
{
  {
    PhotoPipeline photo (pattern ());
    set_drone_tags (photo);
    const auto thumbnail = make_thumbnail (320, 240);
    photo.set_tags (GST_TAG_IMAGE, thumbnail.get (), nullptr);
    ASSERT_TRUE (photo.run ());
  }
  const auto plain = make_thumbnail (640, 480);
  dir_.write ("plain.jpg", bytes_of (plain.get ()));
  EXPECT_TRUE (pixels_of (file ()) == pixels_of (dir_.at ("plain.jpg")));
}

TEST_F (PhotoFile, PipelinesThatPlayAtOnceKeepTheirOwn)
{
  std::vector<std::unique_ptr<PhotoPipeline>> photos;
  for (int i = 0; i < 4; i++) {
    const std::string name = std::to_string (i);
    photos.push_back (std::make_unique<PhotoPipeline> (dir_.at ("p" + name + "_%04d.jpg"),
                                                       "videotestsrc num-buffers=20"));
    photos.back ()->set_tags ("run-id", ("run-" + name).c_str (), nullptr);
  }
  for (const auto &photo : photos)
    photo->start ();
  for (size_t i = 0; i < photos.size (); i++) {
    ASSERT_TRUE (photos[i]->finish ());
    ASSERT_EQ (photos[i]->files ().size (), 20u);
    for (const size_t shot : {size_t{0}, size_t{19}})
      EXPECT_EQ (Metadata (photos[i]->files ()[shot]).text ("XMP-vorn:RunId"),
                 "run-" + std::to_string (i));
  }
}

// ---- Thumbnail

TEST_F (PhotoFile, ThumbnailIsTheSample)
{
  PhotoPipeline photo (pattern ());
  const auto thumbnail = make_thumbnail (320, 240, "ball");
  photo.set_tags (GST_TAG_IMAGE, thumbnail.get (), nullptr);
  set_drone_tags (photo);
  ASSERT_TRUE (photo.run ());
  const std::string embedded = binary (file (), "IFD1:ThumbnailImage");
  EXPECT_TRUE (embedded == bytes_of (thumbnail.get ()));
  dir_.write ("thumbnail.jpg", embedded);
  EXPECT_EQ (pixels_of (dir_.at ("thumbnail.jpg")).size (), 320u * 240 * 3 / 2);
  const Metadata metadata (file ());
  EXPECT_EQ (metadata.text ("IFD1:Compression"), "6");
  EXPECT_EQ (metadata.text ("IFD1:XResolution"), "72");
  EXPECT_EQ (metadata.text ("XMP-vorn:RunId"), "run-8");
}

TEST_F (PhotoFile, EachPictureOfABurstHasItsOwnThumbnail)
{
  PhotoPipeline photo (pattern (), "videotestsrc num-buffers=5 pattern=ball");
  std::vector<vorn::Ref<GstSample>> thumbnails;
  for (const char *pattern : {"smpte", "ball", "checkers-8", "circular", "bar"})
    thumbnails.push_back (make_thumbnail (320, 240, pattern));
  struct Shots {
    PhotoPipeline *photo;
    std::vector<vorn::Ref<GstSample>> *thumbnails;
    size_t next;
  } shots = {&photo, &thumbnails, 0};
  const auto pad = vorn::adopt (gst_element_get_static_pad (photo.muxer (), "sink"));
  gst_pad_add_probe (
      pad.get (), GST_PAD_PROBE_TYPE_BUFFER,
      [] (GstPad *, GstPadProbeInfo *, gpointer data) {
        auto *to = static_cast<Shots *> (data);
        to->photo->set_tags (GST_TAG_IMAGE, (*to->thumbnails)[to->next].get (), "sequence-number",
                             static_cast<guint> (to->next), nullptr);
        to->next++;
        return GST_PAD_PROBE_OK;
      },
      &shots, nullptr);
  ASSERT_TRUE (photo.run ());
  ASSERT_EQ (photo.files ().size (), 5u);
  for (int i = 0; i < 5; i++) {
    EXPECT_TRUE (binary (file (i), "IFD1:ThumbnailImage") ==
                 bytes_of (thumbnails[static_cast<size_t> (i)].get ()))
        << i;
    EXPECT_EQ (Metadata (file (i)).number ("XMP-vorn:SequenceNumber"), i);
  }
}

TEST_F (PhotoFile, SampleThatIsNoThumbnailIsLeftOutWithAWarning)
{
  const std::string good = bytes_of (make_thumbnail (320, 240).get ());
  std::string garbled = good;
  garbled.replace (2, 200, std::string (200, 'x'));
  const struct {
    vorn::Ref<GstSample> sample;
    const char *reason;
  } cases[] = {
      {make_sample (""), "it is no whole JPEG picture"},
      {make_sample ("\xff\xd8"), "it is no whole JPEG picture"},
      {make_sample (std::string (5000, 'x')), "it is no whole JPEG picture"},
      {make_sample (good.substr (0, good.size () / 2)), "it is no whole JPEG picture"},
      {make_sample (std::string ("\xff\xd8\xff\xd9", 4) + std::string ("\xff\xd9", 2)),
       "it cannot be read"},
      {make_sample (garbled), "it cannot be read"},
      {make_sample (good, "image/png"), "it is not of type image/jpeg"},
      {make_thumbnail (1280, 960, "snow"), "it is too large for EXIF"},
      {vorn::adopt (gst_sample_new (nullptr, nullptr, nullptr, nullptr)),
       "it is not of type image/jpeg"},
      {vorn::adopt (gst_sample_new (nullptr,
                                    vorn::adopt (gst_caps_new_empty_simple ("image/jpeg")).get (),
                                    nullptr, nullptr)),
       "it has no data"},
  };
  for (const auto &[sample, reason] : cases) {
    SCOPED_TRACE (reason);
    log_.clear ();
    PhotoPipeline photo (pattern ());
    photo.set_tags (GST_TAG_IMAGE, sample.get (), "run-id", "run-8", nullptr);
    ASSERT_TRUE (photo.run ());
    EXPECT_TRUE (
        has_message (std::string ("photo has no thumbnail: ") + reason, VORN_LOG_PRIORITY_WARNING))
        << testing::PrintToString (log_.texts (VORN_LOG_PRIORITY_WARNING));
    const Metadata metadata (file ());
    EXPECT_EQ (metadata.text ("XMP-vorn:RunId"), "run-8");
    EXPECT_FALSE (metadata.has ("IFD1:ThumbnailImage"));
  }
  EXPECT_TRUE (log_.texts (VORN_LOG_PRIORITY_ERROR).empty ());
}

// ---- Odd values

TEST_F (PhotoFile, ValuesThatTheirFieldCannotHoldAreKeptInThePrivateNamespace)
{
  PhotoPipeline photo (pattern ());
  photo.set_tags ("color-space", "adobe", "chroma-positioning", "askew", "components-configuration",
                  "12", "capturing-focal-plane-x-resolution", 0.0,
                  "capturing-focal-plane-y-resolution", -4.0,
                  "capturing-focal-plane-resolution-unit", "furlong", "geo-accuracy-horizontal",
                  0.0, "drone-roll", std::numeric_limits<double>::quiet_NaN (), "drone-pitch",
                  std::numeric_limits<double>::infinity (), "drone-yaw", 1e-300, nullptr);
  ASSERT_TRUE (photo.run ());
  const Metadata metadata (file ());
  expect (metadata, {{"XMP-vorn:ColorSpace", "adobe"},
                     {"XMP-vorn:ChromaPositioning", "askew"},
                     {"XMP-vorn:ComponentsConfiguration", "12"},
                     {"XMP-vorn:CapturingFocalPlaneXResolution", "0"},
                     {"XMP-vorn:CapturingFocalPlaneYResolution", "-4"},
                     {"XMP-vorn:CapturingFocalPlaneResolutionUnit", "furlong"},
                     {"XMP-vorn:GeoAccuracyHorizontal", "0"},
                     {"XMP-vorn:DroneRoll", "nan"},
                     {"XMP-vorn:DronePitch", "inf"},
                     {"XMP-vorn:DroneYaw", "1e-300"}});
  for (const char *key :
       {"ExifIFD:ColorSpace", "IFD0:YCbCrPositioning", "ExifIFD:ComponentsConfiguration",
        "ExifIFD:FocalPlaneXResolution", "ExifIFD:FocalPlaneYResolution",
        "ExifIFD:FocalPlaneResolutionUnit", "GPS:GPSHPositioningError"})
    EXPECT_FALSE (metadata.has (key)) << key << " = " << metadata.text (key);
}

TEST_F (PhotoFile, ExposureThatIsNotKnownHasNoLogarithm)
{
  PhotoPipeline photo (pattern ());
  photo.set_tags ("capturing-shutter-speed", 0, 1, "capturing-iso-speed", 0,
                  "capturing-exposure-program", "undefined", nullptr);
  ASSERT_TRUE (photo.run ());
  const Metadata metadata (file ());
  expect (metadata,
          {{"ExifIFD:ExposureTime", "0"}, {"ExifIFD:ISO", "0"}, {"ExifIFD:ExposureProgram", "0"}});
  EXPECT_FALSE (metadata.has ("ExifIFD:ShutterSpeedValue"));
}

TEST_F (PhotoFile, LightSources)
{
  const struct {
    const char *balance;
    const char *source;
  } cases[] = {{"daylight", "1"}, {"fluorescent", "2"},    {"tungsten", "3"}, {"flash", "4"},
               {"cloudy", "10"},  {"fluorescent h", "12"}, {"manual", "0"}};
  for (const auto &[balance, source] : cases) {
    PhotoPipeline photo (pattern (), "videotestsrc num-buffers=1 pattern=black");
    photo.set_tags ("capturing-white-balance", balance, nullptr);
    ASSERT_TRUE (photo.run ());
    const Metadata metadata (file ());
    EXPECT_EQ (metadata.text ("ExifIFD:LightSource"), source) << balance;
    EXPECT_EQ (metadata.text ("ExifIFD:WhiteBalance"), "1") << balance;
  }
}

TEST_F (PhotoFile, TextsInAnyScript)
{
  const std::string text = "Zëlto <\"&'> 無人機 \xf0\x9f\x9a\x81";
  PhotoPipeline photo (pattern ());
  photo.set_tags ("run-id", text.c_str (), "flight-uid", "a\x01\x1f\tb\nc", "boot-id",
                  std::string (20000, 'b').c_str (), "device-serial", "é", nullptr);
  ASSERT_TRUE (photo.run ());
  const Metadata metadata (file ());
  EXPECT_EQ (metadata.text ("XMP-vorn:RunId"), text);
  EXPECT_EQ (metadata.text ("XMP-vorn:FlightUid"), "a   b c");
  EXPECT_EQ (metadata.text ("XMP-vorn:BootId"), std::string (20000, 'b'));
  EXPECT_EQ (metadata.text ("ExifIFD:SerialNumber"), "é");
}

TEST_F (PhotoFile, PictureThatCannotBeCompletedIsTheMuxers)
{
  // Larger than a segment of a JPEG file.
  PhotoPipeline photo (pattern ());
  photo.set_tags ("device-manufacturer", "Maker", "boot-id", std::string (200000, 'b').c_str (),
                  nullptr);
  ASSERT_TRUE (photo.run ());
  expects_messages_ = true;
  const auto errors = log_.texts (VORN_LOG_PRIORITY_ERROR);
  ASSERT_EQ (errors.size (), 1u);
  EXPECT_EQ (errors[0].find ("'picture-jpegmux': a photo goes without what its muxer leaves out: "),
             0u)
      << errors[0];
  const Metadata metadata (file ());
  EXPECT_EQ (metadata.text ("IFD0:Make"), "Maker");
  EXPECT_FALSE (metadata.has ("XMP-vorn:BootId"));
  EXPECT_EQ (pixels_of (file ()).size (), 640u * 480 * 3 / 2);
  // The next one is complete again.
  photo.set_tags ("boot-id", "short", nullptr);
  ASSERT_TRUE (photo.run ());
  EXPECT_EQ (Metadata (file (1)).text ("XMP-vorn:BootId"), "short");
}

TEST_F (PhotoFile, WithoutTagsThereIsOnlyWhatThePictureTells)
{
  PhotoPipeline photo (pattern ());
  ASSERT_TRUE (photo.run ());
  const Metadata metadata (file ());
  EXPECT_EQ (metadata.text ("ExifIFD:ExifImageWidth"), "640");
  EXPECT_EQ (metadata.all ().find ("GPS"), std::string::npos);
  EXPECT_EQ (metadata.all ().find ("XMP-vorn"), std::string::npos);
  EXPECT_EQ (metadata.all ().find ("SubSec"), std::string::npos);
}

// ---- Date and place

TEST_F (PhotoFile, DatesAndZones)
{
  const struct {
    OwnedDate date;
    guint milliseconds; // above 999: no tag
    const char *local, *fraction, *offset, *utc_date, *utc_time;
  } cases[] = {
      {OwnedDate (gst_date_time_new (5.5F, 2026, 1, 1, 0, 15, 0.0)), 7, "2026:01:01 00:15:00",
       "007", "+05:30", "2025:12:31", "18:45:00.007"},
      {OwnedDate (gst_date_time_new (-3.5F, 2024, 2, 28, 22, 30, 59.0)), 999, "2024:02:28 22:30:59",
       "999", "-03:30", "2024:02:29", "02:00:59.999"},
      {OwnedDate (gst_date_time_new (0.0F, 2026, 6, 30, 12, 0, 5.25)), 1000, "2026:06:30 12:00:05",
       "250", "+00:00", "2026:06:30", "12:00:05.25"},
      {OwnedDate (gst_date_time_new (-0.5F, 2026, 6, 30, 12, 0, 5.0)), 0, "2026:06:30 12:00:05",
       "000", "-00:30", "2026:06:30", "12:30:05"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE (c.local);
    PhotoPipeline photo (pattern ());
    photo.set_tags ("datetime", c.date.get (), "geo-location-latitude", 1.0,
                    "geo-location-longitude", 2.0, nullptr);
    if (c.milliseconds < 1000)
      photo.set_tags ("milliseconds", c.milliseconds, nullptr);
    ASSERT_TRUE (photo.run ());
    const Metadata metadata (file ());
    EXPECT_EQ (metadata.text ("ExifIFD:DateTimeOriginal"), c.local);
    EXPECT_EQ (metadata.text ("ExifIFD:SubSecTimeOriginal"), c.fraction);
    EXPECT_EQ (metadata.text ("ExifIFD:OffsetTimeOriginal"), c.offset);
    EXPECT_EQ (metadata.text ("GPS:GPSDateStamp"), c.utc_date);
    EXPECT_EQ (metadata.text ("GPS:GPSTimeStamp"), c.utc_time);
  }
}

TEST_F (PhotoFile, DateWithoutATimeHasNoZone)
{
  PhotoPipeline photo (pattern ());
  const OwnedDate day (gst_date_time_new_ymd (2026, 3, 9));
  photo.set_tags ("datetime", day.get (), "geo-location-latitude", 1.0, "geo-location-longitude",
                  2.0, nullptr);
  ASSERT_TRUE (photo.run ());
  const Metadata metadata (file ());
  EXPECT_FALSE (metadata.has ("ExifIFD:OffsetTime"));
  EXPECT_FALSE (metadata.has ("ExifIFD:SubSecTime"));
  EXPECT_FALSE (metadata.has ("GPS:GPSDateStamp"));
  EXPECT_TRUE (metadata.has ("GPS:GPSLatitude"));
}

TEST_F (PhotoFile, PlacesAroundTheEarth)
{
  const struct {
    double latitude, longitude, altitude;
    const char *latitude_ref, *longitude_ref, *altitude_ref;
  } cases[] = {
      {45.5, 6.25, 500.0, "N", "E", "0"},    {-33.999999999, -70.000000001, -12.5, "S", "W", "1"},
      {0.0, 0.0, 0.0, "N", "E", "0"},        {90.0, 180.0, 8848.86, "N", "E", "0"},
      {-90.0, -180.0, 0.001, "S", "W", "0"}, {59.99999999999, 0.01666666666666, 1.0, "N", "E", "0"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE (testing::Message () << c.latitude << ", " << c.longitude);
    PhotoPipeline photo (pattern ());
    photo.set_tags ("geo-location-latitude", c.latitude, "geo-location-longitude", c.longitude,
                    "geo-location-elevation", c.altitude, nullptr);
    ASSERT_TRUE (photo.run ());
    const Metadata metadata (file ());
    EXPECT_NEAR (metadata.number ("GPS:GPSLatitude"), std::abs (c.latitude), 1e-10);
    EXPECT_NEAR (metadata.number ("GPS:GPSLongitude"), std::abs (c.longitude), 1e-10);
    EXPECT_NEAR (metadata.number ("GPS:GPSAltitude"), std::abs (c.altitude), 5e-4);
    EXPECT_EQ (metadata.text ("GPS:GPSLatitudeRef"), c.latitude_ref);
    EXPECT_EQ (metadata.text ("GPS:GPSLongitudeRef"), c.longitude_ref);
    EXPECT_EQ (metadata.text ("GPS:GPSAltitudeRef"), c.altitude_ref);
  }
}

TEST_F (PhotoFile, PlaceThatIsNotOnEarthIsLeftOut)
{
  PhotoPipeline photo (pattern ());
  photo.set_tags ("geo-location-latitude", 91.5, "geo-location-longitude", 6.0,
                  "geo-location-elevation", 500.0, "run-id", "run-8", nullptr);
  ASSERT_TRUE (photo.run ());
  EXPECT_TRUE (has_message ("location of a photo is not on earth and left out: 91.5, 6",
                            VORN_LOG_PRIORITY_WARNING));
  const Metadata metadata (file ());
  EXPECT_EQ (metadata.all ().find ("GPS"), std::string::npos) << metadata.all ();
  EXPECT_EQ (metadata.text ("XMP-vorn:RunId"), "run-8");
}

TEST_F (PhotoFile, DirectionOfThePictureIsCountedFromNorth)
{
  const struct {
    double yaw;
    double direction;
  } cases[] = {{0, 0}, {90.25, 90.25}, {180, 180}, {-180, 180}, {-0.5, 359.5}, {-0.001, 0}};
  for (const auto &[yaw, direction] : cases) {
    PhotoPipeline photo (pattern (), "videotestsrc num-buffers=1 pattern=black");
    photo.set_tags ("visible-camera-yaw", yaw, "geo-location-latitude", 1.0,
                    "geo-location-longitude", 2.0, nullptr);
    ASSERT_TRUE (photo.run ());
    EXPECT_NEAR (Metadata (file ()).number ("GPS:GPSImgDirection"), direction, 1e-9) << yaw;
  }
  // Without a place nothing is known of the drone, and what no number tells is left out.
  PhotoPipeline photo (pattern (), "videotestsrc num-buffers=1 pattern=black");
  photo.set_tags ("visible-camera-yaw", 0.0, "visible-camera-pitch", 0.0, nullptr);
  ASSERT_TRUE (photo.run ());
  EXPECT_FALSE (Metadata (file ()).has ("GPS:GPSImgDirection"));
  EXPECT_FALSE (Metadata (file ()).has ("ExifIFD:CameraElevationAngle"));
  photo.set_tags ("visible-camera-yaw", std::numeric_limits<double>::quiet_NaN (),
                  "visible-camera-pitch", std::numeric_limits<double>::infinity (),
                  "geo-location-latitude", 1.0, "geo-location-longitude", 2.0, nullptr);
  ASSERT_TRUE (photo.run ());
  EXPECT_FALSE (Metadata (file (1)).has ("GPS:GPSImgDirection"));
  EXPECT_FALSE (Metadata (file (1)).has ("ExifIFD:CameraElevationAngle"));
  EXPECT_TRUE (Metadata (file (1)).has ("GPS:GPSLatitude"));
}

TEST_F (PhotoFile, AltitudeThatIsNoNumberIsLeftOut)
{
  PhotoPipeline photo (pattern ());
  photo.set_tags ("geo-location-latitude", 45.0, "geo-location-longitude", 6.0,
                  "geo-location-elevation", std::numeric_limits<double>::infinity (), nullptr);
  ASSERT_TRUE (photo.run ());
  const Metadata metadata (file ());
  EXPECT_EQ (metadata.all ().find ("GPSAltitude"), std::string::npos) << metadata.all ();
  EXPECT_EQ (metadata.number ("GPS:GPSLatitude"), 45.0);
}

} // namespace
