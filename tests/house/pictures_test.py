#!/usr/bin/python3
"""Usage: pictures_test.py ROOT

Every picture of the window in ROOT/docs shows all of it: it is at least as large as the window at the scale in its name.
"""

import pathlib
import re
import struct
import sys
import unittest

WINDOW = (580, 430)  # pixels at scale 1, without its frame
SCALES = {"1", "1.25", "1.5", "2"}
KINDS = {f"{display}{colours}" for display in ("", "wayland-") for colours in ("light", "dark")}
# On X11, in other fonts and with the largest numbers.
FONT_SCALES = {"1", "2"}
FONT_KINDS = {f"{font}-{colours}" for font in ("noto-sans", "noto-sans-cjk-jp") for colours in ("light", "dark")} | {"large-numbers"}

_docs = None


class Pictures(unittest.TestCase):
    def test_there_is_one_of_each_kind_and_scale(self):
        names = {picture.name for picture in _docs.glob("panel-*x.png")}
        expected = [(kind, scale) for kinds, scales in ((KINDS, SCALES), (FONT_KINDS, FONT_SCALES)) for kind in kinds for scale in scales]
        self.assertEqual(names, {f"panel-{kind}-{scale}x.png" for kind, scale in expected})

    def test_each_shows_the_whole_window(self):
        for picture in _docs.glob("panel-*.png"):
            with self.subTest(picture.name):
                scale = re.search(r"-([0-9.]+)x\.png$", picture.name)
                factor = float(scale.group(1)) if scale else 1
                # A PNG file begins with 16 bytes that are always the same, and its width and height.
                size = struct.unpack(">II", picture.read_bytes()[16:24])
                for pixels, length in zip(size, WINDOW):
                    self.assertGreaterEqual(pixels, int(length * factor))


if __name__ == "__main__":
    _docs = pathlib.Path(sys.argv.pop(1)) / "docs"
    unittest.main(verbosity=2)
