// What the panel does when something beneath it fails.
#include "panel/RestartRequest.h"
#include "tests/panel/PanelFixture.h"

namespace vexil {
namespace {

class PanelFaults : public PanelTest {};

TEST_F(PanelFaults, UnreadableKeysArePassedOnEverywhere) {
    Start();
    int acted = 0;
    const NextHandler next = [&] {
        ++acted;
        return kNoErr;
    };
    PanelEvent key{.kind = EventKind::RawKeyDown, .control = kOutputName};
    EXPECT_EQ(panel->PortListKeyHandler(key, next), kEventNotHandledErr);
    EXPECT_EQ(panel->EditTextHandler(key, next), kEventNotHandledErr);
    EXPECT_EQ(panel->ComboBoxHandler(key, next), kEventNotHandledErr);
    EXPECT_EQ(acted, 0) << "the toolkit acts behind the handler";
}

TEST_F(PanelFaults, KeyThatTheToolkitRefusesGivesItsStatusBackAndStoresNothing) {
    Start();
    person.Click(kOutputName, false);
    memoryWidgets.Of(kOutputName).text = "never read";
    const NextHandler refuse = [] { return -50; };
    EXPECT_EQ(panel->PortListKeyHandler(KeyEvent(kPortList, kCharDownArrow), refuse), -50);
    EXPECT_EQ(panel->EditTextHandler(KeyEvent(kOutputName, 'a'), refuse), -50);
    EXPECT_EQ(panel->ComboBoxHandler(KeyEvent(kTargetComputer, 'a'), refuse), -50);
    EXPECT_FALSE(CanApply());
    EXPECT_TRUE(driver.calls.empty());
}

TEST_F(PanelFaults, FieldThatCannotBeReadLeavesTheConfiguration) {
    Start();
    person.Click(kOutputName, false);
    widgets.unreadableTexts = {kOutputName};
    person.Type("lost");
    EXPECT_FALSE(CanApply());
}

TEST_F(PanelFaults, ComboBoxThatCannotBeReadLeavesTheConfigurationAndTheTest) {
    Start();
    person.Click(kTargetComputer, false);
    widgets.unreadableTexts = {kTargetComputer};
    person.Type("lost");
    EXPECT_FALSE(CanApply());
    EXPECT_TRUE(driver.calls.empty());
}

TEST_F(PanelFaults, ItemThatCannotBeReadLeavesTheConfiguration) {
    Start();
    memoryWidgets.AppendItem(kTargetComputer, "beta");
    widgets.unreadableItems = {kTargetComputer};
    person.PickItem(kTargetComputer, 0);
    EXPECT_FALSE(CanApply());
}

TEST_F(PanelFaults, PickWithoutAnItemIsPassedOn) {
    Start();
    person.Click(kTargetComputer, false);
    PanelEvent pick{.kind = EventKind::ListItemSelected, .control = kTargetComputer};
    EXPECT_EQ(panel->ComboBoxHandler(pick, [] { return kNoErr; }), kEventNotHandledErr);
    EXPECT_FALSE(CanApply());
}

TEST_F(PanelFaults, TextBeforeAnyHitIsPassedOnAndStoredNowhere) {
    Start();
    memoryWidgets.Of(kOutputName).text = "x";
    memoryWidgets.AppendItem(kTargetComputer, "beta");
    int acted = 0;
    const NextHandler next = [&] {
        ++acted;
        return kNoErr;
    };
    PanelEvent pick{.kind = EventKind::ListItemSelected, .control = kTargetComputer};
    pick.itemIndex = 0;
    EXPECT_EQ(panel->EditTextHandler(KeyEvent(kOutputName, 'x'), next), kEventNotHandledErr);
    EXPECT_EQ(panel->ComboBoxHandler(KeyEvent(kTargetComputer, 'x'), next), kEventNotHandledErr);
    EXPECT_EQ(acted, 2);
    EXPECT_EQ(panel->ComboBoxHandler(pick, next), kEventNotHandledErr);
    EXPECT_FALSE(CanApply());
}

TEST_F(PanelFaults, LineFeedInAFieldIsSwallowedAsReturnIs) {
    Start();
    bool acted = false;
    const NextHandler next = [&] {
        acted = true;
        return kNoErr;
    };
    EXPECT_EQ(panel->EditTextHandler(KeyEvent(kOutputName, kCharLineFeed), next), kNoErr);
    EXPECT_EQ(panel->EditTextHandler(KeyEvent(kOutputName, kCharReturn), next), kNoErr);
    EXPECT_EQ(panel->EditTextHandler(KeyEvent(kOutputName, kCharReturn, EventKind::RawKeyRepeat), next),
              kNoErr);
    EXPECT_FALSE(acted);
}

TEST_F(PanelFaults, ReturnInAComboBoxIsPassedOn) {
    Start();
    int acted = 0;
    panel->ComboBoxHandler(KeyEvent(kTargetComputer, kCharReturn), [&] {
        ++acted;
        return kNoErr;
    });
    EXPECT_EQ(acted, 1);
}

TEST_F(PanelFaults, HandlersResultsForHits) {
    Start();
    const auto hit = [](int control) {
        return PanelEvent{.kind = EventKind::ControlHit, .control = control};
    };
    const NextHandler next = [] { return kNoErr; };
    EXPECT_EQ(panel->EditTextHandler(hit(kOutputName), next), kNoErr);
    EXPECT_EQ(panel->ComboBoxHandler(hit(kTargetComputer), next), kEventNotHandledErr);
    EXPECT_EQ(panel->PortListKeyHandler(hit(kPortList), next), kEventNotHandledErr);
    for (const int control : {4, 5, 7, 9, 12, 13, 14, 15, 16, 17, 20, 21, 23, 24, 29, 30, 31, 32}) {
        EXPECT_EQ(Hit(control), kEventNotHandledErr) << control;
    }
    for (const int control : {0, 1, 3, 6, 8, 10, 11, 18, 19, 22, 25, 26, 27, 28}) {
        EXPECT_EQ(Hit(control), kNoErr) << control;
    }
}

TEST_F(PanelFaults, EventsThatTheWindowDoesNotHandle) {
    Start();
    const NextHandler next = [] { return kNoErr; };
    for (const EventKind kind : {EventKind::CommandProcess, EventKind::MouseUp, EventKind::TextInput,
                                 EventKind::RawKeyDown, EventKind::MouseDown}) {
        EXPECT_EQ(panel->WindowEventHandler({.kind = kind}, next), kEventNotHandledErr);
    }
}

TEST_F(PanelFaults, OtherPartOfTheArrowsSetsTheValueUnchanged) {
    Start();
    memoryWidgets.SetValue(kTargetPortArrows, 5);
    panel->ArrowsAction(kTargetPortArrows, 129);
    EXPECT_EQ(memoryWidgets.Value(kTargetPortArrows), 5);
}

TEST_F(PanelFaults, ListWithoutASelectionKeepsThePort) {
    Start();
    memoryWidgets.selectedRow = -1;
    EXPECT_EQ(Hit(kPortList), kNoErr);
    EXPECT_TRUE(driver.calls.empty());
}

TEST_F(PanelFaults, CloseQuestionThatCannotBeShownLetsThePanelClose) {
    Start();
    dialogs.alertsFail = true;
    person.MoveSlider(9);
    person.CloseWindow();
    EXPECT_EQ(memoryDesktop.calls.back(), "end");
    EXPECT_EQ(Stored().SendGranularity, 2U) << "without applying";
}

TEST_F(PanelFaults, EndQuestionThatCannotBeShownEndsTheRunWithoutApplying) {
    dialogs.alertsFail = true;
    memoryDesktop.Post([&] {
        person.MoveSlider(9);
        memoryDesktop.EndEventLoop();
    });
    EXPECT_EQ(RunUserInterface(Platform()), 0);
    EXPECT_EQ(Stored().SendGranularity, 2U);
}

TEST_F(PanelFaults, ReportOfAnInadmissibleConfigurationThatCannotBeShownCorrectsIt) {
    Start();
    dialogs.alertsFail = true;
    person.Click(kMidiOut, false);
    person.Click(kApply, false);
    EXPECT_EQ(Stored().OutputPorts, 1U);
}

TEST_F(PanelFaults, RemovalQuestionThatCannotBeShownGoesOn) {
    Start();
    dialogs.alertsFail = true;
    person.Click(kAbout, true);
    EXPECT_EQ(memoryRestarter.requests.size(), 1U);
}

TEST_F(PanelFaults, PreferencesThatCannotBeWrittenAreLoggedAndApplyGoesOn) {
    Start();
    preferences.Storage().writable = false;
    person.MoveSlider(9);
    log.Clear();
    person.Click(kApply, false);
    EXPECT_NE(log.Text(), "");
    EXPECT_EQ(driver.OptionNumbers().back(), 190);
    EXPECT_FALSE(CanApply());
}

TEST_F(PanelFaults, WindowIsInactiveWhileTheAboutBoxIsOpen) {
    Start();
    memoryDialogs.alertAnswers.push_back({AlertHit::Default, [&] { EXPECT_FALSE(memoryDesktop.active); }});
    person.Click(kAbout, false);
    EXPECT_TRUE(memoryDesktop.active);
}

TEST_F(PanelFaults, RestartGoesThroughItsThreeSteps) {
    RequestSystemRestart(restarter, kAERestart);
    EXPECT_EQ(memoryRestarter.steps, (std::vector<std::string>{"address", "event", "send"}));
    EXPECT_EQ(log.Text(), "");
}

TEST_F(PanelFaults, RestartWithoutAnAddressIsLogged) {
    restarter.addressError = -1700;
    RequestSystemRestart(restarter, kAERestart);
    EXPECT_EQ(log.Text(), "AECreateDesc error -1700\n");
    EXPECT_TRUE(memoryRestarter.steps.empty());
}

TEST_F(PanelFaults, RestartEventThatCannotBeMadeIsLogged) {
    restarter.eventError = -1704;
    RequestSystemRestart(restarter, kAERestart);
    EXPECT_EQ(log.Text(), "AECreateAppleEvent error -1704\n");
    EXPECT_TRUE(memoryRestarter.requests.empty());
}

TEST_F(PanelFaults, RestartEventThatCannotBeSentIsLoggedUnderTheSameText) {
    restarter.sendError = -600;
    RequestSystemRestart(restarter, kAERestart);
    EXPECT_EQ(log.Text(), "AECreateAppleEvent error -600\n");
}

// A driver whose descriptor is 0.
class ZeroDescriptor : public KernelControl {
  public:
    std::vector<int> options;
    int Socket(int, int, int) override { return 0; }
    int Ioctl(int, std::uint32_t, void*) override { return 0; }
    int Connect(int, const void*, std::uint32_t) override { return 0; }
    int SetOption(int, int, int option, const void*, std::uint32_t) override {
        options.push_back(option);
        return 0;
    }
    int GetOption(int, int, int option, void*, std::uint32_t* length) override {
        options.push_back(option);
        *length = 0;
        return 0;
    }
    int Close(int) override { return 0; }
};

TEST_F(PanelFaults, Descriptor0LeavesTheTestToThePipeStepAndIsNotClosedBySelecting) {
    ZeroDescriptor zero;
    CtrlPanel onZero({widgets, dialogs, desktop, restarter, clock, zero, preferences});
    EXPECT_EQ(zero.options, (std::vector<int>{196, 197, 202, 192, 193, 191}));
    zero.options.clear();
    memoryWidgets.SelectRow(3);
    onZero.WindowEventHandler({.kind = EventKind::ControlHit, .control = kPortList}, [] { return kNoErr; });
    EXPECT_EQ(zero.options, (std::vector<int>{197, 202})) << "the old port's test stays open";
}

}  // namespace
}  // namespace vexil
