// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What a front view's photo tells in its file, read by exiftool.
#include <string>

#include "front_view_photo_support.hpp"
#include "photo_file_support.hpp"
#include <vorn/gst_view.h>

using namespace photos;

namespace
{

class FrontViewPhotoFile : public PhotoTest
{
protected:
  /** The file of a whole photo by a picture pipeline that was attached to the view. */
  std::string photograph (const VornSnapshotRequest &request)
  {
    take_whole (request);
    const auto files = taken ();
    return files.size () == 1 ? files[0] : "";
  }
  void build_and_attach (const char *source = "videotestsrc is-live=true num-buffers=1")
  {
    build (true, true, source);
    ASSERT_TRUE (vorn_gst_view_attach_element (VORN_GST_VIEW (base_), view_->picture_pipeline));
  }
};

TEST_F (FrontViewPhotoFile, TellsWhatTheProviderKnows)
{
  VornTimedPhotoMetadata metadata = {};
  metadata.shutter_den = 1;
  metadata.camera_roll = 1.5F;
  metadata.camera_pitch = -20.25F;
  metadata.camera_yaw = 100.5F;
  metadata.pix4d_pitch = 70.0F;
  metadata.pix4d_yaw = 100.25F;
  metadata.visible_pitch = -20.0F;
  metadata.visible_yaw = 100.25F;
  metadata.latitude = 45.25;
  metadata.longitude = -6.5;
  metadata.altitude = -3.5;
  metadata.satellite_count = 14;
  metadata.location_valid = 1;
  metadata.accuracy_horizontal = 1.5;
  metadata.accuracy_vertical = 3.0;
  calls.timed = metadata;
  build_and_attach ();
  VornSnapshotRequest request = {};
  gchar panorama[] = "spherical";
  request.photo_grouping = VORN_PHOTO_GROUPING_PANORAMA;
  request.panorama_type = panorama;
  request.shot_count = 33;
  const std::string file = photograph (request);
  const Metadata photo (file);

  const struct {
    const char *key;
    const char *text;
  } texts[] = {
      {"IFD0:Make", "Vorn"},
      {"IFD0:Model", "Zelto"},
      {"ExifIFD:SerialNumber", "ZELTO-DESK-0001"},
      {"XMP-vorn:VehicleUuid", "ZELTO-DESK-0001"},
      {"XMP-vorn:PanoramaType", "spherical"},
      {"XMP-vorn:PhotoCount", "33"},
      {"XMP-vorn:SequenceNumber", "0"},
      {"XMP-vorn:CameraRoll", "1.5"},
      {"XMP-vorn:CameraPitch", "-20.25"},
      {"XMP-vorn:CameraYaw", "100.5"},
      {"XMP-Camera:Roll", "0"},
      {"XMP-Camera:Pitch", "70"},
      {"XMP-Camera:Yaw", "100.25"},
      {"XMP-Camera:GPSXYAccuracy", "1.5"},
      {"XMP-Camera:GPSZAccuracy", "3"},
      {"GPS:GPSLatitudeRef", "N"},
      {"GPS:GPSLongitudeRef", "W"},
      {"GPS:GPSAltitudeRef", "1"},
      {"GPS:GPSSatellites", "14"},
      {"GPS:GPSImgDirection", "100.25"},
      {"ExifIFD:ComponentsConfiguration", "1 2 3 0"},
      {"ExifIFD:FocalPlaneResolutionUnit", "3"},
      {"ExifIFD:ExifImageWidth", "1280"},
      {"ExifIFD:ExifImageHeight", "720"},
      {"XMP-vorn:CompressedImageWidth", "0"},
      {"ExifIFD:ExposureTime", "0"},
      {"ExifIFD:WhiteBalance", "0"},
      {"XMP-dc:Format", "image/jpeg"},
  };
  for (const auto &[key, text] : texts)
    EXPECT_EQ (photo.text (key), text) << key;
  EXPECT_NEAR (photo.number ("GPS:GPSLatitude"), 45.25, 1e-10);
  EXPECT_NEAR (photo.number ("GPS:GPSLongitude"), 6.5, 1e-10);
  EXPECT_NEAR (photo.number ("GPS:GPSAltitude"), 3.5, 1e-10);
  EXPECT_NEAR (photo.number ("ExifIFD:FocalPlaneXResolution"), 62500.0 / 7, 1e-6);
  EXPECT_EQ (photo.text ("ExifIFD:SubSecTimeOriginal").size (), 3u);
  EXPECT_EQ (photo.text ("ExifIFD:OffsetTimeOriginal").size (), 6u);
  EXPECT_EQ (photo.text ("GPS:GPSDateStamp").size (), 10u);
  EXPECT_GT (photo.number ("XMP-vorn:CapturingTimestamp"), 0.0);
  EXPECT_EQ (photo.text ("XMP-vorn:BootId").size (), 36u);
  EXPECT_FALSE (photo.has ("ExifTool:Warning")) << photo.text ("ExifTool:Warning");

  media_.write ("thumbnail.jpg", binary (file, "IFD1:ThumbnailImage"));
  EXPECT_EQ (Metadata (media_.at ("thumbnail.jpg")).text ("File:ImageWidth"), "320");
  EXPECT_TRUE (said (error).empty ());
}

TEST_F (FrontViewPhotoFile, WithoutAPlaceThereIsNone)
{
  calls.timed = VornTimedPhotoMetadata{};
  build_and_attach ();
  const Metadata photo (photograph ({}));
  EXPECT_EQ (photo.all ().find ("GPS"), std::string::npos) << photo.all ();
  EXPECT_EQ (photo.text ("XMP-Camera:Yaw"), "0");
  EXPECT_EQ (photo.text ("XMP-vorn:PhotoMode"), vorn_camera_mode_photo_get_name (0));
}

TEST_F (FrontViewPhotoFile, EachPhotoOfABurstShowsItself)
{
  calls.timed = VornTimedPhotoMetadata{};
  // Another picture each time: the source counts its frames.
  build_and_attach ("videotestsrc is-live=true num-buffers=1 pattern=snow");
  VornSnapshotRequest request = {};
  request.photo_grouping = VORN_PHOTO_GROUPING_BURST;
  std::string former;
  for (guint16 i = 0; i < 3; i++) {
    request.sequence_number = i;
    const std::string file = photograph (request);
    EXPECT_EQ (file, media_.path () + "/photos/ZELTO_0001_000" + std::to_string (i) + ".jpg");
    EXPECT_EQ (Metadata (file).number ("XMP-vorn:SequenceNumber"), i);
    const std::string thumbnail = binary (file, "IFD1:ThumbnailImage");
    EXPECT_FALSE (thumbnail.empty ());
    EXPECT_FALSE (thumbnail == former);
    former = thumbnail;
  }
}

} // namespace
