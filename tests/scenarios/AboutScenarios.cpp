// The About box, and the removal of the host list cache behind the Command key.
#include "tests/scenarios/Scenario.h"

namespace vexil {
namespace {

class About : public Scenario {
  protected:
    bool HasCache() {
        return world->preferences.CopyValue("Cache", kDriverDomain, UserScope::kCFPreferencesAnyUser,
                                            HostScope::kCFPreferencesCurrentHost) != nullptr;
    }
};

TEST_F(About, BoxIsExact) {
    Run([&] {
        Answer(AlertHit::Default);
        Hands().Click(kAbout);
    });
    ASSERT_EQ(dialogs.alerts.size(), 1U);
    const AlertRequest& alert = dialogs.alerts[0];
    EXPECT_EQ(alert.message, "About Vexil III MIDI Driver:");
    EXPECT_EQ(alert.explanation, "TonalBridge CP Version 3.3 build 900\n\n");
    EXPECT_EQ(alert.defaultButton.title, "Ok");
    EXPECT_EQ(alert.cancelButton.kind, AlertButton::Kind::None);
    EXPECT_EQ(alert.otherButton.kind, AlertButton::Kind::None);
    EXPECT_EQ(alert.kind, kAlertNote);
}

TEST_F(About, BoxChangesAndRemovesNothing) {
    driver.hostInfos = HostInfos({"alpha"});
    Run([&] {
        world->log.Clear();
        Answer(AlertHit::Default);
        Hands().Click(kAbout);
        EXPECT_FALSE(CanApply());
        EXPECT_TRUE(HasCache());
        EXPECT_EQ(world->log.Text(), "");
    });
    EXPECT_TRUE(world->restarter.steps.empty());
}

TEST_F(About, CommandClickAsksAboutTheCache) {
    Run([&] {
        Answer(AlertHit::Other);
        Hands().Click(kAbout, true);
    });
    ASSERT_EQ(dialogs.alerts.size(), 1U);
    const AlertRequest& alert = dialogs.alerts[0];
    EXPECT_EQ(alert.message, "Cache Remove");
    EXPECT_EQ(alert.explanation,
              "Target computer list cache removal     \nrequires immediate reboot!\n\nProceed with cache "
              "removal now?");
    EXPECT_EQ(alert.defaultButton.title, "Ok");
    EXPECT_EQ(alert.otherButton.title, "Cancel");
    EXPECT_EQ(alert.cancelButton.kind, AlertButton::Kind::None);
    EXPECT_EQ(alert.kind, kAlertCaution);
}

TEST_F(About, CanceledRemovalKeepsTheCacheAndLogsNothing) {
    driver.hostInfos = HostInfos({"alpha"});
    Run([&] {
        world->log.Clear();
        Answer(AlertHit::Other);
        Hands().Click(kAbout, true);
        EXPECT_TRUE(HasCache());
        EXPECT_EQ(world->log.Text(), "");
    });
    EXPECT_TRUE(world->restarter.steps.empty());
}

TEST_F(About, EscapeKeepsTheCacheAndRestartsNothing) {
    driver.hostInfos = HostInfos({"alpha"});
    Run([&] {
        Answer(AlertHit::Escape);
        Hands().Click(kAbout, true);
        EXPECT_TRUE(HasCache());
    });
    EXPECT_TRUE(world->restarter.steps.empty());
}

TEST_F(About, RemovalIsLoggedAndAsksForARestart) {
    driver.hostInfos = HostInfos({"alpha"});
    Run([&] {
        world->log.Clear();
        Answer(AlertHit::Default);
        Hands().Click(kAbout, true);
        EXPECT_FALSE(HasCache());
        EXPECT_EQ(world->log.Text(), "Target computer list cache has been removed.");
    });
    EXPECT_EQ(world->restarter.requests, std::vector<std::uint32_t>{0x72657374});
}

TEST_F(About, RemovalOfNoCacheIsLoggedAndAsksForARestartAllTheSame) {
    Run([&] {
        world->log.Clear();
        Answer(AlertHit::Default);
        Hands().Click(kAbout, true);
        EXPECT_EQ(world->log.Text(), "Target computer list cache has been removed.");
    });
    EXPECT_EQ(world->restarter.requests.size(), 1U);
}

TEST_F(About, PanelGoesOnAfterTheRemoval) {
    Run([&] {
        Answer(AlertHit::Default);
        Hands().Click(kAbout, true);
        EXPECT_TRUE(world->IsWindowVisible());
        Hands().MoveSlider(9);
        EXPECT_TRUE(CanApply());
        QuitWithoutApplying();
    });
}

}  // namespace
}  // namespace vexil
