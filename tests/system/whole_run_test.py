#!/usr/bin/env python3
# Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
"""./run with the programs that were built, below a folder with a blank; only the build tools do nothing."""
import json
import os
import shutil
import unittest

import desk


class WholeRun(desk.Desk):
    def setUp(self):
        super().setUp()
        self.root = self.folder / "a tree"
        for name in ("run", "scripts/lib.sh", "scripts/processes.sh", "host/desk.conf", "host/desk-full.conf"):
            (self.root / name).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(desk.SOURCE / name, self.root / name)
        (self.root / "packages.txt").write_text("# all there\n")
        for program in ("host/vorn-host", "simulator/desk-simulator"):
            link = self.root / "build" / program
            link.parent.mkdir(parents=True)
            link.symlink_to(desk.BUILD / program)
        tools = self.folder / "tools"
        tools.mkdir()
        for tool in ("meson", "ninja"):
            (tools / tool).symlink_to(shutil.which("true"))
        self.environment["PATH"] = f"{tools}:{self.environment['PATH']}"
        self.run_script = self.root / "run"

    def start_run(self, *options):
        return self.start(self.run_script, "--instance", self.instance, "--port", 0, *options)

    def assert_results(self, out):
        for recording in (self.root / out / "videos").glob("*.mp4*"):
            self.assertEqual(recording.suffix, ".mp4")
            self.assert_plays(recording)
        for picture in (self.root / out).rglob("*.jpg"):
            self.output_of("ffmpeg", "-v", "error", "-xerror", "-i", picture, "-f", "null", "-")
        summary = json.loads((self.root / out / "summary.json").read_text())
        self.assertTrue((self.root / out / "report.html").is_file())
        self.assertEqual((summary["run"]["flight"], summary["run"]["seed"]), ("orbit", "1"))
        return summary

    def assert_all_ended(self):
        self.assertEqual(self.processes_of(self.instance), [])
        self.assert_nothing_left()

    def test_ctrl_c_at_several_moments(self):
        rows = (
            ("^building ", "--duration=60", 130),
            ("^vorn-host: instance ", "--duration=60", 130),
            ("^show: recording starts", "--live", 0),
            ("^show: photo mode", "--duration=8", 130),
        )
        for number, (moment, option, status) in enumerate(rows):
            with self.subTest(moment=moment):
                run = self.start_run(option, "--full", "--out", self.root / f"out {number}")
                run.await_line(moment)
                os.killpg(run.process.pid, desk.INTERRUPT)
                self.assertEqual(run.end(), status, run.text)
                self.assert_all_ended()
                if (self.root / f"out {number}/summary.json").exists():
                    self.assertIn(f"results in {self.root}/out {number}\n", run.text)
                    self.assert_results(f"out {number}")
                else:
                    self.assertLess(number, 2, run.text)
        self.assertEqual(len(self.assert_results("out 3")["recordings"]), 1)

    def test_an_instance_of_its_own_leaves_nothing_at_all(self):
        before = set(os.listdir("/dev/shm"))
        run = self.start(self.run_script, "--port", 0, "--simple", "--duration", 3, "--out", self.root / "out")
        self.assertEqual(run.end(), 0, run.text)
        instance = f"run-{run.process.pid}"
        self.instances.add(instance)
        self.assertEqual([name for name in set(os.listdir("/dev/shm")) - before if instance in name], [])
        self.assertFalse((self.runtime / instance).exists())
        self.assertEqual(self.processes_of(instance), [])
        self.assert_results("out")

    def test_what_cannot_be(self):
        blocked = self.folder / "file"
        blocked.write_text("")
        run = self.start_run("--simple", "--out", blocked / "out")
        self.assertEqual(run.end(), 1, run.text)
        self.assertIn(f"run: cannot make {blocked}/out\n", run.text)
        self.assert_all_ended()

        program = self.root / "build/simulator/desk-simulator"
        program.unlink()
        run = self.start_run("--simple", "--out", self.root / "without")
        self.assertEqual(run.end(), 1, run.text)
        self.assertIn("run: the simulator did not start\n", run.text)
        self.assert_all_ended()


if __name__ == "__main__":
    unittest.main(verbosity=2)
