"""Checks zarvo.natvis: it is well-formed, each type exists, and each member that it names is one of that type, or of what that leads
to. Run by gdb, which knows the types: see tests/host/cmake/debugger.cmake.

Of MSVC's standard library, whose types are not here, no name is checked: they begin with an underscore.
"""

import pathlib
import re
import xml.etree.ElementTree

import gdb

NATVIS = pathlib.Path(__file__).parent / "../../debugger/zarvo.natvis"
NAMESPACE = "{http://schemas.microsoft.com/vstudio/debugger/natvis/2010}"

# A type that a template stands for.
INSTANCES = {"Orvane::Internal::TaskWrapper<*>": "Orvane::Internal::TaskWrapper<void, void (*)(), Orvane::Internal::NullPolicy, Orvane::Internal::LoggingPolicyNull>"}


def members_of(kind):
    """Names and types of the members, those of bases too."""
    members = {}
    for field in kind.strip_typedefs().fields():
        if field.is_base_class:
            members.update(members_of(field.type))
        elif field.name is not None:
            members[field.name] = field.type
    return members


def behind(kind):
    """What a smart pointer, an atomic, or both, lead to."""
    kind = kind.strip_typedefs().unqualified()
    name = str(kind)
    if name.startswith(("std::shared_ptr<", "std::weak_ptr<", "std::atomic<")):
        return behind(kind.template_argument(0))
    return kind


def chains(expression):
    """The members that an expression names, each with those behind it: m_queue._Ptr->m_word gives [m_queue, m_word]."""
    expression = re.sub(r"\(Orvane::[\w:]+\)", "", expression)  # a cast
    expression = re.sub(r",\s*(su|en|d)\b", "", expression)  # a format
    for chain in re.findall(r"[A-Za-z_]\w*(?:(?:\.|->)[A-Za-z_]\w*)*", expression):
        names = [name for name in re.split(r"\.|->", chain) if not name.startswith("_")]
        if names and names != ["nullptr"]:
            yield names


def expressions_of(element):
    """Those in the texts and the attributes of a type."""
    for child in element.iter():
        if child.get("Condition"):
            yield child.get("Condition")
        text = (child.text or "").strip()
        if child.tag == NAMESPACE + "DisplayString":
            yield from re.findall(r"\{([^}]*)\}", text)
        elif child.tag in (NAMESPACE + "Item", NAMESPACE + "ExpandedItem"):
            yield text


def missing(kind, names):
    """The first name that there is not; None if there is each."""
    for name in names:
        members = members_of(kind) if kind.code == gdb.TYPE_CODE_STRUCT else {}
        if name not in members:
            return f"{kind} has no {name}"
        kind = behind(members[name])
    return None


def check():
    root = xml.etree.ElementTree.parse(NATVIS).getroot()
    found = []
    checked = 0
    for element in root.iter(NAMESPACE + "Type"):
        name = element.get("Name")
        try:
            kind = gdb.lookup_type(INSTANCES.get(name, name))
        except gdb.error as error:
            found.append(str(error))
            continue
        for expression in expressions_of(element):
            for names in chains(expression):
                checked += 1
                found.append(missing(kind, names))
    found = [line for line in found if line is not None]
    print("\n".join(found))
    print(f"{checked} members named, {len(found)} missing")
    return not found and checked > 50


gdb.execute(f"quit {0 if check() else 1}")
