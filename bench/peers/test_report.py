# SPDX-License-Identifier: GPL-3.0-or-later
"""Tests of report.py: reading `/usr/bin/time -v` output and laying out the tables.
Run from bench/peers: python3 -m unittest test_report"""
import json
import os
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import report  # noqa: E402

# Verbatim shape of GNU time 1.9's -v output for a command that failed.
TIME_V_FAILED = """Command exited with non-zero status 3
\tCommand being timed: "siril-cli -d /w -s /w/calibrate.ssf"
\tUser time (seconds): 3.51
\tSystem time (seconds): 0.40
\tPercent of CPU this job got: 151%
\tElapsed (wall clock) time (h:mm:ss or m:ss): 1:02:03
\tAverage shared text size (kbytes): 0
\tMaximum resident set size (kbytes): 153088
\tAverage resident set size (kbytes): 0
\tMajor (requiring I/O) page faults: 21
\tExit status: 3
"""

TIME_V_OK = """\tCommand being timed: "python3 sep_detect.py --image a: b.fit"
\tElapsed (wall clock) time (h:mm:ss or m:ss): 0:07.25
\tMaximum resident set size (kbytes): 2048
\tExit status: 0
"""


class TimeOutputTest(unittest.TestCase):
    def test_elapsed_forms(self):
        for text, seconds in [("0:07.25", 7.25), ("1:02:03", 3723.0), ("12:00.50", 720.5),
                              ("0:00.00", 0.0)]:
            with self.subTest(text=text):
                self.assertAlmostEqual(report.parse_elapsed(text), seconds)
        for bad in ["7.25", "1:2:3:4", ""]:
            with self.subTest(bad=bad):
                self.assertRaises(ValueError, report.parse_elapsed, bad)

    def test_figures_of_a_failed_run(self):
        t = report.parse_time_v(TIME_V_FAILED)
        self.assertEqual(t, {"wall_s": 3723.0, "max_rss_kb": 153088, "exit_status": 3})

    def test_a_colon_in_the_command_does_not_confuse_it(self):
        t = report.parse_time_v(TIME_V_OK)
        self.assertEqual(t, {"wall_s": 7.25, "max_rss_kb": 2048, "exit_status": 0})

    def test_missing_figures_are_none(self):
        self.assertEqual(report.parse_time_v("timeout: killed\n"),
                         {"wall_s": None, "max_rss_kb": None, "exit_status": None})

    def test_status_from_exit_code(self):
        cases = [(0, "ok", []), (3, "failed", ["exit status 3"]),
                 (124, "timeout", ["timeout after 900 s"]), (137, "timeout",
                                                            ["timeout after 900 s"])]
        for code, status, notes in cases:
            with self.subTest(code=code):
                rec = report.make_record("s", "stack", "Siril", 1, TIME_V_OK, code, 900)
                self.assertEqual(rec["status"], status)
                self.assertEqual(rec["notes"], notes)
                self.assertAlmostEqual(rec["wall_s"], 7.25)
                self.assertAlmostEqual(rec["rss_mb"], 2.0)

    def test_exit_code_falls_back_to_time_output(self):
        rec = report.make_record("s", "stack", "Siril", 1, TIME_V_FAILED)
        self.assertEqual(rec["status"], "failed")
        self.assertEqual(rec["notes"], ["exit status 3"])

    def test_quality_keeps_known_figures_and_notes(self):
        rec = report.make_record("s", "detect", "SEP", 1, TIME_V_OK, 0, quality={
            "completeness": 0.5, "positionError": None, "bogus": 3, "notes": ["n1"]},
            notes=["first"])
        self.assertEqual(rec["quality"], {"completeness": 0.5})
        self.assertEqual(rec["notes"], ["first", "n1"])


def rec(program, order, status="ok", wall=None, rss=None, quality=None, notes=()):
    return {"set": "quick-mono", "task": "stack", "program": program, "order": order,
            "status": status, "wall_s": wall, "rss_mb": rss, "quality": quality or {},
            "notes": list(notes)}


