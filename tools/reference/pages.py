"""doxygen's input filter for the pages: pages.py FILE

doxygen leaves many links between pages as they are, so here they get the names of its own files. A link to a file that is
no page goes to a copy of it under files/.
"""
import html
import os
import re
import sys

from inputs import PAGES

LINK = re.compile(r"(!?)\[([^\]]*)\]\(([^)#\s]+)(#[^)\s]*)?\)")


def page_name(path):
    """What doxygen calls a page."""
    if path == "README.md":
        return "index.html"
    return "md_" + path.removesuffix(".md").replace("_", "__").replace("/", "_2") + ".html"


def as_html(words):
    return re.sub(r"`([^`]*)`", r"<code>\1</code>", words)


def write_out_colons(code):
    """What doxygen takes for a link, in code too: a name with colons behind a bracket, and file: before a name."""
    text = html.escape(code.group(0).strip('`'), quote=False)
    return f"<code>{text}</code>".replace("::", ":<b></b>:").replace("file:", "file<b></b>:")


def rewrite(text, page, root="."):
    folder = os.path.dirname(page)

    def replace(found):
        mark, words, target, anchor = found.groups()
        path = os.path.normpath(os.path.join(folder, target))
        if "://" in target or mark or not os.path.exists(os.path.join(root, path)):
            return found.group(0)
        if path in PAGES:
            return f'<a href="{page_name(path)}{anchor or ""}">{as_html(words)}</a>'
        if os.path.isdir(os.path.join(root, path)):
            return words  # which only a site of the repository can show
        return f'<a href="files/{path}">{as_html(words)}</a>'

    return re.sub(r"`[^`\n]*(?:\)::|\bfile:)[^`\n]*`", write_out_colons, LINK.sub(replace, text))


def files_linked_from(text, page, root="."):
    return re.findall(r'<a href="files/([^"]+)">', rewrite(text, page, root))


if __name__ == "__main__":
    with open(sys.argv[1]) as file:
        sys.stdout.write(rewrite(file.read(), os.path.relpath(sys.argv[1])))
