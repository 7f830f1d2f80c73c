"""Judges how figures are read and goals are judged, with figures made up here."""
import json
import pathlib
import tempfile
import unittest

import goals
from results import Results


def run(subject, run_type="iteration", **figures):
    return {"run_name": f"question/table/{subject}/iterations:1/manual_time", "run_type": run_type, **figures}


ROUNDS = [
    run("own", ns=10.0, many=30.0), run("own", ns=40.0, many=20.0), run("own", ns=20.0, many=70.0),
    run("own", run_type="aggregate", ns=1.0, many=1.0),
    run("own", error_occurred=True, ns=1.0, many=1.0),
    run("peer", ns=10.0), run("peer", ns=8.0), run("peer", ns=100.0),
]


def read(rounds):
    with tempfile.TemporaryDirectory() as folder:
        content = {"context": {"system": "none"}, "benchmarks": rounds}
        (pathlib.Path(folder) / "question.json").write_text(json.dumps(content))
        return Results(pathlib.Path(folder))


def judge(limit, subject="own", **more):
    goal = {"workload": "Work", "table": "question/table", "subject": subject, "column": "ns", "limit": limit, **more}
    return goals.judge(goal, read(ROUNDS))


class ResultsTest(unittest.TestCase):
    def test_a_figure_is_the_median_of_the_rounds_that_succeeded(self):
        self.assertEqual(read(ROUNDS).median("question/table", "own", "ns"), 20)

    def test_what_no_round_measured_is_none(self):
        results = read(ROUNDS)
        self.assertIsNone(results.median("question/table", "own", "us"))
        self.assertIsNone(results.median("question/other", "own", "ns"))


class GoalsTest(unittest.TestCase):
    def test_a_figure_up_to_its_limit_is_met_and_one_beyond_is_not(self):
        self.assertEqual(judge(20).met, "yes")
        self.assertEqual(judge(19.9).met, "NO")

    def test_a_ratio_is_that_of_the_medians(self):
        self.assertEqual(judge(2.0, peer="peer").met, "yes")
        self.assertEqual(judge(1.99, peer="peer").met, "NO")
        self.assertEqual(judge(1.99, peer="peer").figure, "2.00 (20 to 10)")

    def test_a_ratio_may_be_one_to_another_column(self):
        self.assertEqual(judge(0.7, peer_column="many").met, "yes")
        self.assertEqual(judge(0.6, peer_column="many").met, "NO")

    def test_without_the_figure_or_its_peer_nothing_is_claimed(self):
        self.assertEqual(judge(20, subject="nobody").met, goals.NOT_MEASURED)
        self.assertEqual(judge(20, peer="nobody").met, goals.NOT_MEASURED)

    def test_a_table_names_a_workload_once_and_counts_its_goals(self):
        verdicts = [judge(20), judge(1), judge(1, peer="nobody")]
        self.assertEqual(goals.as_text(verdicts).count("Work"), 1)
        self.assertEqual(goals.as_markdown(verdicts).splitlines()[3], "|  | ns <= 1 | 20 | NO |")
        self.assertEqual(goals.as_sentence(verdicts), "1 goals met, 1 missed, 1 not measured")


unittest.main()
