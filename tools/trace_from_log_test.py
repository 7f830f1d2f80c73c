"""Judges the trace that is made of a log, with records written here."""
import json
import os
import tempfile
import unittest

from trace_from_log import main, trace_of


def record(seconds, text, thread=7, severity=1, category="Concurrency.Task"):
    return f"2026-11-20T22:16:{seconds:010.7f}Z {severity} 16 1184:{thread} [{category}] {text}\n"


def started(seconds, name, thread=7):
    return record(seconds, f"Task [{name}] started in thread [0x7 ({thread})] of process [0x4a0 (1184)]", thread)


def stopped(seconds, name, thread=7):
    return record(seconds, f"Task [{name}] stopped normally in thread [0x7 ({thread})] of process [0x4a0 (1184)]", thread)


def brief(events):
    return [event["ph"] + " " + event["name"] for event in events]


class Trace(unittest.TestCase):
    def test_runs_become_spans_with_unknown_outcomes(self):
        begin, end = trace_of([started(30, "Fetch"), stopped(30.5, "Fetch")])
        self.assertEqual(begin, {"ts": 1795212990000000.0, "ph": "B", "pid": 1184, "tid": 7, "cat": "task", "name": "Fetch"})
        self.assertEqual(end["ts"] - begin["ts"], 500000)
        self.assertEqual(end["args"], {"outcome": "unknown"})

    def test_runs_nest_on_each_thread(self):
        lines = [started(1, "outer"), started(2, "other", 8), started(3, "inner"), stopped(4, "other", 8), stopped(5, "inner"), stopped(6, "outer")]
        self.assertEqual(brief(trace_of(lines)), ["B outer", "B other", "B inner", "E other", "E inner", "E outer"])

    def test_an_end_without_a_beginning_is_left_out(self):
        self.assertEqual(brief(trace_of([stopped(1, "a"), started(2, "b"), stopped(3, "b")])), ["B b", "E b"])

    def test_a_run_that_an_exception_has_left_ends_with_the_one_around_it(self):
        self.assertEqual(brief(trace_of([started(1, "a"), started(2, "b"), stopped(3, "a")])), ["B a", "B b", "E b", "E a"])

    def test_records_of_several_processes_are_sorted(self):
        self.assertEqual(brief(trace_of([started(2, "late"), started(1, "early", 8)])), ["B early", "B late"])

    def test_names_may_look_like_records(self):
        name = "a] started in thread [0x1 (1)"
        self.assertEqual(brief(trace_of([started(1, name), stopped(2, name)])), ["B " + name, "E " + name])

    def test_failures_become_moments_and_the_course_of_things_nothing(self):
        lines = [record(1, "skips a run", severity=4, category="Scheduler"), record(2, "something"), "no record\n"]
        events = trace_of(lines)
        self.assertEqual(brief(events), ["i skips a run"])
        self.assertEqual((events[0]["cat"], events[0]["s"]), ("Scheduler", "t"))

    def test_the_file_has_one_event_on_each_line(self):
        with tempfile.TemporaryDirectory() as folder:
            log, trace = os.path.join(folder, "log"), os.path.join(folder, "trace")
            with open(log, "w", encoding="utf-8") as file:
                file.write(started(1, 'quote " ä') + stopped(2, 'quote " ä'))
            self.assertEqual(main([log, trace]), 0)
            with open(trace, encoding="utf-8") as file:
                first, *lines = file.read().splitlines()
        self.assertEqual(first, "[")
        self.assertEqual([json.loads(line.removesuffix(","))["name"] for line in lines], ['quote " ä'] * 2)
        self.assertTrue(all(line.endswith("},") for line in lines))


if __name__ == "__main__":
    unittest.main()
