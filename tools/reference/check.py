"""Checks the reference that doxygen has written: check.py FOLDER

Prints "N undocumented, N dead links" behind what they are, and fails unless both are 0. Every class needs the parts of a
contract, and every member a sentence; every link of the pages has to lead to something. Links to other sites are not followed,
because the toolchain has no network: they are printed.
"""
import html.parser
import os
import pathlib
import sys
import urllib.parse
import xml.etree.ElementTree as xml

CONTRACT = ("Threads", "Cancellation", "Errors", "Lifetime", "Memory order")


def has_text(element, *names):
    return any(any(text.strip() for text in part.itertext()) for name in names for part in element.findall(name))


def undocumented_in(compound):
    """What lacks words in a class, a namespace or a file, by name."""
    kind, name = compound.get("kind"), compound.findtext("compoundname")
    if kind in ("class", "struct", "union"):
        titles = {title.text for title in compound.findall("./detaileddescription//simplesect[@kind='par']/title")}
        missing = [label for label in CONTRACT if label not in titles]
        if not has_text(compound, "briefdescription"):
            yield f"{name}: what it is"
        if missing:
            yield f"{name}: {', '.join(missing)}"
    elif kind == "file" and name.endswith(".h"):
        if compound.find("innerclass") is None and not has_text(compound, "briefdescription"):
            yield f"{name}: what it is"
    elif kind != "namespace":
        return
    for member in compound.iter("memberdef"):
        if member.get("prot") == "private" or member.get("kind") == "friend":
            continue
        if not has_text(member, "briefdescription"):
            yield f"{name}::{member.findtext('name')}{member.findtext('argsstring') or ''}"
        for value in member.findall("enumvalue"):
            if not has_text(value, "briefdescription", "detaileddescription"):
                yield f"{name}::{member.findtext('name')}::{value.findtext('name')}"


def find_undocumented(folder):
    found = set()
    for path in sorted(folder.glob("*.xml")):
        for compound in xml.parse(path).getroot().findall("compounddef"):
            found.update(undocumented_in(compound))
    return sorted(found)


class Page(html.parser.HTMLParser):
    """The links of a page, and the places in it that links may name."""

    def __init__(self, text):
        super().__init__()
        self.links, self.places = [], set()
        self.feed(text)

    def handle_starttag(self, tag, attributes):
        for name, value in attributes:
            if name in ("href", "src") and value:
                self.links.append(value)
            elif name == "id" or (tag == "a" and name == "name"):
                self.places.add(value)


def find_links(folder):
    """The dead links, each behind its page, and those to other sites."""
    pages = {path: Page(path.read_text(errors="replace")) for path in folder.rglob("*.html")}
    dead, elsewhere = set(), set()
    for path, page in pages.items():
        for link in page.links:
            parts = urllib.parse.urlsplit(link)
            if parts.scheme in ("http", "https"):
                elsewhere.add(link)
                continue
            target = pathlib.Path(os.path.normpath(path.parent / urllib.parse.unquote(parts.path))) if parts.path else path
            place = urllib.parse.unquote(parts.fragment)
            if not target.is_file() or (place and target in pages and place not in pages[target].places):
                dead.add(f"{path.relative_to(folder)}: {link}")
    return sorted(dead), sorted(elsewhere)


def main(folder):
    undocumented, (dead, elsewhere) = find_undocumented(folder / "xml"), find_links(folder / "html")
    for line in [f"not followed: {link}" for link in elsewhere] + [f"undocumented: {name}" for name in undocumented] + [
            f"dead link: {link}" for link in dead]:
        print(line)
    print(f"{len(undocumented)} undocumented, {len(dead)} dead links")
    return 1 if undocumented or dead else 0


if __name__ == "__main__":
    sys.exit(main(pathlib.Path(sys.argv[1])))
