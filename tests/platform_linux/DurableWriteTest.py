"""A written preference lasts: the order of the system calls, and what is left after a crash or a fault at each of them.

DurableWriteTest.py WRITER: WRITER is the program PreferenceWriter.
"""
import collections
import os
import plistlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

WRITER = sys.argv.pop()
# LeakSanitizer cannot run below strace.
ENVIRONMENT = dict(os.environ, ASAN_OPTIONS="detect_leaks=0")
CHANGING = ("openat", "write", "fchmod", "fchown", "fdatasync", "linkat", "renameat", "renameat2", "fsync", "unlinkat",
            "mkdir", "flock", "close")
LINE = re.compile(r"^(?:\d+ +)?(\w+)\((.*)\) += +(-?\d+)")
Call = collections.namedtuple("Call", "name arguments result")


def can_trace():
    return shutil.which("strace") and subprocess.run(
        ["strace", "-o", "/dev/null", "true"], stderr=subprocess.DEVNULL, check=False).returncode == 0


class DurableWrite(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory(prefix="vexil-durable-")
        self.addCleanup(temporary.cleanup)
        self.root = temporary.name
        self.folder = os.path.join(self.root, "preferences")
        self.file = os.path.join(self.folder, "domain.host.plist")

    def run_writer(self, text, *strace, variant=None, key="key"):
        command = list(strace) + [WRITER, self.folder, key, text] + ([variant] if variant else [])
        return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, env=ENVIRONMENT,
                              timeout=60, check=False)

    def store(self, text):
        self.assertEqual(self.run_writer(text).stdout, "true\n")

    def trace(self, text, variant=None):
        output = os.path.join(self.root, "trace")
        result = self.run_writer(text, "strace", "-y", "-s", "4096", "-o", output, variant=variant)
        self.assertEqual(result.stdout, "true\n", result.stderr)
        with open(output, encoding="utf-8", errors="replace") as lines:
            return [Call(*match.groups()) for match in map(LINE.match, lines) if match]

    def content(self):
        try:
            with open(self.file, "rb") as file:
                return file.read()
        except FileNotFoundError:
            return None

    def order_problem(self, calls):
        """What is wrong with the order of the calls of one write, or None."""
        def places(name, text=""):
            return [i for i, c in enumerate(calls) if c.name == name and text in c.arguments and c.result != "-1"]
        new = self.file + ".new>"
        renames = places("renameat", '"domain.host.plist.new"')
        syncs = places("fdatasync", new)
        writes = places("write", new)
        opened = [i for i in places("openat", '"domain.host.plist.new"') if "O_EXCL" in calls[i].arguments]
        folder_syncs = places("fsync", "<" + self.folder + ">")
        answer = places("write", '"true\\n"')
        locks = places("flock", "LOCK_EX")
        if not (len(renames) == len(answer) == len(opened) == len(locks) == 1) or not writes:
            return "not one write: " + repr([locks, opened, writes, renames, answer])
        if len(places("fdatasync")) != 1 or not syncs:
            return "not one fdatasync of the new file"
        if not locks[0] < opened[0] < writes[0] <= writes[-1] < syncs[0] < renames[0]:
            return "the new file has its name before it is on the disk"
        if not any(renames[0] < i < answer[0] for i in folder_syncs):
            return "the name is not on the disk when success is reported"
        return None

    def test_order_of_a_first_write(self):
        self.assertIsNone(self.order_problem(self.trace("one")))

    def test_order_of_a_replacing_write(self):
        self.store("one")
        self.assertIsNone(self.order_problem(self.trace("two")))

    def test_made_folders_are_permanent_before_success(self):
        self.folder = os.path.join(self.root, "a", "b")
        self.file = os.path.join(self.folder, "domain.host.plist")
        calls = self.trace("one")
        for made, parent in ((self.root + "/a", self.root), (self.folder, self.root + "/a")):
            made_at = next(i for i, c in enumerate(calls) if c.name == "mkdir" and f'"{made}"' in c.arguments
                           and c.result == "0")
            self.assertTrue(any(c.name == "fsync" and f"<{parent}>" in c.arguments for c in calls[made_at:]), parent)

    def test_each_missing_step_is_noticed(self):
        self.store("one")
        for number, variant in enumerate(("without-fdatasync", "rename-before-fdatasync", "without-folder-fsync")):
            with self.subTest(variant):
                self.assertIsNotNone(self.order_problem(self.trace(f"two {number}", variant)))

    def test_an_unchanged_value_is_only_looked_at(self):
        self.store("one")
        calls = self.trace("one")
        touching = [c for c in calls if self.folder in c.arguments and c.name in CHANGING and c.name != "close"]
        self.assertEqual([c.name for c in touching], ["openat"], touching)
        self.assertIn("O_RDONLY", touching[0].arguments)

    def test_killed_at_any_call_the_file_is_old_or_new(self):
        for existing in (True, False):
            shutil.rmtree(self.folder, ignore_errors=True)
            if existing:
                self.store("one")
            counts = collections.Counter(call.name for call in self.trace("two"))
            new = self.content()
            points = [(name, number) for name in CHANGING for number in range(1, counts[name] + 1)]
            self.assertGreater(len(points), 15)
            killed, outcomes = 0, set()
            for name, number in points:
                with self.subTest(existing=existing, call=name, number=number):
                    shutil.rmtree(self.folder, ignore_errors=True)
                    if existing:
                        self.store("one")
                    old = self.content()
                    result = self.run_writer("two", "strace", "-o", "/dev/null", "-e",
                                             f"inject={name}:signal=KILL:when={number}")
                    killed += result.returncode != 0
                    self.assertIn(self.content(), (old, new))
                    outcomes.add(self.content() == new)
                    if result.stdout == "true\n":
                        self.assertEqual(self.content(), new)
                    self.store("three")
                    with open(self.file, "rb") as file:
                        self.assertEqual(plistlib.load(file), {"key": "three"})
                    self.assertEqual(sorted(os.listdir(self.folder)),
                                     ["domain.host.plist", "domain.host.plist.lock"])
            self.assertEqual(killed, len(points))
            self.assertEqual(outcomes, {False, True})

    def test_a_failing_call_is_reported_and_keeps_the_old_file(self):
        self.store("one")
        old = self.content()
        # The first fchmod and flock are of the log.
        for fault in ("fdatasync:error=EIO:when=1", "fsync:error=EIO:when=1", "renameat:error=EIO:when=1",
                      "linkat:error=ENOSPC:when=1", "fchmod:error=EPERM:when=2", "flock:error=ENOLCK:when=2"):
            with self.subTest(fault):
                result = self.run_writer("two", "strace", "-o", "/dev/null", "-e", f"inject={fault}")
                self.assertEqual(result.stdout, "false\n")
                self.assertEqual(result.stderr.count("Cannot write preferences: "), 1, result.stderr)
                self.assertEqual(result.stderr.count("\n"), 3, "header, line, end")
                self.assertEqual(self.content(), old)
                self.assertEqual(sorted(os.listdir(self.folder)), ["domain.host.plist", "domain.host.plist.lock"])

    def test_a_passing_failure_to_read_sets_nothing_aside(self):
        self.store("one")
        for name, error in (("openat", "EMFILE"), ("openat", "ENFILE"), ("openat", "ENOMEM"), ("openat", "EIO"),
                            ("read", "EIO")):
            with self.subTest(name=name, error=error):
                result = self.run_writer("", "strace", "-o", "/dev/null", "-P", self.file, "-e",
                                         f"inject={name}:error={error}", variant="read")
                self.assertEqual(result.stdout.split(" ")[0], "false", result.stdout)
                self.assertEqual(sorted(os.listdir(self.folder)), ["domain.host.plist", "domain.host.plist.lock"])
                self.assertEqual(self.run_writer("", variant="read").stdout, "true one\n")

    def test_a_full_disk_keeps_the_old_file(self):
        script = 'mount -t tmpfs -o size=64k none "$1" && shift && exec "$@"'
        inner = [sys.executable, "-c", FULL_DISK, WRITER, self.root]
        result = subprocess.run(["unshare", "-m", "sh", "-c", script, "sh", self.root] + inner, stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, text=True, env=ENVIRONMENT, timeout=60, check=False)
        if "denied" in result.stdout or "not permitted" in result.stdout:
            self.skipTest("no mount of its own")
        self.assertEqual(result.returncode, 0, result.stdout)


FULL_DISK = """
import os, subprocess, sys
writer, root = sys.argv[1:]
folder = root + '/preferences'
def run(text):
    return subprocess.run([writer, folder, 'key', text], stdout=subprocess.PIPE, text=True).stdout
assert run('one') == 'true\\n'
names = sorted(os.listdir(folder))
old = open(folder + '/domain.host.plist', 'rb').read()
filler = open(root + '/filler', 'wb', buffering=0)
try:
    while True:
        filler.write(bytes(4096))
except OSError:
    pass
assert run('two' * 9999) == 'false\\n'
assert open(folder + '/domain.host.plist', 'rb').read() == old
assert sorted(os.listdir(folder)) == names
os.remove(root + '/filler')
filler.close()
assert run('three') == 'true\\n'
"""

if __name__ == "__main__":
    if not can_trace():
        print("strace is missing or may not trace")
        sys.exit(77)
    unittest.main()
