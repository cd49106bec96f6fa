// How one event finds its handlers, and that the widget gets it once.
#include "panel/PanelEvent.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "panel/ControlTable.h"

namespace vexil {
namespace {

// Notes which handler was called and answers what the test says.
class NotingHandlers : public PanelHandlers {
  public:
    std::int32_t windowStatus = kEventNotHandledErr;
    std::int32_t controlStatus = kEventNotHandledErr;
    bool controlCallsNext = false;
    int windowCallsNext = 0;
    std::vector<std::string> calls;

    std::int32_t WindowEventHandler(const PanelEvent&, const NextHandler& next) override {
        calls.push_back("window");
        for (int i = 0; i < windowCallsNext; ++i) {
            windowStatus = next();
        }
        return windowStatus;
    }
    std::int32_t PortListKeyHandler(const PanelEvent&, const NextHandler& next) override {
        return Control("list", next);
    }
    std::int32_t EditTextHandler(const PanelEvent&, const NextHandler& next) override {
        return Control("field", next);
    }
    std::int32_t ComboBoxHandler(const PanelEvent&, const NextHandler& next) override {
        return Control("combo", next);
    }
    void ArrowsAction(int, int) override { calls.push_back("arrows"); }
    void SliderAction(int) override { calls.push_back("slider"); }

  private:
    std::int32_t Control(const char* name, const NextHandler& next) {
        calls.push_back(name);
        if (controlCallsNext) {
            next();
        }
        return controlStatus;
    }
};

using Calls = std::vector<std::string>;

class PanelEvents : public testing::Test {
  protected:
    std::int32_t Deliver(EventKind kind, int control) {
        PanelEvent event{.kind = kind, .control = control};
        return DeliverEvent(handlers, event, [this] {
            ++nextCalls;
            return nextStatus;
        });
    }

    NotingHandlers handlers;
    int nextCalls = 0;
    std::int32_t nextStatus = kNoErr;
};

TEST_F(PanelEvents, KeyInTheListGoesToTheListsHandlerOnly) {
    Deliver(EventKind::RawKeyDown, kPortList);
    EXPECT_EQ(handlers.calls, Calls({"list"}));
    EXPECT_EQ(nextCalls, 1);
}

TEST_F(PanelEvents, KeysInBothFieldsGoToTheFieldsHandler) {
    Deliver(EventKind::RawKeyDown, kInputName);
    Deliver(EventKind::RawKeyRepeat, kOutputName);
    EXPECT_EQ(handlers.calls, Calls({"field", "field"}));
}

TEST_F(PanelEvents, KeysAndPicksInBothComboBoxesGoToTheComboBoxHandler) {
    Deliver(EventKind::RawKeyRepeat, kSourceComputer);
    Deliver(EventKind::ListItemSelected, kTargetComputer);
    EXPECT_EQ(handlers.calls, Calls({"combo", "combo"}));
    EXPECT_EQ(nextCalls, 2);
}

TEST_F(PanelEvents, KeyOfAControlWithoutHandlerGoesStraightToTheToolkit) {
    Deliver(EventKind::RawKeyDown, kApply);
    EXPECT_EQ(handlers.calls, Calls());
    EXPECT_EQ(nextCalls, 1);
}

TEST_F(PanelEvents, HitNotHandledByItsControlGoesOnToTheWindow) {
    Deliver(EventKind::ControlHit, kPortList);
    EXPECT_EQ(handlers.calls, Calls({"list", "window"}));
}

TEST_F(PanelEvents, HitHandledByItsControlDoesNotReachTheWindow) {
    handlers.controlStatus = kNoErr;
    EXPECT_EQ(Deliver(EventKind::ControlHit, kInputName), kNoErr);
    EXPECT_EQ(handlers.calls, Calls({"field"}));
    EXPECT_EQ(nextCalls, 0);
}

TEST_F(PanelEvents, HitOfAPlainControlGoesToTheWindow) {
    Deliver(EventKind::ControlHit, kApply);
    EXPECT_EQ(handlers.calls, Calls({"window"}));
}

TEST_F(PanelEvents, WindowsOwnEventsGoToTheWindowWhateverTheControl) {
    for (const EventKind kind : {EventKind::WindowClose, EventKind::CommandProcess, EventKind::MouseDown,
                                 EventKind::MouseUp, EventKind::TextInput, EventKind::SettingsDropped}) {
        Deliver(kind, kPortList);
    }
    EXPECT_EQ(handlers.calls, Calls(6, "window"));
}

TEST_F(PanelEvents, EventThatNobodyHandlesReachesTheWidgetAndItsStatusComesBack) {
    nextStatus = -50;
    EXPECT_EQ(Deliver(EventKind::MouseUp, -1), -50);
    EXPECT_EQ(nextCalls, 1);
}

TEST_F(PanelEvents, HandlerThatLetTheWidgetActAndDidNotHandleTheEventLeavesItAtThat) {
    handlers.controlCallsNext = true;
    EXPECT_EQ(Deliver(EventKind::RawKeyDown, kInputName), kNoErr);
    EXPECT_EQ(nextCalls, 1);
}

TEST_F(PanelEvents, SwallowedKeyNeverReachesTheWidget) {
    handlers.controlStatus = kNoErr;
    EXPECT_EQ(Deliver(EventKind::RawKeyDown, kPortList), kNoErr);
    EXPECT_EQ(nextCalls, 0);
}

TEST_F(PanelEvents, SecondCallOfNextDoesNothingAndRepeatsTheStatus) {
    handlers.windowCallsNext = 2;
    nextStatus = -7;
    EXPECT_EQ(Deliver(EventKind::MouseDown, kTestButton), -7);
    EXPECT_EQ(nextCalls, 1);
}

}  // namespace
}  // namespace vexil
