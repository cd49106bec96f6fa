#!/usr/bin/python3
"""Usage: docs/take_screenshots.py PANEL [FOLDER]

Takes the pictures of the window that the documents show, on displays without a screen: on X11 and on Wayland, at scale 1, 1.25,
1.5 and 2, light and dark, on X11 also in other fonts at scale 1 and 2 and with the largest numbers, and beside a question in a large
system font. They are written to FOLDER, by default the folder of this program.
"""

import os
import pathlib
import shutil
import subprocess
import sys

sys.dont_write_bytecode = True
HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "tools"))
import private_desktop  # noqa: E402
import stored_configuration as stored  # noqa: E402

SCALES = (1, 1.25, 1.5, 2)
FONT = "DejaVu Sans"
# With more room above and below their letters.
OTHER_FONTS = ("Noto Sans", "Noto Sans CJK JP")
FONT_SCALES = (1, 2)
WINDOW = (580, 430)  # pixels at scale 1, without its frame
PATIENCE = 20.0
# A desktop's colours, in the form in which Qt reads those of a KDE desktop.
DARK = """
[Colors:Window]
BackgroundNormal=35,38,41
ForegroundNormal=239,240,241
[Colors:View]
BackgroundNormal=27,30,32
BackgroundAlternate=35,38,41
ForegroundNormal=239,240,241
ForegroundLink=29,153,243
ForegroundVisited=155,89,182
[Colors:Button]
BackgroundNormal=49,54,59
ForegroundNormal=239,240,241
[Colors:Selection]
BackgroundNormal=61,174,233
ForegroundNormal=239,240,241
[Colors:Tooltip]
BackgroundNormal=49,54,59
ForegroundNormal=239,240,241
"""
LARGE_FONT = """
[General]
font=DejaVu Sans,20,-1,5,50,0,0,0,0,0
"""
# A font in place of every other.
FONT_SETTINGS = """<?xml version="1.0"?>
<!DOCTYPE fontconfig SYSTEM "fonts.dtd">
<fontconfig>
  <include>{settings}</include>
  <match target="pattern">
    <edit name="family" mode="prepend_first" binding="strong"><string>{family}</string></edit>
  </match>
</fontconfig>
"""
# No colour of the window.
BACKGROUND = "#305070"
WESTON = f"""
[core]
idle-time=0
require-input=false
[shell]
background-color=0xff{BACKGROUND[1:]}
panel-position=none
locking=false
animation=none
startup-animation=none
"""


