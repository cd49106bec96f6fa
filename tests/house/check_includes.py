#!/usr/bin/python3
"""Usage: check_includes.py ROOT

Reads every #include of the sources under ROOT and tells which of them run against the arrows of the house. The rules are
the tables below and nothing else. Exit status 0 when there is nothing to tell.
"""

import pathlib
import re
import sys

# What a room may include besides itself. A room is a folder, or one file that stands for itself; the longest match counts.
CORE = {"shared/System", "config", "driver", "panel"}
LINUX = {"platform/linux", "platform/linux/preferences", "platform/linux/control", "platform/linux/desktop"}
BACKENDS = {"shared/System", "config", "service/routes", "service/engine"}
ALLOWED = {
    "shared/System": set(),
    # The identity of the program opens the preferences store: a target of its own above config.
    "shared/System/svModule.h": {"shared/System", "config"},
    "shared/System/svModule.cpp": {"shared/System", "shared/System/svModule.h", "config"},
    "config": {"shared/System"},
    "driver": {"shared/System", "config"},
    "panel": {"shared/System", "shared/System/svModule.h", "config", "driver"},
    "platform/linux": CORE,
    "platform/linux/preferences": CORE | {"platform/linux"},
    "platform/linux/control": CORE | {"platform/linux"},
    "platform/linux/desktop": CORE | {"platform/linux"},
    # Implements the seams of MIDI between computers.
    "platform/linux/network": CORE | {"platform/linux", "platform/linux/preferences", "service/network"},
    # Shows what the client knows of the service; only main.cpp asks it.
    "platform/qt": CORE | {"client"},
    "platform/qt/main.cpp": CORE | {"platform/qt", "client"} | LINUX,
    "service/routes": {"shared/System", "config"},
    "service/engine": {"shared/System", "config", "service/routes"},
    # The link's protocol: no socket and no clock. OpenSSL's headers are for the one file that seals.
    "service/network": BACKENDS,
    "service/network/LinkSealing.cpp": BACKENDS | {"service/network"},
    # Texts of addresses, by the C library's own functions.
    "service/network/NetworkAddress.cpp": {"service/network"},
    # The bytes and the sessions of RTP-MIDI, beside the link's.
    "service/network/rtp": BACKENDS | {"service/network"},
    "service/backends": BACKENDS,
    # The choice makes whichever MIDI system is there.
    "service/backends/BackendChoice.cpp": BACKENDS | {"service/backends", "service/backends/alsa",
                                                      "service/backends/jack", "service/backends/none"},
    "service/backends/alsa": BACKENDS | {"service/backends"},
    "service/backends/jack": BACKENDS | {"service/backends"},
    "service/backends/none": BACKENDS | {"service/backends"},
    "service/control": BACKENDS | LINUX | {"driver", "service/backends"},
    "service": BACKENDS | LINUX | {"platform/linux/network", "driver", "service/control", "service/network",
                                   "service/network/rtp", "service/backends", "service/backends/alsa", "service/backends/jack",
                                   "service/backends/none"},
    # What a program knows of the service that runs: for the command line and the window.
    "client": {"shared/System", "config", "driver"} | LINUX,
    "ctl": {"shared/System", "config", "driver", "client"} | LINUX,
}
# Tests and benchmarks may include the whole core and what belongs to tests. Those that may know a platform or the service:
USERS = {"tests", "bench"}
PLATFORM_USERS = {
    "platform/linux": {"tests/platform_linux", "tests/doubles", "tests/fuzz", "tests/service", "tests/client", "tests/ctl", "bench"},
    "platform/qt": {"tests/widgets", "tests/scenarios", "bench"},
    "service": {"tests/service", "tests/doubles", "tests/fuzz", "bench"},
    "client": {"tests/client", "tests/ctl", "tests/widgets", "tests/fuzz", "bench"},
    "ctl": {"tests/ctl", "tests/fuzz"},
}

