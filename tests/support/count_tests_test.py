#!/usr/bin/env python3
"""Feeds scripts/count-tests with the logs that meson leaves and reads its verdict."""
import json
import pathlib
import subprocess
import sys
import tempfile
import unittest

COUNT_TESTS = pathlib.Path(sys.argv.pop(1))
PROJECT = "vornmorvikzelto"
BEGUN = "[==========] Running 2 tests from 1 test suite.\n"
ENDED = BEGUN + "[==========] 2 tests from 1 test suite ran. (5 ms total)\n"


def run(name, result="OK", status=0, output=ENDED):
    return {"name": f"{PROJECT}:base / {name}", "result": result, "returncode": status,
            "stdout": output}


def suite(program, cases):
    """A GoogleTest program's suite; cases: name to "", "failure" or "skipped"."""
    body = "".join(f'<testcase classname="Suite" name="{name}" status="run">'
                   + (f"<{what} />" if what else "") + "</testcase>"
                   for name, what in cases.items())
    return f'<testsuite name="{PROJECT}.{PROJECT}:base / {program}.Suite">{body}</testsuite>'


def pseudo(program, what=""):
    """What meson notes of a program that left no results of its own."""
    return (f'<testsuite name="{PROJECT}"><testcase classname="{PROJECT}" '
            f'name="{PROJECT}:base / {program}">' + (f"<{what} />" if what else "")
            + "</testcase></testsuite>")


class CountTests(unittest.TestCase):
    def expect(self, runs, suites, meson_status, status, *lines):
        with tempfile.TemporaryDirectory() as folder:
            logs = pathlib.Path(folder)
            logs.joinpath("testlog.json").write_text("".join(json.dumps(r) + "\n" for r in runs))
            logs.joinpath("testlog.junit.xml").write_text(
                "<testsuites>" + "".join(suites) + "</testsuites>")
            counted = subprocess.run([sys.executable, COUNT_TESTS, folder, str(meson_status)],
                                     capture_output=True, text=True)
        self.assertEqual(counted.stdout.splitlines(), list(lines))
        self.assertEqual(counted.returncode, status)

    def test_single_cases_are_counted(self):
        self.expect([run("a"), run("b")],
                    [suite("a", {"One": "", "Two": ""}), suite("b", {"One": "", "Two": "skipped"})],
                    0, 0, "3 passed, 0 failed, 1 skipped")

    def test_failed_case(self):
        self.expect([run("a", "FAIL", 1)], [suite("a", {"One": "", "Two": "failure"})], 1, 1,
                    "failed: a: Suite.Two", "1 passed, 1 failed")

    def test_crash_counts_once(self):
        self.expect([run("a", "FAIL", -11, BEGUN)], [pseudo("a", "failure")], 1, 1,
                    "failed: a (fail, status -11)", "0 passed, 1 failed")

    def test_hanging_program_has_not_passed(self):
        self.expect([run("a", "TIMEOUT", -15, BEGUN)], [pseudo("a")], 1, 1,
                    "failed: a (timeout, status -15)", "0 passed, 1 failed")

    def test_leak_at_exit(self):
        self.expect([run("a", "FAIL", 1)], [suite("a", {"One": "", "Two": ""})], 1, 1,
                    "failed: a (fail, status 1)", "2 passed, 1 failed")

    def test_program_that_ends_with_success_before_its_last_test(self):
        self.expect([run("a", "OK", 0, BEGUN)], [pseudo("a")], 0, 1,
                    "failed: a (ended before its last test)", "0 passed, 1 failed")

    def test_names_that_begin_alike(self):
        # The failed case of one explains nothing about the other.
        self.expect([run("view", "FAIL", -6, BEGUN), run("view-gst", "FAIL", 1)],
                    [suite("view-gst", {"One": "failure"}), pseudo("view", "failure")], 2, 1,
                    "failed: view (fail, status -6)", "failed: view-gst: Suite.One",
                    "0 passed, 2 failed")

    def test_script_is_one_test(self):
        self.expect([run("script", "OK", 0, "done\n"), run("bad", "FAIL", 3, "oh\n"),
                     run("other", "SKIP", 77, "no\n")],
                    [pseudo("script"), pseudo("bad", "failure"), pseudo("other", "skipped")], 1, 1,
                    "failed: bad (fail, status 3)", "1 passed, 1 failed, 1 skipped")

    def test_nothing_ran(self):
        self.expect([], [], 0, 1, "no test ran", "0 passed, 1 failed")

    def test_run_that_failed_itself(self):
        self.expect([run("a")], [suite("a", {"One": ""})], 1, 1,
                    "failed: the test run itself (status 1)", "1 passed, 1 failed")


unittest.main()
