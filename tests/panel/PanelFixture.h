// A panel over doubles, without an event loop: its handlers are called directly. For what a person's gestures
// cannot bring about: failures beneath the panel, and events within events.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "panel/CtrlPanel.h"
#include "tests/doubles/FaultyDesktop.h"
#include "tests/doubles/FaultyDialogs.h"
#include "tests/doubles/FaultyRestarter.h"
#include "tests/doubles/FaultyWidgets.h"
#include "tests/doubles/LogCapture.h"
#include "tests/doubles/MemoryDesktop.h"
#include "tests/doubles/MemoryDialogs.h"
#include "tests/doubles/MemoryHostClock.h"
#include "tests/doubles/MemoryKernelControl.h"
#include "tests/doubles/MemoryPerson.h"
#include "tests/doubles/MemoryPreferenceDomains.h"
#include "tests/doubles/MemoryRestarter.h"
#include "tests/doubles/MemoryWidgets.h"

namespace vexil {

class PanelTest : public testing::Test {
  protected:
    PanelPlatform Platform() { return {widgets, dialogs, desktop, restarter, clock, driver, preferences}; }
    // Makes the panel and shows its window, as at the start of its event loop.
    void Start() {
        panel = std::make_unique<CtrlPanel>(Platform());
        desktop.ShowWindow();
        widgets.InstallWindowHandler(*panel);
        driver.calls.clear();
        log.Clear();
    }
    void Store(const DriverConfiguration& configuration) {
        DriverPreferences(preferences).SaveConfiguration(kPortCount, configuration);
    }
    DriverConfiguration Stored() {
        DriverConfiguration configuration;
        DriverPreferences(preferences).LoadConfiguration(kPortCount, configuration);
        return configuration;
    }

    std::int32_t Hit(int control, std::uint32_t modifiers = 0) {
        PanelEvent event{.kind = EventKind::ControlHit, .control = control};
        event.modifiers = modifiers;
        return panel->WindowEventHandler(event, [] { return kNoErr; });
    }
    static PanelEvent KeyEvent(int control, unsigned char character, EventKind kind = EventKind::RawKeyDown) {
        PanelEvent event{.kind = kind, .control = control};
        event.hasCharacter = true;
        event.character = character;
        return event;
    }
    static PanelEvent PressEvent(double x, double y) {
        PanelEvent event{.kind = EventKind::MouseDown, .control = kTestButton};
        event.x = x;
        event.y = y;
        return event;
    }
    bool CanApply() const { return memoryWidgets.Of(kApply).enabled; }

    MemoryWidgets memoryWidgets;
    MemoryDialogs memoryDialogs;
    MemoryDesktop memoryDesktop;
    MemoryRestarter memoryRestarter;
    MemoryHostClock clock;
    MemoryKernelControl driver;
    MemoryPreferenceDomains preferences;
    FaultyWidgets widgets{memoryWidgets};
    FaultyDialogs dialogs{memoryDialogs};
    FaultyDesktop desktop{memoryDesktop};
    FaultyRestarter restarter{memoryRestarter};
    MemoryPerson person{memoryWidgets, memoryDesktop, memoryDialogs};
    LogCapture log;
    std::unique_ptr<CtrlPanel> panel;
};

}  // namespace vexil
