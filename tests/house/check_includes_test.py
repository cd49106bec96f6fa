#!/usr/bin/python3
"""Plants includes in a small house of its own and asks what check_includes.py says of each."""

import pathlib
import tempfile
import unittest

import check_includes

HEADERS = [
    "shared/System/svString.h", "shared/System/svModule.h", "config/PreferencesStore.h", "driver/DriverConnection.h",
    "panel/Widgets.h", "platform/qt/QtWidgets.h", "platform/linux/control/ControlSocket.h", "tests/doubles/MemoryWidgets.h",
    "tests/config/Helper.h", "service/routes/RouteTable.h", "service/engine/Engine.h", "service/backends/MidiBackend.h",
    "service/backends/jack/JackBackend.h", "service/control/DriverService.h", "ctl/Ctl.h",
]


class CheckIncludes(unittest.TestCase):
    def complaints(self, path, include):
        """What is said of one file that holds one include."""
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            for name in HEADERS:
                (root / name).parent.mkdir(parents=True, exist_ok=True)
                (root / name).write_text("#pragma once\n")
            (root / path).parent.mkdir(parents=True, exist_ok=True)
            (root / path).write_text(f"// A comment.\n#include {include}\n")
            return check_includes.check(root)[0]

    def assert_allowed(self, path, include):
        self.assertEqual(self.complaints(path, include), [])

    def assert_forbidden(self, path, include):
        complaints = self.complaints(path, include)
        self.assertEqual(len(complaints), 1, complaints)
        self.assertTrue(complaints[0].startswith(f"{path}:2: "), complaints[0])

    def test_arrows_run_from_higher_to_lower_rooms(self):
        self.assert_allowed("config/A.cpp", '"shared/System/svString.h"')
        self.assert_allowed("driver/A.cpp", '"config/PreferencesStore.h"')
        self.assert_allowed("panel/A.cpp", '"driver/DriverConnection.h"')
        self.assert_allowed("panel/A.cpp", '"panel/Widgets.h"')
        self.assert_allowed("platform/qt/A.cpp", '"panel/Widgets.h"')
        self.assert_allowed("platform/linux/A.cpp", '"driver/DriverConnection.h"')

    def test_no_room_includes_a_higher_one(self):
        self.assert_forbidden("shared/System/A.cpp", '"config/PreferencesStore.h"')
        self.assert_forbidden("config/A.cpp", '"driver/DriverConnection.h"')
        self.assert_forbidden("driver/A.cpp", '"panel/Widgets.h"')
        self.assert_forbidden("panel/A.cpp", '"platform/qt/QtWidgets.h"')

    def test_no_room_includes_tests(self):
        self.assert_forbidden("panel/A.cpp", '"tests/doubles/MemoryWidgets.h"')

    def test_only_the_module_of_the_lowest_room_includes_config(self):
        self.assert_allowed("shared/System/svModule.cpp", '"config/PreferencesStore.h"')
        self.assert_allowed("shared/System/svModule.cpp", '"shared/System/svModule.h"')
        self.assert_forbidden("shared/System/A.cpp", '"shared/System/svModule.h"')
        self.assert_forbidden("config/A.cpp", '"shared/System/svModule.h"')
        self.assert_allowed("panel/A.cpp", '"shared/System/svModule.h"')

    def test_only_main_and_its_own_tests_know_platform_linux(self):
        self.assert_allowed("platform/qt/main.cpp", '"platform/linux/control/ControlSocket.h"')
        self.assert_allowed("tests/platform_linux/A.cpp", '"platform/linux/control/ControlSocket.h"')
        self.assert_forbidden("platform/qt/A.cpp", '"platform/linux/control/ControlSocket.h"')
        self.assert_forbidden("panel/A.cpp", '"platform/linux/control/ControlSocket.h"')
        self.assert_forbidden("tests/driver/A.cpp", '"platform/linux/control/ControlSocket.h"')
        self.assert_forbidden("platform/linux/A.cpp", '"platform/qt/QtWidgets.h"')

    def test_only_platform_qt_includes_qt(self):
        self.assert_allowed("platform/qt/A.cpp", "<QLabel>")
        self.assert_allowed("tests/widgets/A.cpp", "<QtTest/QTest>")
        for header in ("<QLabel>", "<QtWidgets/QLabel>", "<qglobal.h>"):
            self.assert_forbidden("panel/A.cpp", header)
            self.assert_forbidden("platform/linux/A.cpp", header)
            self.assert_forbidden("tests/panel/A.cpp", header)

    def test_only_platform_linux_includes_sockets_and_dbus(self):
        for room, header in (("control", "<sys/socket.h>"), ("control", "<sys/un.h>"), ("desktop", "<systemd/sd-bus.h>"),
                             ("preferences", "<plist/plist.h>")):
            self.assert_allowed(f"platform/linux/{room}/A.cpp", header)
            self.assert_forbidden("platform/qt/A.cpp", header)
            self.assert_forbidden("config/A.cpp", header)

    def test_the_service_knows_neither_the_panel_nor_qt(self):
        self.assert_allowed("service/A.cpp", '"driver/DriverConnection.h"')
        self.assert_allowed("service/A.cpp", '"platform/linux/control/ControlSocket.h"')
        self.assert_forbidden("service/A.cpp", '"panel/Widgets.h"')
        self.assert_forbidden("service/A.cpp", "<QLabel>")
        self.assert_forbidden("panel/A.cpp", '"service/engine/Engine.h"')

    def test_the_rooms_of_the_service_include_lower_ones(self):
        self.assert_allowed("service/engine/A.cpp", '"service/routes/RouteTable.h"')
        self.assert_forbidden("service/routes/A.cpp", '"service/engine/Engine.h"')
        self.assert_allowed("service/backends/jack/A.cpp", '"service/backends/MidiBackend.h"')
        self.assert_forbidden("service/backends/alsa/A.cpp", '"service/backends/jack/JackBackend.h"')
        self.assert_forbidden("service/engine/A.cpp", '"service/backends/MidiBackend.h"')
        self.assert_allowed("service/control/A.cpp", '"service/backends/MidiBackend.h"')
        self.assert_forbidden("service/backends/A.cpp", '"service/control/DriverService.h"')
        self.assert_allowed("service/A.cpp", '"service/control/DriverService.h"')

    def test_the_engine_knows_no_system_call_and_a_back_end_only_its_own_library(self):
        self.assert_forbidden("service/engine/A.cpp", "<sys/socket.h>")
        self.assert_allowed("service/backends/jack/A.cpp", "<jack/jack.h>")
        self.assert_forbidden("service/backends/alsa/A.cpp", "<jack/jack.h>")
        self.assert_forbidden("service/control/A.cpp", "<alsa/asoundlib.h>")

    def test_the_command_line_knows_nothing_of_the_service(self):
        self.assert_allowed("ctl/A.cpp", '"platform/linux/control/ControlSocket.h"')
        self.assert_forbidden("ctl/A.cpp", '"service/control/DriverService.h"')
        self.assert_forbidden("service/control/A.cpp", '"ctl/Ctl.h"')

    def test_the_core_needs_the_standard_library_and_libc_alone(self):
        self.assert_allowed("config/A.cpp", "<vector>")
        self.assert_allowed("shared/System/A.cpp", "<sys/file.h>")
        self.assert_forbidden("config/A.cpp", "<boost/any.hpp>")
        self.assert_forbidden("panel/A.cpp", "<gtest/gtest.h>")

    def test_tests_include_the_core_and_what_belongs_to_tests(self):
        self.assert_allowed("tests/config/A.cpp", '"config/PreferencesStore.h"')
        self.assert_allowed("tests/config/A.cpp", '"tests/doubles/MemoryWidgets.h"')
        self.assert_allowed("tests/driver/A.cpp", '"tests/config/Helper.h"')
        self.assert_allowed("bench/A.cpp", '"tests/doubles/MemoryWidgets.h"')
        self.assert_forbidden("tests/config/A.cpp", '"platform/qt/QtWidgets.h"')

    def test_includes_are_written_from_the_root(self):
        self.assert_forbidden("config/A.cpp", '"PreferencesStore.h"')
        self.assert_forbidden("config/A.cpp", '"../driver/DriverConnection.h"')

    def test_a_blank_after_the_sign_hides_nothing(self):
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            (root / "config").mkdir()
            (root / "config/A.cpp").write_text("#if 1\n#  include <QLabel>\n#endif\n")
            self.assertEqual(len(check_includes.check(root)[0]), 1)

    def test_a_folder_that_is_no_room_is_told(self):
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            (root / "platform/other").mkdir(parents=True)
            (root / "platform/other/A.cpp").write_text("")
            self.assertEqual(len(check_includes.check(root)[0]), 1)


if __name__ == "__main__":
    unittest.main()