class Wayland:
    """A Wayland compositor without a screen, on the private desktop."""

    def __init__(self, desktop, scale):
        self.desktop = desktop
        # A whole scale is the display's own; the toolkit makes the others.
        self.scale = int(scale) if scale == int(scale) else 1
        self.whole_scale = scale
        config = desktop.folder / "weston.ini"
        config.write_text(WESTON)
        self.process = desktop.start(
            ["weston", f"--config={config}", "--backend=headless-backend.so", "--use-pixman", "--width=1300", "--height=1000",
             f"--scale={self.scale}", "--socket=vexil3", "--debug"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        private_desktop.wait_until((desktop.runtime / "vexil3").exists, what="weston")
        self.environment = {"WAYLAND_DISPLAY": "vexil3", "QT_QPA_PLATFORM": "wayland", "DISPLAY": None,
                            "QT_SCALE_FACTOR": str(scale / self.scale)}

    def picture(self, path):
        """Assistive technology knows the window before the compositor has shown it: waits until the picture has all of it."""
        def has_window():
            self.take(path)
            return is_whole(path, self.whole_scale)
        private_desktop.wait_until(has_window, PATIENCE, "the window on the display")

    def take(self, path):
        folder = self.desktop.folder / "wayland-picture"
        folder.mkdir()
        subprocess.run(["weston-screenshooter"], cwd=folder, check=True,
                       env=self.desktop.environment | {"WAYLAND_DISPLAY": "vexil3"})
        (picture,) = folder.iterdir()
        subprocess.run(["convert", picture, "-bordercolor", BACKGROUND, "-border", "1", "-trim", "+repage", path], check=True)
        shutil.rmtree(folder)

    def close(self):
        private_desktop.end(self.process)


def is_whole(picture, scale):
    """Whether a picture is at least as large as the window."""
    size = subprocess.run(["identify", "-format", "%w %h", picture], check=True, capture_output=True, text=True).stdout.split()
    return all(int(pixels) >= int(length * scale) for pixels, length in zip(size, WINDOW))


def start(desktop, program, environment, settings=""):
    """A panel with something to show, on a desktop with these settings."""
    from panel_window import Panel
    if settings:
        (desktop.home / ".config/kdeglobals").write_text(settings)
        environment = environment | {"XDG_CURRENT_DESKTOP": "KDE", "KDE_SESSION_VERSION": "5"}
    panel = Panel(desktop, [program], environment)
    panel.enter("MIDI OUT Target computer name", "studio")
    panel.wait_enabled("Apply")
    return panel


def new_home(desktop, values=None):
    desktop.new_home()
    stored.store(desktop.preferences, values or configuration())


def in_font(desktop, family):
    """The variables by which a program has this font for the desktop's own."""
    path = desktop.folder / f"{family}.conf"
    path.write_text(FONT_SETTINGS.format(settings=os.environ.get("FONTCONFIG_FILE", "/etc/fonts/fonts.conf"), family=family))
    return {"FONTCONFIG_FILE": str(path)}


def lacks(family):
    """Whether this computer has no such font."""
    found = subprocess.run(["fc-match", "--format=%{family}", family], check=True, capture_output=True, text=True).stdout
    return family not in found.split(",")


def shrink(picture):
    # Fewer colours make a small file; the window has few.
    subprocess.run(["mogrify", "-strip", "+dither", "-colors", "256", "-define", "png:compression-level=9", str(picture)], check=True)
    print(picture)


def take_on_x11(desktop, program, picture, scale, settings, family=FONT, values=None):
    new_home(desktop, values)
    panel = start(desktop, program, in_font(desktop, family) | {"QT_SCALE_FACTOR": str(scale)}, settings)
    panel.picture(picture)
    if not is_whole(picture, scale):
        sys.exit(f"{picture} does not show the whole window.")
    private_desktop.end(panel.process)
    shrink(picture)


def take_on_wayland(desktop, program, picture, scale, settings):
    new_home(desktop)
    display = Wayland(desktop, scale)
    panel = start(desktop, program, in_font(desktop, FONT) | display.environment, settings)
    display.picture(picture)
    private_desktop.end(panel.process)
    display.close()
    shrink(picture)


def take_large_font(desktop, program, picture):
    """The window beside the question that is asked at the end, in the system's font."""
    new_home(desktop)
    panel = start(desktop, program, {}, LARGE_FONT)
    panel.close()
    private_desktop.wait_until(lambda: len(panel.windows()) == 2, what="the question")
    panel.wait_active()
    question = panel.xdotool("getactivewindow").strip()
    (window,) = [found for found in panel.xdotool("search", "--onlyvisible", "--name", f"^{panel.window.name}$").split()
                 if found != question]
    panel.xdotool("windowmove", "--sync", window, "20", "40")
    panel.xdotool("windowmove", "--sync", question, "640", "40")
    desktop.picture(picture, window)
    if not is_whole(picture, 1):
        sys.exit(f"{picture} does not show the whole window.")
    desktop.picture(picture)
    subprocess.run(["mogrify", "-bordercolor", "black", "-border", "1", "-trim", "+repage", str(picture)], check=True)
    private_desktop.end(panel.process)
    shrink(picture)


def configuration():
    """A port with something to show."""
    values = stored.defaults()
    values.update({"InputPorts": stored.mask(0), "01 In_CustomName": "Master keyboard", "01 SrcHost": "stage",
                   "01 PortFlags": stored.entry(0x00, 8, 1), "01 Out_CustomName": "Stage piano"})
    return values


def largest_numbers():
    """Numbers that only a settings file or another program brings."""
    values = configuration()
    values.update({"01 PortFlags": stored.entry(0x00, 255, 255), "SendGranularity": (1 << 31) - 1})
    return values


def main(program, folder=HERE):
    tools = ("weston", "weston-screenshooter", "convert", "identify", "mogrify", "fc-match")
    missing = [tool for tool in tools if not shutil.which(tool)]
    if not missing:
        missing = [family for family in (FONT, *OTHER_FONTS) if lacks(family)]
    obstacle = private_desktop.obstacle() or (f"missing: {', '.join(missing)}" if missing else "")
    if obstacle:
        sys.exit(f"No pictures can be taken: {obstacle}")
    folder = pathlib.Path(folder)
    with private_desktop.PrivateDesktop(size="1600x1200") as desktop:
        desktop.adopt()
        for scale in SCALES:
            for colours, settings in (("light", ""), ("dark", DARK)):
                take_on_x11(desktop, program, folder / f"panel-{colours}-{scale}x.png", scale, settings)
                take_on_wayland(desktop, program, folder / f"panel-wayland-{colours}-{scale}x.png", scale, settings)
        for scale in FONT_SCALES:
            for colours, settings in (("light", ""), ("dark", DARK)):
                for family in OTHER_FONTS:
                    name = family.lower().replace(" ", "-")
                    take_on_x11(desktop, program, folder / f"panel-{name}-{colours}-{scale}x.png", scale, settings, family)
            take_on_x11(desktop, program, folder / f"panel-large-numbers-{scale}x.png", scale, "", values=largest_numbers())
        take_large_font(desktop, program, folder / "panel-large-font.png")


if __name__ == "__main__":
    main(*sys.argv[1:3])
