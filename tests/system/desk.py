# Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
"""A simulated drone and its host as their user runs them, each a process of its own.

Shared by the scripts that test the whole product; the programs come from the environment.
"""
import glob
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import tempfile
import threading
import time
import unittest

BUILD = pathlib.Path(os.environ["VORN_TEST_BUILD"])
SOURCE = pathlib.Path(os.environ["VORN_TEST_SOURCE"])
HOST = os.environ["VORN_TEST_HOST"]
SIMULATOR = os.environ["VORN_TEST_SIMULATOR"]
PLUGIN = os.environ["VORN_TEST_PLUGIN"]

LONGEST_S = 60  # for what comes sooner or later
SMALL_SENSOR = ("--front-sensor", "1280x720", "--front-rate", "24000/1001")  # as desk-full.conf has it


def await_it(condition, what, longest_s=LONGEST_S):
    """Until the condition gives something true, which is returned."""
    end = time.monotonic() + longest_s
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > end:
            raise AssertionError(f"after {longest_s} s still not: {what() if callable(what) else what}")
        time.sleep(0.02)


class Program:
    """Runs beside the test in a session of its own; its lines are read as they come."""

    def __init__(self, command, environment, folder=None):
        self.command = [str(word) for word in command]
        self.lines = []
        # Nor does it outlive a test that is killed.
        self.process = subprocess.Popen(["setpriv", "--pdeathsig", "KILL", "--", *self.command], env=environment, cwd=folder, text=True,
                                        errors="replace", stdin=subprocess.DEVNULL,
                                        stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                        start_new_session=True)
        self.reader = threading.Thread(target=lambda: self.lines.extend(iter(self.process.stdout.readline, "")))
        self.reader.start()

    @property
    def text(self):
        return "".join(self.lines)

    def runs(self):
        return self.process.poll() is None

    def await_line(self, pattern):
        """The match in its output, which must come before it ends."""
        def look():
            ended = not self.runs()
            found = re.search(pattern, self.text, re.MULTILINE)
            if ended and not found:
                self.reader.join()
                found = re.search(pattern, self.text, re.MULTILINE)
                assert found, f"{self.command[0]} ended without '{pattern}':\n{self.text}"
            return found
        return await_it(look, lambda: f"'{pattern}' in\n{self.text}")

    def send(self, number):
        self.process.send_signal(number)

    def end(self, number=None):
        """Its exit status, or minus the signal that ended it."""
        if number is not None:
            self.send(number)
        status = self.process.wait(timeout=2 * LONGEST_S)
        self.reader.join()
        return status

    def kill(self):
        if self.runs():
            self.process.kill()
        self.process.wait()
        self.reader.join()
        self.process.stdout.close()


