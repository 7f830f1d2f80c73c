"""Runs the commands of a transcript in gdb, and compares what gdb says with what stands there.

Run by gdb, which the environment tells: ZARVO_TRANSCRIPT is the file, ZARVO_REACH the commands, with | between, that lead to
the state, ZARVO_PAGE a page whose transcript is compared, too.

In the expected lines %name stands for a number, the same one wherever the name stands, and % for any number. Numbers of gdb's own
history and spaces are not compared. In a page each number stands for any. What gdb said is left in transcript.txt.
"""

import os
import pathlib
import re

import gdb

PRINTERS = pathlib.Path(__file__).parent / "../../debugger/zarvo_gdb.py"
NUMBER = r"0x[0-9a-f]+|[0-9]+(?:\.[0-9]+)?"


def commands_in(lines):
    """Each with the lines that are expected."""
    commands = []
    for line in lines:
        if line.startswith("(gdb) "):
            commands.append((line[len("(gdb) "):], []))
        elif line:
            commands[-1][1].append(line)
    return commands


def commands_of_page(page):
    (block,) = re.findall(r"^```\n(\(gdb\) print .*?)^```$", page, re.DOTALL | re.MULTILINE)
    return [
        (command, [re.sub(rf"\b(?:{NUMBER})\b", "%", essence(line)) for line in expected])
        for command, expected in commands_in(block.splitlines())
    ]


def run(command):
    try:
        said = gdb.execute(command, to_string=True)
    except gdb.error as error:
        said = str(error)
    return [line.rstrip() for line in said.splitlines() if line.strip()]


def essence(line):
    """Without the number in gdb's history, and without the widths of columns."""
    return re.sub(r"^\$[0-9]* = ", "$ = ", re.sub(" +", " ", line.strip()))


def pattern_of(expected, known):
    """A regular expression, with a group for each name that is met first."""
    pattern = ""
    names = set()
    for part in re.split(r"(%[a-z]*)", essence(expected)):
        name = part[1:]
        if not part.startswith("%"):
            pattern += re.escape(part)
        elif not name:
            pattern += f"(?:{NUMBER})"
        elif name in known:
            pattern += re.escape(known[name])
        elif name in names:
            pattern += f"(?P={name})"
        else:
            names.add(name)
            pattern += f"(?P<{name}>{NUMBER})"
    return pattern


def differences(expected, said, known):
    if len(expected) != len(said):
        return [f"expected {len(expected)} lines:"] + expected
    found = []
    for line, actual in zip(expected, said):
        match = re.fullmatch(pattern_of(line, known), essence(actual))
        if match:
            known.update(match.groupdict())
        else:
            found.append(f"expected: {line}")
    return found


def check():
    gdb.execute("set pagination off")
    gdb.execute("set confirm off")
    gdb.execute("set width 0")
    gdb.execute(f"source {PRINTERS}")
    for command in os.environ["ZARVO_REACH"].split("|"):
        print("\n".join(run(command)))
    expected_commands = commands_in(pathlib.Path(os.environ["ZARVO_TRANSCRIPT"]).read_text().splitlines())
    if "ZARVO_PAGE" in os.environ:
        expected_commands = commands_of_page(pathlib.Path(os.environ["ZARVO_PAGE"]).read_text()) + expected_commands
    known = {}
    failed = 0
    with open("transcript.txt", "w") as transcript:
        for command, expected in expected_commands:
            said = run(command)
            lines = ["(gdb) " + command, *said]
            transcript.write("\n".join(lines) + "\n")
            different = differences(expected, said, known)
            print("\n".join(lines + ["    !! " + line for line in different]))
            failed += bool(different)
    print(f"{failed} commands say something else")
    return failed == 0 and bool(known)


try:
    passed = check()
finally:
    gdb.execute("kill") if gdb.selected_inferior().pid else None
gdb.execute(f"quit {0 if passed else 1}")
