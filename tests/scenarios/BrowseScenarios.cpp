// The lists of computers, as the driver found them.
#include "tests/scenarios/Scenario.h"

namespace vexil {
namespace {

using Options = std::vector<int>;
using Hosts = std::vector<std::string>;
using Bytes = std::vector<std::uint8_t>;

class Browse : public Scenario {
  protected:
    // The stored host list; empty when nothing is stored.
    Bytes Cache() {
        Bytes bytes(kHostInfosSize);
        std::uint32_t size = kHostInfosSize;
        if (!DriverPreferences(world->preferences).ReadCache(bytes.data(), &size)) {
            return {};
        }
        bytes.resize(size);
        return bytes;
    }
    void BrowseAgain() {
        Hands().Click(kMidiOut);
        Hands().Click(kMidiOut);
    }
};

TEST_F(Browse, FoundComputersAreInBothLists) {
    driver.hostInfos = HostInfos({"alpha", "beta"});
    Run([&] {
        EXPECT_EQ(Items(kSourceComputer), (Hosts{"alpha", "beta"}));
        EXPECT_EQ(Items(kTargetComputer), (Hosts{"alpha", "beta"}));
    });
}

TEST_F(Browse, DriverIsGiven10MillisecondsToAnswer) {
    Run([&] { EXPECT_EQ(world->clock.sleeps, std::vector<unsigned>{10000}); });
}

TEST_F(Browse, TwoGoodRecordsAndTheZeroBehindThemAreCached) {
    driver.hostInfos = HostInfos({"alpha", "beta"});
    const Bytes sent = driver.hostInfos;
    driver.hostInfos.resize(200, 'x');
    Run([&] { EXPECT_EQ(Cache(), sent); });
}

TEST_F(Browse, CacheUpdateIsLoggedWithItsSize) {
    driver.hostInfos = HostInfos({"alpha"});
    Run([&] { EXPECT_EQ(world->log.Count(" size 25 bytes.\n"), 1); });
    EXPECT_EQ(world->log.Count("Updating cache 0x"), 1);
}

TEST_F(Browse, BrowsingAgainReplacesTheLists) {
    driver.hostInfos = HostInfos({"alpha", "beta"});
    Run([&] {
        driver.hostInfos = HostInfos({"gamma"});
        BrowseAgain();
        EXPECT_EQ(Items(kSourceComputer), Hosts{"gamma"});
        EXPECT_EQ(Items(kTargetComputer), Hosts{"gamma"});
    });
}

TEST_F(Browse, EmptyAnswerEmptiesTheListsAndKeepsTheCache) {
    driver.hostInfos = HostInfos({"alpha"});
    const Bytes sent = driver.hostInfos;
    Run([&] {
        driver.hostInfos = {0};
        BrowseAgain();
        EXPECT_EQ(Items(kSourceComputer), Hosts());
        EXPECT_EQ(Items(kTargetComputer), Hosts());
        EXPECT_EQ(Cache(), sent);
    });
}

TEST_F(Browse, BrokenSecondRecordIsListedAndNotCached) {
    driver.hostInfos = HostInfos({"alpha", "beta"});
    Bytes expected = HostInfos({"alpha"});
    expected.back() = 'N';
    driver.hostInfos[expected.size() - 1 + 4 + 9] = 'X';  // the second record's "L"
    Run([&] {
        EXPECT_EQ(Items(kTargetComputer), (Hosts{"alpha", "beta"}));
        EXPECT_EQ(Cache(), expected);
    });
}

TEST_F(Browse, AnswerWithoutAnEndIsReadWithinItsBuffer) {
    driver.hostInfos.assign(kHostInfosSize, 'N');
    Run([&] { EXPECT_LE(Cache().size(), kHostInfosSize); });
}

TEST_F(Browse, FailedBrowseIsLoggedAndKeepsTheLists) {
    driver.hostInfos = HostInfos({"alpha"});
    Run([&] {
        driver.optionErrors[197] = EIO;
        world->log.Clear();
        BrowseAgain();
        EXPECT_EQ(world->log.Count("PostBrowse() failed; error 5.\n"), 1);
        EXPECT_EQ(Items(kSourceComputer), Hosts{"alpha"});
    });
}

TEST_F(Browse, FailedReadIsLoggedAndKeepsTheLists) {
    driver.hostInfos = HostInfos({"alpha"});
    Run([&] {
        driver.optionErrors[202] = EIO;
        world->log.Clear();
        BrowseAgain();
        EXPECT_EQ(world->log.Count("Cannot enumerate host infos; error 5.\n"), 1);
        EXPECT_EQ(Items(kTargetComputer), Hosts{"alpha"});
    });
}

TEST_F(Browse, WithoutDriverTheListsStayEmpty) {
    driver.driverPresent = false;
    Run([&] {
        BrowseAgain();
        EXPECT_EQ(Items(kSourceComputer), Hosts());
        EXPECT_TRUE(world->clock.sleeps.empty());
    });
}

TEST_F(Browse, ChangingTheListsKeepsTheTypedTexts) {
    DriverConfiguration stored;
    stored.InputPorts = 1;
    stored.PortFlags[0].flags = 0;
    Store(stored);
    driver.hostInfos = HostInfos({"alpha"});
    Run([&] {
        Hands().Click(kSourceComputer);
        Hands().Type("my ow");
        Hands().Click(kTargetComputer);
        Hands().Type("n");
        driver.hostInfos = HostInfos({"gamma", "delta"});
        Hands().Click(kMidiIn);
        Hands().Click(kMidiIn);
        EXPECT_EQ(Items(kSourceComputer), (Hosts{"gamma", "delta"}));
        EXPECT_EQ(Text(kSourceComputer), "my ow");
        EXPECT_EQ(Text(kTargetComputer), "n");
        QuitWithoutApplying();
    });
}

TEST_F(Browse, ListIsNoEdit) {
    driver.hostInfos = HostInfos({"alpha"});
    Run([&] {
        BrowseAgain();
        EXPECT_FALSE(CanApply());
        EXPECT_EQ(Text(kTargetComputer), "");
    });
}

}  // namespace
}  // namespace vexil
