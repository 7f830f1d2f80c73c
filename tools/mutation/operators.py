"""What can be mutated inside of one function, and how."""
import re
from ctypes import byref, c_uint

from clang.cindex import CursorKind, TypeKind, c_object_p, conf

from mutant import CHOSEN, Mutant

COMPARISONS = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "=="}
INTEGER = re.compile(r"(0[xX][0-9a-fA-F']+|[0-9][0-9']*)([uUlLzZ]*)$")


def one_line(text):
    return " ".join(text.split())


def unwrapped(cursor):
    """Without the casts and temporaries that are no text."""
    while cursor.kind == CursorKind.UNEXPOSED_EXPR:
        children = list(cursor.get_children())
        if len(children) != 1 or range_of(children[0]) != range_of(cursor):
            break
        cursor = children[0]
    return cursor


def is_from_macro(location):
    """Whether the text at the location was written elsewhere: in a macro, or as its argument."""
    file, line, column, offset = c_object_p(), c_uint(), c_uint(), c_uint()
    conf.lib.clang_getSpellingLocation(location, byref(file), byref(line), byref(column), byref(offset))
    return offset.value != location.offset


def range_of(cursor):
    return cursor.extent.start.offset, cursor.extent.end.offset


class Context:
    """The inside of one function."""

    def __init__(self, finder, file, function):
        self.finder = finder
        self.file = file
        self.source = finder.sources[file]
        self.function = function

    def text(self, cursor):
        return self.source.text(*range_of(cursor))

    def add(self, cursor, operator, mutated, pieces):
        start, end = range_of(cursor)
        # What the compiler has rewritten (a != b as !(a == b)) begins at its operator.
        if start >= end or re.match(r"[=!<>]=|[<>]", self.source.text(start, end)):
            return
        # What a macro's arguments become is not where they stand. A macro's name stands for all of it.
        if is_from_macro(cursor.extent.start) and is_from_macro(cursor.extent.end):
            if not re.fullmatch(r"\w+", self.source.text(start, end)):
                return
        original = one_line(self.source.text(start, end))
        self.finder.add(Mutant(self.file, start, end, operator, original, mutated, self.function,
                               self.source.line(start), pieces))

    def visit(self, cursor, parent):
        kind = cursor.kind
        location = cursor.location.file
        if location is not None and str(location.name) != str(self.finder.root / self.file):
            return
        if kind in (CursorKind.STATIC_ASSERT, CursorKind.CXX_UNARY_EXPR, CursorKind.TYPE_ALIAS_DECL,
                    CursorKind.TYPEDEF_DECL, CursorKind.ENUM_DECL):
            return
        if kind in (CursorKind.CLASS_DECL, CursorKind.STRUCT_DECL):
            self.finder.declaration(cursor, self.file)
            return
        if kind == CursorKind.VAR_DECL and re.match(r"(static\s+)?(constexpr|constinit)\b", self.text(cursor)):
            return
        children = list(cursor.get_children())
        if kind == CursorKind.VAR_DECL:
            children = [child for child in children if self.is_initialiser(child, cursor)]
        skipped = None
        if kind == CursorKind.IF_STMT:
            if re.match(r"if\s+constexpr\b", self.text(cursor)):
                skipped = children[0]
            else:
                self.condition(self.in_parentheses(cursor, children))
        elif kind == CursorKind.WHILE_STMT:
            self.condition(self.in_parentheses(cursor, children))
        elif kind == CursorKind.DO_STMT:
            self.condition(children[-1])
        elif kind == CursorKind.FOR_STMT:
            self.condition(self.loop_condition(cursor, children))
        elif kind == CursorKind.CONDITIONAL_OPERATOR:
            self.condition(children[0])
        elif kind == CursorKind.CASE_STMT:
            skipped = children[0]
        elif kind == CursorKind.CXX_CATCH_STMT:
            self.handler(children[-1])
        elif kind == CursorKind.RETURN_STMT and children:
            self.returned(children[0])
        elif kind in (CursorKind.BINARY_OPERATOR, CursorKind.CALL_EXPR) and len(children) >= 2:
            self.binary(cursor, children)
        elif kind == CursorKind.UNARY_OPERATOR and self.text(cursor).startswith("!"):
            self.negate(cursor)
        elif kind == CursorKind.INTEGER_LITERAL:
            self.integer(cursor)
        elif kind == CursorKind.CXX_BOOL_LITERAL_EXPR:
            self.boolean(cursor)
        elif kind == CursorKind.DECL_REF_EXPR:
            self.enumerator(cursor)
        if is_statement(cursor, parent):
            self.statement(unwrapped(cursor), cursor)
        for child in children:
            if skipped is None or child != skipped:
                self.visit(child, cursor)

    def is_initialiser(self, child, declaration):
        """Not a part of the declaration's type: of a template's arguments or an array's size."""
        name = declaration.location.offset
        start = child.extent.start.offset
        return start >= name and not self.source.text(name, start).endswith("[")

    # Conditions

    def in_parentheses(self, cursor, children):
        """The last part of what stands in the parentheses behind `if` or `while`."""
        depth = 0
        for token in cursor.get_tokens():
            if token.spelling == "(":
                depth += 1
            elif token.spelling == ")":
                depth -= 1
                if depth == 0:
                    end = token.extent.start.offset
                    inside = [child for child in children if child.extent.end.offset <= end]
                    declares = any(child.kind in (CursorKind.VAR_DECL, CursorKind.DECL_STMT) for child in inside[-2:])
                    return None if declares or not inside else inside[-1]
        return None

    def loop_condition(self, cursor, children):
        depth, ends = 0, []
        for token in cursor.get_tokens():
            if token.spelling in ("(", "{", "["):
                depth += 1
            elif token.spelling in (")", "}", "]"):
                depth -= 1
            elif token.spelling == ";" and depth == 1:
                ends.append(token.extent.start.offset)
            if len(ends) == 2:
                break
        inside = [each for each in children if len(ends) == 2 and
                  ends[0] < each.extent.start.offset and each.extent.end.offset <= ends[1]]
        return inside[-1] if inside else None

    def condition(self, cursor):
        if cursor is None or not cursor.kind.is_expression():
            return
        if self.operator_of(cursor) not in ("==", "!="):  # those are negated as comparisons
            self.negate(cursor)

    def returned(self, cursor):
        inner = unwrapped(cursor)
        if cursor.type.get_canonical().kind != TypeKind.BOOL or inner.kind == CursorKind.CXX_BOOL_LITERAL_EXPR:
            return
        self.condition(cursor)

    def negate(self, cursor):
        text = one_line(self.text(cursor))
        mutated = text[1:].strip() if text.startswith("!") and " " not in text else f"!({text})"
        self.add(cursor, "negate", mutated, [f"(::zarvo_mutant({CHOSEN}) != static_cast<bool>(", range_of(cursor), "))"])

    # Operators

    def operands(self, cursor):
        """Left, the operator, right; of what is no binary operator nothing."""
        cursor = unwrapped(cursor)
        children = list(cursor.get_children())
        if cursor.kind not in (CursorKind.BINARY_OPERATOR, CursorKind.CALL_EXPR) or len(children) < 2:
            return None
        if cursor.kind == CursorKind.CALL_EXPR and not cursor.spelling.startswith("operator"):
            return None
        left, right = children[0], children[-1]
        if left.extent.start.offset != cursor.extent.start.offset:
            return None
        between = self.source.text(left.extent.end.offset, right.extent.start.offset).strip()
        return left, between, right

    def operator_of(self, cursor):
        parts = self.operands(cursor)
        return parts[1] if parts else None

    def binary(self, cursor, children):
        parts = self.operands(cursor)
        if parts is None:
            return
        left, operator, right = parts
        if operator in COMPARISONS:
            other = COMPARISONS[operator]
            a, b = range_of(left), range_of(right)
            mutated = f"{one_line(self.text(left))} {other} {one_line(self.text(right))}"
            pieces = [f"(::zarvo_mutant({CHOSEN}) ? (", a, f" {other} ", b, ") : (", a, f" {operator} ", b, "))"]
            self.add(cursor, "compare", mutated, pieces)
        elif operator in ("&&", "||"):
            joined = "||" if operator == "&&" else "&&"
            sign = "" if operator == "&&" else "!"
            for operand, kept in ((left, right), (right, left)):
                span = range_of(operand)
                self.add(operand, "drop operand", f"{'true' if operator == '&&' else 'false'} ({operator})",
                         [f"({sign}::zarvo_mutant({CHOSEN}) {joined} static_cast<bool>(", span, "))"])

    # Constants

    def integer(self, cursor):
        text = self.text(cursor)
        match = INTEGER.match(text)
        if not match:
            return
        digits, suffix = match.groups()
        value = int(digits.replace("'", ""), 16 if digits[:2].lower() == "0x" else 8 if re.match("0[0-7]", digits) else 10)
        mutated = {0: "1" + suffix, 1: "0" + suffix}.get(value, f"{text} + 1")
        self.add(cursor, "constant", mutated, [f"(::zarvo_mutant({CHOSEN}) ? {mutated} : {text})"])

    def boolean(self, cursor):
        text = self.text(cursor)
        if text not in ("true", "false"):
            return
        mutated = "false" if text == "true" else "true"
        self.add(cursor, "constant", mutated, [f"(::zarvo_mutant({CHOSEN}) ? {mutated} : {text})"])

    def enumerator(self, cursor):
        referenced = cursor.referenced
        if referenced is None or referenced.kind != CursorKind.ENUM_CONSTANT_DECL:
            return
        place = referenced.location.file
        if place is None or not str(place.name).startswith(f"{self.finder.root}/"):
            return
        if "/tests/" in str(place.name):
            return
        all_of_it = [each.spelling for each in referenced.semantic_parent.get_children()
                     if each.kind == CursorKind.ENUM_CONSTANT_DECL]
        text = self.text(cursor)
        if len(all_of_it) < 2 or not text.endswith(referenced.spelling):
            return
        neighbour = all_of_it[(all_of_it.index(referenced.spelling) + 1) % len(all_of_it)]
        mutated = text[:-len(referenced.spelling)] + neighbour
        self.add(cursor, "constant", one_line(mutated),
                 [f"(::zarvo_mutant({CHOSEN}) ? {mutated} : {text})"])

    # Statements

    def statement(self, cursor, outer):
        span = range_of(outer)
        text = self.text(cursor)
        if cursor.kind == CursorKind.COMPOUND_STMT:
            children = list(cursor.get_children())
            if len(children) == 1 and children[0].kind == CursorKind.DECL_STMT:
                if re.match(r"(const\s+)?[\w:]*[Ll]ock(_guard)?\b", self.text(children[0])):
                    self.add(outer, "drop lock", "{}", [f"if (::zarvo_mutant({CHOSEN})) {{}} else ", span])
            return
        dropped = [f"if (::zarvo_mutant({CHOSEN})) {{}} else ", span]
        if cursor.kind == CursorKind.COMPOUND_ASSIGNMENT_OPERATOR or self.is_assignment(cursor):
            self.add(outer, "drop assignment", "nothing", dropped)
        elif re.match(r"\+\+|--", text) or re.search(r"(\+\+|--)$", text):
            self.add(outer, "drop assignment", "nothing", dropped)
        elif cursor.kind == CursorKind.CALL_EXPR and not text.startswith("static_cast<void>"):
            self.add(outer, "drop call", "nothing", dropped)
        elif cursor.kind in (CursorKind.CXX_DELETE_EXPR, CursorKind.UNEXPOSED_EXPR) and text.endswith(")"):
            self.add(outer, "drop call", "nothing", dropped)  # a call that depends on a template's parameter

    def is_assignment(self, cursor):
        parts = self.operands(cursor)
        return parts is not None and re.fullmatch(r"[-+*/%&|^]?=|<<=|>>=", parts[1]) is not None

    def handler(self, body):
        start = body.extent.start.offset + 1
        self.add(body, "drop handler", "throw;",
                 [f"{{ if (::zarvo_mutant({CHOSEN})) throw; ", (start, body.extent.end.offset)])


