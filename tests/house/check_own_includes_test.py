#!/usr/bin/python3
"""Plants sources in a small house of its own and asks what check_own_includes.py says of them."""

import pathlib
import tempfile
import unittest

import check_own_includes

HEADER = "#pragma once\n#include <vector>\nclass Note {\n    enum class Kind { On };\n};\n"


class CheckOwnIncludes(unittest.TestCase):
    def complaints(self, text):
        """What is said of a source in a house with one header."""
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            (root / "driver").mkdir()
            (root / "driver/Note.h").write_text(HEADER)
            (root / "driver/Way.h").write_text('#include "driver/Note.h"\n')
            (root / "driver/A.cpp").write_text(text)
            return list(check_own_includes.House(root).complaints())

    def test_a_name_of_the_library_needs_its_header(self):
        self.assertEqual(self.complaints("std::vector<int> notes;\n"), ["driver/A.cpp: std::vector without <vector>"])
        self.assertEqual(self.complaints("#include <vector>\nstd::vector<int> notes;\n"), [])

    def test_a_type_of_the_project_needs_its_header(self):
        self.assertEqual(self.complaints("int x = sizeof(Note);\n"), ["driver/A.cpp: Note without driver/Note.h"])
        self.assertEqual(self.complaints('#include "driver/Note.h"\nint x = sizeof(Note);\n'), [])

    def test_headers_of_headers_count(self):
        self.assertEqual(self.complaints('#include "driver/Way.h"\nstd::vector<Note> notes;\n'), [])

    def test_declarations_of_the_source_itself_count(self):
        self.assertEqual(self.complaints("class Note;\nNote* note;\n"), [])
        self.assertEqual(self.complaints("enum class Place { Note };\n"), [])

    def test_comments_and_texts_use_nothing(self):
        self.assertEqual(self.complaints('// A Note, a std::vector.\nconst char* text = "Note";\n'), [])


if __name__ == "__main__":
    unittest.main()
