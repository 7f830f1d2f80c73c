"""Puts the goals of bench/goals.json beside the figures. A goal is a limit to a figure, or to its ratio to a peer:

    workload      what is done, for the reader
    table         question/table
    subject, column
    peer          another subject of the table, if the goal is a ratio to it
    peer_column   another column, if the goal is a ratio to that
    limit         what the figure or the ratio must not exceed
"""
from typing import NamedTuple

NOT_MEASURED = "not measured"


class Verdict(NamedTuple):
    workload: str
    goal: str
    figure: str
    met: str  # "yes", "NO" or NOT_MEASURED


def judge(goal, results):
    table, column, limit = goal["table"], goal["column"], goal["limit"]
    peer, peer_column = goal.get("peer"), goal.get("peer_column")
    own = results.median(table, goal["subject"], column)
    if peer is None and peer_column is None:
        return _verdict(goal, f"{column} <= {limit}", own, "" if own is None else _figure(own))
    text = f"{column} <= {limit} of {peer or peer_column}"
    other = results.median(table, peer or goal["subject"], peer_column or column)
    if own is None or not other:
        return _verdict(goal, text, None, "")
    return _verdict(goal, text, own / other, f"{own / other:,.2f} ({_figure(own)} to {_figure(other)})")


def _figure(value):
    return f"{value:,.0f}" if value >= 1000 else f"{value:.4g}"


def _verdict(goal, text, value, figure):
    met = NOT_MEASURED if value is None else "yes" if value <= goal["limit"] else "NO"
    return Verdict(goal["workload"], text, figure, met)


def _rows(verdicts):
    """A workload's name only on the first of its goals."""
    yield Verdict("workload", "goal", "figure", "met")
    previous = None
    for verdict in verdicts:
        yield verdict._replace(workload="") if verdict.workload == previous else verdict
        previous = verdict.workload


def as_text(verdicts):
    rows = list(_rows(verdicts))
    widths = [max(map(len, cells)) for cells in zip(*rows)]
    return "\n".join("  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip() for row in rows)


def as_markdown(verdicts):
    header, *rows = _rows(verdicts)
    lines = [header, ["---"] * len(header), *rows]
    return "\n".join("| " + " | ".join(line) + " |" for line in lines)


def as_sentence(verdicts):
    counts = {met: sum(verdict.met == met for verdict in verdicts) for met in ("yes", "NO", NOT_MEASURED)}
    return f"{counts['yes']} goals met, {counts['NO']} missed, {counts[NOT_MEASURED]} not measured"
