#!/usr/bin/python3
"""Usage: run_clang_tidy.py ROOT BUILD_FOLDER [--tests]

Runs clang-tidy over every source of the rooms and benchmarks that the build in BUILD_FOLDER compiles; with --tests over those of
the tests as well, which takes as long again. A source that was clean is not
looked at again until it, a header of the project that it reaches, its command line or a .clang-tidy changes. Exit status 0
when there are no findings, 77 without clang-tidy.
"""

import concurrent.futures
import hashlib
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys

INCLUDE = re.compile(rb'^[ \t]*#[ \t]*include[ \t]*"([^"]+)"', re.MULTILINE)


def reached(root, source):
    """The source and every header of the project that it includes, at any depth."""
    seen, todo = set(), [source]
    while todo:
        path = todo.pop()
        if path in seen or not path.is_file():
            continue
        seen.add(path)
        todo.extend(root / name.decode() for name in INCLUDE.findall(path.read_bytes()))
    return sorted(seen)


def fingerprint(root, entry, source, version):
    digest = hashlib.sha256(version)
    digest.update((entry.get("command") or " ".join(entry["arguments"])).encode())
    for path in [root / ".clang-tidy", *sorted(root.glob("*/**/.clang-tidy")), *reached(root, source)]:
        digest.update(path.as_posix().encode() + b"\0" + path.read_bytes())
    return digest.hexdigest()


def main(root, build, with_tests):
    tidy = shutil.which("clang-tidy")
    if not tidy:
        print("clang-tidy is not installed")
        return 77
    version = subprocess.run([tidy, "--version"], capture_output=True, check=True).stdout
    stamps = build / "clang-tidy-clean"
    stamps.mkdir(exist_ok=True)
    todo, clean = [], 0
    for entry in json.loads((build / "compile_commands.json").read_text()):
        source = pathlib.Path(entry["directory"], entry["file"]).resolve()
        # Generated sources are the generator's.
        if not source.is_relative_to(root) or source.is_relative_to(build):
            continue
        if source.is_relative_to(root / "tests") and not with_tests:
            continue
        stamp = stamps / fingerprint(root, entry, source, version)
        if stamp.exists():
            clean += 1
        else:
            todo.append((source, stamp))
    if not todo and not clean:
        print(f"{build}/compile_commands.json names no source of the project")
        return 1

    def examine(item):
        source, stamp = item
        # The commands are GCC's: clang does not know every warning that they name.
        result = subprocess.run([tidy, "--quiet", "--extra-arg=-Wno-unknown-warning-option", "-p", str(build), str(source)],
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
        if result.returncode == 0:
            stamp.touch()
        return source, result

    findings = 0
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for source, result in pool.map(examine, todo):
            if result.returncode != 0:
                findings += 1
                print(f"--- {source.relative_to(root)}\n{result.stdout}", flush=True)
    print(f"{len(todo)} sources examined, {clean} known to be clean, {findings} with findings")
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main(pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2]).resolve(),
                  "--tests" in sys.argv[3:]))
