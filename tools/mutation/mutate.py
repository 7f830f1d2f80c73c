"""./dev mutate ROOM: which changes of the room's sources no test of the room notices."""
import argparse
import json
import pathlib
import random
import resource
import sys
import time

from building import ROOMS, Failure, Found, MutatedTree
from mutant import BLOCK
from reporting import BadClaim, read_claims, share, shown, write_report
from running import judge_all, list_tests, measure

ROOT = pathlib.Path(__file__).resolve().parents[2]


def parse():
    parser = argparse.ArgumentParser(prog="./dev mutate", description=__doc__)
    parser.add_argument("room", help="a folder of concurrency/")
    parser.add_argument("--sample", type=int, metavar="N", help="only N of the mutants")
    parser.add_argument("--seed", type=int, default=1, metavar="S", help="chooses them, and the order (default 1)")
    parser.add_argument("--minutes", type=float, default=15, help="how long mutants are run (default 15)")
    parser.add_argument("--with", dest="others", default="", metavar="ROOM,...", help="the tests of these rooms, too")
    parser.add_argument("--survivors", action="store_true", help="only those that no run has killed yet")
    parser.add_argument("--match", default="", metavar="TEXT", help="only those whose line in the report has the text")
    parser.add_argument("--list", action="store_true", help="list the mutants, and run nothing")
    return parser.parse_args()


def chosen(mutants, options, last):
    if options.match:
        mutants = [each for each in mutants if options.match in f"{each.file}:{each.line} {each.key}"]
    if options.survivors:
        known = json.loads(last.read_text()) if last.exists() else {}
        mutants = [each for each in mutants if known.get(each.key) != "killed"]
    mutants = list(mutants)
    random.Random(options.seed).shuffle(mutants)
    return mutants[:options.sample] if options.sample is not None else mutants


def remember(last, verdicts):
    """For --survivors: what became of each mutant the last time that it was run."""
    known = json.loads(last.read_text()) if last.exists() else {}
    known.update({each.mutant.key: each.outcome for each in verdicts if each.outcome != "not run"})
    last.write_text(json.dumps(known, indent=0))
    return known


def limit_processes():
    """What a mutant may do to the machine."""
    resource.setrlimit(resource.RLIMIT_AS, (12 << 30, 12 << 30))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    resource.setrlimit(resource.RLIMIT_FSIZE, (256 << 20, 256 << 20))


def mutate(options):
    room = options.room
    if room not in ROOMS:
        raise Failure(f"there is no room {room}; there are: {' '.join(ROOMS)}")
    folder = ROOT / "build/mutate"
    results = folder / room
    results.mkdir(parents=True, exist_ok=True)
    tree = MutatedTree(ROOT, folder)
    begin = time.monotonic()
    if not (tree.build / "build.ninja").exists():
        tree.fill([], {})
    tree.configure()
    found = Found(ROOT, tree, folder / "found.pickle")

    def of_room(mutants):
        return [each for each in mutants if each.file.startswith(f"concurrency/{room}/")]
    print(f"> {len(of_room(found.mutants))} mutants in {room}, {len(found.mutants)} in all rooms", flush=True)
    if options.list:
        for each in of_room(found.mutants):
            print(shown(each))
        return 0
    rooms = [room] + [each for each in options.others.split(",") if each]
    programs, targets = tree.programs(rooms)
    if not programs:
        raise Failure(f"{room} has no tests that run here")
    print(f"> compile them for {' '.join(programs)}", flush=True)
    tree.compile(found, targets)
    found.keep()
    print(f"> run the tests without a mutant ({time.monotonic() - begin:.0f} s so far)", flush=True)
    limit_processes()
    tests = measure(list_tests(tree.build, programs), BLOCK * (len(found.names) + 1))
    print(f"> {len(tests)} tests, {sum(test.seconds for test in tests):.1f} s; run the mutants", flush=True)
    mutants = of_room(found.mutants)
    picked = chosen(mutants, options, results / "last.json")

    def progress(done, verdict):
        if verdict.outcome in ("survived", "unreached"):
            print(f"  {done}/{len(picked)} {verdict.outcome}: {shown(verdict.mutant)}", flush=True)
    verdicts = judge_all(picked, tests, options.minutes * 60, progress)
    known = remember(results / "last.json", verdicts)
    if options.survivors:
        killed = sum(known.get(each.key) == "killed" for each in mutants)
        ran = sum(each.key in known for each in mutants)
        print(f"> with those of the last time {killed} of {ran} mutants are killed, {share(killed, ran)}")
    claims = read_claims(ROOT / "tools/mutation/equivalent.txt", room)
    whole = options.sample is None and not options.survivors and not options.match
    return write_report(results / "report.txt", room, verdicts, claims, mutants, len(of_room(found.removed)), whole,
                        time.monotonic() - begin)


if __name__ == "__main__":
    try:
        sys.exit(mutate(parse()))
    except (Failure, BadClaim) as failure:
        sys.exit(f"mutate: {failure}")
