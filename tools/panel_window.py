"""The panel's window as a person with assistive technology has it: its controls by their accessible names, used through
AT-SPI, with the mouse and keys of xdotool where a gesture needs them.

The desktop must have been adopted (PrivateDesktop.adopt) before this module is imported: the AT-SPI library takes its bus from
the environment.
"""

import pathlib
import subprocess

import pyatspi
from gi.repository import GLib
from private_desktop import wait_until

TITLE = "Vexil III Control Panel"
PATIENCE = 15.0  # seconds; a loaded machine is slow


class Panel:
    """A running panel: its process, its log lines and its window."""

    def __init__(self, desktop, command, environment=None):
        self.desktop = desktop
        self.log_path = desktop.folder / f"panel-{len(desktop.processes)}.log"
        # What the toolkit has to say goes to standard error and is no log line.
        with open(self.log_path, "wb") as log, open(self.log_path.with_suffix(".err"), "wb") as errors:
            self.process = desktop.start(command, environment=environment, stdout=log, stderr=errors,
                                         stdin=subprocess.DEVNULL)
        self.known = {}
        self.application = wait_until(self._application, PATIENCE, "the panel's window")
        self.window = wait_until(lambda: self.dialog(TITLE), PATIENCE, "the panel's window")

    def _application(self):
        if self.process.poll() is not None:
            raise RuntimeError(f"the panel ended with {self.process.returncode}:\n{self.log()}")
        for application in pyatspi.Registry.getDesktop(0):
            if application is not None and application.get_process_id() in self._processes():
                return application
        return None

    def _processes(self):
        """The process that was started, and those that it started: it may be a script that runs the panel."""
        own = self.process.pid
        children = pathlib.Path(f"/proc/{own}/task/{own}/children").read_text().split()
        return [own, *map(int, children)]

    def log(self):
        """What the panel has written so far, log lines included: without /Library/Logs they go to standard output."""
        return self.log_path.read_text(errors="replace")

    def log_lines(self):
        """The log lines without their prefix and line end."""
        prefix = "CtrlPanel: "
        return [line.removeprefix(prefix) for line in self.log().splitlines()]

    # What is shown.

    def dialog(self, title):
        """The shown window of this title, or None."""
        for window in self.application:
            if window is not None and window.name == title and _has(window, pyatspi.STATE_SHOWING):
                return window
        return None

    def windows(self):
        """Every shown window of the program."""
        return [window for window in self.application
                if window is not None and _has(window, pyatspi.STATE_SHOWING)]

    def wait_active(self):
        """Waits until the newest window has the keyboard."""
        wait_until(lambda: _has(self.windows()[-1], pyatspi.STATE_ACTIVE), PATIENCE, "an active window")

    def control(self, name, window=None):
        """The control of this accessible name (a combo box: described or labelled by it)."""
        if window is None and name in self.known:
            return self.known[name]
        found = _find(window or self.window, name)
        if found is None:
            raise LookupError(f"no control is named {name!r}")
        if window is None:
            self.known[name] = found
        return found

    def is_enabled(self, name):
        return _has(self.control(name), pyatspi.STATE_ENABLED)

    def is_checked(self, name):
        return _has(self.control(name), pyatspi.STATE_CHECKED)

    def text(self, name):
        text = self.editable(name).queryText()
        return text.getText(0, -1)

    def value(self, name):
        return self.control(name).queryValue().currentValue

    def wait_enabled(self, name, enabled=True):
        wait_until(lambda: self.is_enabled(name) == enabled, PATIENCE, f"{name} enabled: {enabled}")

    # What a person does.

    def press(self, name, window=None):
        """Presses a button. Returns at once, also when it opens a question."""
        _act(self.control(name, window), "Press")

    def toggle(self, name):
        """Clicks a check box and waits until it has changed."""
        before = self.is_checked(name)
        _act(self.control(name), "Toggle")
        wait_until(lambda: self.is_checked(name) != before, PATIENCE, f"a change of {name}")

    def enter(self, name, text):
        """Replaces a field's text through assistive technology."""
        self.editable(name).queryEditableText().setTextContents(text)
        wait_until(lambda: self.text(name) == text, PATIENCE, f"the text {text!r} in {name}")

    def type(self, text, *keys):
        """Types a text with real keys into what has the focus, then presses the named keys."""
        if text:
            self.xdotool("type", "--delay", "5", text)
        if keys:
            self.xdotool("key", *keys)

    def step(self, name, up=True):
        _act(self.control(name), "Increase" if up else "Decrease")

    def set_value(self, name, value):
        self.control(name).queryValue().currentValue = float(value)

    def click(self, accessible, *options):
        """Clicks the middle of what is shown of an accessible object, with the real mouse."""
        box = accessible.queryComponent().getExtents(pyatspi.DESKTOP_COORDS)
        self.xdotool("mousemove", str(box.x + box.width // 2), str(box.y + box.height // 2), "click", *options, "1")

    def hold(self, name):
        """Presses the real mouse on a control and keeps it down until `let_go`."""
        box = self.control(name).queryComponent().getExtents(pyatspi.DESKTOP_COORDS)
        self.xdotool("mousemove", str(box.x + box.width // 2), str(box.y + box.height // 2), "mousedown", "1")

    def let_go(self):
        self.xdotool("mouseup", "1")

    def select_port(self, label):
        """Clicks the row of the port list with this label; it must be in view."""
        ports = self.control("Ports")
        row = next(child for child in ports if child.name == label)
        self.click(row)
        wait_until(lambda: _has(row, pyatspi.STATE_SELECTED), PATIENCE, f"{label} selected")

    def has_focus(self, name):
        """Whether a control, or the field or row inside it, has the keyboard focus."""
        control = self.control(name)
        inside = control if control.getRole() in (pyatspi.ROLE_LIST, pyatspi.ROLE_COMBO_BOX) else ()
        return _has(control, pyatspi.STATE_FOCUSED) or any(_has(child, pyatspi.STATE_FOCUSED) for child in inside)

    def activate(self):
        """Gives the window the keyboard. Asks for it again and again: the window manager drops what is asked for a window that it
        does not manage yet, and it may move the focus on its own meanwhile."""
        def is_active():
            window = subprocess.run(["xdotool", "search", "--name", f"^{TITLE}$"], env=self.desktop.environment,
                                    check=False, stdout=subprocess.PIPE, text=True).stdout.split()[-1:]
            if window:
                subprocess.run(["xdotool", "windowactivate", *window], env=self.desktop.environment, check=False,
                               stderr=subprocess.DEVNULL)
            return self._becomes_active()
        wait_until(is_active, PATIENCE, "an active window")

    def _becomes_active(self):
        """Whether the window has the keyboard within a second."""
        try:
            return wait_until(lambda: _has(self.window, pyatspi.STATE_ACTIVE), 1.0)
        except TimeoutError:
            return False

    def answer(self, message, button):
        """Waits for the alert with this message, presses its button."""
        alert = wait_until(lambda: self._alert(message), PATIENCE, f"the alert {message!r}")
        self.press(button, alert)
        wait_until(lambda: self._has_no_alert(message), PATIENCE, f"the end of the alert {message!r}")

    def _has_no_alert(self, message):
        try:
            return self.process.poll() is not None or self._alert(message) is None
        except GLib.GError:
            return False  # the panel is about to end, or closes the alert just now: to be asked again

    def _alert(self, message):
        return next((window for window in self.windows()
                     if window != self.window and _find(window, message) is not None), None)

    def close(self):
        """Asks the window manager to close the window that is active, as a click on its close box does."""
        self.activate()
        self.xdotool("key", "alt+F4")

    def quit(self):
        """Closes the window and returns the exit status."""
        self.close()
        try:
            return self.process.wait(PATIENCE / 3)
        except subprocess.TimeoutExpired:
            self.close()  # the window manager has moved the focus just then, and the key went to nobody
            return self.process.wait(PATIENCE)

    def picture(self, path):
        window = self.xdotool("search", "--name", f"^{TITLE}$").split()[-1]
        self.desktop.picture(path, window)

    def xdotool(self, *arguments):
        return subprocess.run(["xdotool", *arguments], env=self.desktop.environment, check=True, timeout=PATIENCE,
                              stdout=subprocess.PIPE, text=True).stdout

    def editable(self, name):
        """The field itself, or the field inside a combo box."""
        control = self.control(name)
        if "EditableText" in pyatspi.listInterfaces(control):
            return control
        for child in control:
            if "EditableText" in pyatspi.listInterfaces(child):
                return child
        raise LookupError(f"{name!r} takes no text")


def _has(accessible, state):
    return accessible.getState().contains(state)


def _names(accessible):
    """Everything by which a person hears of a control: its name, its description, and the names of its labels."""
    yield accessible.name
    yield accessible.description
    for relation in accessible.getRelationSet():
        if relation.getRelationType() == pyatspi.RELATION_LABELLED_BY:
            for index in range(relation.getNTargets()):
                yield relation.getTarget(index).name


def _find(accessible, name):
    candidates = []
    _collect(accessible, name, candidates)
    # A label may bear the words of the control that it labels.
    candidates.sort(key=lambda found: found.getRole() == pyatspi.ROLE_LABEL)
    return candidates[0] if candidates else None


def _collect(accessible, name, candidates):
    for child in accessible:
        if child is None:
            continue
        if name in _names(child):
            candidates.append(child)
        if child.getRole() not in (pyatspi.ROLE_LIST, pyatspi.ROLE_COMBO_BOX):
            _collect(child, name, candidates)


def _act(accessible, wanted):
    action = accessible.queryAction()
    for index in range(action.nActions):
        if action.getName(index) == wanted:
            action.doAction(index)
            return
    raise LookupError(f"{accessible.name!r} has no action {wanted}")
