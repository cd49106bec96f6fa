// A running panel and a person in front of it. Scenarios (*Scenarios.cpp) state what the person does and what
// is seen then; they are compiled twice, over the widgets in memory and over real ones. Each of the two
// programs defines MakeWorld.
//
// Around the panel everything but widgets, event loop and person is in memory in both programs: driver,
// preferences, clock, restart. Questions are answered from `dialogs`, the script that the scenario has set
// up.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "panel/StartUp.h"
#include "tests/doubles/LogCapture.h"
#include "tests/doubles/MemoryDialogs.h"
#include "tests/doubles/MemoryHostClock.h"
#include "tests/doubles/MemoryKernelControl.h"
#include "tests/doubles/MemoryPreferenceDomains.h"
#include "tests/doubles/MemoryRestarter.h"
#include "tests/doubles/Person.h"

namespace vexil {

class World {
  public:
    virtual ~World() = default;

    // --- around the panel; set up before Run, looked at any time ---
    MemoryKernelControl driver;
    MemoryPreferenceDomains preferences;
    MemoryRestarter restarter;
    MemoryHostClock clock;
    // The script of answers and the record of questions. A world with real alerts shows them, and hits the
    // scripted button with a person's means.
    MemoryDialogs dialogs;
    LogCapture log;

    // Runs the panel to its end: starts it, runs one of the scripts inside each run of its event loop, and
    // behind each script ends the loop, if the script has not, as a session that ends does it (no close
    // request). Returns the exit status. A run of the loop beyond the last script is a failure of the test.
    //
    // By a script's end everything that its gestures caused has happened.
    virtual int Run(const std::vector<Script>& scripts) = 0;

    // Valid inside a script.
    virtual Person& Hands() = 0;
    virtual const Widgets& Window() const = 0;
    virtual bool IsWindowVisible() const = 0;
    // Ends the event loop now, as a session that ends does it; also while a question is open.
    virtual void EndSession() = 0;
};

// The program's kind of world. One exists at a time.
std::unique_ptr<World> MakeWorld();

}  // namespace vexil