class Desk(unittest.TestCase):
    """Drones of this test alone: their instances, runtime directories and results."""

    prefix = ()  # of every command: as another user, say

    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="vorn-"))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.instances = set()
        self.instance = self.new_instance("drone")
        self.environment = {**os.environ, "XDG_RUNTIME_DIR": str(self.folder), "LC_ALL": "C.UTF-8"}
        self.environment.pop("VORN_NAMESPACE", None)
        self.runtime = self.folder / "vorn"
        self.programs = []

    def tearDown(self):
        for program in reversed(self.programs):
            program.kill()
        for instance in self.instances:
            for left in glob.glob(f"/dev/shm/vorn.{instance}.*"):
                os.unlink(left)

    def new_instance(self, name):
        instance = f"{name}-{os.getpid()}"
        self.instances.add(instance)
        return instance

    # ---- Programs

    def start(self, *command, **environment):
        program = Program([*self.prefix, *command], {**self.environment, **environment}, self.folder)
        self.programs.append(program)
        return program

    def run_it(self, *command, longest_s=LONGEST_S):
        """Runs a program to its end: its status, output and errors."""
        result = subprocess.run([*self.prefix, *map(str, command)], env=self.environment, cwd=self.folder, text=True,
                                errors="replace", stdin=subprocess.DEVNULL, capture_output=True,
                                timeout=longest_s, check=False)
        return result.returncode, result.stdout, result.stderr

    def output_of(self, *command):
        """Of a program that must succeed."""
        status, output, errors = self.run_it(*command)
        self.assertEqual(status, 0, f"{command}: {errors}{output}")
        return output

    def start_simulator(self, *options, instance=None, program=SIMULATOR):
        simulator = self.start(program, "--instance", instance or self.instance, "--progress", 0, *options)
        simulator.await_line("^serving the down camera")
        return simulator

    def host_command(self, *options, instance=None, program=HOST):
        return [program, "run", "--instance", instance or self.instance, "--port", 0, "--quiet",
                "--media", "media", *options]

    def start_host(self, *options, instance=None, program=HOST):
        host = self.start(*self.host_command(*options, instance=instance, program=program))
        host.uri = host.await_line("stream on (rtsp://.*)$")[1]
        return host

    def command(self, *words, instance=None):
        """Of vorn-host, which must succeed: what it prints."""
        return self.output_of(HOST, *words, "--instance", instance or self.instance)

    def status(self, instance=None):
        return json.loads(self.command("status", "--json", instance=instance))

    def await_status(self, condition, what, instance=None):
        return await_it(lambda: condition(self.status(instance)), what)

    # ---- Results

    def recordings(self, pattern="*.mp4"):
        return sorted((self.folder / "media/videos").glob(pattern))

    def frames_of(self, source, *options):
        """Decodes all of its pictures, none of which may be damaged: their times in seconds."""
        status, output, errors = self.run_it(
            "ffmpeg", "-v", "error", "-xerror", *options, "-i", source, "-map", "0:v:0", "-fps_mode",
            "passthrough", "-f", "framehash", "-hash", "adler32", "-")
        self.assertEqual((status, errors), (0, ""), source)
        scale = [int(number) for number in re.search(r"#tb 0: (\d+)/(\d+)", output).groups()]
        return [int(line.split(",")[2]) * scale[0] / scale[1]
                for line in output.splitlines() if not line.startswith("#")]

    def assert_plays(self, recording, least_s=0.0):
        """A file whose pictures can all be decoded and that lasts as long as it has to."""
        times = self.frames_of(recording)
        self.assertGreater(len(times), 0, recording)
        self.assertEqual(times, sorted(times), recording)
        self.assertGreaterEqual(times[-1] - times[0], least_s, recording)
        return times

    def assert_whole_pictures(self):
        for picture in (self.folder / "media").rglob("*.jpg"):
            self.output_of("ffmpeg", "-v", "error", "-xerror", "-i", picture, "-f", "null", "-")
            self.assertEqual(picture.read_bytes()[-2:], b"\xff\xd9", picture)

    def assert_nothing_left(self, *instances):
        """No process of these instances (all), no shared memory, no socket, no file but the locks."""
        for instance in instances or self.instances:
            await_it(lambda name=instance: not self.processes_of(name),
                     lambda name=instance: f"end of {self.processes_of(name)}", 5)
            # The product's class owns the exposure record and is never finalised: the next run takes it over.
            self.assertLessEqual(set(glob.glob(f"/dev/shm/vorn.{instance}.*")),
                                 {f"/dev/shm/vorn.{instance}.telemetry.selmacdata"})
            left = {path.name for path in (self.runtime / instance).glob("*")}
            self.assertLessEqual(left, {"vorn-host.lock", "desk-simulator.lock"})

    @staticmethod
    def processes_of(instance):
        """The command lines in which the instance is named."""
        found = []
        for path in glob.glob("/proc/[0-9]*/cmdline"):
            try:
                words = pathlib.Path(path).read_bytes().decode(errors="replace").split("\0")
            except OSError:
                continue  # it has ended
            if instance in words:
                found.append(" ".join(words))
        return found


INTERRUPT, TERMINATE, KILL = signal.SIGINT, signal.SIGTERM, signal.SIGKILL
