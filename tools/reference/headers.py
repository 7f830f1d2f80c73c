"""Turns a header as it is read here into one that doxygen understands: headers.py FILE, which is doxygen's input filter.

Headers have plain comments, with these habits:
- The comment at the top is about the file, and holds for each of its classes that does not say otherwise.
- `Threads:`, `Cancellation:`, `Errors:`, `Lifetime:` and `Memory:` begin the parts of a contract.
- `Contract: a value.` stands for the whole contract of KINDS, `Contract: that of job.h.` for that of a header beside it.
- A comment is about all declarations up to the next empty line.
- A destructor that no comment stands above has nothing to say.
- `Not for callers.` takes what it is about out of the reference; so does a namespace Internal inside a file of Orvane.
"""
import os
import re
import sys

LABELS = ("Threads", "Recursion", "Blocks", "Cancellation", "Errors", "Memory", "Lifetime", "Units")
LABEL = re.compile(rf"^({'|'.join(LABELS)}|Threads, cancellation, errors): ?(.*)$")
ENDS_AS_FUNCTION = re.compile(r"\)\s*((const|noexcept|override|final|mutable)\s*)*$|->")
HIDDEN = "Not for callers."
KINDS = {
    "Contract: a value.": [
        "Threads: as with any value: one thread changes it, or several read it.",
        "Cancellation: no member is a cancellation point.",
        "Errors: copies may throw std::bad_alloc.",
        "Memory: it orders nothing.",
        "Lifetime: it refers to nothing.",
    ],
    "Contract: an exception.": [
        "Threads: as with any value: one thread changes it, or several read it.",
        "Cancellation: no member is a cancellation point.",
        "Errors: no member but Rethrow() throws anything, but for std::bad_alloc.",
        "Memory: it orders nothing.",
        "Lifetime: it refers to nothing. Its code belongs to the module that defines the class, which stays loaded.",
    ],
}


def strip_code(line, in_block=False):
    """The line without its strings, characters and comments."""
    line = re.sub(r'"(\\.|[^"\\])*"', '""', line)
    line = re.sub(r"(?<![0-9a-fA-F])'(\\.|[^'\\])'", "''", line)
    return re.sub(r"//.*$|/\*.*?\*/", "", line)


def kind_of(declaration):
    """What the brace behind this text opens."""
    text = re.sub(r"template\s*<[^{]*?>\s*(?=(class|struct|union|enum)\b)", "", declaration)
    if re.search(r"\bnamespace\b", text):
        return "namespace"
    if re.search(r"\benum\b", text):
        return "enum"
    if re.search(r"\b(class|struct|union|\w+_STRUCT)\b", text) and not re.search(r"=\s*$", text) and not ENDS_AS_FUNCTION.search(text):
        return "class"
    return "body"


def top_comment(text):
    lines = text.splitlines()
    end = next((index for index, line in enumerate(lines) if not line.startswith("//")), len(lines))
    return [re.sub(r"^// ?", "", line) for line in lines[:end]]


def contract_parts(comment, folder="."):
    """The parts of a contract in a comment, by label, and what stands before them."""
    before, parts, label = [], {}, None
    for line in comment:
        other = re.fullmatch(r"Contract: that of (\S+\.h)\.", line)
        if other:
            with open(os.path.join(folder, other.group(1))) as file:
                parts.update(contract_parts(top_comment(file.read()))[1])
            continue
        for text in KINDS.get(line, [line]):
            found = LABEL.match(text)
            if found:
                label = found.group(1)
                parts[label] = [text]
            elif label and text and not text.startswith(" "):
                label = None
                before.append(text)
            elif label:
                parts[label].append(text)
            else:
                before.append(text)
    while before and not before[-1]:
        before.pop()
    return before, parts


def escape(text):
    return re.sub(r"([\\@%])", r"\\\1", text)


def doc(comment, indent="", contract=None, command="", folder="."):
    """The lines of a comment for doxygen. `contract` fills in the parts that the comment does not state."""
    before, parts = contract_parts(comment, folder)
    if contract:
        parts = {**contract, **parts}
    lines = [command] if command else []
    lines += [escape(line) for line in before]
    for label in LABELS:
        if label in parts:
            first = LABEL.match(parts[label][0]).group(2)
            rest = [line.strip() for line in parts[label][1:]]
            if re.match(r"[a-z]+[ ,.:;]+(?!:)", first):
                first = first[:1].upper() + first[1:]
            lines += ["", f"@par {label.replace('Memory', 'Memory order')}", *map(escape, [first, *rest])]
    return [f"{indent}/// {line}".rstrip() for line in lines]


