"""How long something took on a computer that may be busy with other things."""

import os
import pathlib
import time


def _free():
    """Seconds that the processors have had nothing to do, of all together, since the computer started."""
    idle = pathlib.Path("/proc/stat").read_text(encoding="ascii").split("\n", 1)[0].split()[4]
    return int(idle) / os.sysconf("SC_CLK_TCK")


class Stopwatch:
    """Starts when it is made."""

    def __init__(self):
        self.begin = time.monotonic()
        self.free_before = _free()

    def elapsed(self):
        return time.monotonic() - self.begin

    def free(self):
        """Of the elapsed seconds, those in which a processor was free. A program that waits for something
        other than a processor lets the time count. While other programs keep all processors busy no time counts."""
        return self.free_until(time.monotonic())

    def free_until(self, moment):
        """The same of the time until a moment of the monotonic clock that has just passed."""
        return min(moment - self.begin, _free() - self.free_before)
