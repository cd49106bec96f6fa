#!/usr/bin/python3
"""Usage: docs/take_screenshots.py PANEL [FOLDER]

Takes the pictures of the window that the documents show, on a display without a screen: at scale 1 and 2, light and dark. They
are written to FOLDER, by default the folder of this program.
"""

import pathlib
import subprocess
import sys

sys.dont_write_bytecode = True
HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "tests/system"))
import private_desktop  # noqa: E402
import stored_configuration as stored  # noqa: E402

# A dark desktop's colours, in the form in which Qt reads those of a KDE desktop.
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


def take(desktop, program, picture, scale, dark):
    from panel_window import Panel
    desktop.new_home()
    stored.store(desktop.preferences, configuration())
    environment = {"QT_SCALE_FACTOR": str(scale)}
    if dark:
        (desktop.home / ".config/kdeglobals").write_text(DARK)
        environment.update(XDG_CURRENT_DESKTOP="KDE", KDE_SESSION_VERSION="5")
    panel = Panel(desktop, [program], environment)
    panel.enter("MIDI OUT Target computer name", "studio")
    panel.wait_enabled("Apply")
    panel.picture(picture)
    private_desktop.end(panel.process)
    # Fewer colours make a small file; the window has few.
    subprocess.run(["mogrify", "-strip", "+dither", "-colors", "256", "-define", "png:compression-level=9", str(picture)], check=True)
    print(picture)


def configuration():
    """A port with something to show."""
    values = stored.defaults()
    values.update({"InputPorts": stored.mask(0), "01 In_CustomName": "Master keyboard", "01 SrcHost": "stage",
                   "01 PortFlags": stored.entry(0x00, 8, 1), "01 Out_CustomName": "Stage piano"})
    return values


def main(program, folder=HERE):
    obstacle = private_desktop.obstacle()
    if obstacle:
        sys.exit(f"No pictures can be taken: {obstacle}")
    with private_desktop.PrivateDesktop(size="1600x1200") as desktop:
        desktop.adopt()
        for scale in (1, 2):
            for dark in (False, True):
                name = f"panel-{'dark' if dark else 'light'}-{scale}x.png"
                take(desktop, program, pathlib.Path(folder) / name, scale, dark)


if __name__ == "__main__":
    main(*sys.argv[1:3])
