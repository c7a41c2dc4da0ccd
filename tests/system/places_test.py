#!/usr/bin/env python3
# Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
"""Who runs it and from where: another user, folders with blanks, and what is missing or taken."""
import glob
import json
import os
import pathlib
import pwd
import shutil
import socket
import unittest

import desk

NOBODY = pwd.getpwnam("nobody")
AS_NOBODY = ("setpriv", f"--reuid={NOBODY.pw_uid}", f"--regid={NOBODY.pw_gid}", "--clear-groups")


class AnotherUser(desk.Desk):
    def setUp(self):
        super().setUp()
        if os.geteuid() != 0:
            self.skipTest("only root can become another user")
        self.prefix = AS_NOBODY
        if self.run_it("test", "-x", desk.HOST)[0] != 0:
            self.skipTest(f"the other user cannot run {desk.HOST}")
        os.chown(self.folder, NOBODY.pw_uid, NOBODY.pw_gid)
        # A session without any of what a desktop gives.
        self.environment.update(HOME="/nonexistent")
        for name in ("XDG_RUNTIME_DIR", "XDG_CACHE_HOME", "XDG_DATA_HOME", "GST_REGISTRY"):
            self.environment.pop(name, None)
        self.runtime = pathlib.Path(f"/tmp/vorn-{NOBODY.pw_uid}")
        self.addCleanup(shutil.rmtree, self.runtime / self.instance, ignore_errors=True)

    def test_a_flight(self):
        simulator = self.start_simulator("--flight", "orbit", *desk.SMALL_SENSOR)
        host = self.start_host("--full", "--record")
        folder = self.runtime / self.instance
        self.assertEqual((folder.stat().st_uid, folder.stat().st_mode & 0o777), (NOBODY.pw_uid, 0o700))
        self.await_status(lambda status: status["recording_frames"] > 30, "frames")
        self.await_status(lambda status: status.get("attitudes_per_second", 0) > 100, "attitudes")
        # Another user's host is out of reach, the superuser's too.
        self.assertEqual(host.end(desk.INTERRUPT), 0, host.text)
        self.assertEqual(simulator.end(desk.TERMINATE), 0, simulator.text)
        recording, = self.recordings()
        self.assertEqual(recording.stat().st_uid, NOBODY.pw_uid)
        self.assert_plays(recording, 1)
        self.assert_nothing_left()

    def test_folders_that_cannot_be_written(self):
        self.start_simulator("--flight", "orbit", *desk.SMALL_SENSOR)
        closed = self.folder / "closed"
        closed.mkdir()  # the superuser's
        for options, message in (
                (("--media", closed / "media", "--record"),
                 f" recording failed: cannot make the folder {closed}/media/videos: Permission denied\n"
                 "vorn-host: recording: the view refused, the log tells why\n"),
                (("--media", closed, "--record"),
                 f" recording failed: cannot make the folder {closed}/videos: Permission denied\n"
                 "vorn-host: recording: the view refused, the log tells why\n"),
                (("--report", closed / "report"),
                 f"vorn-host: --report: {closed}/report: Permission denied\n")):
            with self.subTest(options=options):
                host = self.start(*self.host_command("--simple", "--duration", "10", *options))
                self.assertEqual(host.end(), 1, host.text)
                self.assertIn(message, host.text)


