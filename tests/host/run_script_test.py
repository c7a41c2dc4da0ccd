#!/usr/bin/env python3
"""Runs ./run in a tree of its own, in which the build tools do nothing and the two programs are
scripts that tell what becomes of them."""
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

SOURCE = pathlib.Path(sys.argv.pop(1))

SIMULATOR = r"""#!/bin/sh
echo "$@" >"$FAKE/simulator-arguments"
echo $$ >"$FAKE/simulator-pid"
mkdir -p "$XDG_RUNTIME_DIR/vorn/$2"
touch "$XDG_RUNTIME_DIR/vorn/$2/desk-simulator.lock"
trap 'echo terminated >"$FAKE/simulator-end"; exit 0' TERM
case $FAKE_SIMULATOR in
  refuses) echo "desk-simulator: no flight is named 'x'" >&2; exit 2 ;;
  mute) ;;
  *) echo "publishing telemetry: video" ;;
esac
while :; do sleep 0.02; done
"""

HOST = r"""#!/bin/sh
printf '%s\n' "$@" >"$FAKE/host-arguments"
echo $$ >"$FAKE/host-pid"
signals=0
trap 'signals=$((signals + 1)); echo $signals >"$FAKE/host-signals"' TERM
trap 'echo interrupted >"$FAKE/host-interrupted"' INT
echo "stream on rtsp://127.0.0.1:8554/live"
echo "a line of the log" >&2
echo ready >"$FAKE/host-ready"
case $FAKE_HOST in
  fails) exit 3 ;;
  waits) while [ $signals -lt 1 ]; do sleep 0.02; done ;;
  stubborn) while [ $signals -lt 2 ]; do sleep 0.02; done; exit 130 ;;
esac
exit 0
"""


