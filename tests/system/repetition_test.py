#!/usr/bin/env python3
# Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
"""The same seed gives the same flight."""
import csv
import math
import statistics
import time
import unittest

import desk

STEP_S = 1e-3  # of gyroscope and truth
NOISE_RAD = 0.0005  # of the reference, about each axis
REFERENCE_MS = 5  # how late it is
BLOCK_MS = 5  # the gyroscope's samples come in blocks
SAMPLED = 20  # so many attitudes are not looked at one by one
LONGEST_LAG = 80  # steps


def angle(first, second):
    """Between two attitudes, radians; exact for small angles too."""
    return 4 * math.asin(min(1, min(math.dist(first, second), math.dist(first, [-x for x in second])) / 2))


class Flown:
    """What a flight's report tells of its attitudes, by the milliseconds since the first."""

    def __init__(self, file, earliest_s, latest_s):
        self.earliest_s, self.latest_s = earliest_s, latest_s  # of the drone's start
        with open(file, encoding="ascii") as lines:
            rows = list(csv.DictReader(lines))
        self.first_s = float(rows[0]["time_s"])
        self.truth, self.estimate = {}, {}
        for row in rows:
            step = round((float(row["time_s"]) - self.first_s) / STEP_S)
            self.truth[step] = tuple(row[f"true_q{axis}"] for axis in "xyzw")
            if row["qx"]:
                self.estimate[step] = [float(row[f"q{axis}"]) for axis in "xyzw"]

    def shift_to(self, other):
        """How many steps later in its flight the other's first attitude is; None: another flight."""
        step_of = {truth: step for step, truth in self.truth.items()}
        for step, truth in other.truth.items():
            if truth in step_of:
                return step_of[truth] - step
        return None

    def lags(self):
        """Of estimates behind the true attitude that they come closest to: steps, and radians from it."""
        for step in sorted(self.estimate)[::SAMPLED]:
            nearby = range(step - LONGEST_LAG, step + LONGEST_LAG + 1)
            if nearby[0] in self.truth and nearby[-1] in self.truth:
                estimate = self.estimate[step]
                distance, nearest = min((angle(estimate, self.true_attitude(at)), at) for at in nearby if at in self.truth)
                yield step - nearest, distance

    def true_attitude(self, step):
        return [float(number) for number in self.truth[step]]


class Repetition(desk.Desk):
    def fly(self, name, seed):
        instance = self.new_instance(name)
        earliest_s = time.monotonic()
        simulator = self.start_simulator("--flight", "aggressive", "--seed", seed, *desk.SMALL_SENSOR,
                                         instance=instance)
        latest_s = time.monotonic()
        host = self.start_host("--full", "--duration", 3, "--report", name, "--media", name, instance=instance)
        self.assertEqual(host.end(), 0, host.text)
        self.assertEqual(simulator.end(desk.TERMINATE), 0, simulator.text)
        return Flown(self.folder / name / "attitude.csv", earliest_s, latest_s)

    def test_same_seed(self):
        first, second, other = self.fly("first", 5), self.fly("second", 5), self.fly("other", 6)
        self.assertIsNone(first.shift_to(other), "another seed is another flight")
        shift = first.shift_to(second)
        self.assertIsNotNone(shift)
        # Equal attitudes are equally long after the start.
        starts_s = second.first_s - (first.first_s + shift * STEP_S)
        self.assertGreaterEqual(starts_s, second.earliest_s - first.latest_s)
        self.assertLessEqual(starts_s, second.latest_s - first.earliest_s)
        common = [step for step in second.truth if step + shift in first.truth]
        self.assertGreater(len(common), 1000)
        for step in common:
            self.assertEqual(first.truth[step + shift], second.truth[step], step)

        # Where the blocks begin differs from run to run: the reference is up to two of them older. Both
        # have its noise.
        worst = 0
        # An estimate is where the drone was when the reference was taken, within that one's noise: as long
        # ago as the reference is late and two blocks last, on a busy machine other than that.
        for flown in (first, second):
            lags = list(flown.lags())
            self.assertGreater(len(lags), 100)
            print(f"lag {statistics.median(lag for lag, _ in lags)} ms, from {min(lags)[0]} to {max(lags)[0]} ms, "
                  f"{max(distance for _, distance in lags):.5f} rad beside")
            self.assertLess(max(distance for _, distance in lags), 6 * NOISE_RAD)
            self.assertLessEqual(statistics.median(lag for lag, _ in lags), REFERENCE_MS + 2 * BLOCK_MS)


if __name__ == "__main__":
    unittest.main(verbosity=2)
