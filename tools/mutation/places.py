"""Finds the places of a source that can be mutated, in clang's syntax tree."""
import re

from clang.cindex import Config, CursorKind, Index

from mutant import BLOCK, Source
from operators import Context, range_of

Config.set_library_file("/usr/lib/llvm-19/lib/libclang-19.so.1")


class Finder:
    """Collects the mutants of the files that `wanted` names, from one unit after the other."""

    def __init__(self, root, wanted):
        self.root = root
        self.wanted = set(wanted)
        self.sources = {}
        self.mutants = {}
        self.done = set()  # files that a unit before has shown whole
        self.index = Index.create()

    def read(self, path, arguments):
        """Returns what the compiler objected to."""
        unit = self.index.parse(str(path), args=arguments)
        errors = [str(each) for each in unit.diagnostics if each.severity >= 3]
        seen = set()
        for child in unit.cursor.get_children():
            file = self.file_of(child)
            if file is None or file in self.done:
                continue
            seen.add(file)
            self.declaration(child, file)
        self.done |= seen
        return errors

    def file_of(self, cursor):
        name = cursor.location.file
        if name is None:
            return None
        name = str(name.name)
        prefix = str(self.root) + "/"
        if not name.startswith(prefix):
            return None
        name = name[len(prefix):]
        if name not in self.wanted:
            return None
        if name not in self.sources:
            self.sources[name] = Source(self.root / name)
        return name

    # Declarations

    def declaration(self, cursor, file):
        kind = cursor.kind
        if kind in (CursorKind.NAMESPACE, CursorKind.LINKAGE_SPEC, CursorKind.UNEXPOSED_DECL, CursorKind.CLASS_DECL,
                    CursorKind.STRUCT_DECL, CursorKind.CLASS_TEMPLATE, CursorKind.UNION_DECL,
                    CursorKind.CLASS_TEMPLATE_PARTIAL_SPECIALIZATION):
            for child in cursor.get_children():
                self.declaration(child, file)
        elif kind in (CursorKind.FUNCTION_DECL, CursorKind.CXX_METHOD, CursorKind.FUNCTION_TEMPLATE,
                      CursorKind.CONSTRUCTOR, CursorKind.DESTRUCTOR, CursorKind.CONVERSION_FUNCTION):
            self.function(cursor, file)
        elif kind == CursorKind.FIELD_DECL and not cursor.is_bitfield():
            context = Context(self, file, name_of(cursor))
            for child in cursor.get_children():
                if child.kind.is_expression() and context.is_initialiser(child, cursor):
                    context.visit(child, None)

    def function(self, cursor, file):
        children = list(cursor.get_children())
        bodies = [child for child in children if child.kind in (CursorKind.COMPOUND_STMT, CursorKind.CXX_TRY_STMT)]
        # The body of a defaulted function is no text.
        if not bodies or not self.sources[file].text(*range_of(bodies[-1])).startswith(("{", "try", ":")):
            return
        if self.is_constant(cursor, bodies[-1], file):
            return
        context = Context(self, file, name_of(cursor))
        for child in children:
            # The initialisers of a constructor are expressions, the contents of its body a statement.
            if child.kind.is_expression() and cursor.kind == CursorKind.CONSTRUCTOR or child in bodies:
                context.visit(child, None)

    def is_constant(self, cursor, body, file):
        head = self.sources[file].text(cursor.extent.start.offset, body.extent.start.offset)
        return re.search(r"\b(constexpr|consteval)\b", head) is not None

    def add(self, mutant):
        self.mutants.setdefault(mutant.place, mutant)

    def found(self):
        """The mutants in their order, with keys that hold when lines move. Each file has a block of numbers, so that a change
        of one leaves the texts of the others as they are."""
        mutants = sorted(self.mutants.values(), key=lambda each: (each.file, each.start, -each.end, each.operator))
        seen = {}
        numbers = {name: BLOCK * index for index, name in enumerate(sorted(self.wanted), start=1)}
        for mutant in mutants:
            mutant.number = numbers[mutant.file]
            numbers[mutant.file] += 1
            key = f"{mutant.file} | {mutant.function} | {mutant.operator} | {mutant.original} -> {mutant.mutated}"
            seen[key] = seen.get(key, 0) + 1
            mutant.key = key if seen[key] == 1 else f"{key} #{seen[key]}"
        return mutants


def name_of(cursor):
    names = []
    while cursor is not None and cursor.kind not in (CursorKind.TRANSLATION_UNIT, CursorKind.NAMESPACE):
        if cursor.spelling:
            names.append(cursor.spelling)
        cursor = cursor.semantic_parent
    return "::".join(reversed(names))
