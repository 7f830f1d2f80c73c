"""Judges the check of what MSVC would not take with violations planted here."""
import unittest

from check_msvc import faults_of


def words_of(text):
    return [words for _, words in faults_of(text)]


class MsvcTest(unittest.TestCase):
    def test_plain_code_is_no_fault(self):
        self.assertEqual(faults_of('#include <memory>\nnamespace A {\nclass B;\nclass C {\n    friend class B;\n};\n}\n'), [])

    def test_what_only_gcc_has_is_found_with_its_line(self):
        planted = ("__attribute__((packed)) int a;", "int a = __builtin_ctz(2);", "[[gnu::noinline]] void F();", "__int128 a;",
                   "#pragma GCC poison a", "#include <cxxabi.h>", "#include <sys/stat.h>", "ssize_t a;", 'Patch a("_Znwy");',
                   "[[no_unique_address]] A a;", "__extension__ struct {};")
        for line in planted:
            self.assertEqual([number for number, _ in faults_of(f"int first;\n\n{line}\n")], [3], line)

    def test_words_about_it_are_no_fault(self):
        self.assertEqual(faults_of('// as __builtin_ctz\n/* __int128\n ssize_t */\nconst char* a = "a // b";\n'), [])

    def test_code_behind_words_is_read(self):
        self.assertEqual([line for line, _ in faults_of("/* of\nGCC */ __int128 a;\n")], [2])

    def test_what_msvc_does_not_read_is_no_fault(self):
        guarded = ("#ifdef __GNUC__\n@\n#endif", "#if defined(__GNUC__) && !defined(__clang__)\n@\n#endif",
                   "#ifdef _MSC_VER\nint a;\n#else\n@\n#endif", "#ifndef _MSC_VER\n@\n#endif", "#if __has_include(<cxxabi.h>)\n@\n#endif",
                   "#if defined(_WIN32) && defined(__GTHREAD_RECURSIVE_MUTEX_INIT)\n@\n#endif",
                   "#ifdef _MSC_VER\n#elif defined(ORVANE_A)\n@\n#endif", "#ifdef __GNUC__\n#ifdef ORVANE_A\n@\n#endif\n#endif")
        for text in guarded:
            self.assertEqual(faults_of(text.replace("@", "__int128 a;")), [], text)

    def test_what_msvc_may_read_is_judged(self):
        read = ("#ifdef _MSC_VER\n@\n#endif", "#ifdef __GNUC__\n#else\n@\n#endif", "#ifdef ORVANE_A\n@\n#endif", "#ifndef ORVANE_A\n@\n#endif",
                "#if defined(__GNUC__) || defined(_WIN32)\n@\n#endif", "#ifdef ORVANE_A\n#else\n@\n#endif", "#if ORVANE_A != 2\n@\n#endif",
                "#ifdef __GNUC__\n#endif\n@")
        for text in read:
            self.assertEqual(len(faults_of(text.replace("@", "__int128 a;"))), 1, text)

    def test_a_friend_that_nothing_declares_is_found(self):
        self.assertEqual(faults_of("namespace A {\nclass B {\n    friend struct C;\n};\nstruct C {};\n}\n"),
                         [(3, "friend C: to be declared in its namespace before")])

    def test_a_friend_of_an_outer_namespace_is_found(self):
        text = "namespace A {\nclass C;\nnamespace Inner {\nclass B {\n    friend class C;\n};\n}\n}\n"
        self.assertEqual(words_of(text), ["friend C: to be declared in its namespace before"])
        self.assertEqual(faults_of(text.replace("friend class C", "friend A::C")), [])

    def test_a_declaration_counts_in_a_namespace_that_is_opened_again(self):
        self.assertEqual(faults_of("namespace A::B {\nclass C;\n}\nnamespace A::B {\nclass D {\n    void F() { G({}); }\n"
                                   "    friend class C;\n};\n}\n"), [])


if __name__ == "__main__":
    unittest.main()
