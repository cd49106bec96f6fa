"""The worked examples of docs/ are true: documents_test.py DOCS VEXIL3CTL [VEXIL3D]."""
import pathlib
import plistlib
import re
import sys
import unittest

import ctl_surroundings

DOCS = pathlib.Path(sys.argv[1])
PROGRAMS = [str(pathlib.Path(path).resolve()) for path in sys.argv[2:]]


def example(document, kind):
    """The text of the one block of that kind."""
    blocks = re.findall(rf"^```{kind}\n(.*?)^```$", (DOCS / document).read_text(encoding="utf-8"),
                        re.MULTILINE | re.DOTALL)
    if len(blocks) != 1:
        raise AssertionError(f"{document} has {len(blocks)} examples of the kind {kind}")
    return blocks[0]


def conversation():
    """(connection, direction, tokens) of each packet in the example."""
    for line in example("control-channel.md", "channel").splitlines():
        packet = line.split("#")[0].split()
        if packet:
            yield packet[0][0], packet[0][1], packet[1:]


def pattern(tokens):
    """What a packet that comes back has to match."""
    parts = {"..": b".", "*": b".*"}
    return re.compile(b"".join(parts.get(token) or re.escape(bytes.fromhex(token)) for token in tokens), re.DOTALL)


class Documents(unittest.TestCase):
    def setUp(self):
        self.place = ctl_surroundings.Surroundings(self, *PROGRAMS)
        self.file = self.place.root / "tour.vexil3"

    def run_ctl(self, *arguments):
        done = self.place.ctl(*arguments)
        self.assertEqual((done.returncode, done.stderr), (0, ""))

    def stored_file(self):
        """Where the configuration is stored, which the program itself knows best."""
        self.file.write_text("[Options]\nUseWireless=0\n", encoding="ascii")
        self.run_ctl("load", self.file)
        return next(self.place.preferences.glob("com.sonavert.Vexil3Driver.*.plist"))

    def test_the_conversation_is_what_the_service_says(self):
        if len(PROGRAMS) < 2:
            self.skipTest("there is no service in this build")
        self.place.start_service()
        links = {}
        count = 0
        for name, direction, tokens in conversation():
            if name not in links:
                links[name] = self.place.connect()
                self.addCleanup(links[name].close)
            if direction == ">":
                links[name].send(bytes.fromhex("".join(tokens)))
            else:
                reply = links[name].recv(1 << 17)
                self.assertRegex(reply, re.compile(rb"\A" + pattern(tokens).pattern + rb"\Z", re.DOTALL))
            count += 1
        self.assertGreater(count, 20)
        # Nothing but the answers came back.
        for link in links.values():
            link.setblocking(False)
            with self.assertRaises(BlockingIOError):
                link.recv(1)

    def test_the_settings_file_is_read_and_edited_as_written(self):
        self.file.write_text(example("settings-file.md", "settings before"), encoding="utf-8")
        self.run_ctl("load", self.file)
        self.run_ctl("save", self.file)
        saved = self.file.read_text(encoding="utf-8")
        after = example("settings-file.md", "settings after")
        self.assertEqual(saved[:len(after)], after)
        self.assertTrue(saved.endswith("[Port_63]\nFlags=192\nSrcPort=63\nDstPort=63\n"))

    def test_the_property_list_means_what_the_settings_file_means(self):
        stored = self.stored_file()
        stored.write_text(example("preferences.md", "plist"), encoding="utf-8")
        self.file.write_text(example("settings-file.md", "settings before"), encoding="utf-8")
        self.run_ctl("save", self.file)
        after = example("settings-file.md", "settings after")
        self.assertEqual(self.file.read_text(encoding="utf-8")[:len(after)], after)

    def test_the_property_list_is_what_is_stored_but_for_the_defaults(self):
        stored = self.stored_file()
        defaults = plistlib.loads(stored.read_bytes())
        self.file.write_text(example("settings-file.md", "settings before"), encoding="utf-8")
        self.run_ctl("load", self.file)
        found = plistlib.loads(stored.read_bytes())
        differing = {key: value for key, value in found.items() if value != defaults[key]}
        expected = plistlib.loads(example("preferences.md", "plist").encode())
        # The output of the first port is on by default.
        self.assertEqual(expected.pop("OutputPorts"), found["OutputPorts"])
        self.assertEqual(differing, expected)
        for entry in re.findall(r"\t<key>.*?(?=\t<key>|</dict>)", example("preferences.md", "plist"), re.DOTALL):
            self.assertIn(entry, stored.read_text(encoding="utf-8"))

    def test_every_key_of_the_tables_is_stored_and_no_other(self):
        keys = set(plistlib.loads(self.stored_file().read_bytes()))
        table = (DOCS / "preferences.md").read_text(encoding="utf-8")
        listed = set(re.findall(r"^\| `([^`]+)` \| (?:data|integer|string)", table, re.MULTILINE))
        self.assertEqual({re.sub(r"^\d\d ", "NN ", key) for key in keys}, listed - {"Cache"})

    def test_every_key_of_the_settings_table_is_saved_and_no_other(self):
        names = "SrcName=a\nDstName=b\nInpName=c\nOutName=d\n"
        self.file.write_text(f"[Port_00]\nProperties=Input\n{names}", encoding="ascii")
        self.run_ctl("load", self.file)
        self.run_ctl("save", self.file)
        saved = set(re.findall(r"^(\w+)=", self.file.read_text(encoding="utf-8"), re.MULTILINE))
        text = (DOCS / "settings-file.md").read_text(encoding="utf-8")
        self.assertEqual(saved, set(re.findall(r"^\| .*?\| `(\w+)` \|", text, re.MULTILINE)))

    def test_links_lead_somewhere(self):
        for document in DOCS.glob("*.md"):
            text = document.read_text(encoding="utf-8")
            titles = re.findall(r"^#+ (.*)$", text, re.MULTILINE)
            places = {re.sub(r"[^a-z0-9 -]", "", title.lower()).replace(" ", "-") for title in titles}
            for target in re.findall(r"\]\(([^)]+)\)", text):
                if target.startswith("#"):
                    self.assertIn(target[1:], places, document)
                elif "://" not in target:
                    self.assertTrue((DOCS / target).exists(), f"{document}: {target}")
            for source in re.findall(r"`((?:config|driver|platform)/[\w/.]+)`", text):
                self.assertTrue((DOCS.parent / source).exists(), f"{document}: {source}")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
