// The frame around a run of the panel: identity, log, panel object, event loop, teardown.
#pragma once

#include "config/PreferenceDomains.h"
#include "driver/KernelControl.h"
#include "panel/Desktop.h"
#include "panel/Dialogs.h"
#include "panel/HostClock.h"
#include "panel/Restarter.h"
#include "panel/Widgets.h"

namespace vexil {

// Everything the panel needs of the platform. All of it must outlive the run.
struct PanelPlatform {
    Widgets& widgets;
    Dialogs& dialogs;
    Desktop& desktop;
    Restarter& restarter;
    HostClock& clock;
    KernelControl& kernelControl;
    PreferenceDomains& preferences;
};

// Runs the panel and returns the process's exit status: 0 after a normal run, -1 when the panel could not be
// made, else the toolkit's status of the window or control that could not be made. `executablePath` is the
// program's first argument.
int RunPanel(const char* executablePath, const PanelPlatform& platform);

// The part of RunPanel that follows once identity and log are there: makes the panel, runs it and takes it
// down. The same exit status.
int RunUserInterface(const PanelPlatform& platform);

}  // namespace vexil
