"""What this program writes, Python's plistlib reads; what plistlib writes, XML or binary, this program reads and keeps.

PlistExchangeTest.py WRITER: WRITER is the program PreferenceWriter.
"""
import datetime
import os
import plistlib
import subprocess
import sys
import tempfile
import unittest

WRITER = sys.argv.pop()

UNKNOWN = {
    "date": datetime.datetime(2024, 2, 29, 12, 30, 15),
    "old date": datetime.datetime(1601, 1, 1),
    "late date": datetime.datetime(9999, 12, 31, 23, 59, 59),
    "real": 0.1,
    "tiny": 5e-324,
    "array": [1, "two", [3.5, {"four": b"\x00\xff"}]],
    "big": 2 ** 64 - 1,
    "least": -2 ** 63,
    "negative": -1,
    "data": bytes(range(256)),
    "true": True,
    "text": "B\u00fchne \U0001F3B9 <&>\"' \uf741\ufffd",
    "blanks": "  a\tb\nc  ",
    "empty": "",
    "<k\u00e9y>": {"": "under the empty key", "nested": {"date": datetime.datetime(1970, 1, 1)}},
}


def typed(value):
    """The value with its types, so that 1, 1.0 and True differ."""
    if isinstance(value, dict):
        return {key: typed(inner) for key, inner in value.items()}
    if isinstance(value, list):
        return [typed(inner) for inner in value]
    return type(value), value


class PlistExchange(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory(prefix="vexil-exchange-")
        self.addCleanup(temporary.cleanup)
        self.folder = temporary.name
        self.file = os.path.join(self.folder, "domain.host.plist")

    def run_writer(self, key, text, *variant):
        return subprocess.run([WRITER, self.folder, key, text, *variant], stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL, timeout=60, check=True).stdout

    def store(self, key, text):
        self.assertEqual(self.run_writer(key, text), b"true\n")

    def load(self):
        with open(self.file, "rb") as file:
            return plistlib.load(file, fmt=plistlib.FMT_XML)

    def put(self, value, form):
        with open(self.file, "wb") as file:
            plistlib.dump(value, file, fmt=form)

    def test_plistlib_reads_what_is_written(self):
        self.store("name", "B\u00fchne <&> \U0001F3B9")
        self.store("second <&>", "")
        self.assertEqual(self.load(), {"name": "B\u00fchne <&> \U0001F3B9", "second <&>": ""})

    def test_plistlib_reads_bytes_that_are_not_text_in_their_stored_form(self):
        self.store(b"key\xff".decode("utf-8", "surrogateescape"), b"a\xfcb\rc\x01".decode("utf-8", "surrogateescape"))
        self.assertEqual(self.load(), {"key\uf7ff": "a\uf7fcb\uf70dc\uf701"})

    def test_a_text_of_plistlib_is_read(self):
        for form in (plistlib.FMT_XML, plistlib.FMT_BINARY):
            with self.subTest(form):
                self.put({"name": "B\u00fchne \U0001F3B9"}, form)
                self.assertEqual(self.run_writer("name", "", "read").decode(), "true B\u00fchne \U0001F3B9\n")

    def test_everything_of_another_program_survives_a_write(self):
        for form in (plistlib.FMT_XML, plistlib.FMT_BINARY):
            for aware in (UNKNOWN, {**UNKNOWN, "inside": dict(UNKNOWN)}):
                with self.subTest(form):
                    self.put(aware, form)
                    self.store("mine", "1")
                    self.store("mine", "2")
                    self.assertEqual(typed(self.load()), typed({**aware, "mine": "2"}))

    def test_uids_and_nulls_of_a_binary_list_survive_in_their_place(self):
        self.put({"uid": plistlib.UID(5), "null": None, "list": [None, plistlib.UID(1)]}, plistlib.FMT_BINARY)
        self.store("mine", "1")
        self.store("mine", "2")
        null = {"vexil$null": True}
        self.assertEqual(self.load(), {"uid": {"CF$UID": 5}, "null": null, "list": [null, {"CF$UID": 1}], "mine": "2"})

    def test_control_characters_of_a_binary_list_are_read_back(self):
        self.put({"name": "a\x01b\rc"}, plistlib.FMT_BINARY)
        self.store("mine", "1")
        self.assertEqual(self.run_writer("name", "", "read"), b"true a\x01b\rc\n")


if __name__ == "__main__":
    unittest.main()
