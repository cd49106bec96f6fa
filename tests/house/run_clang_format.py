#!/usr/bin/python3
"""Usage: run_clang_format.py ROOT

Every source of the project has the form that .clang-format gives it. Exit status 0 when all have, 77 without clang-format.
"""

import pathlib
import shutil
import subprocess
import sys


def main(root):
    if not shutil.which("clang-format"):
        print("clang-format is not installed")
        return 77
    folders = [folder for folder in root.iterdir() if folder.is_dir() and folder.name != "build" and folder.name[0] != "."]
    sources = sorted(path for folder in folders for pattern in ("*.cpp", "*.h") for path in folder.rglob(pattern))
    if not sources:
        print(f"no sources below {root}")
        return 1
    return 1 if subprocess.run(["clang-format", "--dry-run", "-Werror", *sources], check=False).returncode else 0


if __name__ == "__main__":
    sys.exit(main(pathlib.Path(sys.argv[1]).resolve()))
