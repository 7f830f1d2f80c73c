"""report.py FOLDER: reads FOLDER/results, prints the goals beside the figures, writes them as FOLDER/goals.md, and
draws FOLDER/charts/*.svg.

A missed goal is no failure: a measurement is not a test.
"""
import json
import pathlib
import shutil
import sys

import charts
import goals
from results import Results

BENCH = pathlib.Path(__file__).parents[2] / "bench"


def read_list(name):
    return json.loads((BENCH / name).read_text())


def report_goals(results, folder):
    verdicts = [goals.judge(goal, results) for goal in read_list("goals.json")]
    print(goals.as_text([verdict for verdict in verdicts if verdict.met != goals.NOT_MEASURED]))
    print(f"\n{goals.as_sentence(verdicts)}")
    machine = ", ".join(results.machine[name] for name in ("processor", "system", "compiler", "build"))
    (folder / "goals.md").write_text(f"{goals.as_markdown(verdicts)}\n\nMeasured on {machine}.\n")


def draw_charts(results, folder):
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir()
    drawn = [chart["file"] for chart in read_list("charts.json") if charts.draw(chart, results, folder)]
    print(f"charts of {folder}: {', '.join(drawn) or 'none, nothing to draw was measured'}")


def main():
    folder = pathlib.Path(sys.argv[1])
    results = Results(folder / "results")
    report_goals(results, folder)
    draw_charts(results, folder / "charts")


main()
