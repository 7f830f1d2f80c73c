"""Judges the mutator with a toy: what it finds, that each mutant compiles, and that tests notice the right ones."""
import functools
import pathlib
import subprocess
import tempfile
import unittest

from mutant import BLOCK
from places import Finder
from rendering import render
from reporting import BadClaim, read_claims, table, write_report, wrong_claims
from running import Test, Verdict, judge, measure, run

HERE = pathlib.Path(__file__).resolve().parent
TOY = HERE / "toy"

EXPECTED = """
toy.h:5 compare: a < b -> a <= b
toy.h:5 negate: a < b -> !(a < b)
toy.cpp:8 drop assignment: ++m_count -> nothing
toy.cpp:9 drop assignment: --m_count -> nothing
toy.cpp:19 drop lock: { const Lock lock(g_holds); } -> {}
toy.cpp:22 compare: count >= kMost -> count > kMost
toy.cpp:22 compare: state == State::Empty -> state != State::Empty
toy.cpp:22 constant: State::Empty -> State::Full
toy.cpp:22 drop operand: count >= kMost -> true (&&)
toy.cpp:22 drop operand: state == State::Empty -> true (&&)
toy.cpp:22 negate: count >= kMost && state == State::Empty -> !(count >= kMost && state == State::Empty)
toy.cpp:23 constant: State::Full -> State::Shut
toy.cpp:23 drop assignment: state = State::Full -> nothing
toy.cpp:25 compare: count < 0 -> count <= 0
toy.cpp:25 constant: 0 -> 1
toy.cpp:25 negate: count < 0 -> !(count < 0)
toy.cpp:28 drop assignment: g_holds = DOUBLED(1) -> nothing
toy.cpp:29 constant: 1 -> 0
toy.cpp:34 drop call: Fill(state, count) -> nothing
toy.cpp:35 drop handler: { return false; } -> throw;
toy.cpp:36 constant: false -> true
toy.cpp:38 compare: count != 7 -> count == 7
toy.cpp:38 compare: g_holds == 0 -> g_holds != 0
toy.cpp:38 constant: 0 -> 1
toy.cpp:38 constant: 7 -> 7 + 1
toy.cpp:38 drop operand: !(g_holds == 0) -> false (||)
toy.cpp:38 drop operand: count != 7 -> false (||)
toy.cpp:38 negate: !(g_holds == 0) -> !(!(g_holds == 0))
toy.cpp:38 negate: !(g_holds == 0) || count != 7 -> !(!(g_holds == 0) || count != 7)
""".strip().splitlines()


@functools.cache
def find():
    finder = Finder(TOY, ["toy.h", "toy.cpp"])
    errors = finder.read(TOY / "toy.cpp", ["-x", "c++", "-std=c++20"])
    return finder.found(), finder.sources, errors


def line_of(mutant):
    return f"{mutant.file}:{mutant.line} {mutant.operator}: {mutant.original} -> {mutant.mutated}"


class PlacesTest(unittest.TestCase):
    maxDiff = None

    def test_each_place_is_found_and_none_in_constants_of_the_compiler_or_macros(self):
        mutants, _, errors = find()
        self.assertEqual(errors, [])
        self.assertEqual(sorted(line_of(each) for each in mutants), sorted(EXPECTED))

    def test_keys_are_unique(self):
        keys = [each.key for each in find()[0]]
        self.assertEqual(len(keys), len(set(keys)))


class BuiltToyTest(unittest.TestCase):
    """The toy, compiled once with all of its mutants."""

    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        folder = pathlib.Path(cls.folder.name)
        cls.mutants, sources, _ = find()
        for name in ("toy.h", "toy.cpp"):
            (folder / name).write_text(render(sources[name], [each for each in cls.mutants if each.file == name]))
        (folder / "toy_test.cpp").write_bytes((TOY / "toy_test.cpp").read_bytes())
        cls.program = folder / "toy_test"
        subprocess.run(["clang++-19", "-std=c++20", "-Werror", "-I", HERE / "runtime", "-include", "zarvo_mutants.h",
                        folder / "toy_test.cpp", HERE / "runtime/zarvo_mutants.cpp", "-o", cls.program], check=True)

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    def setUp(self):
        tests = [Test(name, [str(self.program), name], "/tmp") for name in ("fills", "catches", "stays")]
        self.tests = measure(tests, 3 * BLOCK)

    def verdict(self, line):
        mutant = next(each for each in self.mutants if line_of(each) == line)
        return judge(mutant, self.tests)

    def test_without_a_mutant_all_tests_pass(self):
        self.assertEqual(sorted(each.name for each in self.tests), ["catches", "fills", "stays"])

    def test_a_mutant_that_a_test_notices_is_killed_by_it(self):
        verdict = self.verdict("toy.cpp:22 compare: count >= kMost -> count > kMost")
        self.assertEqual((verdict.outcome, verdict.how, verdict.test), ("killed", "failed", "fills"))

    def test_a_dropped_handler_crashes_the_test(self):
        verdict = self.verdict("toy.cpp:35 drop handler: { return false; } -> throw;")
        self.assertEqual((verdict.outcome, verdict.how, verdict.test), ("killed", "crashed", "catches"))

    def test_a_mutant_in_a_template_is_killed(self):
        self.assertEqual(self.verdict("toy.h:5 negate: a < b -> !(a < b)").outcome, "killed")

    def test_a_mutant_that_no_test_notices_survives(self):
        verdict = self.verdict("toy.h:5 compare: a < b -> a <= b")
        self.assertEqual((verdict.outcome, verdict.tests), ("survived", 2))

    def test_a_mutant_behind_a_return_is_reached_by_the_tests_that_come_there_only(self):
        mutant = next(each for each in self.mutants if each.operator == "drop handler")
        self.assertEqual([each.name for each in self.tests if mutant.number in each.reached], ["catches"])

    def test_a_hang_is_a_failure(self):
        test = Test("hangs", ["sleep", "1000"], "/tmp")
        self.assertEqual(run(test, limit=0.1), "hung")


class ReportTest(unittest.TestCase):
    def claims(self, text):
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder) / "equivalent.txt"
            path.write_text(text)
            return read_claims(path, "toy")

    def test_a_claim_has_a_reason(self):
        key = "concurrency/toy/a.cpp | F | compare | a < b -> a <= b"
        self.assertEqual(self.claims(f"# none\n{key}\n    Both are\n    the same.\n"), {key: "Both are the same."})
        with self.assertRaises(BadClaim):
            self.claims(key + "\n")

    def test_a_claim_about_a_killed_or_a_missing_mutant_is_wrong(self):
        mutant = find()[0][0]
        killed = [Verdict(mutant, "killed", "failed", "T")]
        self.assertEqual(wrong_claims(killed, {mutant.key: "same"}, [mutant]),
                         [f"claimed equivalent, but killed by T: {mutant.key}"])
        self.assertEqual(len(wrong_claims([], {"a | b | c | d": "same"}, [mutant])), 1)
        self.assertEqual(wrong_claims([Verdict(mutant, "survived")], {mutant.key: "same"}, [mutant]), [])

    def test_unreached_mutants_are_not_killed(self):
        mutants = find()[0]
        verdicts = [Verdict(mutants[0], "killed", "failed", "T"), Verdict(mutants[1], "unreached"), Verdict(mutants[2], "not run")]
        self.assertEqual(table(verdicts, {})[-1].split(), ["all", "2", "1", "0", "1", "0", "50.0", "%"])


if __name__ == "__main__":
    unittest.main()
