"""Checks the includes of every header and source against include_layers.txt: check_include_layers.py [ROOT]"""
import fnmatch
import os
import re
import sys

INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.MULTILINE)


class Layer:
    """A line of the table: a pattern of units, its number, and whether headers may include them."""

    def __init__(self, number, pattern, remark):
        self.number, self.pattern, self.only_for_sources = number, pattern, bool(remark)


ONLY_IN_PACKAGES = {"concurrency/base/built_for.h"}  # what the build makes, and flavour.h looks for


def read_layers(text):
    layers = []
    for line in text.splitlines():
        words = line.split("#")[0].split(None, 2)
        if words:
            layers.append(Layer(int(words[0]), words[1], words[2:]))
    return layers


def find_files(root):
    """The headers and sources under `root`, with their text."""
    files = {}
    for folder in ("concurrency", "siblings"):
        for where, _, names in os.walk(os.path.join(root, folder)):
            for name in names:
                if name.endswith((".h", ".cpp")):
                    path = os.path.join(where, name)
                    with open(path) as text:
                        files[os.path.relpath(path, root)] = text.read()
    return files


def included_by(file, files):
    """What `file` includes; a sibling's headers are named from siblings/ on. A name that is not there stays as it is."""
    for name in INCLUDE.findall(files[file]):
        candidates = (name, "siblings/" + name, os.path.join(os.path.dirname(file), name))
        yield next((candidate for candidate in candidates if candidate in files), name)


def find_circle(unit, arrows, path, finished):
    """The units of a circle that can be reached from `unit`, or None."""
    if unit in path:
        return path[path.index(unit):] + [unit]
    if unit in finished:
        return None
    for included in sorted(arrows.get(unit, ())):
        circle = find_circle(included, arrows, path + [unit], finished)
        if circle:
            return circle
    finished.add(unit)
    return None


def faults_of(files, layers):
    """What is wrong with the includes, a line each."""
    apart = {layer.pattern for layer in layers}  # a file whose line names it is a unit of its own
    unit_of = lambda file: file if file in apart else os.path.splitext(file)[0]
    layer_of = lambda file: next((layer for layer in layers if fnmatch.fnmatchcase(unit_of(file), layer.pattern)), None)
    faults, arrows, finished = [], {}, set()
    for file in sorted(files):
        own = layer_of(file)
        if own is None:
            faults.append(f"{file}: has no layer in include_layers.txt")
            continue
        for included in included_by(file, files):
            other = layer_of(included)
            if included in ONLY_IN_PACKAGES:
                continue
            if included not in files:
                faults.append(f'{file}: includes "{included}", which is not there')
            elif unit_of(included) != unit_of(file):
                arrows.setdefault(unit_of(file), set()).add(unit_of(included))
                if other and other.number > own.number:
                    faults.append(f"{file} (layer {own.number}): includes {included} (layer {other.number})")
                elif other and other.only_for_sources and file.endswith(".h") and other.pattern != own.pattern:
                    faults.append(f"{file}: includes {included}, which only sources may")
    for unit in sorted(arrows):
        circle = find_circle(unit, arrows, [], finished)
        if circle:
            faults.append("a circle: " + " -> ".join(circle))
            break
    return faults


def main():
    root = sys.argv[1] if len(sys.argv) > 1 else "."
    with open(os.path.join(os.path.dirname(os.path.abspath(__file__)), "include_layers.txt")) as table:
        layers = read_layers(table.read())
    files = find_files(root)
    faults = faults_of(files, layers)
    for fault in faults:
        print(fault, file=sys.stderr)
    print(f"{len(files)} files, {len(faults)} faults")
    return 1 if faults or not files else 0


if __name__ == "__main__":
    sys.exit(main())
