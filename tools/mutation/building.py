"""Compiles a room with all of its mutants: a copy of the tree, built for this system as for the sanitizers."""
import hashlib
import json
import pickle
import re
import shlex
import shutil
import subprocess

from mutant import Source
from places import Finder
from rendering import nest, render

FLAGS = "-fno-strict-return -Wno-c++11-narrowing -Werror=vla -ferror-limit=0 -D_GLIBCXX_ASSERTIONS"
COPIED = ["concurrency", "siblings", "tests", "debugger", "docs"]
WHERE = re.compile(r"(concurrency/[\w/]+\.(?:h|cpp)):(\d+):(\d+): (?:fatal )?(error|note)")


class Failure(Exception):
    pass


def write_changed(path, content):
    """Leaves a file as it is that has this content: what depends on it is not compiled again."""
    if not path.exists() or path.read_bytes() != content:
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content)


class MutatedTree:
    def __init__(self, root, folder):
        self.root = root
        self.copy = folder / "source"
        self.build = folder / "build"

    # The copy

    def fill(self, mutants, sources):
        """The tree as it is, but for the files with mutants."""
        by_file = {}
        for mutant in mutants:
            by_file.setdefault(mutant.file, []).append(mutant)
        runtime = self.root / "tools/mutation/runtime"
        wanted = {"tests/host/windows/zarvo_mutants.cpp": (runtime / "zarvo_mutants.cpp").read_bytes(),
                  "tests/host/windows/include/zarvo_mutants.h": (runtime / "zarvo_mutants.h").read_bytes()}
        for top in COPIED:
            for path in (self.root / top).rglob("*"):
                if path.is_file():
                    wanted[str(path.relative_to(self.root))] = None
        self.places = {}
        for name, content in wanted.items():
            if name in by_file:
                text = render(sources[name], by_file[name])
                self.places[name] = [[(match.start() - begin, int(match.group(1)))
                                      for match in re.finditer(r"::zarvo_mutant\((\d+)\)", line)]
                                     for begin, line in ((0, line) for line in text.split("\n"))]
                content = text.encode()
            write_changed(self.copy / name, content if content is not None else (self.root / name).read_bytes())
        for path in self.copy.rglob("*"):
            if path.is_file() and str(path.relative_to(self.copy)) not in wanted:
                path.unlink()

    # The compiler

    def configure(self):
        if (self.build / "build.ninja").exists():
            return
        shutil.rmtree(self.build, ignore_errors=True)
        command = ["cmake", "-G", "Ninja", "-S", self.copy / "tests/host", "-B", self.build,
                   "-D", "CMAKE_EXPORT_COMPILE_COMMANDS=ON", "-D", f"CMAKE_CXX_FLAGS=-include {self.copy}/tests/host/windows/include/zarvo_mutants.h {FLAGS}"]
        done = subprocess.run(command, capture_output=True, text=True)
        if done.returncode != 0:
            shutil.rmtree(self.build, ignore_errors=True)
            raise Failure(done.stdout + done.stderr)

    def arguments(self):
        """What the compiler is told for a unit of the library, as clang's library takes it for the tree itself."""
        for entry in json.loads((self.build / "compile_commands.json").read_text()):
            if "/concurrency/" in entry["file"] and "concurrency_objects" in entry["command"]:
                words = shlex.split(entry["command"])[1:]
                break
        kept, skip = [], 0
        for position, word in enumerate(words):
            if skip:
                skip -= 1
            elif word in ("-o", "-include"):
                skip = 1
            elif word == "-Xclang":
                skip = 1
                if words[position + 1] in ("-include-pch", "-include"):
                    skip = 3
            elif word == "-c":
                skip = 1
            elif not word.startswith("-Werror") and not word.endswith("clang++-19"):
                kept.append(word.replace(str(self.copy), str(self.root)))
        return kept

    def targets(self):
        listed = subprocess.run(["ninja", "-C", self.build, "-t", "targets", "all"], capture_output=True, text=True, check=True)
        return {line.split(":")[0] for line in listed.stdout.splitlines() if line.endswith("phony")}

    def programs(self, rooms):
        """The rooms' test programs, and all that has to be built for them."""
        there = self.targets()
        programs = [f"{room}{kind}_tests" for room in rooms for kind in ("", "_whitebox")]
        programs = [name for name in programs if name in there]
        helpers = [path.stem for room in rooms for path in (self.root / "tests" / room).glob("*.cpp")
                   if re.search(r"_test_(child|dll)$", path.stem)]
        return programs, programs + [name for name in helpers if name in there]

    def compile(self, found, targets):
        """Builds the targets, without the mutants that do not compile."""
        for _ in range(12):
            self.fill(found.mutants, found.sources)
            done = subprocess.run(["ninja", "-C", self.build, "-j", "2", "-k", "0", *targets], capture_output=True, text=True)
            if done.returncode == 0:
                return
            faulty = self.faulty(done.stdout)
            if not faulty:
                raise Failure(done.stdout[-20000:])
            found.remove(faulty)
            found.keep()
            print(f"  {len(faulty)} mutants do not compile and are left out", flush=True)
        raise Failure("the mutants do not compile after twelve rounds")

    def faulty(self, output):
        """The numbers of the mutants that the compiler's errors come from."""
        groups = []
        for line in output.splitlines():
            match = WHERE.search(line)
            if match is None:
                continue
            if match.group(4) == "error":
                groups.append([])
            if groups:
                groups[-1].append((match.group(1), int(match.group(2)), int(match.group(3)), "zarvo_mutant" in line))
        found = set()
        for group in groups:
            for name, line, column, _ in sorted(group, key=lambda each: not each[3]):
                on_line = self.places.get(name, [])
                here = on_line[line - 1] if 0 < line <= len(on_line) else []
                if here:
                    found.add(min(here, key=lambda place: abs(place[0] - (column - 1)))[1])
                    break
        return found


