"""Runs tests: first all of them without a mutant, then each mutant against the tests that reach it."""
import json
import os
import pathlib
import signal
import subprocess
import tempfile
import time
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass, field

WORKERS = 2


@dataclass
class Test:
    name: str
    command: list
    folder: str
    seconds: float = 0.0
    reached: set = field(default_factory=set, repr=False)

    @property
    def limit(self):
        """A test that takes longer hangs."""
        return 5 * self.seconds + 5


@dataclass
class Verdict:
    mutant: object
    outcome: str  # killed, survived, unreached, not run
    how: str = ""
    test: str = ""
    tests: int = 0


def list_tests(build, programs):
    done = subprocess.run(["ctest", "--test-dir", build, "--show-only=json-v1"], capture_output=True, text=True, check=True)
    tests = []
    for entry in json.loads(done.stdout)["tests"]:
        command = entry.get("command")
        if command and pathlib.Path(command[0]).name in programs:
            folder = {each["name"]: each["value"] for each in entry["properties"]}.get("WORKING_DIRECTORY", str(build))
            tests.append(Test(entry["name"], command, folder))
    return tests


def run(test, mutant=0, limit=600.0, reached=None):
    """None if the test passed, else how it failed."""
    environment = dict(os.environ, ZARVO_MUTANT=str(mutant))
    if reached is not None:
        environment["ZARVO_REACHED_MUTANTS"] = reached
    process = subprocess.Popen(test.command, cwd=test.folder, env=environment, stdin=subprocess.DEVNULL,
                               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True)
    try:
        code = process.wait(timeout=limit)
    except subprocess.TimeoutExpired:
        code = None
    finally:
        try:
            os.killpg(process.pid, signal.SIGKILL)  # with the children that it left
        except ProcessLookupError:
            pass
        process.wait()
    if code is None:
        return "hung"
    return None if code == 0 else "failed" if code > 0 else "crashed"


def measure(tests, count):
    """Sets the time of each test and what it reaches of the mutants below `count`. Returns those that pass."""
    def one(test):
        with tempfile.NamedTemporaryFile() as file:
            file.write(bytes(count))
            file.flush()
            begin = time.monotonic()
            how = run(test, reached=file.name)
            test.seconds = time.monotonic() - begin
            file.seek(0)
            test.reached = {number for number, byte in enumerate(file.read()) if byte}
        return how
    with ThreadPoolExecutor(WORKERS) as pool:
        outcomes = list(pool.map(one, tests))
    for test, how in zip(tests, outcomes):
        if how is not None:
            print(f"  without a mutant {how}, and left out: {test.name}", flush=True)
    return sorted((test for test, how in zip(tests, outcomes) if how is None), key=lambda test: test.seconds)


def judge(mutant, tests):
    reaching = [test for test in tests if mutant.number in test.reached]
    if not reaching:
        return Verdict(mutant, "unreached")
    for test in reaching:
        how = run(test, mutant.number, test.limit)
        # The machine may have been too busy for the test: then it says nothing about the mutant.
        if how is not None and run(test, 0, test.limit) is None:
            return Verdict(mutant, "killed", how, test.name, len(reaching))
    return Verdict(mutant, "survived", tests=len(reaching))


def judge_all(mutants, tests, seconds, progress):
    """Each mutant's verdict, in the order of the mutants. After `seconds` the rest is not run."""
    end = time.monotonic() + seconds
    done = 0

    def one(mutant):
        nonlocal done
        verdict = judge(mutant, tests) if time.monotonic() < end else Verdict(mutant, "not run")
        done += 1
        progress(done, verdict)
        return verdict
    with ThreadPoolExecutor(WORKERS) as pool:
        return list(pool.map(one, mutants))
