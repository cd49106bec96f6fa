// The world in memory.
#include <gtest/gtest.h>

#include "tests/doubles/MemoryDesktop.h"
#include "tests/doubles/MemoryPerson.h"
#include "tests/doubles/MemoryWidgets.h"
#include "tests/scenarios/World.h"

namespace vexil {

namespace {

class MemoryWorld : public World {
  public:
    int Run(const std::vector<Script>& scripts) override {
        for (const Script& script : scripts) {
            desktop.Post([this, script] {
                script();
                desktop.EndEventLoop();
            });
        }
        const int status =
            RunUserInterface({widgets, dialogs, desktop, restarter, clock, driver, preferences});
        EXPECT_FALSE(desktop.ranDry) << "more runs of the event loop than the scenario has scripts for";
        return status;
    }

    Person& Hands() override { return person; }
    const Widgets& Window() const override { return widgets; }
    bool IsWindowVisible() const override { return desktop.visible; }
    void EndSession() override { desktop.EndEventLoop(); }

  private:
    MemoryWidgets widgets;
    MemoryDesktop desktop;
    MemoryPerson person{widgets, desktop, dialogs};
};

}  // namespace

std::unique_ptr<World> MakeWorld() {
    return std::make_unique<MemoryWorld>();
}

}  // namespace vexil
