// Apply, and what its two alerts say.
#include "tests/scenarios/Scenario.h"

namespace vexil {
namespace {

using Options = std::vector<int>;

class Apply : public Scenario {};

TEST_F(Apply, AnnouncesTheConfigurationWithoutPayload) {
    Run([&] {
        Hands().MoveSlider(10);
        Sent();
        Hands().Click(kApply);
        const KernelCall call = driver.OptionCalls().back();
        EXPECT_EQ(call.option, 190);
        EXPECT_TRUE(call.nullPayload);
        EXPECT_EQ(call.length, 0U);
        EXPECT_EQ(Sent(), Options{190});
    });
}

TEST_F(Apply, NothingIsStoredBeforeIt) {
    Run([&] {
        Hands().MoveSlider(10);
        EXPECT_EQ(Stored().SendGranularity, 2U);
        Hands().Click(kApply);
        EXPECT_EQ(Stored().SendGranularity, 10U);
    });
}

TEST_F(Apply, WithoutDriverStoresAndSendsNothing) {
    driver.driverPresent = false;
    Run([&] {
        Hands().MoveSlider(10);
        Sent();
        Hands().Click(kApply);
        EXPECT_EQ(Sent(), Options());
        EXPECT_EQ(Stored().SendGranularity, 10U);
        EXPECT_FALSE(CanApply());
    });
}

TEST_F(Apply, DriversRefusalIsNotLoggedAndChangesNothing) {
    driver.optionErrors[190] = EIO;
    Run([&] {
        Hands().MoveSlider(10);
        world->log.Clear();
        Hands().Click(kApply);
        EXPECT_EQ(world->log.Text(), "");
        EXPECT_FALSE(CanApply());
    });
}

TEST_F(Apply, DisabledButtonDoesNothing) {
    Run([&] {
        Sent();
        Hands().Click(kApply);
        EXPECT_EQ(Sent(), Options());
    });
}

TEST_F(Apply, ConfigurationWithoutPortsIsReportedCorrectedAndApplied) {
    Run([&] {
        Hands().Click(kMidiOut);
        Answer(AlertHit::Default);
        Sent();
        Hands().Click(kApply);
        EXPECT_EQ(Sent(), Options{190});
        EXPECT_EQ(Stored().OutputPorts, 1U);
        EXPECT_EQ(Stored().InputPorts, 0U);
        EXPECT_FALSE(CanApply());
    });
    ASSERT_EQ(dialogs.alerts.size(), 1U);
    const AlertRequest& alert = dialogs.alerts[0];
    EXPECT_EQ(alert.message, "Inadmissible configuration found!");
    EXPECT_EQ(alert.explanation,
              "At least one Vexil3Port should be enabled. By default Vexil3Port 1(11) output will be set "
              "enabled.");
    EXPECT_EQ(alert.defaultButton.title, "Ok");
    EXPECT_EQ(alert.cancelButton.kind, AlertButton::Kind::None);
    EXPECT_EQ(alert.otherButton.kind, AlertButton::Kind::None);
    EXPECT_EQ(alert.kind, kAlertCaution);
}

TEST_F(Apply, CorrectionIsSeenWhenThePortIsShownAgain) {
    Run([&] {
        Hands().Click(kMidiOut);
        Answer(AlertHit::Default);
        Hands().Click(kApply);
        EXPECT_FALSE(IsChecked(kMidiOut)) << "no control is refreshed by the correction";
        Hands().ClickRow(0);
        EXPECT_TRUE(IsChecked(kMidiOut));
    });
}

TEST_F(Apply, NothingIsStoredWhileTheReportOfAnInadmissibleConfigurationIsOpen) {
    Run([&] {
        Hands().Click(kMidiOut);
        Answer(AlertHit::Default, [&] { EXPECT_TRUE(world->preferences.Changes().empty()); });
        world->preferences.Forget();
        Hands().Click(kApply);
    });
}

TEST_F(Apply, InputAloneIsAdmissible) {
    Run([&] {
        Hands().Click(kMidiIn);
        Hands().Click(kMidiOut);
        Hands().Click(kApply);
        EXPECT_EQ(Stored().InputPorts, 1U);
        EXPECT_EQ(Stored().OutputPorts, 0U);
    });
}

TEST_F(Apply, ChangedWirelessIsReportedOnce) {
    Run([&] {
        Hands().Click(kUseWirelessBox);
        Answer(AlertHit::Default);
        Hands().Click(kApply);
        Hands().MoveSlider(9);
        Hands().Click(kApply);
    });
    ASSERT_EQ(dialogs.alerts.size(), 1U);
    const AlertRequest& alert = dialogs.alerts[0];
    EXPECT_EQ(alert.message, "\"Use Wireless\" option has been changed!");
    EXPECT_EQ(alert.explanation, "The option will be applied at the next start of the Control Panel.");
    EXPECT_EQ(alert.defaultButton.title, "Ok");
    EXPECT_EQ(alert.cancelButton.kind, AlertButton::Kind::None);
    EXPECT_EQ(alert.otherButton.kind, AlertButton::Kind::None);
    EXPECT_EQ(alert.kind, kAlertCaution);
}

TEST_F(Apply, WirelessReportComesAfterTheAnnouncement) {
    Run([&] {
        Hands().Click(kUseWirelessBox);
        Sent();
        Answer(AlertHit::Default, [&] { EXPECT_EQ(Sent(), Options{190}); });
        Hands().Click(kApply);
    });
}

TEST_F(Apply, AppliedWirelessIsStoredOnlyByTheExit) {
    Run([&] {
        Hands().Click(kUseWirelessBox);
        Answer(AlertHit::Default);
        Hands().Click(kApply);
        EXPECT_EQ(Stored().MiscOptions, 7U);
        EXPECT_TRUE(IsChecked(kUseWirelessBox));
        EXPECT_FALSE(CanApply());
    });
    EXPECT_EQ(Stored().MiscOptions, 15U);
}

TEST_F(Apply, WirelessModeIsNotSentByIt) {
    Run([&] {
        Hands().Click(kUseWirelessBox);
        Answer(AlertHit::Default);
        Sent();
        Hands().Click(kApply);
        EXPECT_EQ(Sent(), Options{190});
    });
}

TEST_F(Apply, WirelessSwitchedOffAgainIsReportedAgainAndGoneAfterTheExit) {
    Run([&] {
        for (int i = 0; i < 2; ++i) {
            Hands().Click(kUseWirelessBox);
            Answer(AlertHit::Default);
            Hands().Click(kApply);
        }
    });
    EXPECT_EQ(dialogs.alerts.size(), 2U);
    EXPECT_EQ(Stored().MiscOptions, 7U);
}

TEST_F(Apply, WirelessThatWasNotAppliedIsNotStored) {
    Run([&] {
        Hands().Click(kUseWirelessBox);
        QuitWithoutApplying();
    });
    EXPECT_EQ(Stored().MiscOptions & kUseWireless, 0U);
}

TEST_F(Apply, BothReportsComeOneAfterTheOther) {
    Run([&] {
        Hands().Click(kMidiOut);
        Hands().Click(kUseWirelessBox);
        Answer(AlertHit::Default);
        Answer(AlertHit::Default);
        Hands().Click(kApply);
    });
    ASSERT_EQ(dialogs.alerts.size(), 2U);
    EXPECT_EQ(dialogs.alerts[0].message, "Inadmissible configuration found!");
    EXPECT_EQ(dialogs.alerts[1].message, "\"Use Wireless\" option has been changed!");
    EXPECT_EQ(dialogs.mostOpenAtOnce, 1);
}

TEST_F(Apply, SessionThatEndsDuringTheReportStillAppliesAndQuits) {
    Run([&] {
        Hands().Click(kUseWirelessBox);
        Answer(AlertHit::Default, [&] { world->EndSession(); });
        Hands().Click(kApply);
    });
    EXPECT_EQ(Stored().MiscOptions, 15U);
}

}  // namespace
}  // namespace vexil