STATEMENT_PARENTS = (CursorKind.COMPOUND_STMT, CursorKind.IF_STMT, CursorKind.FOR_STMT, CursorKind.WHILE_STMT,
                     CursorKind.DO_STMT, CursorKind.CXX_FOR_RANGE_STMT, CursorKind.CASE_STMT, CursorKind.DEFAULT_STMT)


def is_statement(cursor, parent):
    """A whole statement: of an `if` or a loop, what is not in its parentheses."""
    if parent is None or parent.kind not in STATEMENT_PARENTS:
        return False
    if parent.kind == CursorKind.COMPOUND_STMT:
        return True
    if not cursor.kind.is_expression():
        return False
    tokens = list(parent.get_tokens())
    depth = 0
    if parent.kind in (CursorKind.CASE_STMT, CursorKind.DEFAULT_STMT):
        colon = next((each for each in tokens if each.spelling == ":"), None)
        return colon is not None and cursor.extent.start.offset > colon.extent.start.offset
    if parent.kind == CursorKind.DO_STMT:
        return cursor == next(parent.get_children())
    for token in tokens:
        if token.spelling == "(":
            depth += 1
        elif token.spelling == ")":
            depth -= 1
            if depth == 0:
                return cursor.extent.start.offset >= token.extent.end.offset
    return False
