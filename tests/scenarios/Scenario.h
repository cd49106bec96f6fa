// What every scenario stands on: a world, and short ways to read it.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "config/DriverConfiguration.h"
#include "config/DriverPreferences.h"
#include "tests/scenarios/World.h"

namespace vexil {

class Scenario : public testing::Test {
  protected:
    Scenario() : world(MakeWorld()), driver(world->driver), dialogs(world->dialogs) {}

    // Fails when a question came up that the scenario has no answer for, or has an answer left over.
    void TearDown() override {
        EXPECT_EQ(dialogs.unanswered, 0) << "a question that the scenario does not answer";
        EXPECT_TRUE(dialogs.alertAnswers.empty()) << "an alert that the scenario expects did not come";
        EXPECT_TRUE(dialogs.fileAnswers.empty()) << "a file chooser that the scenario expects did not come";
    }

    // Runs the panel with one run of its event loop, or as many as there are scripts, and expects exit status
    // 0.
    void Run(const Script& script) { RunAll({script}); }
    void RunAll(const std::vector<Script>& scripts) { EXPECT_EQ(world->Run(scripts), 0); }

    Person& Hands() { return world->Hands(); }

    // --- what the window shows ---
    const Widgets& Window() const { return world->Window(); }
    int Value(int control) const { return Window().Value(control); }
    bool IsChecked(int control) const { return Value(control) != 0; }
    std::string Text(int control) const {
        svString text;
        EXPECT_TRUE(Window().GetText(control, text)) << control;
        return text.c_str();
    }
    // The control's own state, whatever its group's.
    bool IsEnabled(int control) const { return Window().IsEnabled(control); }
    bool CanApply() const { return IsEnabled(kApply); }
    std::vector<std::string> Items(int combo) const;

    // --- what was stored and sent ---
    // Stores a configuration for the panel to find; before Run.
    void Store(const DriverConfiguration& configuration);
    // The configuration as it is stored now.
    DriverConfiguration Stored();
    // The option numbers that the driver got since the last call of this.
    std::vector<int> Sent();
    // The last call with this option since the last call of Sent; a default one (option -1) when there was
    // none.
    KernelCall LastCall(int option) const;
    // Answers for the alerts to come, in order.
    void Answer(AlertHit hit, const Script& meanwhile = {}) {
        dialogs.alertAnswers.push_back({hit, meanwhile});
    }
    // Leaves unapplied changes behind at the end.
    void QuitWithoutApplying() { Answer(AlertHit::Other); }

    std::unique_ptr<World> world;
    MemoryKernelControl& driver;
    MemoryDialogs& dialogs;

  private:
    std::size_t callsSeen = 0;
};

// Bytes of a host list: complete records of the names, and the zero that ends them.
std::vector<std::uint8_t> HostInfos(const std::vector<std::string>& names);

}  // namespace vexil
