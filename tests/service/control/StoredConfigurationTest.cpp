// What the driver completes in its stored configuration, and what counts as a change of it.
#include "service/control/StoredConfiguration.h"

#include <gtest/gtest.h>

#include "config/DriverPreferences.h"
#include "tests/doubles/FaultyPreferenceDomains.h"
#include "tests/doubles/LogCapture.h"
#include "tests/doubles/MemoryPreferenceDomains.h"

namespace vexil {
namespace {

class StoredConfigurationTest : public ::testing::Test {
  protected:
    void Save() { panel.SaveConfiguration(kPortCount, configuration); }
    PropertyRef Options() {
        return domains.Storage().domains[{kDriverDomain, UserScope::kCFPreferencesAnyUser,
                                          HostScope::kCFPreferencesCurrentHost}]["MiscOptions"];
    }

    MemoryPreferenceDomains domains;
    DriverPreferences panel{domains};
    DriverConfiguration configuration;
    StoredConfiguration store{domains};
    LogCapture log;
};

TEST_F(StoredConfigurationTest, NothingHasChangedAfterAReading) {
    Save();
    store.Read();
    EXPECT_FALSE(store.Look(false));
}

TEST_F(StoredConfigurationTest, AValueThatDiffersIsAChangeOnce) {
    Save();
    store.Read();
    configuration.CustomNames[3].Out_CustomName = "Organ";
    Save();
    const auto change = store.Look(false);
    ASSERT_TRUE(change);
    EXPECT_FALSE(Differs(change->configuration, configuration));
    EXPECT_FALSE(change->granularity);
    EXPECT_FALSE(store.Look(false));
}

TEST_F(StoredConfigurationTest, AnotherGranularityIsSaid) {
    Save();
    store.Read();
    configuration.SendGranularity = 50;
    Save();
    const auto change = store.Look(false);
    ASSERT_TRUE(change);
    EXPECT_TRUE(change->granularity);
}

TEST_F(StoredConfigurationTest, UseWirelessAndTheHostListAreNoChange) {
    configuration.MiscOptions = 7 | kUseWireless;
    Save();
    store.Read();
    panel.SetWirelessOption(false);
    panel.WriteCache("abc", 3);
    EXPECT_FALSE(store.Look(false));
    panel.SetWirelessOption(true);
    panel.RemoveCache();
    EXPECT_FALSE(store.Look(false));
}

TEST_F(StoredConfigurationTest, UseWirelessStaysAsItWasWhenAnythingElseChanges) {
    configuration.MiscOptions = 7 | kUseWireless;
    Save();
    store.Read();
    configuration.MiscOptions = 3;
    Save();
    const auto change = store.Look(false);
    ASSERT_TRUE(change);
    EXPECT_EQ(change->configuration.MiscOptions, 3 | kUseWireless);
}

TEST_F(StoredConfigurationTest, WhatCouldNotBeCompletedIsTriedAgainWithEveryLook) {
    FaultyPreferenceDomains faulty(domains);
    StoredConfiguration unlucky(faulty);
    faulty.FailAll(true);
    unlucky.Complete(false);
    EXPECT_EQ(Options(), nullptr);
    unlucky.Look(false);
    EXPECT_EQ(Options(), nullptr);
    faulty.FailAll(false);
    unlucky.Look(false);
    EXPECT_TRUE(SameProperty(Options(), MakePropertyNumber(7)));
    panel.SetWirelessOption(true);
    unlucky.Look(false);
    EXPECT_TRUE(SameProperty(Options(), MakePropertyNumber(15))) << "once is enough";
}

}  // namespace
}  // namespace vexil
