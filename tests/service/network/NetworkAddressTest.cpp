#include "service/network/NetworkAddress.h"

#include <gmock/gmock.h>

#include "service/network/InterfaceChoice.h"
#include "service/network/Interfaces.h"
#include "tests/doubles/MemoryInterfaces.h"

namespace vexil {
namespace {

NetworkAddress At(const char* text) {
    return ParseAddress(text).value();
}

TEST(NetworkAddress, TextIsReadAndWritten) {
    EXPECT_EQ(At("192.168.1.5").Text(), "192.168.1.5");
    EXPECT_EQ(At("FE80::0:1").Text(), "fe80::1");
    EXPECT_EQ(At("192.168.1.5").WithPort(11188).TextWithPort(), "192.168.1.5:11188");
    EXPECT_EQ(At("fe80::1").WithPort(9).TextWithPort(), "[fe80::1]:9");
    EXPECT_EQ(NetworkAddress().Text(), "");
    for (const char* bad : {"", "192.168.1", "192.168.1.256", "192.168.1.5 ", "01.2.3.4", "[::1]",
                            "fe80::1%eth0", ":::", "1:2:3:4:5:6:7:8:9", "studio", "::ffff:1.2.3.4.5"}) {
        EXPECT_FALSE(ParseAddress(bad)) << bad;
    }
    EXPECT_FALSE(ParseAddress(std::string_view("10.0.0.1\0x", 10)));
}

TEST(NetworkAddress, V4InTheFormOfV6IsV4) {
    EXPECT_EQ(At("::ffff:192.168.1.5"), At("192.168.1.5"));
}

TEST(NetworkAddress, KindsAreTold) {
    EXPECT_TRUE(At("127.3.4.5").IsLoopback() && At("::1").IsLoopback());
    EXPECT_FALSE(At("128.0.0.1").IsLoopback() || At("::2").IsLoopback() || At("::").IsLoopback());
    EXPECT_TRUE(At("169.254.1.2").IsLinkLocal() && At("fe80::1").IsLinkLocal() &&
                At("febf::1").IsLinkLocal());
    EXPECT_FALSE(At("169.253.1.2").IsLinkLocal() || At("fec0::1").IsLinkLocal());
    for (const char* many : {"255.255.255.255", "127.255.255.255", "224.0.0.1", "239.1.1.1", "ff02::1"}) {
        EXPECT_TRUE(At(many).IsForMany()) << many;
    }
    EXPECT_FALSE(At("10.255.255.255").IsForMany() || At("240.0.0.1").IsForMany() ||
                 At("fe80::1").IsForMany());
}

TEST(NetworkAddress, ANetworkIsItsFirstBits) {
    EXPECT_TRUE(At("10.1.2.3").IsWithin(At("10.1.0.0"), 16));
    EXPECT_FALSE(At("10.2.2.3").IsWithin(At("10.1.0.0"), 16));
    EXPECT_TRUE(At("10.1.2.131").IsWithin(At("10.1.2.128"), 25));
    EXPECT_FALSE(At("10.1.2.3").IsWithin(At("10.1.2.128"), 25));
    EXPECT_TRUE(At("10.1.2.3").IsWithin(At("99.0.0.0"), 0));
    EXPECT_TRUE(At("10.1.2.3").IsWithin(At("10.1.2.3"), 32));
    EXPECT_FALSE(At("10.1.2.3").IsWithin(At("10.1.2.3"), 33));
    EXPECT_FALSE(At("10.1.2.3").IsWithin(At("::"), 0));
    EXPECT_FALSE(NetworkAddress().IsWithin(NetworkAddress(), 0));
}

TEST(NetworkAddress, TheBytesOfAPeerAreThoseOfTheAddressAndBack) {
    for (const char* text : {"192.168.1.5", "fe80::1"}) {
        const NetworkAddress address = At(text).WithPort(11188).WithInterface(7);
        EXPECT_EQ(FromLinkAddress(ToLinkAddress(address)), address);
        EXPECT_NE(ToLinkAddress(address), ToLinkAddress(address.WithPort(11189)));
        EXPECT_NE(ToLinkAddress(address), ToLinkAddress(address.WithInterface(8)));
    }
    EXPECT_FALSE(FromLinkAddress(LinkAddress{}).IsThere());
    EXPECT_FALSE(FromLinkAddress(LinkAddress{5}).IsThere());
}

TEST(InterfaceChoice, EachFormIsReadAndWritten) {
    EXPECT_TRUE(InterfaceChoice().IsOff());
    for (const char* text : {"off", "lo", "on", "eth0", "eth0,wlan0", "lo,eth0"}) {
        const auto choice = InterfaceChoice::FromText(text);
        ASSERT_TRUE(choice) << text;
        EXPECT_EQ(choice->Text(), text);
    }
    for (const char* bad :
         {"", ",", "eth0,", ",eth0", "eth0, wlan0", "on,off", "sixteen-letters0", "a/b", "a:1", ".."}) {
        EXPECT_FALSE(InterfaceChoice::FromText(bad)) << bad;
    }
    std::string many = "a";
    for (std::size_t count = 1; count < InterfaceChoice::kMostNames; ++count) {
        many += ",a";
    }
    EXPECT_TRUE(InterfaceChoice::FromText(many));
    EXPECT_FALSE(InterfaceChoice::FromText(many + ",a"));
}

TEST(InterfaceChoice, EachFormAdmitsItsInterfaces) {
    const auto admits = [](const char* text) {
        const auto choice = InterfaceChoice::FromText(text).value();
        return std::array{choice.Admits("lo", true), choice.Admits("eth0", false),
                          choice.Admits("wlan0", false)};
    };
    EXPECT_THAT(admits("off"), testing::ElementsAre(false, false, false));
    EXPECT_THAT(admits("lo"), testing::ElementsAre(true, false, false));
    EXPECT_THAT(admits("on"), testing::ElementsAre(true, true, true));
    EXPECT_THAT(admits("eth0"), testing::ElementsAre(false, true, false));
    EXPECT_THAT(admits("lo,wlan0"), testing::ElementsAre(true, false, true));
}

TEST(Interfaces, OwnAndNeighbouringAddressesAreKnown) {
    const std::vector<NetworkInterface> list = {MakeInterface(1, "lo", "127.0.0.1", 8),
                                                MakeInterface(2, "eth0", "192.168.1.5", 24)};
    EXPECT_TRUE(IsOwnAddress(list, At("192.168.1.5")));
    EXPECT_TRUE(IsOwnAddress(list, At("127.9.9.9")));
    EXPECT_FALSE(IsOwnAddress(list, At("192.168.1.6")));
    EXPECT_TRUE(IsOnLink(list, At("192.168.1.6")));
    EXPECT_TRUE(IsOnLink(list, At("192.168.1.6").WithInterface(2)));
    EXPECT_FALSE(IsOnLink(list, At("192.168.1.6").WithInterface(1)));
    EXPECT_FALSE(IsOnLink(list, At("192.168.2.6")));
}

}  // namespace
}  // namespace vexil