class Filter:
    def __init__(self, text, folder="."):
        self.lines, self.folder = text.splitlines(), folder
        self.out = []
        self.scopes = []  # (kind, hidden, name)
        self.text = ""  # of the declaration under way
        self.comment = []  # the paragraph's
        self.is_used = False  # by a declaration already
        self.is_hiding = False
        self.contract = {}

    def run(self):
        index = self.top_comment()
        while index < len(self.lines):
            line = self.lines[index]
            stripped = line.strip()
            if self.scope() == "class" and stripped in ("public:", "protected:", "private:"):
                self.change_access(line)
                index += 1
                continue
            is_declaring = not self.text and self.scope() in ("", "namespace", "class")
            if is_declaring and stripped.startswith("//"):
                if self.is_hiding and not self.until_access:
                    self.show()
                begin = index
                while index < len(self.lines) and self.lines[index].strip().startswith("//"):
                    index += 1
                self.comment = [re.sub(r"^\s*// ?", "", text) for text in self.lines[begin:index]]
                self.is_used = False
                continue
            if is_declaring and stripped.startswith("#") and any(HIDDEN in text for text in self.comment):
                self.hide()
            if not stripped and is_declaring:
                self.end_paragraph()
                self.out.append(line)
            elif is_declaring and self.is_declaration(stripped):
                self.declare(line)
            elif self.scope() == "enum":
                self.enumerator(line)
            else:
                self.out.append(self.trailing(line))
            self.follow(line)
            index += 1
        self.end_paragraph()
        return "\n".join(self.out) + "\n"

    def scope(self):
        return self.scopes[-1] if self.scopes else ""

    def top_comment(self):
        """The comment before #pragma once becomes the file's."""
        comment = top_comment("\n".join(self.lines))
        self.contract = contract_parts(comment, self.folder)[1]
        self.out += doc(comment, command="@file", folder=self.folder)
        return len(comment)

    @staticmethod
    def is_declaration(stripped):
        return not re.match(r"#|}|(public|private|protected):|extern \"C\"", stripped)

    def declare(self, line):
        indent = line[: len(line) - len(line.lstrip())]
        words = line.strip()
        if re.match(r"namespace Internal\b", words) and "}" not in words and "namespace" in self.scopes:
            self.hide()
        is_class = re.match(r"(template\b|class\b|struct\b)", words)
        if any(HIDDEN in text for text in self.comment):
            self.hide()
        elif "= delete;" in line or (re.match(r"(virtual )?~", words) and (self.is_used or not self.comment)):
            self.hide()  # to the end of the paragraph: it cannot be called, or a reader gains nothing
        elif self.comment and not words.startswith("namespace"):
            contract = self.contract if is_class and self.is_type(line) else None
            self.out += doc(self.comment, indent, contract)
            self.is_used = True
        self.out.append(self.trailing(line))

    def is_type(self, line):
        """Whether what begins here is the definition of a class."""
        begin = self.lines.index(line)
        text = ""
        for following in self.lines[begin:begin + 12]:
            text += strip_code(following) + " "
            if "{" in text or ";" in text:
                break
        return "{" in text and kind_of(text.split("{")[0]) == "class"

    def hide(self, until_access=False):
        if not self.is_hiding:
            self.out.append("/// @cond")
            self.is_hiding = True
            self.hidden_at, self.until_access = len(self.scopes), until_access

    def show(self, where=None):
        if self.is_hiding and len(self.scopes) == self.hidden_at:
            self.out.insert(len(self.out) if where is None else where, "/// @endcond")
            self.is_hiding = False

    def change_access(self, line):
        """Private members are no part of the reference."""
        self.show()
        self.comment = []
        self.out.append(line)
        if line.strip() == "private:":
            self.hide(until_access=True)

    def end_paragraph(self):
        if self.is_hiding and not self.until_access:
            self.show()
        self.comment = []

    def enumerator(self, line):
        if line.strip().startswith("//"):
            self.out.append(re.sub(r"^(\s*)// ?", r"\1/// ", line))
        else:
            self.out.append(self.trailing(line))

    def trailing(self, line):
        """A comment behind a field or an enumerator is about it."""
        if self.scope() in ("class", "enum") and re.match(r"\s*\S.*[,;=\w]\s+// ", line) and "(" not in line.split("//")[0]:
            return re.sub(r"\s// ", " ///< ", line, count=1).replace("\\", "\\\\")
        return line

    def follow(self, line):
        if line.strip().startswith("#"):
            return
        for part in re.split(r"([{};])", strip_code(line)):
            if part == "{":
                depth_kind = "body" if self.scope() == "body" else kind_of(self.text)
                if self.parentheses() > 0:
                    depth_kind = "body"
                self.scopes.append(depth_kind)
                self.saved = getattr(self, "saved", [])
                self.saved.append(self.text)
                self.text = ""
                if depth_kind in ("namespace", "class"):
                    self.kept = getattr(self, "kept", [])
                    self.kept.append((self.comment, self.is_used))
                    self.comment = []
            elif part == "}":
                if not self.scopes:
                    continue
                # The line that closes the scope is out already: the mark goes before it.
                self.show(len(self.out) - 1)
                kind = self.scopes.pop()
                before = self.saved.pop()
                if kind in ("namespace", "class"):
                    self.comment, self.is_used = self.kept.pop()
                # A body ends its declaration; a braced initialiser, a class or an enum goes on to the semicolon.
                self.text = before + "{}" if kind in ("class", "enum") or before.count("(") != before.count(")") else ""
                if kind == "body" and re.search(r"[=\w>]\s*$", before) and not ENDS_AS_FUNCTION.search(before):
                    self.text = before + "{}"
                if kind == "namespace":
                    self.text = ""
            elif part == ";":
                if self.parentheses() == 0:
                    self.text = ""
            elif part.strip():
                if re.fullmatch(r"\s*(public|private|protected)\s*:\s*", part):
                    continue
                self.text += part + " "

    def parentheses(self):
        return self.text.count("(") - self.text.count(")")


def is_for_callers(text):
    """Whether a header is in the reference at all: its comment at the top may say that it is not."""
    return not any(HIDDEN in line for line in top_comment(text))


if __name__ == "__main__":
    with open(sys.argv[1]) as file:
        sys.stdout.write(Filter(file.read(), os.path.dirname(sys.argv[1])).run())
