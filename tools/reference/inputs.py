"""Prints what the reference is made of: the installed headers that are for callers, and the pages for users."""
import glob
import os
import re
import sys

from headers import is_for_callers

PAGES = ["README.md", "CHANGELOG.md", "SECURITY.md", "licences/third-party.md", *sorted(glob.glob("docs/*.md")),
         *sorted(glob.glob("docs/adr/*.md"))]


def read(path):
    with open(path) as file:
        return file.read()


def public_headers():
    """Those that CMake installs: under PUBLIC in a room, or in the file set of a sibling."""
    rooms = re.sub(r"#.*", "", read("concurrency/CMakeLists.txt"))
    for room, rest in re.findall(r"concurrency_room\((\w+)(.*?)\n\)", rooms, re.DOTALL):
        names = re.search(r"\bPUBLIC\b(.*?)(\bPRIVATE\b|$)", rest, re.DOTALL)
        for name in names.group(1).split() if names else ():
            yield f"concurrency/{room}/{name}" if name.endswith(".h") else f"concurrency/{room}/{name}.h"
    for sibling in sorted(glob.glob("siblings/*/CMakeLists.txt")):
        for names in re.findall(r"FILE_SET HEADERS.*?FILES ([^)]*)", read(sibling)):
            yield from (f"{os.path.dirname(sibling)}/{name}" for name in names.split())


if __name__ == "__main__":
    headers = [header for header in public_headers() if is_for_callers(read(header))]
    if len(headers) < 30:
        sys.exit(f"only {len(headers)} public headers found")
    print("\n".join(headers + PAGES))
