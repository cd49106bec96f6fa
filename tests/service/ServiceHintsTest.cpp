#include "service/ServiceHints.h"

#include <gmock/gmock.h>

#include <memory>
#include <string>

#include "tests/doubles/LogCapture.h"
#include "tests/doubles/MemoryInterfaces.h"
#include "tests/doubles/MemoryServiceDiscovery.h"

namespace vexil {
namespace {

class ServiceHintsTest : public testing::Test {
  protected:
    void Set(const char* where) {
        NetworkInterface loopback = MakeInterface(1, "lo", "127.0.0.1", 8);
        loopback.loopback = true;
        const InterfaceChoice choice = *InterfaceChoice::FromText(where);
        std::vector<NetworkInterface> spoken;
        for (const NetworkInterface& each : {loopback, MakeInterface(2, "eth0", "10.0.0.1", 24),
                                             MakeInterface(3, "wlan0", "10.1.0.1", 24)}) {
            if (choice.Admits(each.name, each.loopback)) {
                spoken.push_back(each);
            }
        }
        hints.Set(choice, spoken, {"studio", 11188});
    }
    std::string Log() {
        hints.Serve();
        return log.Text();
    }

    LogCapture log;
    MemoryServiceDiscovery* seam = new MemoryServiceDiscovery;
    ServiceHints hints{std::unique_ptr<ServiceDiscovery>(seam)};
};

TEST_F(ServiceHintsTest, ThisComputerIsPublishedWhereItSpeaks) {
    Set("on");
    EXPECT_EQ(seam->Published(), (ServiceWish{"studio", 11188, {}}));
    Set("eth0,wlan0");
    EXPECT_EQ(seam->Published(), (ServiceWish{"studio", 11188, {2, 3}}));
    Set("wlan0,eth7");
    EXPECT_EQ(seam->Published(), (ServiceWish{"studio", 11188, {3}}));
}

TEST_F(ServiceHintsTest, WhereItSpeaksToNobodyElseNothingIsPublished) {
    for (const char* where : {"off", "lo", "lo,eth7", "eth7"}) {
        Set("on");
        Set(where);
        EXPECT_FALSE(seam->Published()) << where;
    }
}

TEST_F(ServiceHintsTest, TheLogIsToldOnceWhenTheSystemsPartComesAndGoes) {
    constexpr const char* kThere = "Avahi is there; it finds other computers, too.\n";
    constexpr const char* kGone = "There is no DNS-SD.\n";
    EXPECT_EQ(Log(), "");
    Set("on");
    EXPECT_EQ(Log(), kThere);
    seam->Offer("attic", NetworkAddress::V4({10, 0, 0, 7}, 11188, 2));
    EXPECT_EQ(Log(), kThere);
    seam->Go();
    EXPECT_EQ(Log(), std::string(kThere) + kGone);
    seam->Offer("barn", NetworkAddress::V4({10, 0, 0, 8}, 11188, 2));
    EXPECT_EQ(Log(), std::string(kThere) + kGone);
    EXPECT_EQ(hints.Problem(), "There is no DNS-SD.");
    seam->Come();
    EXPECT_EQ(Log(), std::string(kThere) + kGone + kThere);
}

TEST(ServiceHints, WithoutDnsSdThereIsNothingToSay) {
    ServiceHints none(nullptr);
    none.Set(InterfaceChoice::All(), {}, {"studio", 11188});
    none.LookAgain();
    EXPECT_EQ(none.EventDescriptor(), -1);
    EXPECT_FALSE(none.Serve());
    EXPECT_TRUE(none.Hints().empty());
    EXPECT_EQ(none.Problem(), "");
}

}  // namespace
}  // namespace vexil
