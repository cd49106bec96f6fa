#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>

#include "platform/linux/network/NetlinkInterfaces.h"
#include "tests/doubles/FaultyInterfaces.h"
#include "tests/doubles/InterfacesContract.h"
#include "tests/doubles/MemoryInterfaces.h"
#include "tests/service/network/Namespaces.h"

namespace vexil {
namespace {

using test::Ip;

class NetlinkSubject {
  public:
    static std::string Obstacle() {
        std::string reason;
        if (test::EnterOwnNetwork(reason) &&
            !(Ip("link add wire0 type veth peer name wire1") && Ip("link delete wire0"))) {
            reason = "this kernel has no pairs of network interfaces (veth)";
        }
        return reason;
    }
    ~NetlinkSubject() { Ip("link delete wire0"); }
    Interfaces& Seam() { return interfaces; }
    static void PlugIn() {
        EXPECT_TRUE(Ip("link add wire0 type veth peer name wire1") && Ip("link set wire1 up") &&
                    Ip("address add 10.77.0.1/24 broadcast + dev wire0") && Ip("link set wire0 up"));
    }
    static void AddAddress() { EXPECT_TRUE(Ip("address add 10.78.0.1/16 dev wire0")); }
    static void PullOut() { EXPECT_TRUE(Ip("link delete wire0")); }

  private:
    NetlinkInterfaces interfaces;
};

class MemorySubject {
  public:
    static std::string Obstacle() { return ""; }
    Interfaces& Seam() { return interfaces; }
    void PlugIn() { interfaces.Set({MakeInterface(2, "wire0", "10.77.0.1", 24)}); }
    void AddAddress() {
        auto list = interfaces.Actual();
        list[0].addresses.push_back(MakeInterface(2, "wire0", "10.78.0.1", 16).addresses[0]);
        interfaces.Set(list);
    }
    void PullOut() { interfaces.Set({}); }

  protected:
    MemoryInterfaces interfaces;
};

class FaultySubject : public MemorySubject {
  public:
    Interfaces& Seam() { return faulty; }
    FaultyInterfaces& Faulty() { return faulty; }

  private:
    FaultyInterfaces faulty{interfaces};
};

// Takes changes until one leaves what is asked for.
template <class Wanted>
bool Comes(Interfaces& interfaces, const Wanted& wanted) {
    while (!wanted()) {
        pollfd watched{interfaces.EventDescriptor(), POLLIN, 0};
        if (poll(&watched, 1, 10000) != 1) {
            return false;
        }
        interfaces.Take();
    }
    return true;
}

const NetworkInterface* Find(const Interfaces& interfaces, const char* name) {
    return FindInterface(interfaces.List(), std::string(name));
}

INSTANTIATE_TYPED_TEST_SUITE_P(Netlink, InterfacesContract, NetlinkSubject);
INSTANTIATE_TYPED_TEST_SUITE_P(Memory, InterfacesContract, MemorySubject);
INSTANTIATE_TYPED_TEST_SUITE_P(Faulty, InterfacesContract, FaultySubject);

TEST(FaultyInterfaces, TellsNothingWhileItFails) {
    FaultySubject subject;
    subject.Faulty().Fail(true);
    subject.PlugIn();
    EXPECT_EQ(subject.Faulty().EventDescriptor(), -1);
    EXPECT_FALSE(subject.Faulty().Take());
    EXPECT_TRUE(subject.Faulty().List().empty());
    subject.Faulty().Fail(false);
    EXPECT_TRUE(subject.Faulty().Take());
}

TEST(NetlinkInterfaces, AWirelessOneIsKnownByItsFolder) {
    if (const std::string obstacle = NetlinkSubject::Obstacle(); !obstacle.empty()) {
        GTEST_SKIP() << obstacle;
    }
    std::string folder = testing::TempDir() + "/sys-class-net-XXXXXX";
    ASSERT_NE(mkdtemp(folder.data()), nullptr);
    std::filesystem::create_directories(folder + "/wire0/phy80211");
    NetlinkInterfaces interfaces(folder);
    NetlinkSubject::PlugIn();
    ASSERT_TRUE(Comes(interfaces, [&] {
        const NetworkInterface* wire = Find(interfaces, "wire0");
        return wire != nullptr && !wire->addresses.empty() && Find(interfaces, "wire1") != nullptr;
    }));
    const NetworkInterface* wireless = Find(interfaces, "wire0");
    const NetworkInterface* wired = Find(interfaces, "wire1");
    EXPECT_TRUE(wireless->wireless);
    EXPECT_FALSE(wired->wireless);
    EXPECT_TRUE(wireless->broadcasts && wireless->multicasts);
    EXPECT_EQ(wireless->addresses[0].broadcast.Text(), "10.77.0.255");
    Ip("link delete wire0");
    std::filesystem::remove_all(folder);
}

TEST(NetlinkInterfaces, LoopbackIsKnown) {
    if (const std::string obstacle = NetlinkSubject::Obstacle(); !obstacle.empty()) {
        GTEST_SKIP() << obstacle;
    }
    NetlinkInterfaces interfaces;
    ASSERT_TRUE(Ip("link set lo up"));
    ASSERT_TRUE(Comes(interfaces, [&] { return Find(interfaces, "lo") != nullptr; }));
    ASSERT_TRUE(Comes(interfaces, [&] { return !Find(interfaces, "lo")->addresses.empty(); }));
    const NetworkInterface* loopback = Find(interfaces, "lo");
    EXPECT_TRUE(loopback->loopback);
    EXPECT_EQ(loopback->hardware, HardwareAddress{});
    EXPECT_EQ(loopback->addresses[0].address.Text(), "127.0.0.1");
    EXPECT_EQ(loopback->addresses[0].prefix, 8);
}

TEST(NetlinkInterfaces, ACableWithoutItsOtherEndDoesNotCount) {
    if (const std::string obstacle = NetlinkSubject::Obstacle(); !obstacle.empty()) {
        GTEST_SKIP() << obstacle;
    }
    NetlinkInterfaces interfaces;
    NetlinkSubject::PlugIn();
    ASSERT_TRUE(Comes(interfaces, [&] { return Find(interfaces, "wire0") != nullptr; }));
    ASSERT_TRUE(Ip("link set wire1 down"));
    EXPECT_TRUE(Comes(interfaces, [&] { return Find(interfaces, "wire0") == nullptr; }));
    Ip("link delete wire0");
}

}  // namespace
}  // namespace vexil