class RunScript(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.root = pathlib.Path(self.folder.name)
        for name in ("run", "scripts/lib.sh", "scripts/processes.sh", "host/desk.conf"):
            self.root.joinpath(name).parent.mkdir(exist_ok=True)
            shutil.copy(SOURCE / name, self.root / name)
        self.write("packages.txt", "# nothing\n")
        self.write("build/host/vorn-host", HOST, True)
        self.write("build/simulator/desk-simulator", SIMULATOR, True)
        for tool in ("meson", "ninja"):
            self.write(f"bin/{tool}", '#!/bin/sh\ntouch "$FAKE/built"\n', True)
        self.write("bin/gst-launch-1.0", "#!/bin/sh\nexit ${FAKE_GL:-0}\n", True)
        self.fake = self.root / "fake"
        self.fake.mkdir()
        self.runtime = self.root / "runtime"
        self.environment = {**os.environ, "XDG_RUNTIME_DIR": str(self.runtime), "FAKE": str(self.fake), "LC_ALL": "C.UTF-8",
                            "PATH": f"{self.root}/bin:{os.environ['PATH']}"}

    def tearDown(self):
        for name in ("host", "simulator"):
            self.assertFalse(self.lives(name), f"the {name} was left behind")
        self.folder.cleanup()

    def write(self, name, text, executable=False):
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)
        if executable:
            path.chmod(0o755)

    def lives(self, name):
        file = self.fake / f"{name}-pid"
        if not file.exists() or not file.read_text().strip():
            return False
        try:
            os.kill(int(file.read_text()), 0)
            return True
        except ProcessLookupError:
            return False

    def start(self, *arguments, **environment):
        return subprocess.Popen([str(self.root / "run"), *arguments], cwd=self.root, text=True,
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, start_new_session=True,
                                env={**self.environment, **environment})

    def run_it(self, *arguments, **environment):
        with self.start(*arguments, **environment) as process:
            output, errors = process.communicate(timeout=60)
            return process.returncode, output, errors

    def await_file(self, name):
        end = time.monotonic() + 30
        while not (self.fake / name).exists():
            self.assertLess(time.monotonic(), end, name)
            time.sleep(0.01)

    def arguments_of(self, name):
        return (self.fake / f"{name}-arguments").read_text()

    # ---- Options

    def test_wrong_options_get_one_line(self):
        self.write("full/file", "")
        self.write("file", "")
        rows = (
            (["--fly"], "unknown option --fly, see ./run --help"),
            (["--fly=3"], "unknown option --fly, see ./run --help"),
            (["modes"], "'modes' is no option, see ./run --help"),
            (["--duration"], "--duration needs a value, see ./run --help"),
            (["--duration", "x"], "--duration: 'x' is not a number of seconds"),
            (["--duration", "-3"], "--duration: '-3' is not a number of seconds"),
            (["--duration", ""], "--duration: '' is not a number of seconds"),
            (["--duration=0.0"], "--duration: a run needs some time (--live: until Ctrl-C)"),
            (["--live=yes"], "--live takes no value"),
            (["--flight", ""], "--flight: the name of a flight or of a log is needed"),
            (["--flight", "absent.csv"], "--flight: cannot read absent.csv"),
            (["--seed", "1.5"], "--seed: '1.5' is not a whole number"),
            (["--home", "45,6"], "--home: '45,6' is not LAT,LON,ALT (degrees, degrees, metres)"),
            (["--simple", "--full"], "--simple and --full exclude each other"),
            (["--mode", "1280x720"], "--mode: '1280x720' is not WxH@R, as 1920x1080@30000/1001"),
            (["--mode", "0x720@30"], "--mode: '0x720@30' is not WxH@R, as 1920x1080@30000/1001"),
            (["--config", "absent.conf"], "--config: cannot read absent.conf"),
            (["--set", "name"], "--set: 'name' is not PROPERTY=VALUE"),
            (["--set", "=x"], "--set: '=x' is not PROPERTY=VALUE"),
            (["--port", "65536"], "--port: '65536' is not a port (0 to 65535)"),
            (["--port", "x"], "--port: 'x' is not a port (0 to 65535)"),
            (["--out", "full"], "--out: full is not empty"),
            (["--out", "file"], "--out: file is no folder"),
            (["--out", ""], "--out: the name of a folder is needed"),
            (["--instance", "a b"],
             "--instance: 'a b' is not a name of at most 32 letters, digits, '_' and '-'"),
            (["--instance", "a" * 33], "--instance: '" + "a" * 33 + "' is not a name of at most "
             "32 letters, digits, '_' and '-'"),
            (["--log", "host=loud"],
             "--log: 'host=loud' is not TAG=LEVEL (none, error, warning, info, debug)"),
        )
        for arguments, message in rows:
            with self.subTest(arguments=arguments):
                self.assertEqual(self.run_it(*arguments), (2, "", f"run: {message}\n"))
        self.assertFalse((self.fake / "built").exists(), "found out before anything is built")

    def test_help(self):
        for option in ("--help", "-h"):
            status, output, errors = self.run_it(option)
            self.assertEqual((status, errors), (0, ""))
            self.assertTrue(output.startswith("usage: ./run [option...]\n"))
            for name in ("--duration", "--live", "--flight", "--seed", "--simple", "--mode", "--out",
                         "--instance", "--set", "--config", "--port", "--home", "--log",
                         "--verbose"):
                self.assertIn(f" {name} ", output.replace(",", " "))

    # ---- What is started

    def test_defaults(self):
        status, output, errors = self.run_it()
        self.assertEqual((status, errors), (0, ""))
        out = next((self.root / "out").iterdir())
        self.assertIn("stream on rtsp://127.0.0.1:8554/live\n", output)
        self.assertIn(f"results in {out}\n", output)
        simulator = self.arguments_of("simulator").split()
        instance = simulator[1]
        self.assertEqual(simulator, ["--instance", instance, "--flight", "orbit", "--seed", "1",
                                     "--front-sensor", "5344x3200", "--front-rate", "30000/1001"])
        self.assertRegex(instance, "^run-[0-9]+$")
        self.assertEqual(self.arguments_of("host").splitlines(), [
            "run", "--full", "--config", str(self.root / "host/desk.conf"), "--instance", instance,
            "--port", "8554", "--media", str(out), "--report", str(out), "--show",
            "--duration", "20", "--about", "flight=orbit", "--about", "seed=1"])
        self.assertEqual((out / "host.log").read_text(), "a line of the log\n")
        self.assertEqual((out / "simulator.log").read_text(), "publishing telemetry: video\n")
        self.assertTrue((self.fake / "simulator-end").exists(), "it was asked to end")
        self.assertEqual(list(self.runtime.glob("vorn/*")), [])

    def test_options_are_passed_on(self):
        self.write("my.conf", "[camera-vertical]\nsensor-size=1x1\n"
                   "[camera-front]\nframerate=25/1\n#sensor-size=2x2\nsensor-size=640x360\n")
        self.write("a flight.csv", "")
        status, _, errors = self.run_it(
            "--duration=3.5", "--flight", "a flight.csv", "--seed", "7", "--home=45.5,-6,500",
            "--simple", "--mode", "1280x720@30", "--config", "my.conf", "--set", "a=b c",
            "--set", "d=", "--port", "0", "--out", "my out", "--instance", "mine", "--log",
            "host=debug", "-v")
        self.assertEqual(status, 0)
        self.assertEqual(len(list(self.runtime.glob("vorn/mine/*"))), 1, "others may be there")
        self.assertIn("a line of the log\n", errors, "verbose")
        self.assertEqual(
            self.arguments_of("simulator").strip(),
            f"--instance mine --flight {self.root}/a flight.csv --seed 7 --home 45.5,-6,500 "
            "--front-rate 25/1", "the whole picture of the simple front camera is 1280x720")
        out = str(self.root / "my out")
        self.assertEqual(self.arguments_of("host").splitlines(), [
            "run", "--simple", "--config", str(self.root / "my.conf"), "--instance", "mine",
            "--port", "0", "--media", out, "--report", out, "--show",
            "--mode", "recording 1280x720@30/1", "--duration", "3.5", "--about", "flight=a flight.csv",
            "--about", "seed=7", "--set", "a=b c", "--set", "d=", "--log", "host=debug", "--verbose"])

    def test_without_gl(self):
        status, output, errors = self.run_it(FAKE_GL="1")
        self.assertEqual((status, errors), (0, ""))
        self.assertIn("no GL here: the front camera without stabilisation\n", output)
        self.assertIn("--simple", self.arguments_of("host").splitlines())
        self.assertEqual(self.run_it("--full", FAKE_GL="1")[::2], (
            1, "run: --full needs GL and none works here, build/run.log says why\n"))

    def test_builds_that_fail(self):
        self.write("bin/ninja", "#!/bin/sh\necho 'error: no such type'\nexit 1\n", True)
        status, output, errors = self.run_it()
        self.assertEqual((status, errors), (1, "run: the build failed\n"))
        self.assertIn("error: no such type\n", output)

    # ---- How it ends

    def test_simulator_that_refuses(self):
        status, _, errors = self.run_it("--flight", "x", FAKE_SIMULATOR="refuses")
        self.assertEqual((status, errors), (1, "desk-simulator: no flight is named 'x'\n"
                                            "run: the simulator did not start\n"))
        self.assertFalse((self.fake / "host-pid").exists())

    def test_host_that_fails(self):
        status, _, errors = self.run_it("--out", "o", FAKE_HOST="fails")
        self.assertEqual(status, 1)
        self.assertEqual(errors, "a line of the log\nrun: the host failed (status 3), see "
                         f"{self.root}/o/host.log\n")

    def test_signals_reach_the_host_once(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            for option, status in (("--duration=20", 130), ("--live", 0)):
                with self.subTest(number=number, option=option):
                    for file in self.fake.iterdir():
                        file.unlink()
                    with self.start(option, FAKE_HOST="waits") as process:
                        self.await_file("host-ready")
                        # As a terminal does: to the whole group.
                        os.killpg(process.pid, number)
                        _, errors = process.communicate(timeout=60)
                    self.assertEqual((process.returncode, errors), (status, ""))
                    self.assertEqual((self.fake / "host-signals").read_text(), "1\n")
                    self.assertFalse((self.fake / "host-interrupted").exists())
                    self.assertTrue((self.fake / "simulator-end").exists())

    def test_second_signal_is_passed_on(self):
        with self.start(FAKE_HOST="stubborn") as process:
            self.await_file("host-ready")
            os.killpg(process.pid, signal.SIGINT)
            self.await_file("host-signals")
            os.killpg(process.pid, signal.SIGINT)
            process.communicate(timeout=60)
        self.assertEqual(process.returncode, 130)
        self.assertEqual((self.fake / "host-signals").read_text(), "2\n")

    def test_signal_before_the_host_is_there(self):
        with self.start(FAKE_SIMULATOR="mute") as process:
            self.await_file("simulator-pid")
            os.killpg(process.pid, signal.SIGINT)
            process.communicate(timeout=60)
        self.assertEqual(process.returncode, 130)
        self.assertFalse((self.fake / "host-pid").exists())

    def test_signal_while_gl_is_tried(self):
        # What is run in the foreground may not hear of it, or take it for its own.
        self.write("bin/gst-launch-1.0", "#!/bin/sh\ntrap '' INT\ntouch \"$FAKE/gl-tried\"\n"
                   "while [ ! -e \"$FAKE/gl-known\" ]; do sleep 0.02; done\n", True)
        with self.start() as process:
            self.await_file("gl-tried")
            os.killpg(process.pid, signal.SIGINT)
            (self.fake / "gl-known").touch()
            process.communicate(timeout=60)
        self.assertEqual(process.returncode, 130)
        self.assertFalse((self.fake / "host-pid").exists())

    def test_nothing_outlives_a_killed_script(self):
        with self.start(FAKE_HOST="waits") as process:
            self.await_file("host-ready")
            process.kill()
            process.wait(timeout=60)
            end = time.monotonic() + 30
            while self.lives("host") or self.lives("simulator"):
                self.assertLess(time.monotonic(), end)
                time.sleep(0.01)

    def test_simulator_that_ends_by_itself(self):
        with self.start("--live", FAKE_HOST="waits") as process:
            self.await_file("host-ready")
            os.kill(int((self.fake / "simulator-pid").read_text()), signal.SIGKILL)
            while self.lives("simulator"):
                time.sleep(0.01)
            os.killpg(process.pid, signal.SIGINT)
            _, errors = process.communicate(timeout=60)
        self.assertIn("run: the simulator ended by itself, see ", errors)


if __name__ == "__main__":
    unittest.main(verbosity=2)
