#!/usr/bin/env python3
# Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
"""Other people's programs read what the drone gives: stream, recording, photos, gyroscope."""
import json
import re
import unittest
from fractions import Fraction

import desk

READ_S = 5
FRAME_S = 1001 / 24000


class Clients(desk.Desk):
    def setUp(self):
        super().setUp()
        self.simulator = self.start_simulator("--flight", "orbit", *desk.SMALL_SENSOR)
        self.host = self.start_host("--full")

    def check_gyroscope(self):
        """It is read while the host reads it."""
        uri = (self.folder / "vorn" / self.instance / "iio-uri").read_text().strip()
        info = self.output_of("iio_info", "-u", uri)
        for part in ("iio:device0: iio-cam_imu (buffer capable)", "4 channels found:",
                     "anglvel_x:  (input, index: 0, format: le:S16/16>>0)",
                     "timestamp:  (input, index: 3, format: le:S64/64>>0)",
                     "Current trigger: trigger0(imu_cam_trig)"):
            self.assertIn(part, info)
        self.assertNotIn("ERROR", info)
        self.assertEqual(self.output_of("iio_attr", "-u", uri, "-d", "iio-cam_imu", "in_anglvel_matrix").strip(),
                         "1, 0, 0; 0, 1, 0; 0, 0, 1")
        self.assertEqual(self.output_of("iio_attr", "-u", uri, "-d", "imu_cam_trig",
                                        "sampling_frequency").strip(), "1000")
        scale = float(self.output_of("iio_attr", "-u", uri, "-c", "iio-cam_imu", "anglvel_x", "scale"))
        self.assertAlmostEqual(scale * 32767, 8.7266, places=2, msg="500 degrees a second")

    def check_recording(self, recording, least_s):
        times = self.assert_plays(recording, least_s)
        for former, later in zip(times, times[1:]):
            frames = (later - former) / FRAME_S
            self.assertAlmostEqual(frames, round(frames), delta=0.1, msg="on the sensor's grid")
        probe = json.loads(self.output_of("ffprobe", "-v", "error", "-show_streams", "-of", "json", recording))
        video, cover = probe["streams"]
        self.assertEqual((video["codec_name"], video["width"], video["height"], int(video["nb_frames"])),
                         ("h264", 1280, 720, len(times)))
        self.assertEqual((cover["codec_name"], cover["width"], cover["height"],
                          cover["disposition"]["attached_pic"]), ("mjpeg", 320, 180, 1))
        cover_file = self.folder / "cover.jpg"
        self.output_of("ffmpeg", "-v", "error", "-xerror", "-i", recording, "-map", "0:v:1", "-c", "copy",
                       "-f", "image2", cover_file)
        self.output_of("ffmpeg", "-v", "error", "-xerror", "-i", cover_file, "-f", "null", "-")

        shown = self.output_of(desk.BUILD / "host/h264-sei", recording)
        captures = re.findall(r"^    picture timing: (\d+):(\d+):(\d+\.\d+) ", shown, re.MULTILINE)
        self.assertEqual(len(captures), len(times), "a capture time in each frame")
        seconds = [int(hours) * 3600 + int(minutes) * 60 + float(rest) for hours, minutes, rest in captures]
        for index, (presented, captured) in enumerate(zip(times, seconds)):
            gone = (captured - seconds[0]) % 86400
            self.assertAlmostEqual(gone, presented - times[0], delta=FRAME_S / 2, msg=f"frame {index}")

    def check_photo(self, photo, grouping, number):
        self.assertTrue(photo.is_file(), photo)
        tags = json.loads(self.output_of("exiftool", "-json", "-n", "-warning", "-all", photo))[0]
        self.assertNotIn("Warning", tags)
        self.assertNotIn("Error", tags)
        self.assertEqual((tags["Make"], tags["Model"], str(tags["SerialNumber"])),
                         ("Vorn", "Zelto", "ZELTO-DESK-0001"))
        self.assertEqual((tags["ImageWidth"], tags["ImageHeight"]),
                         (tags["ExifImageWidth"], tags["ExifImageHeight"]))
        self.assertAlmostEqual(tags["GPSLatitude"], 45, delta=0.01)
        self.assertAlmostEqual(tags["GPSLongitude"], 6, delta=0.01)
        self.assertAlmostEqual(tags["GPSAltitude"], 500, delta=150)
        self.assertEqual(tags["FocalLength"], 4)
        self.assertIn("ThumbnailImage", tags)
        thumbnail = self.folder / "thumbnail.jpg"
        self.output_of("exiftool", "-b", "-ThumbnailImage", "-w!", "%0f" + str(thumbnail.with_suffix("")) + ".jpg",
                       photo)
        self.output_of("ffmpeg", "-v", "error", "-xerror", "-i", thumbnail, "-f", "null", "-")
        self.output_of("ffmpeg", "-v", "error", "-xerror", "-i", photo, "-f", "null", "-")
        self.assertRegex(photo.name, rf"^ZELTO_{grouping:04}_{number:04}\.jpg$")

    def test_all_at_once(self):
        recording = self.folder / self.command("record", "start").strip()
        # Through TCP and through UDP; the second asks for a key frame of its own.
        player = self.start("ffmpeg", "-v", "error", "-xerror", "-rtsp_transport", "tcp", "-i", self.host.uri,
                            "-t", READ_S, "-f", "framehash", "-hash", "adler32", "ffmpeg.txt")
        saver = self.start("gst-launch-1.0", "-q", "rtspsrc", f"location={self.host.uri}", "latency=0",
                           "!", "rtph264depay", "!", "h264parse", "!", "video/x-h264,stream-format=byte-stream,alignment=au",
                           "!", "identity", "eos-after=100", "!", "filesink", "location=gstreamer.h264")
        self.await_status(lambda status: status["rtsp_clients"] == 2, "two clients")
        self.check_gyroscope()
        self.assertEqual((player.end(), player.text), (0, ""))
        self.assertEqual((saver.end(), saver.text), (0, ""))
        self.assertEqual(self.folder / self.command("record", "stop").strip(), recording)

        lines = [line for line in (self.folder / "ffmpeg.txt").read_text().splitlines() if line[0] != "#"]
        # A machine that has other things to do gives fewer pictures, but not for a shorter time.
        self.assertGreaterEqual(len(lines), 10)
        frame_s = float(Fraction(re.search("#tb 0: (.*)", (self.folder / "ffmpeg.txt").read_text())[1]))
        first, last = (int(lines[at].split(",")[2]) * frame_s for at in (0, -1))
        self.assertGreater(last - first, READ_S * 0.7)
        self.assertGreater(len({line.split(",")[5] for line in lines}), len(lines) * 0.9, "pictures move")
        # A datagram may get lost: what counts is that pictures come.
        saved = self.output_of("ffprobe", "-v", "quiet", "-count_frames", "-show_entries", "stream=nb_read_frames", "-of",
                               "csv=p=0", self.folder / "gstreamer.h264")
        self.assertGreaterEqual(int(saved), 80)
        self.check_recording(recording, READ_S * 0.8)

        self.command("set-mode", "photo", "single")
        self.check_photo(self.folder / self.command("photo").strip(), 1, 0)
        self.command("set-mode", "photo", "burst")
        burst = self.command("photo", "--group", "burst", "--count", 2).split()
        self.assertEqual(len(burst), 2)
        for number, photo in enumerate(burst):
            self.check_photo(self.folder / photo, 2, number)

        self.assertEqual(self.host.end(desk.INTERRUPT), 0, self.host.text)
        self.assertEqual(self.simulator.end(desk.TERMINATE), 0, self.simulator.text)
        self.assert_nothing_left()


if __name__ == "__main__":
    unittest.main(verbosity=2)
