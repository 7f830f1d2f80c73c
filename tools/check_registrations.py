"""Checks which units register the exception classes, from the build's dependency records:
ninja -C BUILD -t deps | check_registrations.py

A unit that includes errors/exceptions.h carries one run of the registrations. Another such unit would be one run more
than the exception factory expects; one that is missing, one run less.
"""
import re
import sys

REGISTERING_HEADER = "concurrency/errors/exceptions.h"
REGISTERING_UNITS = {
    "errors/exceptions",
    "cancellation/cancellation_exceptions",
    "lifetime/concurrency_lifetime",
    "lifetime/initialization_state",
    "tasks/policies",
    "threadpool/global_thread_pool",
    "threadpool/thread_pool",
    "scheduler/global_scheduler",
    "scheduler/scheduler",
}
LIBRARY_UNIT = re.compile(r"^concurrency/CMakeFiles/(?:concurrency_objects|ZarvoConcurrency)\.dir/(.*)\.cpp\.obj:")


def read_units(records):
    """The library's units and those among them that include the registering header."""
    units, registering = set(), set()
    unit = None
    for line in records:
        if not line.startswith(" "):
            match = LIBRARY_UNIT.match(line)
            unit = match.group(1) if match else None
            if unit:
                units.add(unit)
        elif unit and line.strip().endswith(REGISTERING_HEADER):
            registering.add(unit)
    return units, registering


def main():
    units, registering = read_units(sys.stdin)
    for unit in sorted(registering - REGISTERING_UNITS):
        print(f"{unit}.cpp includes {REGISTERING_HEADER}, and so registers once more", file=sys.stderr)
    for unit in sorted(REGISTERING_UNITS - registering):
        print(f"{unit}.cpp does not include {REGISTERING_HEADER}, and so does not register", file=sys.stderr)
    print(f"{len(units)} units, {len(registering)} register")
    return 0 if registering == REGISTERING_UNITS else 1


sys.exit(main())
