"""Judges how headers become reference pages, and how these are checked."""
import pathlib
import tempfile
import unittest

import check
import headers
import pages


def filtered(text):
    return headers.Filter(text).run()


class Headers(unittest.TestCase):
    def test_a_comment_is_about_all_declarations_of_its_paragraph(self):
        out = filtered("namespace N {\n\n// Waits.\nvoid Wait();\nvoid WaitLonger();\n\nvoid Bare();\n}\n")
        self.assertEqual(out.count("/// Waits."), 2)
        self.assertIn("/// Waits.\nvoid WaitLonger();\n\nvoid Bare();", out)

    def test_a_class_gets_what_the_file_says_and_it_does_not(self):
        out = filtered("// A file.\n//\n// Threads: any.\n// Errors: none.\n#pragma once\n\n// A class.\n// Errors: some.\nclass A {};\n")
        page = out[out.index("#pragma"):]
        self.assertIn("@par Threads\n/// Any.", page)
        self.assertIn("@par Errors\n/// Some.", page)

    def test_a_value_has_the_whole_contract(self):
        out = filtered("// A value.\n//\n// Contract: a value.\nstruct A {\n};\n")
        for part in check.CONTRACT:
            self.assertIn(f"@par {part}\n", out)

    def test_a_header_may_take_the_contract_of_another_one(self):
        with tempfile.TemporaryDirectory() as folder:
            (pathlib.Path(folder) / "job.h").write_text("// Jobs.\n//\n// Threads: any.\n#pragma once\n")
            out = headers.Filter("// Handles.\n//\n// Contract: that of job.h.\n#pragma once\n\n// B.\nclass B {};\n", folder).run()
        self.assertEqual(out.count("@par Threads\n/// Any."), 2)

    def test_what_is_not_for_callers_is_hidden_to_the_end_of_its_paragraph(self):
        out = filtered("class A {\n  public:\n    // Not for callers.\n    int inner;\n\n    // Shown.\n    int outer;\n};\n")
        self.assertLess(out.index("@cond"), out.index("inner"))
        self.assertLess(out.index("inner"), out.index("@endcond"))
        self.assertLess(out.index("@endcond"), out.index("/// Shown."))

    def test_private_members_and_inner_namespaces_are_hidden(self):
        out = filtered("namespace N {\nnamespace Internal {\nint a;\n}\n\nclass B {\n  private:\n    int b;\n\n    int c;\n};\n\n// D.\nint d;\n}\n")
        self.assertEqual(out.count("@cond"), 2)
        for name in ("int a", "int b", "int c"):
            self.assertGreater(out[:out.index(name)].count("@cond"), out[:out.index(name)].count("@endcond"), name)
        self.assertEqual(out[:out.index("int d")].count("@endcond"), 2)

    def test_a_comment_in_a_function_stays_one(self):
        out = filtered("// F.\ninline int F() {\n    // Why.\n    return G({});  // so\n}\n\n// H.\nint H() { return {}; }\n\n// I.\nint I();\n")
        self.assertIn("    // Why.", out)
        self.assertIn("  // so", out)
        self.assertIn("/// I.\nint I();", out)

    def test_a_comment_behind_a_field_is_about_it(self):
        self.assertIn("int a;  ///< of A", filtered("struct A {\n    int a;  // of A\n};\n"))

    def test_a_file_is_left_out_if_its_comment_says_so(self):
        self.assertFalse(headers.is_for_callers("// Parts.\n//\n// Not for callers.\n#pragma once\n"))
        self.assertTrue(headers.is_for_callers("// Parts.\n#pragma once\n// Not for callers.\nint a;\n"))


class Pages(unittest.TestCase):
    def test_links_lead_to_pages_and_to_copies_of_files(self):
        text = "[jobs](jobs.md#groups), [`main`](../examples/time_limit/main.cpp), [all](adr), ![](charts/waiters.svg)"
        self.assertEqual(
            pages.rewrite(text, "docs/limits.md"),
            '<a href="md_docs_2jobs.html#groups">jobs</a>, '
            '<a href="files/examples/time_limit/main.cpp"><code>main</code></a>, all, ![](charts/waiters.svg)')

    def test_what_doxygen_would_take_for_a_link_is_none(self):
        self.assertEqual(pages.rewrite("`file:PATH`, `F(int)::g`, `A::b`", "docs/limits.md"),
                         "<code>file<b></b>:PATH</code>, <code>F(int):<b></b>:g</code>, `A::b`")


MEMBER = '<memberdef kind="function" prot="{}"><name>{}</name><argsstring>()</argsstring><briefdescription>{}</briefdescription></memberdef>'


def undocumented(body, kind="class"):
    with tempfile.TemporaryDirectory() as folder:
        text = f'<doxygen><compounddef kind="{kind}"><compoundname>A</compoundname>{body}</compounddef></doxygen>'
        (pathlib.Path(folder) / "a.xml").write_text(text)
        return check.find_undocumented(pathlib.Path(folder))


class Checks(unittest.TestCase):
    BRIEF = "<briefdescription><para>It is.</para></briefdescription>"
    WHOLE = "<detaileddescription>" + "".join(
        f'<simplesect kind="par"><title>{part}</title></simplesect>' for part in check.CONTRACT) + "</detaileddescription>"

    def test_a_class_needs_words_and_every_part_of_its_contract(self):
        self.assertEqual(undocumented(self.BRIEF + self.WHOLE), [])
        self.assertEqual(undocumented(self.WHOLE), ["A: what it is"])
        self.assertEqual(undocumented(self.BRIEF + self.WHOLE.replace("Lifetime", "Life")), ["A: Lifetime"])

    def test_a_member_needs_words_unless_it_is_private(self):
        whole = self.BRIEF + self.WHOLE
        self.assertEqual(undocumented(whole + MEMBER.format("public", "Run", "")), ["A::Run()"])
        self.assertEqual(undocumented(whole + MEMBER.format("public", "Run", "<para>Runs.</para>")), [])
        self.assertEqual(undocumented(whole + MEMBER.format("private", "Run", "")), [])
        self.assertEqual(undocumented(MEMBER.format("public", "Run", ""), "namespace"), ["A::Run()"])

    def test_a_link_needs_its_file_and_its_place(self):
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            links = ["b.html", "b.html#here", "b.html#gone", "c.html", "#top", "https://example.org/x", "file:X"]
            (root / "a.html").write_text("".join(f'<a href="{link}">x</a>' for link in links))
            (root / "b.html").write_text('<h1 id="here">x</h1>')
            dead, elsewhere = check.find_links(root)
            self.assertEqual(dead, ["a.html: #top", "a.html: b.html#gone", "a.html: c.html", "a.html: file:X"])
            self.assertEqual(elsewhere, ["https://example.org/x"])


if __name__ == "__main__":
    unittest.main()
