// What is there when the panel has started.
#include "tests/scenarios/Scenario.h"

namespace vexil {
namespace {

using Options = std::vector<int>;

class Start : public Scenario {};

TEST_F(Start, ListShows64RowsFromPort11ToPort88) {
    Run([&] { EXPECT_EQ(Window().RowCount(), 64); });
}

TEST_F(Start, FirstRowIsSelected) {
    Run([&] { EXPECT_EQ(Window().SelectedRow(), 0); });
}

TEST_F(Start, WindowIsVisibleWhileThePanelRuns) {
    Run([&] { EXPECT_TRUE(world->IsWindowVisible()); });
    EXPECT_FALSE(world->IsWindowVisible());
}

TEST_F(Start, ConnectedPanelTellsWirelessModeBrowsesOpensTheTestAndSendsQuantization) {
    Run([&] { EXPECT_EQ(Sent(), (Options{196, 197, 202, 192, 193, 191})); });
}

TEST_F(Start, StoredUseWirelessIsTold) {
    DriverConfiguration stored;
    stored.MiscOptions = kDefaultMiscOptions | kUseWireless;
    Store(stored);
    Run([&] { EXPECT_EQ(Sent().front(), 195); });
}

TEST_F(Start, WirelessModeIsSentWithNullPayloadAndLength0) {
    Run([&] {
        const KernelCall call = LastCall(196);
        EXPECT_TRUE(call.nullPayload);
        EXPECT_EQ(call.length, 0U);
    });
}

TEST_F(Start, TestSectionIsEnabledWhenConnected) {
    Run([&] {
        for (const int control : {kTestLabel, kTestChannelNumber, kTestChannelArrows, kTestButton}) {
            EXPECT_TRUE(IsEnabled(control)) << control;
        }
    });
}

TEST_F(Start, WithoutDriverThePanelStartsWithTheTestSectionDisabled) {
    driver.driverPresent = false;
    Run([&] {
        for (const int control : {kTestLabel, kTestChannelNumber, kTestChannelArrows, kTestButton}) {
            EXPECT_FALSE(IsEnabled(control)) << control;
        }
    });
}

TEST_F(Start, WithoutDriverTheLookUpIsLogged) {
    driver.driverPresent = false;
    Run([] {});
    EXPECT_EQ(world->log.Count("Cannot find service id; error 2.\n"), 1);
}

TEST_F(Start, WithoutDriverOnlyTheTestOutputIsTriedAndTheFailureLoggedEachTime) {
    driver.driverPresent = false;
    Run([&] { EXPECT_EQ(Sent(), (Options{192, 192})); });
    EXPECT_EQ(world->log.Count("Service access error 107 openng testout 0\n"), 2);
}

TEST_F(Start, WithoutSocketThePanelStillStarts) {
    driver.socketError = EMFILE;
    Run([&] { EXPECT_TRUE(world->IsWindowVisible()); });
    EXPECT_EQ(world->log.Count("Cannot get socket; error 24.\n"), 1);
}

TEST_F(Start, RefusedConnectionIsLoggedWithTheCallsResult) {
    driver.connectError = EBUSY;
    Run([] {});
    EXPECT_EQ(world->log.Count("Cannot connect to service; error -1.\n"), 1);
}

TEST_F(Start, EmptyPreferencesShowTheDefaults) {
    Run([&] {
        EXPECT_FALSE(IsChecked(kLocalPipe));
        EXPECT_FALSE(IsChecked(kMidiIn));
        EXPECT_TRUE(IsChecked(kMidiOut));
        EXPECT_FALSE(IsChecked(kSourceComputerBox));
        EXPECT_FALSE(IsChecked(kSourcePortBox));
        EXPECT_FALSE(IsChecked(kSendImmediatelyBox));
        EXPECT_TRUE(IsChecked(kShowConnectorsBox));
        EXPECT_TRUE(IsChecked(kLaunchMonitorBox));
        EXPECT_TRUE(IsChecked(kEnableLoggingBox));
        EXPECT_FALSE(IsChecked(kUseWirelessBox));
        EXPECT_EQ(Value(kQuantizationSlider), 2);
        EXPECT_EQ(Text(kQuantizationNumber), "0.2");
        EXPECT_EQ(Text(kSourcePortNumber), "11");
        EXPECT_EQ(Text(kTargetPortNumber), "11");
        EXPECT_EQ(Text(kInputName), "");
        EXPECT_EQ(Text(kTargetComputer), "");
        EXPECT_EQ(Text(kTestChannelNumber), "1");
        EXPECT_EQ(Value(kTestChannelArrows), 1);
    });
}

TEST_F(Start, EmptyPreferencesEnableTheOutputSideOnly) {
    Run([&] {
        for (int control = kInputNameLabel; control <= kSourcePortArrows; ++control) {
            EXPECT_FALSE(IsEnabled(control)) << control;
        }
        for (int control = kOutputNameLabel; control <= kTestButton; ++control) {
            EXPECT_TRUE(IsEnabled(control)) << control;
        }
        EXPECT_TRUE(IsEnabled(kMidiIn));
        EXPECT_TRUE(IsEnabled(kMidiOut));
    });
}

TEST_F(Start, StoredConfigurationIsShown) {
    DriverConfiguration stored;
    stored.InputPorts = 1;
    stored.OutputPorts = 0;
    stored.PortFlags[0] = {kSendImmediately, 0, 7, 63};
    stored.Hosts[0].SrcHost = "alpha";
    stored.Hosts[0].DstHost = "beta";
    stored.CustomNames[0].In_CustomName = "Keys";
    stored.CustomNames[0].Out_CustomName = "Synth";
    stored.SendGranularity = 37;
    stored.MiscOptions = kLaunchMonitor;
    Store(stored);
    Run([&] {
        EXPECT_TRUE(IsChecked(kMidiIn));
        EXPECT_FALSE(IsChecked(kMidiOut));
        EXPECT_EQ(Text(kInputName), "Keys");
        EXPECT_EQ(Text(kOutputName), "Synth");
        EXPECT_EQ(Text(kSourceComputer), "alpha");
        EXPECT_EQ(Text(kTargetComputer), "beta");
        EXPECT_EQ(Text(kSourcePortNumber), "18");
        EXPECT_EQ(Value(kSourcePortArrows), 7);
        EXPECT_EQ(Text(kTargetPortNumber), "88");
        EXPECT_EQ(Value(kTargetPortArrows), 63);
        EXPECT_TRUE(IsChecked(kSourceComputerBox));
        EXPECT_TRUE(IsChecked(kSourcePortBox));
        EXPECT_TRUE(IsChecked(kSendImmediatelyBox));
        EXPECT_EQ(Value(kQuantizationSlider), 37);
        EXPECT_EQ(Text(kQuantizationNumber), "3.7");
        EXPECT_FALSE(IsChecked(kShowConnectorsBox));
        EXPECT_TRUE(IsChecked(kLaunchMonitorBox));
    });
}

TEST_F(Start, EnabledInputWithBothSourceBoxesCheckedEnablesItsWholeSide) {
    DriverConfiguration stored;
    stored.InputPorts = 1;
    stored.PortFlags[0].flags = 0;
    Store(stored);
    Run([&] {
        for (int control = kInputNameLabel; control <= kSourcePortArrows; ++control) {
            EXPECT_TRUE(IsEnabled(control)) << control;
        }
    });
}

TEST_F(Start, EnabledInputWithoutSourcesDisablesTheirControls) {
    DriverConfiguration stored;
    stored.InputPorts = 1;
    Store(stored);
    Run([&] {
        for (const int control : {kInputNameLabel, kInputName, kSourceComputerBox, kSourcePortBox}) {
            EXPECT_TRUE(IsEnabled(control)) << control;
        }
        for (const int control : {kSourceComputer, kSourcePortNumber, kSourcePortArrows}) {
            EXPECT_FALSE(IsEnabled(control)) << control;
        }
    });
}

TEST_F(Start, DisabledOutputDisablesItsSideAndTheTestSection) {
    DriverConfiguration stored;
    stored.InputPorts = 1;
    stored.OutputPorts = 0;
    Store(stored);
    Run([&] {
        for (int control = kOutputNameLabel; control <= kTestButton; ++control) {
            EXPECT_FALSE(IsEnabled(control)) << control;
        }
    });
}

TEST_F(Start, ApplyIsDisabledUntilSomethingIsEdited) {
    Run([&] { EXPECT_FALSE(CanApply()); });
}

TEST_F(Start, QuantizationBeyondTheSliderIsShownAndSentButNotChanged) {
    DriverConfiguration stored;
    stored.SendGranularity = 250;
    Store(stored);
    Run([&] {
        EXPECT_EQ(Value(kQuantizationSlider), 100);
        EXPECT_EQ(Text(kQuantizationNumber), "25.0");
        EXPECT_EQ(LastCall(191).bytes, (std::vector<std::uint8_t>{250, 0, 0, 0}));
        EXPECT_FALSE(CanApply());
    });
}

TEST_F(Start, StoredUseWirelessIsClearedInTheStoreWhileThePanelRuns) {
    DriverConfiguration stored;
    stored.MiscOptions = 0xf;
    Store(stored);
    Run([&] {
        EXPECT_EQ(Stored().MiscOptions, 0x7U);
        EXPECT_TRUE(IsChecked(kUseWirelessBox));
        EXPECT_FALSE(CanApply());
    });
}

TEST_F(Start, WirelessBitFoundAtStartIsBackAfterACleanExit) {
    DriverConfiguration stored;
    stored.MiscOptions = 0xf;
    Store(stored);
    Run([] {});
    EXPECT_EQ(Stored().MiscOptions, 0xfU);
}

TEST_F(Start, EmptyStoreHoldsOptions0AfterACleanExit) {
    Run([] {});
    EXPECT_EQ(Stored().MiscOptions, 0U);
}

TEST_F(Start, EveryPortsSettingsCanBeShown) {
    DriverConfiguration stored;
    for (int port = 0; port < kPortCount; ++port) {
        stored.CustomNames[port].Out_CustomName.Format("out %d", port);
    }
    Store(stored);
    Run([&] {
        for (const int port : {63, 8, 0}) {
            Hands().ClickRow(port);
            EXPECT_EQ(Text(kOutputName), "out " + std::to_string(port));
        }
    });
}

}  // namespace
}  // namespace vexil
