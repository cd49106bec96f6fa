#!/usr/bin/env python3
"""Usage: run_cppcheck.py ROOT BUILD_FOLDER

Runs cppcheck over every room, the tests and the benchmarks. Exit status 0 when there are no findings, 77 without cppcheck.
"""

import os
import pathlib
import shutil
import subprocess
import sys

TREES = ["shared", "config", "driver", "panel", "platform", "tests", "bench"]


def main(root, build):
    if not shutil.which("cppcheck"):
        print("cppcheck is not installed")
        return 77
    cache = build / "cppcheck"
    cache.mkdir(exist_ok=True)
    return subprocess.run(
        ["cppcheck", "--quiet", "--std=c++20", "--language=c++", "--enable=warning,performance,portability",
         "--inline-suppr", "--library=googletest", "--library=qt", "--suppress=missingIncludeSystem",
         f"--cppcheck-build-dir={cache}", "--error-exitcode=1", f"-I{root}", f"-j{os.cpu_count() or 1}",
         *(str(root / tree) for tree in TREES if any((root / tree).rglob("*.cpp")))], check=False).returncode


if __name__ == "__main__":
    sys.exit(main(pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2]).resolve()))