class Places(desk.Desk):
    def install(self, prefix):
        """Below a folder, as a user's own copy: the paths of its programs and configurations."""
        self.output_of("meson", "install", "--quiet", "-C", desk.BUILD, "--destdir", prefix)
        programs = {path.name: path for path in prefix.rglob("*") if path.is_file()}
        # The copy must not find the libraries of the build folder.
        self.environment.pop("LD_LIBRARY_PATH", None)
        return programs

    def test_a_prefix_with_blanks(self):
        programs = self.install(self.folder / "a drone's own folder")
        self.start_simulator("--flight", "orbit", *desk.SMALL_SENSOR, program=programs["desk-simulator"])
        host = self.start_host("--full", "--record", "--report", "my results", "--media", "my results",
                               program=programs["vorn-host"])
        self.await_status(lambda status: status["recording_frames"] > 30, "frames")
        self.output_of(programs["vorn-host"], "doctor", "--instance", self.instance, "--port", 0, "--media", "my results")
        self.assertEqual(host.end(desk.INTERRUPT), 0, host.text)
        results = self.folder / "my results"
        recording = results / "videos/ZELTO_0001.mp4"
        self.assert_plays(recording, 1)
        self.assertIn("picture timing", self.output_of(programs["h264-sei"], recording))
        summary = json.loads((results / "summary.json").read_text())
        self.assertEqual([entry["file"] for entry in summary["recordings"]], ["videos/ZELTO_0001.mp4"])
        self.assertGreater(summary["attitude"]["count"], 500)
        self.assertTrue((results / "report.html").stat().st_size > 1000)

        # Without its elements there is no camera, without its plug-in no product.
        programs["libvornelements.so"].unlink()
        status, _, errors = self.run_it(*self.host_command("--full", program=programs["vorn-host"]))
        self.assertEqual(status, 1, errors)
        self.assertIn("camera 'front': there is no element 'kavrel_morviksrc'\n", errors)
        self.assertRegex(errors, "\nvorn-host: .*: the product could not be set up\n")
        programs["libvornmorvikzelto.so"].unlink()
        status, _, errors = self.run_it(*self.host_command("--full", program=programs["vorn-host"]))
        self.assertEqual(status, 1, errors)
        self.assertIn(f"\nvorn-host: cannot load plug-in {programs['libvornmorvikzelto.so']}: ", errors)


class Missing(desk.Desk):
    def refusal(self, *options, status=1, build="--simple"):
        """What a host says that ends by itself, leaving nothing."""
        host = self.start(*self.host_command(build, "--duration", "10", *options))
        self.assertEqual(host.end(), status, host.text)
        left = {path.name for path in (self.folder / "vorn" / self.instance).glob("*")}
        self.assertLessEqual(left, {"vorn-host.lock"})
        self.assertEqual(glob.glob(f"/dev/shm/vorn.{self.instance}.*"), [])
        return host.text

    def test_plug_ins(self):
        missing = self.folder / "absent.so"
        self.assertIn(f"\nvorn-host: cannot load plug-in {missing}: ", self.refusal("--plugin", missing))
        whole = pathlib.Path(desk.PLUGIN).read_bytes()
        sizes = [0, 1, 63, 64, 1000, 4096] + [len(whole) * part // 4 for part in range(1, 4)] + [len(whole) - 1]
        for size in sizes:
            with self.subTest(size=size):
                damaged = self.folder / f"damaged-{size}.so"
                damaged.write_bytes(whole[:size])
                text = self.refusal("--plugin", damaged)
                reason = (f"it is damaged: of {len(whole)} bytes only {size} are there" if size >= 64 else
                          "file too short")
                self.assertRegex(text, rf"\nvorn-host: cannot load plug-in {damaged}: .*{reason}\n")
        other = self.folder / "other.so"
        other.write_bytes((desk.BUILD / "elements/libvornelements.so").read_bytes())
        self.assertIn(f"\nvorn-host: {other} is no plug-in: it exports no 'vorn_plugin_desc'\n",
                      self.refusal("--plugin", other))

    def test_configurations(self):
        damaged = self.folder / "damaged.conf"
        damaged.write_text("no group\n")
        for file, reason in (("absent.conf", "No such file or directory"), (self.folder, "Not a regular file"),
                             (damaged, "Key file contains line “no group” which is not a key-value pair, group, "
                              "or comment")):
            self.assertIn(f"\nvorn-host: cannot read configuration {file}: {reason}\n", self.refusal("--config", file))

    def test_a_port_that_is_taken(self):
        with socket.create_server(("127.0.0.1", 0)) as server:
            port = server.getsockname()[1]
            text = self.refusal("--port", port)
        self.assertRegex(text, rf"\nvorn-host: RTSP port {port} cannot be used: .*Address already in use; "
                               r"choose another with --port \(0: any\)\n")

    def test_a_simulator(self):
        host = self.start_host("--full", "--record", "--media", "without")
        self.assertIn(f"no simulator flies instance '{self.instance}': there is no "
                      f"{self.folder}/vorn/{self.instance}/iio-uri; neither picture nor attitude comes before one is "
                      "there and the host is started again", host.text)
        self.assertEqual(host.end(desk.INTERRUPT), 0, host.text)
        self.assert_nothing_left()


if __name__ == "__main__":
    unittest.main(verbosity=2)
