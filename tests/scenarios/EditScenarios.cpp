// Check boxes, arrows and slider: what each changes, enables and sends.
#include "tests/scenarios/Scenario.h"

namespace vexil {
namespace {

using Options = std::vector<int>;

// Port 11 has both sides on.
class Edit : public Scenario {
  protected:
    Edit() {
        DriverConfiguration stored;
        stored.InputPorts = 1;
        Store(stored);
    }

    // Clicks Apply and gives what is stored then.
    DriverConfiguration Applied() {
        EXPECT_TRUE(CanApply());
        Hands().Click(kApply);
        EXPECT_FALSE(CanApply());
        return Stored();
    }
};

TEST_F(Edit, MidiInOffIsStored) {
    Run([&] {
        Hands().Click(kMidiIn);
        EXPECT_EQ(Applied().InputPorts, 0U);
    });
}

TEST_F(Edit, MidiInOffDisablesItsSideAndSendsNothing) {
    Run([&] {
        Sent();
        Hands().Click(kMidiIn);
        for (int control = kInputNameLabel; control <= kSourcePortArrows; ++control) {
            EXPECT_FALSE(IsEnabled(control)) << control;
        }
        EXPECT_TRUE(IsEnabled(kMidiIn));
        EXPECT_EQ(Sent(), Options());
        QuitWithoutApplying();
    });
}

TEST_F(Edit, MidiInOnAgainBrowsesAndEnablesItsSide) {
    Run([&] {
        Hands().Click(kMidiIn);
        Sent();
        Hands().Click(kMidiIn);
        EXPECT_EQ(Sent(), (Options{197, 202}));
        for (const int control : {kInputNameLabel, kInputName, kSourceComputerBox, kSourcePortBox}) {
            EXPECT_TRUE(IsEnabled(control)) << control;
        }
        EXPECT_FALSE(IsEnabled(kSourceComputer));
    });
}

TEST_F(Edit, MidiOutOffClosesTheTestAndDisablesItsSide) {
    Run([&] {
        Sent();
        Hands().Click(kMidiOut);
        EXPECT_EQ(Sent(), Options{194});
        for (int control = kOutputNameLabel; control <= kTestButton; ++control) {
            EXPECT_FALSE(IsEnabled(control)) << control;
        }
        QuitWithoutApplying();
    });
}

TEST_F(Edit, MidiOutOnBrowsesOpensTheTestAndEnablesItsSide) {
    Run([&] {
        Hands().Click(kMidiOut);
        Sent();
        Hands().Click(kMidiOut);
        EXPECT_EQ(Sent(), (Options{197, 202, 192, 193}));
        for (int control = kOutputNameLabel; control <= kTestButton; ++control) {
            EXPECT_TRUE(IsEnabled(control)) << control;
        }
    });
}

TEST_F(Edit, MidiOutOffIsStored) {
    Run([&] {
        Hands().Click(kMidiOut);
        EXPECT_EQ(Applied().OutputPorts, 0U);
    });
}

TEST_F(Edit, LastPortsBitIsBit63) {
    Run([&] {
        Hands().ClickRow(63);
        Hands().Click(kMidiIn);
        Hands().Click(kMidiOut);
        Hands().Click(kLocalPipe);
        const DriverConfiguration applied = Applied();
        EXPECT_EQ(applied.InputPorts, 0x8000000000000001U);
        EXPECT_EQ(applied.OutputPorts, 0x8000000000000001U);
        EXPECT_EQ(applied.LocalPipes, 0x8000000000000000U);
    });
}

TEST_F(Edit, CheckedSourceComputerClearsTheUnusedBitAndEnablesTheComboBox) {
    Run([&] {
        Sent();
        Hands().Click(kSourceComputerBox);
        EXPECT_TRUE(IsChecked(kSourceComputerBox));
        EXPECT_TRUE(IsEnabled(kSourceComputer));
        EXPECT_EQ(Sent(), Options());
        EXPECT_EQ(Applied().PortFlags[0].flags, kSourcePortUnused);
    });
}

TEST_F(Edit, UncheckedSourceComputerSetsTheUnusedBitAndDisablesTheComboBox) {
    Run([&] {
        Hands().Click(kSourceComputerBox);
        Hands().Click(kApply);
        Hands().Click(kSourceComputerBox);
        EXPECT_FALSE(IsEnabled(kSourceComputer));
        EXPECT_EQ(Applied().PortFlags[0].flags, 0xc0);
    });
}

TEST_F(Edit, CheckedSourcePortClearsTheUnusedBitAndEnablesNumberAndArrows) {
    Run([&] {
        Sent();
        Hands().Click(kSourcePortBox);
        EXPECT_TRUE(IsEnabled(kSourcePortNumber));
        EXPECT_TRUE(IsEnabled(kSourcePortArrows));
        EXPECT_EQ(Sent(), Options());
        EXPECT_EQ(Applied().PortFlags[0].flags, kSourceComputerUnused);
    });
}

TEST_F(Edit, UncheckedSourcePortSetsTheUnusedBitAndDisablesNumberAndArrows) {
    Run([&] {
        Hands().Click(kSourcePortBox);
        Hands().Click(kApply);
        Hands().Click(kSourcePortBox);
        EXPECT_FALSE(IsEnabled(kSourcePortNumber));
        EXPECT_FALSE(IsEnabled(kSourcePortArrows));
        EXPECT_EQ(Applied().PortFlags[0].flags, 0xc0);
    });
}

TEST_F(Edit, SendImmediatelyIsStoredAndRetargetsTheTest) {
    Run([&] {
        Sent();
        Hands().Click(kSendImmediatelyBox);
        EXPECT_EQ(LastCall(192).bytes.at(0), 0xc1);
        EXPECT_EQ(Sent(), (Options{194, 192, 193}));
        EXPECT_EQ(Applied().PortFlags[0].flags, 0xc1);
    });
}

TEST_F(Edit, FourOptionsAreStoredAndResendTheQuantization) {
    const struct {
        int control;
        std::uint32_t option;
    } boxes[] = {{kShowConnectorsBox, kShowConnectors},
                 {kLaunchMonitorBox, kLaunchMonitor},
                 {kEnableLoggingBox, kEnableLogging}};
    Run([&] {
        for (const auto& box : boxes) {
            Sent();
            Hands().Click(box.control);
            EXPECT_EQ(Sent(), Options{191}) << box.control;
            EXPECT_EQ(Applied().MiscOptions, kDefaultMiscOptions & ~box.option) << box.control;
            Hands().Click(box.control);
            EXPECT_EQ(Applied().MiscOptions, kDefaultMiscOptions) << box.control;
        }
    });
}

TEST_F(Edit, UseWirelessMarksThePanelAsChanged) {
    Run([&] {
        Sent();
        Hands().Click(kUseWirelessBox);
        EXPECT_TRUE(IsChecked(kUseWirelessBox));
        EXPECT_EQ(Sent(), Options{191});
        EXPECT_TRUE(CanApply());
        QuitWithoutApplying();
    });
}

TEST_F(Edit, EveryCheckBoxToggledTwiceLeavesApplyDisabled) {
    Run([&] {
        for (const int control :
             {kLocalPipe, kMidiIn, kMidiOut, kSourceComputerBox, kSourcePortBox, kSendImmediatelyBox,
              kShowConnectorsBox, kLaunchMonitorBox, kEnableLoggingBox, kUseWirelessBox}) {
            Hands().Click(control);
            EXPECT_TRUE(CanApply()) << control;
            Hands().Click(control);
            EXPECT_FALSE(CanApply()) << control;
        }
    });
}

TEST_F(Edit, SourcePortArrowsChangeTheNumberAndSendNothing) {
    Run([&] {
        Hands().Click(kSourcePortBox);
        Sent();
        Hands().StepArrows(kSourcePortArrows, true, StepBy::Mouse);
        EXPECT_EQ(Text(kSourcePortNumber), "12");
        EXPECT_EQ(Sent(), Options());
        EXPECT_EQ(Applied().PortFlags[0].sourcePort, 1);
    });
}

TEST_F(Edit, TargetPortArrowsChangeTheNumberAndRetargetTheTest) {
    Run([&] {
        Sent();
        Hands().StepArrows(kTargetPortArrows, true, StepBy::Mouse);
        EXPECT_EQ(Text(kTargetPortNumber), "12");
        EXPECT_EQ(LastCall(192).bytes.at(3), 1);
        EXPECT_EQ(Sent(), (Options{194, 192, 193}));
        EXPECT_EQ(Applied().PortFlags[0].targetPort, 1);
    });
}

TEST_F(Edit, HeldArrowRetargetsAtEveryStep) {
    Run([&] {
        Sent();
        Hands().HoldArrows(kTargetPortArrows, true, 3);
        EXPECT_EQ(Text(kTargetPortNumber), "14");
        EXPECT_EQ(Sent(), (Options{194, 192, 193, 194, 192, 193, 194, 192, 193}));
        QuitWithoutApplying();
    });
}

TEST_F(Edit, ArrowsTakeKeysAndWheel) {
    Run([&] {
        Hands().StepArrows(kTargetPortArrows, true, StepBy::Key);
        EXPECT_EQ(Text(kTargetPortNumber), "12");
        Hands().StepArrows(kTargetPortArrows, true, StepBy::Wheel);
        EXPECT_EQ(Text(kTargetPortNumber), "13");
        Hands().StepArrows(kTargetPortArrows, false, StepBy::Wheel);
        Hands().StepArrows(kTargetPortArrows, false, StepBy::Key);
        EXPECT_EQ(Text(kTargetPortNumber), "11");
        EXPECT_FALSE(CanApply());
    });
}

TEST_F(Edit, ArrowsStopAtTheirEnds) {
    DriverConfiguration stored;
    stored.PortFlags[0].targetPort = 62;
    Store(stored);
    Run([&] {
        Hands().HoldArrows(kTargetPortArrows, true, 3);
        EXPECT_EQ(Text(kTargetPortNumber), "88");
        EXPECT_EQ(Applied().PortFlags[0].targetPort, 63);
    });
}

TEST_F(Edit, ArrowDownAt0Stays) {
    Run([&] {
        Hands().StepArrows(kTargetPortArrows, false, StepBy::Mouse);
        EXPECT_EQ(Text(kTargetPortNumber), "11");
        EXPECT_FALSE(CanApply());
    });
}

TEST_F(Edit, ChannelArrowsShowTheChannelFrom1To16AndAreNoSetting) {
    Run([&] {
        Sent();
        Hands().StepArrows(kTestChannelArrows, false, StepBy::Mouse);
        EXPECT_EQ(Text(kTestChannelNumber), "1");
        Hands().HoldArrows(kTestChannelArrows, true, 20);
        EXPECT_EQ(Text(kTestChannelNumber), "16");
        EXPECT_FALSE(CanApply());
        EXPECT_EQ(Sent(), Options());
    });
}

TEST_F(Edit, ChannelStaysWhenAnotherPortIsSelected) {
    Run([&] {
        Hands().HoldArrows(kTestChannelArrows, true, 4);
        Hands().ClickRow(5);
        EXPECT_EQ(Text(kTestChannelNumber), "5");
    });
}

TEST_F(Edit, SliderAt37Shows3point7AndIsSentAtOnce) {
    Run([&] {
        Sent();
        Hands().MoveSlider(37);
        EXPECT_EQ(Text(kQuantizationNumber), "3.7");
        EXPECT_EQ(LastCall(191).bytes, (std::vector<std::uint8_t>{37, 0, 0, 0}));
        EXPECT_EQ(Applied().SendGranularity, 37U);
    });
}

TEST_F(Edit, SliderAt100Shows10point0) {
    Run([&] {
        Hands().MoveSlider(100);
        EXPECT_EQ(Text(kQuantizationNumber), "10.0");
        QuitWithoutApplying();
    });
}

TEST_F(Edit, SliderBackAtItsPlaceLeavesApplyDisabled) {
    Run([&] {
        Hands().MoveSlider(0);
        EXPECT_TRUE(CanApply());
        Hands().MoveSlider(2);
        EXPECT_FALSE(CanApply());
    });
}

TEST_F(Edit, FailedQuantizationIsLoggedAndTheEditStays) {
    driver.optionErrors[191] = EIO;
    Run([&] {
        world->log.Clear();
        Hands().MoveSlider(50);
        EXPECT_EQ(world->log.Text(), "Set_TstSndGrn error 5.\n");
        EXPECT_EQ(Text(kQuantizationNumber), "5.0");
        EXPECT_TRUE(CanApply());
        QuitWithoutApplying();
    });
}

TEST_F(Edit, WithoutDriverTheQuantizationIsShownAndNotSent) {
    driver.driverPresent = false;
    Run([&] {
        Sent();
        Hands().MoveSlider(50);
        EXPECT_EQ(Text(kQuantizationNumber), "5.0");
        EXPECT_EQ(Sent(), Options());
        QuitWithoutApplying();
    });
}

TEST_F(Edit, EditsOfOnePortLeaveTheOthers) {
    Run([&] {
        Hands().ClickRow(9);
        Hands().Click(kMidiOut);
        Hands().Click(kSendImmediatelyBox);
        const DriverConfiguration applied = Applied();
        EXPECT_EQ(applied.PortFlags[9].flags, 0xc1);
        EXPECT_EQ(applied.PortFlags[8], DefaultPortEntry(8));
        EXPECT_EQ(applied.PortFlags[10], DefaultPortEntry(10));
        EXPECT_EQ(applied.OutputPorts, 0x201U);
    });
}

}  // namespace
}  // namespace vexil
