// Choosing a port, and local pipe mode: what happens to the test output.
#include "tests/scenarios/Scenario.h"

namespace vexil {
namespace {

using Options = std::vector<int>;

class Ports : public Scenario {};

TEST_F(Ports, SelectingClosesTheOldTestAndBrowses) {
    Run([&] {
        Sent();
        Hands().ClickRow(12);
        EXPECT_EQ(LastCall(194).bytes, (std::vector<std::uint8_t>{0, 0, 0, 0}));
        EXPECT_EQ(Sent(), (Options{194, 197, 202}));
    });
}

TEST_F(Ports, SelectingAPortWithAnOutputOpensItsTest) {
    DriverConfiguration stored;
    stored.OutputPorts = 0x8000000000000001;
    stored.PortFlags[63] = {0xc1, 0, 4, 5};
    stored.Hosts[63].DstHost = "dst";
    stored.Hosts[63].SrcHost = "s";
    Store(stored);
    Run([&] {
        Sent();
        Hands().ClickRow(63);
        EXPECT_EQ(LastCall(192).bytes,
                  (std::vector<std::uint8_t>{0xc1, 63, 4, 5, 'd', 's', 't', 0, 's', 0, 0}));
        EXPECT_EQ(LastCall(193).bytes, (std::vector<std::uint8_t>{63, 0, 0, 0}));
        EXPECT_EQ(Sent(), (Options{194, 197, 202, 192, 193}));
    });
}

TEST_F(Ports, SelectingTheSameRowAgainReopensItsTest) {
    Run([&] {
        Sent();
        Hands().ClickRow(0);
        EXPECT_EQ(Sent(), (Options{194, 197, 202, 192, 193}));
    });
}

TEST_F(Ports, CommandClickSelectsAndNeverDeselects) {
    Run([&] {
        Hands().ClickRow(4, true);
        EXPECT_EQ(Window().SelectedRow(), 4);
        Hands().ClickRow(4, true);
        EXPECT_EQ(Window().SelectedRow(), 4);
    });
}

TEST_F(Ports, SelectingIsNoEdit) {
    Run([&] {
        Hands().ClickRow(33);
        EXPECT_FALSE(CanApply());
    });
}

TEST_F(Ports, ArrowKeysMoveTheSelectionAndCloseTheOldTest) {
    Run([&] {
        Hands().ClickRow(0);
        Sent();
        Hands().Press(Key::Down);
        EXPECT_EQ(Window().SelectedRow(), 1);
        EXPECT_EQ(Text(kTargetPortNumber), "12");
        EXPECT_EQ(Sent(), (Options{194, 197, 202}));
        Hands().Press(Key::Up);
        EXPECT_EQ(Window().SelectedRow(), 0);
        EXPECT_EQ(Text(kTargetPortNumber), "11");
        EXPECT_EQ(Sent(), (Options{197, 202, 192, 193}));
    });
}

TEST_F(Ports, ArrowKeysStopAtTheListsEnds) {
    Run([&] {
        Hands().ClickRow(0);
        Hands().Press(Key::Up);
        EXPECT_EQ(Window().SelectedRow(), 0);
        Hands().ClickRow(63);
        Hands().Press(Key::Down);
        EXPECT_EQ(Window().SelectedRow(), 63);
        EXPECT_EQ(Text(kTargetPortNumber), "88");
    });
}

TEST_F(Ports, LettersDoNotMoveTheSelection) {
    Run([&] {
        Hands().ClickRow(3);
        Sent();
        Hands().Type("Port 7");
        EXPECT_EQ(Window().SelectedRow(), 3);
        EXPECT_EQ(Sent(), Options());
    });
}

TEST_F(Ports, FailedCloseIsLoggedAndTheNewPortIsShownAllTheSame) {
    driver.optionErrors[194] = EIO;
    Run([&] {
        world->log.Clear();
        Hands().ClickRow(2);
        EXPECT_EQ(world->log.Count("Cannot deactivate testout 0; error 5\n"), 1);
        EXPECT_EQ(Text(kTargetPortNumber), "13");
    });
}

TEST_F(Ports, TestThatCouldNotBeClosedIsNotOpenedAgain) {
    driver.optionErrors[194] = EIO;
    Run([&] {
        Hands().ClickRow(2);
        Sent();
        Hands().ClickRow(0);
        EXPECT_EQ(Sent(), (Options{197, 202}));
    });
}

TEST_F(Ports, PipeOnDisablesBothGroupsAndClosesTheTest) {
    Run([&] {
        Sent();
        Hands().Click(kLocalPipe);
        EXPECT_FALSE(IsEnabled(kMidiIn));
        EXPECT_FALSE(IsEnabled(kMidiOut));
        EXPECT_EQ(Sent(), Options{194});
        EXPECT_TRUE(CanApply());
        QuitWithoutApplying();
    });
}

TEST_F(Ports, PipeOffEnablesBothGroupsAndReopensTheTest) {
    Run([&] {
        Hands().Click(kLocalPipe);
        Sent();
        Hands().Click(kLocalPipe);
        EXPECT_TRUE(IsEnabled(kMidiIn));
        EXPECT_TRUE(IsEnabled(kMidiOut));
        EXPECT_EQ(Sent(), (Options{192, 193}));
        EXPECT_FALSE(CanApply());
    });
}

TEST_F(Ports, PipeOffOnAPortWithoutOutputOpensNothing) {
    Run([&] {
        Hands().ClickRow(5);
        Hands().Click(kLocalPipe);
        Sent();
        Hands().Click(kLocalPipe);
        EXPECT_EQ(Sent(), Options());
    });
}

TEST_F(Ports, PipeIsStored) {
    Run([&] {
        Hands().Click(kLocalPipe);
        Hands().Click(kApply);
    });
    EXPECT_EQ(Stored().LocalPipes, 1U);
}

TEST_F(Ports, PipeKeepsWhatTheGroupsControlsAreThemselves) {
    Run([&] {
        Hands().Click(kLocalPipe);
        EXPECT_TRUE(IsEnabled(kOutputName));
        EXPECT_FALSE(IsEnabled(kInputName));
        Hands().Click(kLocalPipe);
    });
}

TEST_F(Ports, NothingInADisabledGroupCanBeUsed) {
    Run([&] {
        Hands().Click(kLocalPipe);
        Hands().Click(kApply);
        Sent();
        Hands().Click(kMidiOut);
        Hands().Click(kSendImmediatelyBox);
        Hands().StepArrows(kTargetPortArrows, true, StepBy::Mouse);
        EXPECT_FALSE(CanApply());
        EXPECT_EQ(Sent(), Options());
    });
}

TEST_F(Ports, SelectingAPipePortOpensItsTestAndClosesItAgain) {
    DriverConfiguration stored;
    stored.OutputPorts = 3;
    stored.LocalPipes = 2;
    Store(stored);
    Run([&] {
        Sent();
        Hands().ClickRow(1);
        EXPECT_EQ(Sent(), (Options{194, 197, 202, 192, 193, 194}));
        EXPECT_FALSE(IsEnabled(kMidiOut));
        EXPECT_TRUE(IsChecked(kLocalPipe));
        Hands().ClickRow(0);
        EXPECT_TRUE(IsEnabled(kMidiOut));
        EXPECT_FALSE(IsChecked(kLocalPipe));
    });
}

TEST_F(Ports, TestThatDoesNotOpenIsTriedAgainByThePipeStep) {
    DriverConfiguration stored;
    stored.OutputPorts = 3;
    Store(stored);
    Run([&] {
        driver.optionErrors[193] = EIO;
        world->log.Clear();
        Sent();
        Hands().ClickRow(1);
        EXPECT_EQ(Sent(), (Options{194, 197, 202, 192, 193, 192, 193}));
        EXPECT_EQ(world->log.Count("Cannot activate testout 1; error 5\n"), 2);
        EXPECT_TRUE(IsEnabled(kTestButton));
    });
}

TEST_F(Ports, WithoutDriverSelectingSendsOnlyTheTestAttempts) {
    driver.driverPresent = false;
    DriverConfiguration stored;
    stored.OutputPorts = 3;
    Store(stored);
    Run([&] {
        Sent();
        Hands().ClickRow(1);
        EXPECT_EQ(Sent(), (Options{192, 192}));
        EXPECT_FALSE(IsEnabled(kTestButton));
    });
}

TEST_F(Ports, WithoutDriverTheSideSwitchedOnKeepsTheTestSectionDisabled) {
    driver.driverPresent = false;
    Run([&] {
        Hands().Click(kMidiOut);
        Hands().Click(kMidiOut);
        EXPECT_TRUE(IsEnabled(kSendImmediatelyBox));
        for (int control = kTestLabel; control <= kTestButton; ++control) {
            EXPECT_FALSE(IsEnabled(control)) << control;
        }
    });
}

TEST_F(Ports, RefusedRetargetKeepsTheOldTarget) {
    driver.optionErrors[194] = EIO;
    Run([&] {
        Sent();
        Hands().StepArrows(kTargetPortArrows, true, StepBy::Mouse);
        EXPECT_EQ(Sent(), Options{194});
        QuitWithoutApplying();
    });
}

TEST_F(Ports, ClosedTestIsNotRetargeted) {
    driver.optionErrors[192] = EIO;
    Run([&] {
        Sent();
        Hands().StepArrows(kTargetPortArrows, true, StepBy::Mouse);
        EXPECT_EQ(Sent(), Options());
        QuitWithoutApplying();
    });
}

TEST_F(Ports, QuittingClosesTheOpenTest) {
    Run([&] { Sent(); });
    EXPECT_EQ(Sent(), Options{194});
}

TEST_F(Ports, QuittingWithAClosedTestSendsNothing) {
    DriverConfiguration stored;
    stored.OutputPorts = 2;
    Store(stored);
    Run([&] { Sent(); });
    EXPECT_EQ(Sent(), Options());
}

TEST_F(Ports, FailedCloseAtTheEndIsLogged) {
    Run([&] {
        driver.optionErrors[194] = EIO;
        world->log.Clear();
    });
    EXPECT_EQ(world->log.Text(), "Cannot deactivate testout 0; error 5\n");
}

TEST_F(Ports, WithoutDriverQuittingClosesNoTest) {
    driver.driverPresent = false;
    Run([&] { Sent(); });
    EXPECT_EQ(Sent(), Options());
}

TEST_F(Ports, DescriptorIsClosedAtTheEnd) {
    Run([&] { EXPECT_EQ(driver.OpenDescriptors(), 1U); });
    EXPECT_EQ(driver.OpenDescriptors(), 0U);
}

}  // namespace
}  // namespace vexil
