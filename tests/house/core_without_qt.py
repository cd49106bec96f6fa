#!/usr/bin/python3
"""Usage: core_without_qt.py ROOT FOLDER LIKE

Configures the core in FOLDER as on a machine with neither Qt nor any other library, with the compiler and the flags of the build
in LIKE, builds it and runs each of its test programs once. Exit status 0 when all of them pass and there were any.
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys


SKIPPED = 77
# What this build takes over.
VARIABLES = ("CMAKE_BUILD_TYPE", "CMAKE_CXX_COMPILER", "CMAKE_CXX_FLAGS", "CMAKE_CXX_FLAGS_RELWITHDEBINFO", "CMAKE_EXE_LINKER_FLAGS",
             "VEXIL_PRECOMPILE", "VEXIL_SANITIZE", "VEXIL_TEST_FLAGS")


def settings(build):
    """The definitions of VARIABLES as that build has them."""
    cache = re.findall(r"^(\w+):\w+=(.*)$", (build / "CMakeCache.txt").read_text(), re.MULTILINE)
    return [f"-D{name}={value}" for name, value in cache if name in VARIABLES]


def main(root, folder, like):
    shutil.rmtree(folder, ignore_errors=True)
    jobs = str(os.cpu_count() or 1)

    def run(*command):
        print("+", *command, flush=True)
        return subprocess.run(command, check=False).returncode

    status = run("cmake", "-S", root, "-B", folder, "-G", "Ninja", "-Wno-dev", "-DVEXIL_CORE_ONLY=ON",
                 "-DCMAKE_DISABLE_FIND_PACKAGE_Qt6=ON", "-DCMAKE_DISABLE_FIND_PACKAGE_PkgConfig=ON", *settings(like))
    status = status or run("cmake", "--build", folder, "--parallel", jobs)
    if status:
        return status
    programs = sorted(path for path in (folder / "tests").rglob("*") if path.is_file() and os.access(path, os.X_OK)
                      and subprocess.run([path, "--gtest_list_tests"], capture_output=True, check=False).stdout)
    failed = [program for program in programs if run(program, "--gtest_brief=1") not in (0, SKIPPED)]
    for program in failed:
        print(f"{program} failed")
    return 1 if failed or not programs else 0


if __name__ == "__main__":
    sys.exit(1 if main(*(pathlib.Path(path).resolve() for path in sys.argv[1:4])) else 0)