class TableTest(unittest.TestCase):
    HEADER = ("| program | wall s | peak RSS MB | ratio (ours/peer) | noise | fwhm | snrGain | "
              "cornerError | completeness | positionError | notes |")

    def test_ours_not_built_comes_first_without_ratios(self):
        lines = report.table([
            rec("ccdproc", 2, wall=10.0, rss=400.0, quality={"noise": 7.03125, "snrGain": 3.4}),
            rec("Siril", 1, wall=0.25, rss=96.5, notes=["a|b"]),
            rec("Astrivelle", 0, status="not built yet"),
        ]).splitlines()
        self.assertEqual(lines[0], self.HEADER)
        self.assertEqual(lines[1], "|---|---|---|---|---|---|---|---|---|---|---|")
        self.assertEqual(lines[2], "| Astrivelle | — | — | — | — | — | — | — | — | — | "
                                   "not built yet |")
        self.assertEqual(lines[3], "| Siril | 0.25 | 96.50 | — | — | — | — | — | — | — | a/b |")
        self.assertEqual(lines[4], "| ccdproc | 10.00 | 400.0 | — | 7.03 | — | 3.40 | — | — | — |  |")
        self.assertEqual(len(lines), 5)

    def test_ratio_is_ours_over_peer(self):
        lines = report.table([
            rec("Siril", 1, wall=4.0, rss=200.0),
            rec("Astrivelle", 0, wall=1.0, rss=50.0, quality={"cornerError": 0.0123}),
            rec("ccdproc", 2, status="timeout", wall=1800.0, rss=10.0, notes=["after 1800 s"]),
        ]).splitlines()
        self.assertEqual(lines[2], "| Astrivelle | 1.00 | 50.00 | — | — | — | — | 0.0123 | — | — |  |")
        self.assertEqual(lines[3],
                         "| Siril | 4.00 | 200.0 | 0.25× time, 0.25× RSS | — | — | — | — | — | — |  |")
        self.assertEqual(lines[4], "| ccdproc | 1800 | 10.00 | — | — | — | — | — | — | — | "
                                   "timeout; after 1800 s |")

    def test_number_formats(self):
        for value, text in [(None, "—"), (0.0, "0"), (0.000112, "0.000112"), (3.14159, "3.14"), (50.0, "50.00"), (0.25, "0.25"),
                            (123.45, "123.5"), (4567.8, "4568"), ("x", "x")]:
            with self.subTest(value=value):
                self.assertEqual(report.fmt(value), text)


class RenderTest(unittest.TestCase):
    def test_record_then_render_through_the_command_line(self):
        with tempfile.TemporaryDirectory() as d:
            time_file = os.path.join(d, "t.time")
            with open(time_file, "w") as f:
                f.write(TIME_V_OK)
            quality = os.path.join(d, "q.json")
            with open(quality, "w") as f:
                json.dump({"noise": 5.5, "notes": ["scaled"]}, f)
            script = os.path.join(os.path.dirname(os.path.abspath(__file__)), "report.py")
            runs = os.path.join(d, "runs")
            calls = [
                ["record", "--out", f"{runs}/night-mono/stack/1-Siril.json", "--set",
                 "night-mono", "--task", "stack", "--program", "Siril", "--order", "1",
                 "--time", time_file, "--exit", "0", "--quality", quality],
                ["record", "--out", f"{runs}/quick-mono/calibrate/0-Astrivelle.json", "--set",
                 "quick-mono", "--task", "calibrate", "--program", "Astrivelle",
                 "--status", "not built yet"],
                ["record", "--out", f"{runs}/quick-mono/detect/1-SEP.json", "--set",
                 "quick-mono", "--task", "detect", "--program", "SEP", "--time", time_file,
                 "--exit", "124", "--timeout", "60"],
            ]
            for call in calls:
                subprocess.run([sys.executable, script] + call, check=True)
            meta = os.path.join(d, "meta.json")
            with open(meta, "w") as f:
                json.dump({"date": "2024-01-02 03:04", "nproc": 2, "cpu": "Test CPU",
                           "memory": "1.0 GiB", "versions": {"Siril": "1.0.6"},
                           "load": {"at the start": "0.50 0.40 0.30", "at the end": "2.50 1 1"},
                           "sets": {"quick-mono": "small", "night-mono": "big"}}, f)
            out = os.path.join(d, "latest.md")
            subprocess.run([sys.executable, script, "render", "--runs", runs, "--meta", meta,
                            "--out", out], check=True)
            with open(out) as f:
                text = f.read()
        self.assertIn("Run 2024-01-02 03:04 on Test CPU, 2 cores, 1.0 GiB memory.", text)
        self.assertIn("Peers: Siril 1.0.6.", text)
        self.assertIn("Load average (1, 5, 15 min): at the start 0.50 0.40 0.30, at the end "
                      "2.50 1 1; other work shared the cores, so the timings are high.", text)
        # sets in the order the meta names them, tasks in their fixed order
        order = [text.index(s) for s in ["## quick-mono (small)", "### 1. Master frames",
                                         "### 5. Star detection", "## night-mono (big)",
                                         "### 3. Stack with rejection"]]
        self.assertEqual(order, sorted(order))
        self.assertIn("| SEP | 7.25 | 2.00 | — | — | — | — | — | — | — | "
                      "timeout; timeout after 60 s |", text)
        self.assertIn("| Siril | 7.25 | 2.00 | — | 5.50 | — | — | — | — | — | scaled |", text)
        self.assertNotIn("### 2. Register", text)


if __name__ == "__main__":
    unittest.main()
