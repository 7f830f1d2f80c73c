"""Writes a source with all of its mutants in it."""
from mutant import CHOSEN, RANKS


class Node:
    def __init__(self, mutant):
        self.mutant = mutant
        self.children = []


def nest(mutants):
    """The mutants as a tree, and those that cut another one, which no text can hold."""
    top, path, cut = [], [], []
    for mutant in sorted(mutants, key=lambda each: (each.start, -each.end, RANKS.index(each.operator))):
        while path and path[-1].mutant.end <= mutant.start:
            path.pop()
        if path and path[-1].mutant.end < mutant.end:
            cut.append(mutant)
            continue
        node = Node(mutant)
        (path[-1].children if path else top).append(node)
        path.append(node)
    return top, cut


def render(source, mutants):
    """The file's text with the mutants, each chosen by its number."""
    top, _ = nest(mutants)
    return render_range(source, 0, len(source.bytes), top)


def render_range(source, start, end, nodes):
    parts, at = [], start
    for node in nodes:
        if node.mutant.start < at or node.mutant.end > end:
            continue
        parts.append(source.text(at, node.mutant.start))
        parts.append(render_node(source, node))
        at = node.mutant.end
    parts.append(source.text(at, end))
    return "".join(parts)


def render_node(source, node):
    parts = []
    for piece in node.mutant.pieces:
        if isinstance(piece, str):
            parts.append(piece.replace(CHOSEN, str(node.mutant.number)))
        else:
            parts.append(render_range(source, *piece, node.children))
    return "".join(parts)
