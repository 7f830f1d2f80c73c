"""report.py FOLDER: reads FOLDER/results, prints the goals beside the figures, and writes FOLDER/goals.md.

A missed goal is no failure: a measurement is not a test.
"""
import json
import pathlib
import sys

import goals
from results import Results


def describe(machine):
    return ", ".join(machine[name] for name in ("processor", "system", "compiler", "build") if name in machine)


def main():
    folder = pathlib.Path(sys.argv[1])
    results = Results(folder / "results")
    bench = pathlib.Path(__file__).parents[2] / "bench"
    verdicts = [goals.judge(goal, results) for goal in json.loads((bench / "goals.json").read_text())]
    print(goals.as_text([verdict for verdict in verdicts if verdict.met != goals.NOT_MEASURED]))
    print(f"\n{goals.as_sentence(verdicts)}")
    markdown = f"{goals.as_markdown(verdicts)}\n\nMeasured on {describe(results.machine)}.\n"
    (folder / "goals.md").write_text(markdown)


main()
