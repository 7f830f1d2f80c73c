"""Looks for what MSVC would not take, or would take otherwise than GCC, without either: check_msvc.py [ROOT]

GCC with -Wpedantic refuses most of what is no C++. This finds the rest, in the parts of a file that MSVC would read:
- the names of GCC: its attributes, functions, headers and pragmas, and its mangled names in tests;
- [[no_unique_address]], which MSVC ignores;
- `friend class Name` where nothing has declared Name in that namespace: MSVC may take a Name of an outer one.
"""
import os
import re
import sys

FOLDERS = ("bench", "concurrency", "examples", "programs", "siblings", "tests")
NATIVE = ("tests/debugger/", "tests/host/", "tests/models/", "tests/schedules/")  # never compiled for Windows

OF_MSVC = {"_MSC_VER", "_WIN32", "_UCRT"}
OF_OTHERS = {"__GNUC__", "__clang__", "__GLIBCXX__", "__MINGW32__", "__ELF__", "GCC_GTHR_WIN32_H", "__GTHREAD_RECURSIVE_MUTEX_INIT"}

CONSTRUCTS = (
    (re.compile(r"__attribute__|__extension__|__PRETTY_FUNCTION__|__int128|__typeof__|__asm__|__restrict__|__thread\b"), "of GCC"),
    (re.compile(r"\b__(builtin|sync|atomic)_\w+"), "a function of GCC"),
    (re.compile(r"\[\[\s*(gnu|clang)::[\w:]+"), "an attribute of GCC"),
    (re.compile(r"#\s*pragma\s+(GCC|clang)|_Pragma|#\s*include_next|#\s*warning"), "a directive of GCC"),
    (re.compile(r"#\s*include\s*<(bits/|ext/|sys/|cxxabi|x86intrin|unistd|pthread|strings\.h)[^>]*>"), "a header of others"),
    (re.compile(r"\bssize_t\b"), "a type of others"),
    (re.compile(r'"_Z\w*"'), "a name as GCC mangles it"),
    (re.compile(r"\[\[\s*no_unique_address\s*\]\]"), "ignored: ORVANE_NO_UNIQUE_ADDRESS"),
)

DIRECTIVE = re.compile(r"\s*#\s*(ifdef|ifndef|if|elif|else|endif)\b(.*)")
TOKEN = re.compile(r"(?P<namespace>\bnamespace\s+(?P<name>[\w:]*)\s*\{)|(?P<open>\{)|(?P<close>\})|"
                   r"(?P<friend>\bfriend\s+)?\b(?<!enum )(?:class|struct)\s+(?:ORVANE_\w+\s+|ZARVO_\w+\s+)?(?P<type>\w+)\b(?!\s*::)")


def without_comments(text):
    """The text without its comments and with empty characters, of as many lines."""
    pattern = re.compile(r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|(?<!\w)\'(?:\\.|[^\'\\\n])+\'', re.DOTALL)
    return pattern.sub(lambda found: found[0] if found[0][0] == '"' else "\n" * found[0].count("\n"), text)


def may_hold(condition, unknown):
    """Whether the condition of an #if holds for MSVC, if all that is not known here is `unknown`."""
    known = lambda name: str(name in OF_MSVC or name not in OF_OTHERS and unknown)
    text = re.sub(r"__has_include\s*\(\s*<cxxabi\.h>\s*\)", "False", condition)
    text = re.sub(r"__has_include\s*\([^)]*\)", str(unknown), text)
    text = re.sub(r"defined\s*\(?\s*(\w+)\s*\)?", lambda found: known(found[1]), text)
    text = re.sub(r"\b(?!True\b|False\b)[A-Za-z_]\w*(\s*[<>=!]=?\s*\w+)?", str(unknown), text)
    text = re.sub(r"!(?!=)", " not ", text.replace("&&", " and ").replace("||", " or "))
    try:
        return bool(eval(text))
    except (SyntaxError, TypeError, NameError):
        return True


def read_by_msvc(text):
    """The text with empty lines in place of those that MSVC would not compile."""
    lines, branches = [], []  # of each #if: whether MSVC may be inside, whether it surely was in a branch before
    for line in text.split("\n"):
        found = DIRECTIVE.match(line)
        if not found:
            lines.append(line if all(inside for inside, _ in branches) else "")
            continue
        lines.append("")
        word, condition = found[1], found[2].strip()
        condition = {"ifdef": f"defined({condition})", "ifndef": f"!defined({condition})", "else": "True"}.get(word, condition)
        if word == "endif":
            branches.pop()
            continue
        taken = branches.pop()[1] if word in ("elif", "else") else False
        may = may_hold(condition, True) or may_hold(condition, False)
        must = may_hold(condition, True) and may_hold(condition, False)
        branches.append((may and not taken, taken or must))
    return "\n".join(lines)


def friends_without_declaration(text):
    """Position and name of each unqualified friend that its namespace has not declared before."""
    scopes, declared = [], set()
    for token in TOKEN.finditer(re.sub(r'"(?:\\.|[^"\\\n])*"', lambda found: " " * len(found[0]), text)):
        where = "::".join(scope for scope in scopes if scope is not None)
        if token["namespace"]:
            scopes.append(token["name"])
        elif token["open"]:
            scopes.append(None)
        elif token["close"]:
            if scopes:
                scopes.pop()
        elif not token["friend"]:
            declared.add((where, token["type"]))
        elif (where, token["type"]) not in declared:
            yield token.start(), token["type"]


def faults_of(text):
    """Line and words of what is wrong with a file."""
    text = read_by_msvc(without_comments(text))
    line_of = lambda position: text.count("\n", 0, position) + 1
    faults = [(line_of(found.start()), f"{found[0].strip()}: {why}") for construct, why in CONSTRUCTS for found in construct.finditer(text)]
    faults += [(line_of(position), f"friend {name}: to be declared in its namespace before")
               for position, name in friends_without_declaration(text)]
    return sorted(faults)


def main():
    root = sys.argv[1] if len(sys.argv) > 1 else "."
    files = [os.path.relpath(os.path.join(where, name), root)
             for folder in FOLDERS for where, _, names in os.walk(os.path.join(root, folder))
             for name in names if name.endswith((".h", ".cpp"))]
    files = [file for file in sorted(files) if not file.startswith(NATIVE)]
    count = 0
    for file in files:
        with open(os.path.join(root, file)) as text:
            for line, words in faults_of(text.read()):
                print(f"{file}:{line}: {words}", file=sys.stderr)
                count += 1
    print(f"{len(files)} files, {count} faults")
    return 1 if count or not files else 0


if __name__ == "__main__":
    sys.exit(main())
