"""A mutant: one place of a source, and what stands there instead when it is chosen."""
from dataclasses import dataclass, field

# How many mutants a file may have.
BLOCK = 1000

# What stands for the mutant's number in its pieces of text.
CHOSEN = "\0"

# Of several mutants of the same range the first is the outermost.
RANKS = ["drop call", "drop assignment", "drop lock", "drop handler", "drop operand", "negate", "compare", "constant"]


@dataclass
class Mutant:
    file: str  # from the root, as in concurrency/sync/fifo_mutex.cpp
    start: int
    end: int
    operator: str
    original: str
    mutated: str
    function: str
    line: int
    pieces: list = field(repr=False)  # texts, and ranges of the source
    key: str = ""
    number: int = 0

    @property
    def place(self):
        return self.file, self.start, self.end, self.operator


class Source:
    """A file's bytes, and where its lines begin. Offsets of clang count bytes."""

    def __init__(self, path):
        self.bytes = path.read_bytes()

    def text(self, start, end):
        return self.bytes[start:end].decode()

    def line(self, offset):
        return self.bytes.count(b"\n", 0, offset) + 1
