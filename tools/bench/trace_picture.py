"""Draws a trace as its viewers lay it out: trace_picture.py TRACE SVG [MILLISECONDS]

A row for each thread with its runs, the inner ones below the outer ones, and what they wait in; above them how many tasks and jobs
stand in the queues. Of the first MILLISECONDS since the first run, if that is said.
"""
import json
import sys
from pathlib import Path

import matplotlib
from matplotlib import pyplot
from matplotlib.patches import Patch

matplotlib.use("svg")
# The same trace gives the same file; text stays text.
matplotlib.rcParams.update({"svg.hashsalt": "trace", "svg.fonttype": "none", "font.size": 9,
                            "axes.spines.top": False, "axes.spines.right": False})

COLORS = {"job": "#4c78a8", "task": "#72b7b2"}
WAIT = "#f2cf5b"
FEWEST_CHARACTERS = 3


def read(path):
    lines = path.read_text(encoding="utf-8").splitlines()[1:]
    return [json.loads(line.rstrip(",")) for line in lines if line.strip()]


def spans_of_threads(events):
    """(thread, depth, begin, end, event) of each run that has ended."""
    open_spans, spans = {}, []
    for event in events:
        stack = open_spans.setdefault(event["tid"], [])
        if event["ph"] == "B":
            stack.append(event)
        elif event["ph"] == "E" and stack:
            begin = stack.pop()
            spans.append((event["tid"], len(stack), begin["ts"], event["ts"], begin))
    return spans


def spans_with_ids(events, categories):
    open_spans, spans = {}, []
    for event in events:
        if event["cat"] in categories and event["ph"] == "b":
            open_spans[event["cat"], event["id"]] = event
        elif event["cat"] in categories and event["ph"] == "e":
            begin = open_spans.pop((event["cat"], event["id"]), None)
            if begin:
                spans.append((begin["tid"], begin["ts"], event["ts"]))
    return spans


def names_of_threads(events):
    return {event["tid"]: event["args"]["name"] for event in events if event["name"] == "thread_name"}


def draw_queue(axes, spans, first):
    changes = sorted([((begin - first) / 1000, 1) for _, begin, _ in spans] + [((end - first) / 1000, -1) for _, _, end in spans])
    times, depths, depth = [0], [0], 0
    for time, change in changes:
        depth += change
        times.append(time)
        depths.append(depth)
    axes.fill_between(times, depths, step="post", color="#cccccc")
    axes.set_ylabel("queued", rotation=0, ha="right", va="center")
    axes.set_ylim(bottom=0)


def draw_threads(axes, events, first, last):
    runs, waits, names = spans_of_threads(events), spans_with_ids(events, {"wait"}), names_of_threads(events)
    threads = sorted({run[0] for run in runs} | {wait[0] for wait in waits}, key=lambda thread: (names.get(thread, ""), thread))
    rows = {thread: row for row, thread in enumerate(threads)}
    for thread, depth, begin, end, event in runs:
        left, width, height = (begin - first) / 1000, (end - begin) / 1000, 0.8 / (depth + 1)
        axes.barh(rows[thread] + 0.4 - height / 2, width, height, left, color=COLORS[event["cat"]], edgecolor="white", linewidth=0.3)
        room = int(width / ((last - first) / 1000) * 120)
        if room >= FEWEST_CHARACTERS and left < (last - first) / 1000:
            text = event["name"].rsplit("\\", 1)[-1].rsplit("/", 1)[-1]
            axes.text(left, rows[thread] + 0.4 - height / 2, " " + text[:room], va="center", clip_on=True, fontsize=7, color="white")
    for thread, begin, end in waits:
        axes.barh(rows[thread] + 0.32, (end - begin) / 1000, 0.16, (begin - first) / 1000, color=WAIT)
    axes.set_yticks(range(len(threads)), [names.get(thread, "main") for thread in threads])
    axes.set_ylim(len(threads) - 0.4, -0.6)
    axes.set_xlabel("ms")


def draw(events, path, milliseconds):
    first = min(event["ts"] for event in events if event["ph"] == "B")
    last = max(event["ts"] for event in events)
    if milliseconds:
        last = min(last, first + 1000 * milliseconds)
    threads = {event["tid"] for event in events if event["ph"] in "Bb"}
    figure, (queue, runs) = pyplot.subplots(2, 1, sharex=True, figsize=(10, 1.4 + 0.32 * len(threads)), layout="constrained",
                                            height_ratios=(2, max(3, len(threads))))
    draw_queue(queue, spans_with_ids(events, {"queue", "job queue"}), first)
    draw_threads(runs, events, first, last)
    runs.set_xlim(0, (last - first) / 1000)
    figure.legend(handles=[Patch(color=COLORS["job"], label="job"), Patch(color=COLORS["task"], label="task"), Patch(color=WAIT, label="wait")],
                  loc="outside upper right", ncols=3, frameon=False)
    figure.savefig(path, metadata={"Date": None})


if __name__ == "__main__":
    if len(sys.argv) not in (3, 4):
        sys.exit(__doc__)
    draw(read(Path(sys.argv[1])), sys.argv[2], float(sys.argv[3]) if len(sys.argv) == 4 else None)
