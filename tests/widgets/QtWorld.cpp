// The world of real widgets: the panel's window on Qt, its alerts shown and answered by clicks and keys.
#include <QMessageBox>
#include <QTimer>

#include <deque>

#include <gtest/gtest.h>

#include "platform/qt/QtDesktop.h"
#include "platform/qt/QtDialogs.h"
#include "tests/scenarios/World.h"
#include "tests/widgets/AnsweredAlert.h"
#include "tests/widgets/QtPerson.h"

namespace vexil {

namespace {

// Shows every alert and lets a person answer it as the script says. File choosers are the script's alone:
// their own window is tested by itself.
class AnsweredDialogs : public Dialogs {
  public:
    AnsweredDialogs(QtWidgets& widgets, MemoryDialogs& scriptedAnswers)
        : shown(widgets), script(scriptedAnswers) {}

    int RunAlert(const AlertRequest& request) override {
        int expected = kAlertFailed;
        WhenAlertOpens([&](QMessageBox& box) {
            const AlertHit hit =
                script.alertAnswers.empty() ? AlertHit::Escape : script.alertAnswers.front().hit;
            expected = script.RunAlert(request);
            if (expected == kAlertFailed) {
                box.close();
            } else {
                HitAlert(box, request, hit);
            }
        });
        const int number = shown.RunAlert(request);
        if (expected == kAlertFailed) {
            return kAlertFailed;  // the script has no answer, which the scenario reports
        }
        EXPECT_EQ(number, expected);
        return number;
    }

    std::int32_t RunFileChooser(bool save, const std::string& proposedName, const std::string& typeIdentifier,
                                std::string& path) override {
        return script.RunFileChooser(save, proposedName, typeIdentifier, path);
    }

  private:
    QtDialogs shown;
    MemoryDialogs& script;
};

// Runs one script inside each run of the event loop.
class ScriptedDesktop : public QtDesktop {
  public:
    ScriptedDesktop(QtWidgets& qtWidgets, QtPerson& qtPerson) : QtDesktop(qtWidgets), person(qtPerson) {}

    std::deque<Script> scripts;

    void RunEventLoop() override {
        if (scripts.empty()) {
            ADD_FAILURE() << "more runs of the event loop than the scenario has scripts for";
            return;
        }
        const Script script = std::move(scripts.front());
        scripts.pop_front();
        QTimer::singleShot(0, [&] {
            person.Activate();
            script();
            EndEventLoop();
        });
        QtDesktop::RunEventLoop();
    }

  private:
    QtPerson& person;
};

class QtWorld : public World {
  public:
    int Run(const std::vector<Script>& scripts) override {
        desktop.scripts.assign(scripts.begin(), scripts.end());
        return RunUserInterface({widgets, shownDialogs, desktop, restarter, clock, driver, preferences});
    }

    Person& Hands() override { return person; }
    const Widgets& Window() const override { return widgets; }
    bool IsWindowVisible() const override {
        return widgets.Window() != nullptr && widgets.Window()->isVisible();
    }
    void EndSession() override { desktop.EndEventLoop(); }

  private:
    QtWidgets widgets;
    QtPerson person{widgets};
    ScriptedDesktop desktop{widgets, person};
    AnsweredDialogs shownDialogs{widgets, dialogs};
};

}  // namespace

std::unique_ptr<World> MakeWorld() {
    return std::make_unique<QtWorld>();
}

}  // namespace vexil
