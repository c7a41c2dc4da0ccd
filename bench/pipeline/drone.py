# Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
"""A simulated drone and what looks at it: processes of one instance, and what they cost."""

import contextlib
import csv
import glob
import os
import pathlib
import shutil
import signal
import statistics
import subprocess
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = ROOT / 'build-bench'
TICKS = os.sysconf('SC_CLK_TCK')
# The camera sends a frame that much after its capture: its exposure, and what describes the motion.
DELIVERY_MS = 17
RATES = {'simple': '30000/1001', 'full': '24000/1001'}


def percentile(values, part):
    """The value that this part (0 to 1) of the values does not exceed."""
    ordered = sorted(values)
    return ordered[min(len(ordered) - 1, int(part * len(ordered)))] if ordered else float('nan')


def median(values):
    values = list(values)
    return statistics.median(values) if values else float('nan')


def fps(rate):
    numerator, _, denominator = rate.partition('/')
    return int(numerator) / int(denominator or 1)


class Process:
    """A program of ours; its output goes to a file."""

    def __init__(self, name, arguments, environment, folder):
        self.log = pathlib.Path(folder) / (name + '.log')
        self.name = name
        with open(self.log, 'wb') as output:
            self.process = subprocess.Popen([str(a) for a in arguments], env=environment,
                                            stdin=subprocess.DEVNULL, stdout=output,
                                            stderr=subprocess.STDOUT)

    def await_line(self, text, seconds=60):
        end = time.monotonic() + seconds
        while text not in self.log.read_text(errors='replace'):
            if self.process.poll() is not None or time.monotonic() > end:
                raise SystemExit(f'the {self.name} does not say "{text}":\n'
                                 + self.log.read_text(errors='replace')[-2000:])
            time.sleep(0.01)

    def cpu_s(self):
        """User and system time so far."""
        with open(f'/proc/{self.process.pid}/stat') as file:
            fields = file.read().rpartition(')')[2].split()
        return (int(fields[11]) + int(fields[12])) / TICKS

    def rss_mib(self):
        with open(f'/proc/{self.process.pid}/smaps_rollup') as file:
            sums = dict(line.split(':') for line in file if ':' in line and 'kB' in line)
        return int(sums['Rss'].split()[0]) / 1024

    def stop(self, seconds=90):
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
        try:
            return self.process.wait(seconds)
        except subprocess.TimeoutExpired:
            self.process.kill()
            return self.process.wait()


class Drone(contextlib.ExitStack):
    """An instance of its own with a simulator; hosts and other programs come and go."""

    def __init__(self, build, flight='orbit', rate=None, number=0):
        super().__init__()
        self.build, self.rate = build, rate or RATES[build]
        self.instance = f'bench-{os.getpid()}-{number}'
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix='vorn-bench-'))
        self.callback(self._clean)
        self.environment = dict(os.environ, XDG_RUNTIME_DIR=str(self.folder), LC_ALL='C.UTF-8',
                                GST_REGISTRY=str(BUILD / 'gst-registry.bin'),
                                VORN_NAMESPACE=self.instance)
        if not os.environ.get('DISPLAY') and not os.environ.get('WAYLAND_DISPLAY'):
            self.environment.setdefault('GST_GL_WINDOW', 'egl-device')
        self.runtime = self.folder / 'vorn' / self.instance
        self.count = 0
        self.simulator = self.start('simulator', [
            BUILD / 'simulator/desk-simulator', '--instance', self.instance, '--flight', flight,
            '--front-rate', self.rate, '--progress', '0'])
        self.simulator.await_line('serving the down camera')

    def _clean(self):
        shutil.rmtree(self.folder, ignore_errors=True)
        for path in glob.glob(f'/dev/shm/vorn.{self.instance}.*'):
            os.unlink(path)

    @property
    def socket(self):
        return f'unix:{self.runtime}/front-camera.sock'

    def start(self, name, arguments):
        self.count += 1
        process = Process(f'{self.count}-{name}', arguments, self.environment, self.folder)
        self.callback(process.stop)
        return process

    def configuration(self):
        """The desk's configuration of the build, with the drone's own rate."""
        name = 'desk-full.conf' if self.build == 'full' else 'desk.conf'
        text = (ROOT / 'host' / name).read_text()
        front, mark, rest = text.partition('[camera-vertical]')
        front = '\n'.join('framerate=' + self.rate if line.startswith('framerate=') else line
                          for line in front.splitlines())
        path = self.folder / 'measured.conf'
        path.write_text(front + '\n' + mark + rest)
        return path

    def start_host(self, *options, wait=True):
        """A host that streams; its units are written to host.units."""
        units = self.folder / f'units-{self.count}.csv'
        host = self.start('host', [
            BUILD / 'host/vorn-host', 'run', '--' + self.build, '--config', self.configuration(),
            '--port', '0', '--media', self.folder / 'media', '--units', units, *options])
        host.units = units
        if wait:
            host.await_line('stream on rtsp://')
        return host

    def command(self, *arguments):
        """A command to the running host; its output."""
        done = subprocess.run([BUILD / 'host/vorn-host', *arguments], env=self.environment,
                              capture_output=True, text=True)
        if done.returncode:
            raise SystemExit(f'vorn-host {" ".join(arguments)}: {done.stderr}')
        return done.stdout

    def start_stock(self, description):
        units = self.folder / f'units-{self.count}.csv'
        stock = self.start('stock', [BUILD / 'bench/pipeline/stock-pipeline', BUILD / 'elements',
                                     units, description])
        stock.units = units
        stock.await_line('playing')
        return stock

    def file(self, name):
        return self.folder / name


class Window:
    """What a process that writes units does from now on, until end ()."""

    def __init__(self, process, simulator):
        self.process, self.simulator = process, simulator
        self.start_ns = time.monotonic_ns()
        self.cpu = process.cpu_s(), simulator.cpu_s()

    def end(self):
        self.end_ns = time.monotonic_ns()
        self.cpu = [p.cpu_s() - c for p, c in zip((self.process, self.simulator), self.cpu)]

    def figures(self, rate):
        """Once the process has ended; latencies beyond what the camera itself needs."""
        with open(self.process.units) as file:
            rows = [row for row in csv.DictReader(file)
                    if self.start_ns <= int(row['encoded_ns']) < self.end_ns]
        timed = [(int(row['capture_ns']), int(row['encoded_ns'])) for row in rows if row['capture_ns']]
        seconds = (self.end_ns - self.start_ns) * 1e-9
        latencies = [(encoded - capture) * 1e-6 for capture, encoded in timed]
        period_ns = 1e9 / fps(rate)
        lost = sum(round((b[0] - a[0]) / period_ns) - 1 for a, b in zip(timed, timed[1:]))
        return {
            'fps': len(rows) / seconds,
            'lost_percent': 100 * lost / max(1, lost + len(rows)),
            'latency_median_ms': median(latencies),
            'latency_p99_ms': percentile(latencies, 0.99),
            'beyond_camera_median_ms': median(latencies) - DELIVERY_MS,
            'cpu_ms_per_frame': 1e3 * self.cpu[0] / max(1, len(rows)),
            'cpu_percent': 100 * self.cpu[0] / seconds,
            'simulator_cpu_percent': 100 * self.cpu[1] / seconds,
        }
