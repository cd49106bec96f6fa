#!/usr/bin/python3
"""Usage: core_without_qt.py ROOT FOLDER LIKE

Configures the core in FOLDER as on a machine with neither Qt nor any other library, with the compiler and the flags of the build
in LIKE, and builds it. Where that build has all tests, the core's are built and run, too: they need GoogleTest and nothing else.
Exit status 0 when everything is built and passes.
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys


SKIPPED = 77
# What this build takes over.
VARIABLES = ("CMAKE_BUILD_TYPE", "CMAKE_CXX_COMPILER", "CMAKE_CXX_FLAGS", "CMAKE_CXX_FLAGS_RELEASE", "CMAKE_CXX_FLAGS_RELWITHDEBINFO", "CMAKE_EXE_LINKER_FLAGS",
             "VEXIL_COMPILE_TOGETHER", "VEXIL_PRECOMPILE", "VEXIL_SANITIZE", "VEXIL_TEST_FLAGS")


def settings(build):
    """The definitions of VARIABLES as that build has them, and whether it has all tests."""
    cache = dict(re.findall(r"^(\w+):\w+=(.*)$", (build / "CMakeCache.txt").read_text(), re.MULTILINE))
    with_tests = not cache.get("VEXIL_TEST_LABELS")
    return [*(f"-D{name}={cache[name]}" for name in VARIABLES if name in cache),
            f"-DVEXIL_BUILD_TESTS={'ON' if with_tests else 'OFF'}"], with_tests


def main(root, folder, like):
    shutil.rmtree(folder, ignore_errors=True)
    jobs = str(os.cpu_count() or 1)
    definitions, with_tests = settings(like)

    def run(*command):
        print("+", *command, flush=True)
        return subprocess.run(command, check=False).returncode

    status = run("cmake", "-S", root, "-B", folder, "-G", "Ninja", "-Wno-dev", "-DVEXIL_CORE_ONLY=ON",
                 "-DCMAKE_DISABLE_FIND_PACKAGE_Qt6=ON", "-DCMAKE_DISABLE_FIND_PACKAGE_PkgConfig=ON", *definitions)
    status = status or run("cmake", "--build", folder, "--parallel", jobs)
    if status or not with_tests:
        return status
    programs = sorted(path for path in (folder / "tests").rglob("*") if path.is_file() and os.access(path, os.X_OK)
                      and subprocess.run([path, "--gtest_list_tests"], capture_output=True, check=False).stdout)
    failed = [program for program in programs if run(program, "--gtest_brief=1") not in (0, SKIPPED)]
    for program in failed:
        print(f"{program} failed")
    return 1 if failed or not programs else 0


if __name__ == "__main__":
    sys.exit(1 if main(*(pathlib.Path(path).resolve() for path in sys.argv[1:4])) else 0)