# Headers from outside, by what they belong to, and the rooms that may include them.
OUTSIDE = [
    ("Qt", re.compile(r"Q[A-Za-z0-9/_]+|q[a-z0-9_]+\.h|private/q.*"),
     {"platform/qt", "platform/qt/main.cpp", "tests/widgets", "tests/scenarios", "bench"}),
    ("sockets", re.compile(r"sys/(socket|un)\.h|netinet/.*|arpa/.*|net/.*|netdb\.h"),
     LINUX | {"platform/linux/network", "service", "service/control", "service/network/NetworkAddress.cpp", "client", "ctl",
              "tests", "bench"}),
    ("systemd and D-Bus", re.compile(r"(systemd|dbus)/.*"),
     {"platform/linux/desktop", "platform/linux/network", "service", "service/control", "tests/platform_linux", "tests/service"}),
    ("ALSA", re.compile(r"alsa/.*"), {"service/backends/alsa", "tests/service", "bench"}),
    ("JACK", re.compile(r"jack/.*"), {"service/backends/jack", "tests/service", "tests/system", "bench"}),
    ("OpenSSL", re.compile(r"openssl/.*"), {"service/network/LinkSealing.cpp"}),
    ("property lists", re.compile(r"plist/.*"), {"platform/linux/preferences", "tests/platform_linux", "tests/fuzz"}),
    ("X11", re.compile(r"(xcb|X11)/.*"), {"platform/qt", "bench"}),
    ("GoogleTest", re.compile(r"g(test|mock)/.*"), {"tests"}),
]
# The core needs the standard library and libc alone.
LIBC = {
    "dirent.h", "fcntl.h", "limits.h", "pthread.h", "signal.h", "strings.h", "sys/file.h", "sys/stat.h", "sys/types.h",
    "sys/wait.h", "time.h", "unistd.h",
}

INCLUDE = re.compile(r'^[ \t]*#[ \t]*(?:include|import)[ \t]*(?:"([^"]+)"|<([^>]+)>)', re.MULTILINE)
SOURCES = {".h", ".hpp", ".cpp", ".cc", ".cxx", ".c"}
TREES = ("shared", "config", "driver", "panel", "platform", "tests", "bench", "service", "client", "ctl")


def room_of(path):
    """The longest entry of ALLOWED that holds `path`, or its folder below tests/ and bench/, or None."""
    matches = [room for room in ALLOWED if path == room or path.startswith(room + "/")]
    if matches:
        return max(matches, key=len)
    parts = path.split("/")
    if parts[0] == "tests" and len(parts) > 2:
        return "/".join(parts[:2])
    return parts[0] if parts[0] in USERS else None


def is_user(room):
    return room.split("/")[0] in USERS


def may_include(room, target, target_path):
    if room == target:
        return True
    if is_user(room):
        for tree, users in PLATFORM_USERS.items():
            if target == tree or target.startswith(tree + "/"):
                return room in users
        return target in ALLOWED and target != "platform/qt/main.cpp" or target_path.startswith("tests/")
    return target in ALLOWED[room]


def outside_complaint(room, header):
    for name, pattern, rooms in OUTSIDE:
        if pattern.fullmatch(header):
            if room in rooms or is_user(room) and room.split("/")[0] in rooms:
                return None
            return f"{room} must not include headers of {name}"
    is_core = any(room == core or room.startswith(core + "/") for core in CORE)
    is_standard = re.fullmatch(r"[a-z0-9_]+", header) or header in LIBC
    if is_core and not is_standard:
        return f"{room} builds with the standard library and libc alone"
    return None


def check_file(root, path):
    """The complaints about one source file, as texts."""
    room = room_of(path)
    if room is None:
        yield f"{path}: is in no room that the house knows"
        return
    text = (root / path).read_text(encoding="utf-8", errors="replace")
    for match in INCLUDE.finditer(text):
        line = text.count("\n", 0, match.start()) + 1
        own, outside = match.groups()
        if outside is not None:
            complaint = outside_complaint(room, outside)
            if complaint:
                yield f"{path}:{line}: {complaint}: <{outside}>"
            continue
        if own.endswith(".moc"):
            continue
        if not (root / own).is_file():
            yield f"{path}:{line}: \"{own}\" is no file of the project, seen from its root"
            continue
        target = room_of(own)
        if target is None or not may_include(room, target, own):
            yield f"{path}:{line}: {room} must not include {target}: \"{own}\""


def sources(root):
    for tree in TREES:
        for path in sorted((root / tree).rglob("*")):
            if path.suffix in SOURCES and path.is_file():
                yield path.relative_to(root).as_posix()


def check(root):
    """Every complaint, and how many files were read."""
    root = pathlib.Path(root)
    complaints, count = [], 0
    for path in sources(root):
        count += 1
        complaints.extend(check_file(root, path))
    return complaints, count


def main():
    complaints, count = check(sys.argv[1])
    for complaint in complaints:
        print(complaint)
    print(f"{count} files read, {len(complaints)} includes against the arrows")
    return 1 if complaints or count == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