ROOMS = ["base", "errors", "cancellation", "tasks", "threadpool", "scheduler", "sync", "jobs", "figures", "lifetime"]


def names_of(root):
    """The files that have mutants: of all rooms, so that one build serves every room. com/ is not built here."""
    return sorted(str(path.relative_to(root)) for room in ROOMS
                  for path in (root / "concurrency" / room).iterdir() if path.suffix in (".h", ".cpp"))


def find_mutants(root, names, tree):
    finder = Finder(root, names)
    arguments = tree.arguments()
    units = [name for name in names if name.endswith(".cpp")]
    for name in units + [name for name in names if name.endswith(".h")]:
        if name not in finder.done:
            errors = finder.read(root / name, ["-x", "c++", *arguments])
            if errors:
                raise Failure(f"{name}: " + "\n".join(errors))
    mutants = finder.found()
    cut = [id(each) for name in names for each in nest([each for each in mutants if each.file == name])[1]]
    return [each for each in mutants if id(each) not in cut]


class Found:
    """The mutants of all rooms, kept from one run to the next while the sources and their places are the same."""

    def __init__(self, root, tree, file):
        self.names = names_of(root)
        self.sources = {name: Source(root / name) for name in self.names}
        self.file = file
        content = hashlib.sha256()
        tools = [root / "tools/mutation" / name for name in ("places.py", "operators.py", "mutant.py")]
        for path in [*(root / name for name in self.names), *tools]:
            content.update(str(path).encode() + path.read_bytes())
        self.state = content.hexdigest()
        if file.exists():
            state, self.mutants, self.removed = pickle.loads(file.read_bytes())
            if state == self.state:
                return
        self.mutants, self.removed = find_mutants(root, self.names, tree), []

    def remove(self, numbers):
        self.removed += [each for each in self.mutants if each.number in numbers]
        self.mutants = [each for each in self.mutants if each.number not in numbers]

    def keep(self):
        self.file.write_bytes(pickle.dumps((self.state, self.mutants, self.removed)))
