#!/usr/bin/python3
"""Usage: alsa_machine.py --cache FOLDER [--seconds N] [--memory MEGABYTES] -- PROGRAM [ARGUMENT...]

Runs a program of this computer in a small virtual machine that has an ALSA sequencer, prints what it prints and ends with
its exit status. The machine sees this computer's files and cannot change them. Needs no rights, no sound hardware and
no sound modules. Exit status 77, with the reason, where there can be no machine; 124 when the time is over.
"""

import argparse
import ctypes
import os
import pathlib
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time

import machine_image

SKIPPED = 77
TIME_OVER = 124
BROKEN = 125
BOOT_SECONDS = 120

_PR_SET_PDEATHSIG = 1
_libc = ctypes.CDLL(None)


class Broken(Exception):
    """The machine did not come up, or went without saying how the program ended."""


class TimeOver(Exception):
    pass


def _command_archive(folder, command, working_folder, environment):
    """What is laid on top of the initial file system: /command, a shell script."""
    root = folder / "top"
    root.mkdir()
    lines = ["export HOME=/run/home PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin LANG=C.UTF-8"]
    lines += [f"export {name}={shlex.quote(value)}" for name, value in environment.items()]
    lines += [f"cd {shlex.quote(str(working_folder))}", "exec " + shlex.join(command)]
    (root / "command").write_text("\n".join(lines) + "\n", encoding="utf-8")
    return machine_image.archive(root)


def _qemu(kernel, initramfs, folder, memory):
    return [
        "qemu-system-x86_64", "-accel", "tcg,thread=multi", "-cpu", "max", "-smp", "2", "-m", str(memory), "-nodefaults",
        "-no-reboot", "-display", "none", "-kernel", str(kernel), "-initrd", str(initramfs),
        "-append", "console=ttyS0 panic=-1 quiet mitigations=off",
        "-serial", f"file:{folder / 'console'}",
        "-chardev", "stdio,id=output,signal=off", "-serial", "chardev:output",
        "-serial", f"file:{folder / 'state'}",
        "-virtfs", "local,path=/,mount_tag=host,security_model=none,readonly=on,multidevs=remap",
    ]


def _die_with_parent():
    _libc.prctl(_PR_SET_PDEATHSIG, signal.SIGKILL, 0, 0, 0)


def _state(folder):
    path = folder / "state"
    return path.read_text(encoding="utf-8", errors="replace").split("\n") if path.exists() else []


def _wait(machine, folder, seconds):
    """Waits until the machine has ended; raises what went wrong."""
    begin = time.monotonic()
    ready_at = None
    while machine.poll() is None:
        now = time.monotonic()
        if ready_at is None and "ready" in _state(folder):
            ready_at = now
        if ready_at is None and now - begin > BOOT_SECONDS:
            raise Broken(f"the machine did not boot within {BOOT_SECONDS} s")
        if ready_at is not None and now - ready_at > seconds:
            raise TimeOver(f"the program did not end within {seconds} s")
        time.sleep(0.05)


def run(cache, command, *, seconds=120, memory=768, output=None, working_folder="/", environment=None):
    """Runs `command`, a list of texts, in a machine. What it prints goes to the binary file `output` (default: standard
    output) as it comes. Returns its exit status. Raises machine_image.Unavailable, Broken and TimeOver."""
    kernel, base = machine_image.prepare(cache)
    output = output or sys.stdout.buffer
    with tempfile.TemporaryDirectory(prefix="vexil3-machine-") as name:
        folder = pathlib.Path(name)
        initramfs = folder / "initramfs"
        initramfs.write_bytes(base.read_bytes() + _command_archive(folder, command, working_folder, environment or {}))
        with subprocess.Popen(_qemu(kernel, initramfs, folder, memory), stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, preexec_fn=_die_with_parent) as machine:
            copier = threading.Thread(target=_copy, args=(machine.stdout, output))
            copier.start()
            try:
                _wait(machine, folder, seconds)
            finally:
                machine.kill()
                copier.join()
        for line in _state(folder):
            if line.startswith("status "):
                return int(line.split()[1])
        console = (folder / "console").read_text(encoding="utf-8", errors="replace") if (folder / "console").exists() else ""
        raise Broken("the machine ended without a result; its last lines:\n" + "\n".join(console.splitlines()[-30:]))


def _copy(source, target):
    while chunk := source.read1(65536):
        target.write(chunk)
        target.flush()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--cache", required=True)
    parser.add_argument("--seconds", type=float, default=120)
    parser.add_argument("--memory", type=int, default=768)
    parser.add_argument("--set", action="append", default=[], metavar="NAME=VALUE", help="an environment variable")
    parser.add_argument("command", nargs="+")
    arguments = parser.parse_args()
    program = shutil.which(arguments.command[0]) or arguments.command[0]
    try:
        return run(arguments.cache, [program, *arguments.command[1:]], seconds=arguments.seconds, memory=arguments.memory,
                   working_folder=os.getcwd(), environment=dict(text.split("=", 1) for text in arguments.set))
    except machine_image.Unavailable as reason:
        print(f"skipped: {reason}")
        return SKIPPED
    except TimeOver as reason:
        print(reason)
        return TIME_OVER
    except Broken as reason:
        print(reason)
        return BROKEN


if __name__ == "__main__":
    sys.exit(main())
