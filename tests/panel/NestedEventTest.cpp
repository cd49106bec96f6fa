// Events within events: while the test button is held, and while a question is open.
#include "tests/panel/PanelFixture.h"

namespace vexil {
namespace {

using Options = std::vector<int>;

// Both ports 11 and 12 have outputs.
class NestedEvents : public PanelTest {
  protected:
    NestedEvents() {
        DriverConfiguration stored;
        stored.OutputPorts = 3;
        Store(stored);
        Start();
    }

    // Presses the test button, lets `meanwhile` happen, and gives the options that were sent.
    Options HoldDuring(const Script& meanwhile) {
        driver.calls.clear();
        person.PressTestButton(kButtonCentre, PressEnd::ReleaseInside, meanwhile);
        return driver.OptionNumbers();
    }
};

TEST_F(NestedEvents, ChordIsSwitchedOffOnItsPortBeforeAnotherIsSelected) {
    EXPECT_EQ(HoldDuring([&] { person.ClickRow(1, false); }), (Options{0, 0, 194, 197, 202, 192, 193}));
}

TEST_F(NestedEvents, ChordIsSwitchedOffBeforeAnArrowKeySelectsAnotherPort) {
    person.ClickRow(0, false);
    EXPECT_EQ(HoldDuring([&] { person.Press(Key::Down); }), (Options{0, 0, 194, 197, 202, 192, 193}));
}

TEST_F(NestedEvents, ChordIsSwitchedOffOnItsChannel) {
    HoldDuring([&] { person.StepArrows(kTestChannelArrows, true, StepBy::Wheel); });
    ASSERT_EQ(driver.OptionNumbers(), (Options{0, 0}));
    EXPECT_EQ(driver.OptionCalls()[1].bytes[14], 0x90);
}

TEST_F(NestedEvents, ChordIsSwitchedOffBeforeTheTestIsClosed) {
    EXPECT_EQ(HoldDuring([&] { person.Click(kLocalPipe, false); }), (Options{0, 0, 194}));
    EXPECT_EQ(HoldDuring([] {}), Options());
}

TEST_F(NestedEvents, ChordIsSwitchedOffBeforeTheTestIsRetargeted) {
    person.Click(kTargetComputer, false);
    EXPECT_EQ(HoldDuring([&] { person.Type("a"); }), (Options{0, 0, 194, 192, 193}));
}

TEST_F(NestedEvents, PressWithinAPressEndsTheFirstChord) {
    EXPECT_EQ(HoldDuring([&] { person.PressTestButton(kButtonCentre, PressEnd::ReleaseInside, {}); }),
              (Options{0, 0, 0, 0}));
}

TEST_F(NestedEvents, PressGivesTheToolkitsStatusBack) {
    const ControlRect& rect = kControlTable[kTestButton].rect;
    EXPECT_EQ(panel->WindowEventHandler(
                  PressEvent(rect.left + 3, rect.top + memoryWidgets.titleBarHeight + 3), [] { return -77; }),
              -77);
}

TEST_F(NestedEvents, TitleBarMovesTheButton) {
    const ControlRect& rect = kControlTable[kTestButton].rect;
    const auto sounds = [&](double x, double y) {
        driver.calls.clear();
        panel->WindowEventHandler(PressEvent(x, y), [] { return kNoErr; });
        return !driver.calls.empty();
    };
    for (const int titleBar : {0, 22, 37}) {
        memoryWidgets.titleBarHeight = titleBar;
        const double top = rect.top + titleBar;
        const double bottom = rect.bottom + titleBar;
        EXPECT_TRUE(sounds(rect.left + 0.5, top + 0.5));
        EXPECT_TRUE(sounds(rect.right - 0.5, bottom - 0.5));
        EXPECT_FALSE(sounds(rect.left, top + 5));
        EXPECT_FALSE(sounds(rect.right, top + 5));
        EXPECT_FALSE(sounds(rect.left + 5, top));
        EXPECT_FALSE(sounds(rect.left + 5, bottom));
    }
}

TEST_F(NestedEvents, NoSecondQuestionComesUpWhileOneIsOpen) {
    memoryDialogs.alertAnswers.push_back({AlertHit::Default, [&] {
                                              person.CloseWindow();
                                              for (const int control : {kAbout, kLoad, kSave, kApply}) {
                                                  EXPECT_EQ(Hit(control), kNoErr) << control;
                                              }
                                              PanelEvent drop{.kind = EventKind::SettingsDropped};
                                              drop.path = "/nowhere/at/all";
                                              panel->WindowEventHandler(drop, [] { return kNoErr; });
                                          }});
    person.Click(kAbout, false);
    EXPECT_EQ(memoryDialogs.alerts.size(), 1U);
    EXPECT_TRUE(memoryDialogs.choosers.empty());
    EXPECT_EQ(memoryDialogs.mostOpenAtOnce, 1);
    EXPECT_TRUE(driver.calls.empty());
}

TEST_F(NestedEvents, QuestionsComeUpAgainOnceItIsAnswered) {
    for (int i = 0; i < 2; ++i) {
        memoryDialogs.alertAnswers.push_back({AlertHit::Default});
    }
    person.Click(kAbout, false);
    person.Click(kAbout, false);
    EXPECT_EQ(memoryDialogs.alerts.size(), 2U);
}

TEST_F(NestedEvents, PortSelectedWhileAKeyIsDealtWithTakesTheKeysText) {
    person.Click(kOutputName, false);
    panel->EditTextHandler(KeyEvent(kOutputName, 'a'), [&] {
        memoryWidgets.SelectRow(1);
        Hit(kPortList);
        memoryWidgets.Of(kOutputName).text = "a";
        return kNoErr;
    });
    Hit(kApply);
    EXPECT_STREQ(Stored().CustomNames[0].Out_CustomName.c_str(), "");
    EXPECT_STREQ(Stored().CustomNames[1].Out_CustomName.c_str(), "a");
}

}  // namespace
}  // namespace vexil
