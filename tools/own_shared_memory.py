"""A folder /dev/shm of this process's own, for it and the programs that it starts. JACK keeps there what all JACK programs of a
user share, and above all the properties of ports, in one database for all servers: a program that is killed while it has a lock of
that database leaves the lock behind, and from then on every server and every program of this user waits for it without end. So
what a test kills must not meet what others use.
"""

import ctypes
import os
import pathlib

_CLONE_NEWNS, _CLONE_NEWUSER = 0x00020000, 0x10000000
_MS_NOSUID, _MS_NODEV, _MS_REC, _MS_PRIVATE = 2, 4, 0x4000, 1 << 18
# Of JACK's properties of ports. What each program takes there and one that is killed does not give back; the room for it ends, unless
# told otherwise, after about 180 of those.
PROPERTIES = pathlib.Path(f"/dev/shm/jack_db-{os.getuid()}")
_MUTEXES, _LOCKERS = 200_000, 5_000
_libc = ctypes.CDLL(None)
_has_own = None


def _unshare():
    """A user who may not do that may in a namespace of users, as the same user, while there is one thread only."""
    if _libc.unshare(_CLONE_NEWNS) == 0:
        return True
    user, group = os.getuid(), os.getgid()
    if _libc.unshare(_CLONE_NEWUSER | _CLONE_NEWNS) != 0:
        return False
    pathlib.Path("/proc/self/setgroups").write_text("deny")
    pathlib.Path("/proc/self/uid_map").write_text(f"{user} {user} 1")
    pathlib.Path("/proc/self/gid_map").write_text(f"{group} {group} 1")
    return True


def limit_properties(mutexes=_MUTEXES):
    """For the servers that start from now on: how much the programs that use properties may take, in all."""
    PROPERTIES.mkdir(mode=0o700, exist_ok=True)
    lines = [f"mutex_set_max {mutexes}", *(f"set_lk_max_{what} {_LOCKERS}" for what in ("lockers", "locks", "objects"))]
    (PROPERTIES / "DB_CONFIG").write_text("\n".join(lines) + "\n", encoding="ascii")


def take():
    """False where the system does not allow it: everything goes on as it was. Threads that are there already keep the old one."""
    global _has_own
    if _has_own is None:
        try:
            # What is mounted here must not be seen elsewhere.
            _has_own = (_unshare() and _libc.mount(b"none", b"/", None, _MS_REC | _MS_PRIVATE, None) == 0
                        and _libc.mount(b"tmpfs", b"/dev/shm", b"tmpfs", _MS_NOSUID | _MS_NODEV, b"mode=1777") == 0)
            if _has_own:
                limit_properties()
        except OSError:
            _has_own = False
    return _has_own
