#!/usr/bin/env python3
# Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
"""Signals at any moment: what was recorded can be played, and nothing stays behind."""
import statistics
import time
import unittest

import desk

END_S = 3  # what the end of a host takes at most
GIVEN_UP_S = 8  # and when it hangs


class Interruptions(desk.Desk):
    def timed_end(self, host, number=desk.INTERRUPT):
        start = time.monotonic()
        status = host.end(number)
        return status, time.monotonic() - start

    def assert_recordings_play(self):
        """Also those that only the next run finishes."""
        if self.recordings("*.part"):
            self.finish_in_next_run()
        for recording in self.recordings():
            self.assert_plays(recording)
        self.assertEqual([path.name for path in self.recordings("*") if path.suffix not in (".mp4", "")], [])

    def finish_in_next_run(self):
        next_run = self.start_host("--simple")
        next_run.await_line("[1-9][0-9]* recordings of a former run were finished")
        self.assertEqual(next_run.end(desk.INTERRUPT), 0, next_run.text)
        return next_run

    # ---- A host that is told to end

    def test_a_host_at_any_moment_of_its_start(self):
        self.start_simulator("--flight", "orbit", *desk.SMALL_SENSOR)
        for delay_s in (0.02, 0.05, 0.1, 0.2, 0.4, 0.8):
            with self.subTest(delay_s=delay_s):
                host = self.start(*self.host_command("--full", "--record"))
                time.sleep(delay_s)  # the moment is what is tested: there is nothing to wait for
                status = host.end(desk.INTERRUPT)
                # Before it listens to signals it ends as any program does.
                self.assertIn(status, (0, -desk.INTERRUPT), host.text)
                if status != 0:
                    self.assertEqual(host.text, "")
                self.assert_recordings_play()
                self.assertFalse((self.runtime / self.instance / "vorn-host.sock").exists())

    def test_a_host_at_work(self):
        simulator = self.start_simulator("--flight", "orbit", *desk.SMALL_SENSOR)

        def record(host):
            host.await_line("recording into ")
            self.await_status(lambda status: status["recording_frames"] > 10, "frames")

        def take_burst(host):
            self.command("set-mode", "photo", "burst")
            photographer = self.start(desk.HOST, "photo", "--group", "burst", "--count", 20, "--instance", self.instance)
            desk.await_it(lambda: list((self.folder / "media").rglob("*.jpg*")), "first picture")
            return photographer, (0, 1, 3)

        def change_mode(host):
            self.command("set-mode", "photo", "single")

        def stop_recording(host):
            record(host)
            stopper = self.start(desk.HOST, "record", "stop", "--instance", self.instance)
            return stopper, (0, 1, 3, 4)

        rows = (
            ("streaming", (), lambda host: None),
            ("recording", ("--record",), record),
            ("a recording being stopped", ("--record",), stop_recording),
            ("just another mode", (), change_mode),
            ("a burst of photos", (), take_burst),
            ("first steps of the show", ("--show", "--duration", "60"), lambda host: host.await_line("show: ")),
        )
        times = []
        for name, options, prepare in rows:
            with self.subTest(name):
                host = self.start_host("--full", *options)
                client = prepare(host)
                status, seconds = self.timed_end(host)
                times.append(seconds)
                self.assertEqual(status, 0, f"{seconds:.1f} s: {host.text}")
                self.assertIn("vorn-host: interrupted\n", host.text)
                self.assertNotIn("given up", host.text)
                if isinstance(client, tuple):
                    self.assertIn(client[0].end(), client[1], client[0].text)
        print(f"ends took {', '.join(f'{seconds:.2f}' for seconds in times)} s")
        # One of them may meet a machine that does something else.
        self.assertLess(statistics.median(times), END_S)
        self.assert_recordings_play()
        self.assertGreaterEqual(len(self.recordings()), 2)
        self.assert_whole_pictures()
        simulator.end(desk.INTERRUPT)
        self.assert_nothing_left()

    def test_a_frozen_simulator(self):
        """The host that connects to it is given up when it has to be."""
        simulator = self.start_simulator("--flight", "orbit", *desk.SMALL_SENSOR)
        simulator.send(desk.signal.SIGSTOP)
        try:
            host = self.start_host("--full", "--record")
            status, seconds = self.timed_end(host)
        finally:
            simulator.send(desk.signal.SIGCONT)
        given_up = "vorn-host: did not end within 8 s: given up\n" in host.text
        self.assertEqual(status, 1 if given_up else 0, host.text)
        self.assertLess(seconds, GIVEN_UP_S + 1)
        self.assertEqual(simulator.end(desk.INTERRUPT), 0, simulator.text)

    def test_a_recording_that_is_refused(self):
        self.start_simulator("--flight", "orbit", *desk.SMALL_SENSOR)
        host = self.start(*self.host_command("--simple", "--record", "--mode", "photo single"))
        self.assertEqual(host.end(), 1, host.text)
        self.assertRegex(host.text, "\nvorn-host: no recording in the mode 'photo single .*': set a recording mode first\n")

    # ---- Killed

    def test_a_killed_host(self):
        self.start_simulator("--flight", "orbit", *desk.SMALL_SENSOR)
        host = self.start_host("--simple", "--record")
        host.await_line("recording into ")
        self.await_status(lambda status: status["recording_frames"] >= 84, "3.5 s")
        frames = self.status()["recording_frames"]
        host.end(desk.KILL)
        part, = self.recordings("*.part")
        least_s = frames * 1001 / 24000 - 2
        # Players read fragments as they are.
        fragments = self.assert_plays(part, least_s)

        next_run = self.finish_in_next_run()
        self.assertRegex(next_run.text, r"recording .*ZELTO_0001.mp4 was left unfinished and is finished now\n")
        recording, = self.recordings()
        self.assertEqual(recording.name, "ZELTO_0001.mp4")
        self.assertEqual(len(self.assert_plays(recording, least_s)), len(fragments))
        self.assertEqual(self.recordings("*.part"), [])

    def test_a_killed_simulator_that_comes_back(self):
        simulator = self.start_simulator("--flight", "orbit", *desk.SMALL_SENSOR)
        port = simulator.await_line(r"on ip:127\.0\.0\.1:([0-9]+) ")[1]
        host = self.start_host("--full", "--record")
        player = self.start("ffmpeg", "-v", "quiet", "-rtsp_transport", "tcp", "-i", host.uri, "-f", "framehash", "-hash",
                            "adler32", "-flush_packets", "1", "-")

        def flies(status):
            return status.get("attitudes_per_second", 0) > 500 and status["fps_out"] > 8
        self.await_status(flies, "attitudes and stream")
        simulator.end(desk.KILL)
        self.await_status(lambda status: status["fps_out"] == 0, "a stream that pauses")
        self.assertTrue(host.runs(), host.text)
        before = self.status()
        pictures = len(player.lines)

        self.start_simulator("--flight", "orbit", "--iio-port", port, *desk.SMALL_SENSOR)
        self.await_status(flies, lambda: f"attitudes and stream: {self.status()}\n{host.text}")
        self.await_status(lambda status: status["recording_frames"] > before["recording_frames"] + 20,
                          lambda: f"more of the recording: {self.status()}\n{host.text}")
        error = self.await_status(lambda status: status.get("attitude_error_rms_deg"), "error")
        self.assertLess(error, 5)
        desk.await_it(lambda: len(player.lines) > pictures + 20, "pictures for who has watched all the time")
        self.output_of("ffmpeg", "-v", "error", "-rtsp_transport", "tcp", "-i", host.uri, "-frames:v", 10, "-f", "null", "-")
        recording = self.folder / self.command("record", "stop").strip()
        self.assert_plays(recording, 1)
        self.assertEqual(host.end(desk.INTERRUPT), 0, host.text)


if __name__ == "__main__":
    unittest.main(verbosity=2)
