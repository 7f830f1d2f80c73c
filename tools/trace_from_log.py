#!/usr/bin/env python3
"""Makes a trace of a log: trace_from_log.py LOG TRACE

LOG is what the library wrote with ZARVO_LOG=file:LOG, TRACE a new file for Perfetto or chrome://tracing. A log has the runs of
tasks and jobs: their beginnings, their ends and their threads, and not their outcomes. Records of severity 4 and above become
moments. What is no record of the log is left out.
"""
import calendar
import json
import re
import sys

RECORD = re.compile(r"(\d{4})-(\d\d)-(\d\d)T(\d\d):(\d\d):(\d\d)\.(\d{7})Z (\d+) (\d+) (\d+):(\d+) \[(.*?)\] (.*)$")
RUN = re.compile(r"Task \[(.*)\] (started|stopped normally) in thread \[0x[0-9a-f]+ \(-?\d+\)\] of process \[0x[0-9a-f]+ \(-?\d+\)\]$")


def microseconds(parts):
    year, month, day, hour, minute, second, fraction = map(int, parts)
    return calendar.timegm((year, month, day, hour, minute, second)) * 1_000_000 + fraction / 10


def event_of(line):
    """The event that the record stands for; None if it stands for none."""
    record = RECORD.match(line.rstrip("\r\n"))
    if not record:
        return None
    time = microseconds(record.groups()[:7])
    severity, _, process, thread = map(int, record.groups()[7:11])
    category, text = record.groups()[11:]
    event = {"ts": time, "ph": "i", "pid": process, "tid": thread, "cat": category, "name": text}
    run = RUN.match(text) if category == "Concurrency.Task" else None
    if run:
        name, what = run.groups()
        event.update(ph="B" if what == "started" else "E", cat="task", name=name)
        if what != "started":
            event["args"] = {"outcome": "unknown"}
    elif severity >= 4:
        event["s"] = "t"
    else:
        return None
    return event


def nested(events):
    """Without the ends of runs whose beginnings are not in the log, and with those of runs that an exception has left."""
    open_runs = {}
    for event in events:
        runs = open_runs.setdefault((event["pid"], event["tid"]), [])
        if event["ph"] == "B":
            runs.append(event["name"])
        elif event["ph"] == "E":
            if event["name"] not in runs:
                continue
            while runs[-1] != event["name"]:
                yield dict(event, name=runs.pop())
            runs.pop()
        yield event


def trace_of(lines):
    events = [event for event in map(event_of, lines) if event]
    # Several processes may have written to the log, each in its own order.
    events.sort(key=lambda event: event["ts"])
    return list(nested(events))


def main(arguments):
    if len(arguments) != 2:
        print(__doc__, file=sys.stderr)
        return 2
    with open(arguments[0], encoding="utf-8", errors="replace", newline="\n") as log:
        events = trace_of(log)
    with open(arguments[1], "w", encoding="utf-8", newline="\n") as trace:
        trace.write("[\n")
        for event in events:
            trace.write(json.dumps(event, ensure_ascii=False, separators=(",", ":")) + ",\n")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
