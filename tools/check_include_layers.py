"""Checks every header's includes against include_layers.txt: check_include_layers.py [ROOT]"""
import fnmatch
import os
import re
import sys

INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.MULTILINE)


def read_layers(path):
    """The table's rows: (pattern, layer, only sources may include it)."""
    rows = []
    with open(path) as table:
        for line in table:
            words = line.split("#")[0].split(None, 2)
            if words:
                rows.append((words[1], int(words[0]), len(words) == 3))
    return rows


def find_headers(root):
    for folder in ("concurrency", "siblings"):
        for where, _, names in os.walk(os.path.join(root, folder)):
            for name in names:
                if name.endswith(".h"):
                    yield os.path.relpath(os.path.join(where, name), root)


def included_headers(root, header, headers):
    """The project's headers that `header` includes; a sibling's are named from siblings/ on."""
    with open(os.path.join(root, header)) as text:
        for name in INCLUDE.findall(text.read()):
            for candidate in (name, "siblings/" + name, os.path.join(os.path.dirname(header), name)):
                if candidate in headers:
                    yield candidate
                    break
            else:
                yield name


def find_circle(header, includes, path, finished):
    """The headers of a circle that can be reached from `header`, or None."""
    if header in path:
        return path[path.index(header):] + [header]
    if header in finished:
        return None
    for included in includes.get(header, ()):
        circle = find_circle(included, includes, path + [header], finished)
        if circle:
            return circle
    finished.add(header)
    return None


def main():
    root = sys.argv[1] if len(sys.argv) > 1 else "."
    rows = read_layers(os.path.join(os.path.dirname(os.path.abspath(__file__)), "include_layers.txt"))
    row_of = lambda header: next((row for row in rows if fnmatch.fnmatchcase(header, row[0])), None)
    headers = set(find_headers(root))
    includes = {header: list(included_headers(root, header, headers)) for header in headers}
    faults = []
    for header in sorted(headers):
        row = row_of(header)
        if row is None:
            faults.append(f"{header}: has no layer in include_layers.txt")
            continue
        for included in includes[header]:
            other = row_of(included)
            if included not in headers:
                faults.append(f'{header}: includes "{included}", which is not there')
            elif other and other[1] > row[1]:
                faults.append(f"{header} (layer {row[1]}): includes {included} (layer {other[1]})")
            elif other and other[2] and other[0] != row[0]:
                faults.append(f"{header}: includes {included}, which only sources may")
    finished = set()
    for header in sorted(headers):
        circle = find_circle(header, includes, [], finished)
        if circle:
            faults.append("a circle: " + " -> ".join(circle))
            break
    for fault in faults:
        print(fault, file=sys.stderr)
    print(f"{len(headers)} headers, {len(faults)} faults")
    return 1 if faults or not headers else 0


sys.exit(main())
