#!/usr/bin/python3
"""Usage: core_without_qt.py ROOT FOLDER

Configures the core in FOLDER as on a machine with neither Qt nor any other library, builds it and runs its tests. Exit status 0
when all of them pass and there were any.
"""

import os
import shutil
import subprocess
import sys


def main(root, folder):
    shutil.rmtree(folder, ignore_errors=True)
    jobs = str(os.cpu_count() or 1)

    def run(*command):
        print("+", *command, flush=True)
        return subprocess.run(command, check=False).returncode

    status = run("cmake", "-S", root, "-B", folder, "-G", "Ninja", "-Wno-dev", "-DCMAKE_BUILD_TYPE=RelWithDebInfo",
                 "-DVEXIL_CORE_ONLY=ON", "-DCMAKE_DISABLE_FIND_PACKAGE_Qt6=ON", "-DCMAKE_DISABLE_FIND_PACKAGE_PkgConfig=ON")
    status = status or run("cmake", "--build", folder, "--parallel", jobs)
    return status or run("ctest", "--test-dir", folder, "--parallel", jobs, "--output-on-failure", "--no-tests=error")


if __name__ == "__main__":
    sys.exit(1 if main(sys.argv[1], sys.argv[2]) else 0)
