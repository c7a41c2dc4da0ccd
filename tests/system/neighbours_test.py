#!/usr/bin/env python3
# Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
"""Drones side by side on one machine do not see each other."""
import json
import re
import unittest

import desk


class Neighbours(desk.Desk):
    def echo(self, topic, instance, count=1):
        text = self.command("echo", topic, "--json", "-n", count, instance=instance)
        return [json.loads(line)["values"] for line in text.splitlines()]

    def start_drone(self, name, *flight):
        """A drone with its host and what computes its attitudes."""
        instance = self.new_instance(name)
        simulator = self.start_simulator(*flight, *desk.SMALL_SENSOR, instance=instance)
        host = self.start_host("--simple", "--media", f"media-{name}", instance=instance)
        attitudes = self.start(desk.BUILD / "src/tools/zelto-imu", "--json", "--instance", instance)
        return instance, simulator, host, attitudes

    def attitude_errors(self, attitudes):
        """In degrees, against the truth of the drone's own instance."""
        attitudes.await_line(r"(?s)error_rms_deg.*error_rms_deg")
        return [json.loads(line).get("error_rms_deg") for line in attitudes.text.splitlines()
                if "error_rms_deg" in line]

    def test_two_drones(self):
        calm, calm_simulator, calm_host, calm_attitudes = self.start_drone(
            "calm", "--flight", "hover", "--home", "10,20,100")
        wild, wild_simulator, wild_host, wild_attitudes = self.start_drone(
            "wild", "--flight", "aggressive", "--seed", "7", "--home", "-45,-6,2000")
        self.assertNotEqual(calm_host.uri, wild_host.uri)
        self.assertNotEqual(calm_simulator.await_line("on (ip:[^ ]*) ")[1],
                            wild_simulator.await_line("on (ip:[^ ]*) ")[1])

        places = {calm: (10, 20, 100), wild: (-45, -6, 2000)}
        for instance, (latitude, longitude, altitude) in places.items():
            drone = self.echo("drone", instance)[0]
            self.assertAlmostEqual(drone["latitude"], latitude, delta=0.1)
            self.assertAlmostEqual(drone["longitude"], longitude, delta=0.1)
            self.assertAlmostEqual(drone["altitude_m"], altitude, delta=200)
        rates = {instance: max(abs(sample[f"rate_{axis}"]) for sample in self.echo("truth", instance, 50)
                               for axis in "xyz") for instance in places}
        self.assertGreater(rates[wild], 3 * rates[calm])
        # Attitudes of the other drone would be off by tens of degrees.
        for attitudes in (calm_attitudes, wild_attitudes):
            for error in self.attitude_errors(attitudes):
                self.assertLess(error, 5)

        for instance in places:
            self.command("record", "start", instance=instance)
        self.await_status(lambda status: status["recording_frames"] > 20, "frames", calm)
        self.await_status(lambda status: status["recording_frames"] > 20, "frames", wild)

        # The end of one is nothing to the other.
        self.assertEqual(calm_attitudes.end(desk.INTERRUPT), 0, calm_attitudes.text)
        self.assertEqual(calm_host.end(desk.INTERRUPT), 0, calm_host.text)
        self.assertEqual(calm_simulator.end(desk.INTERRUPT), 0, calm_simulator.text)
        self.assert_nothing_left(calm)
        self.assertEqual(self.run_it(desk.HOST, "status", "--instance", calm)[::2], (
            3, f"vorn-host: no host runs on instance '{calm}' (Could not connect: No such file or directory): "
               "start one with 'vorn-host run'\n"))
        status = self.status(wild)
        self.await_status(lambda now: now["recording_frames"] > status["recording_frames"] + 20 and
                          now["stream_frames"] > status["stream_frames"] + 20, "more frames", wild)
        self.assertEqual(self.status(wild)["recording"], True)
        count = len(re.findall("error_rms_deg", wild_attitudes.text))
        desk.await_it(lambda: len(re.findall("error_rms_deg", wild_attitudes.text)) > count + 1, "attitudes")
        self.assertTrue(wild_simulator.runs())

        self.command("stop", instance=wild)
        self.assertEqual(wild_host.end(), 0, wild_host.text)
        self.assertEqual(wild_attitudes.end(desk.TERMINATE), 0, wild_attitudes.text)
        self.assertEqual(wild_simulator.end(desk.TERMINATE), 0, wild_simulator.text)
        self.assert_nothing_left()
        for name in ("calm", "wild"):
            self.assert_plays(self.folder / f"media-{name}/videos/ZELTO_0001.mp4", 0.5)


if __name__ == "__main__":
    unittest.main(verbosity=2)
