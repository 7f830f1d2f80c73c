"""Judges the check of the include layers with violations planted here."""
import unittest

from check_include_layers import faults_of, read_layers

LAYERS = read_layers("""
1  concurrency/base/facade.cpp
1  concurrency/base/*
2  concurrency/errors/exceptions    only sources include it
3  concurrency/tasks/future
4  concurrency/waits/*              # a remark of the table
5  concurrency/tasks/*
""")

TIDY = {
    "concurrency/base/clock.h": "#pragma once\n",
    "concurrency/base/clock.cpp": '#include "concurrency/base/clock.h"\n',
    "concurrency/base/facade.h": "#pragma once\n",
    "concurrency/errors/exceptions.h": '#include "concurrency/base/clock.h"\n',
    "concurrency/tasks/future.h": '#include "concurrency/base/clock.h"\n#include <memory>\n',
    "concurrency/tasks/future.cpp": '#include "concurrency/tasks/future.h"\n#include "concurrency/errors/exceptions.h"\n',
    "concurrency/waits/sleep.h": '#include "concurrency/tasks/future.h"\n',
    "concurrency/tasks/task.h": '#include "concurrency/tasks/future.h"\n#include "concurrency/waits/sleep.h"\n',
}


def faults_with(**planted):
    """The faults when the named files, with two underscores for a slash and one for the dot, include something more."""
    files = dict(TIDY)
    for name, included in planted.items():
        path = "concurrency/" + name.replace("__", "/").replace("_", ".")
        files[path] = files.get(path, "") + f'#include "{included}"\n'
    return faults_of(files, LAYERS)


class IncludeLayersTest(unittest.TestCase):
    def test_arrows_that_go_down_are_no_fault(self):
        self.assertEqual(faults_of(TIDY, LAYERS), [])

    def test_a_header_that_includes_upward_is_found(self):
        faults = faults_with(waits__sleep_h="concurrency/tasks/task.h")
        self.assertIn("concurrency/waits/sleep.h (layer 4): includes concurrency/tasks/task.h (layer 5)", faults)

    def test_a_source_that_includes_upward_is_found(self):
        faults = faults_with(base__clock_cpp="concurrency/tasks/future.h")
        self.assertIn("concurrency/base/clock.cpp (layer 1): includes concurrency/tasks/future.h (layer 3)", faults)

    def test_a_circle_within_a_layer_is_found_though_it_closes_in_a_source(self):
        faults = faults_with(tasks__list_h="concurrency/tasks/task.h", tasks__task_cpp="concurrency/tasks/list.h")
        self.assertEqual(len(faults), 1)
        self.assertTrue(faults[0].startswith("a circle: concurrency/tasks/"), faults)

    def test_a_source_and_its_own_header_are_no_circle(self):
        self.assertEqual(faults_with(tasks__task_cpp="concurrency/tasks/task.h"), [])

    def test_a_source_with_a_line_of_its_own_may_include_what_includes_its_header(self):
        self.assertEqual(faults_with(base__part_h="concurrency/base/facade.h", base__facade_cpp="concurrency/base/part.h"), [])

    def test_a_header_that_only_sources_may_include_is_found_in_a_header(self):
        faults = faults_with(tasks__task_h="concurrency/errors/exceptions.h")
        self.assertEqual(faults, ["concurrency/tasks/task.h: includes concurrency/errors/exceptions.h, which only sources may"])

    def test_a_file_without_a_layer_is_found(self):
        faults = faults_with(others__new_cpp="concurrency/base/clock.h")
        self.assertEqual(faults, ["concurrency/others/new.cpp: has no layer in include_layers.txt"])

    def test_an_include_that_is_not_there_is_found(self):
        faults = faults_with(tasks__task_h="concurrency/tasks/gone.h")
        self.assertEqual(faults, ['concurrency/tasks/task.h: includes "concurrency/tasks/gone.h", which is not there'])


if __name__ == "__main__":
    unittest.main()
