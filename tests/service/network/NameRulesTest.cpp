#include "service/network/NameRules.h"

#include <gmock/gmock.h>

#include "service/network/DatagramSocket.h"
#include "tests/doubles/MemoryInterfaces.h"

namespace vexil {
namespace {

KeyHash KeyOf(std::uint8_t number) {
    KeyHash key{};
    key.fill(number);
    return key;
}

class NameRulesTest : public testing::Test {
  protected:
    void Hear(std::uint8_t number, std::string_view name) {
        ComputerAnswer said;
        said.id = ComputerIdOf(KeyOf(number));
        said.port = 20000;
        said.name = name;
        directory.Hear(0, NetworkAddress::V4({10, 0, 0, number}, 20000, 2), said, Nonce{});
    }
    NamedTarget Find(std::string_view text) {
        return FindTarget(text, {local, interfaces, directory, kLinkPort});
    }
    std::vector<std::string> Addresses(std::string_view text) {
        std::vector<std::string> texts;
        for (const NetworkAddress& address : Find(text).addresses) {
            texts.push_back(address.TextWithPort() + " by " + std::to_string(address.interface));
        }
        return texts;
    }

    LocalNames local{{"laptop"}};
    AccessRules rules{KeyOf(1)};
    ComputerDirectory directory{local, rules};
    std::vector<NetworkInterface> interfaces = {MakeInterface(1, "lo", "127.0.0.1", 8),
                                                MakeInterface(2, "eth0", "192.168.1.5", 24),
                                                MakeInterface(3, "wlan0", "192.168.1.6", 24)};
};

TEST_F(NameRulesTest, AnEmptyTextIsNoTarget) {
    EXPECT_EQ(Find("").kind, TargetKind::None);
}

TEST_F(NameRulesTest, NamesAndAddressesOfThisComputerAreThisComputer) {
    for (const char* text : {"laptop", "LAPTOP.local", "localhost", "localhost.", "127.0.0.1", "127.1.2.3",
                             "::1", "[::1]", "192.168.1.5", "192.168.1.6", "192.168.1.5:11188"}) {
        EXPECT_EQ(Find(text).kind, TargetKind::Local) << text;
    }
    // Another port of this computer is another driver.
    EXPECT_EQ(Find("127.0.0.1:20000").kind, TargetKind::Literal);
}

TEST_F(NameRulesTest, NobodyCarriesLocalRoutesAway) {
    Hear(2, "laptop");
    Hear(3, "127.0.0.1");
    EXPECT_EQ(Find("laptop").kind, TargetKind::Local);
    EXPECT_EQ(Find("127.0.0.1").kind, TargetKind::Local);
    EXPECT_EQ(Find("laptop-2").kind, TargetKind::Directory);
}

TEST_F(NameRulesTest, ANameOfTheDirectoryIsThatComputer) {
    Hear(2, "studio");
    Hear(3, "My iPad");
    const NamedTarget studio = Find("Studio.local");
    EXPECT_EQ(studio.kind, TargetKind::Directory);
    EXPECT_EQ(studio.id, ComputerIdOf(KeyOf(2)));
    EXPECT_EQ(Find("my ipad").id, ComputerIdOf(KeyOf(3)));
    EXPECT_THAT(Addresses("studio"), testing::ElementsAre("10.0.0.2:20000 by 2"));
}

TEST_F(NameRulesTest, AnAddressIsItself) {
    EXPECT_THAT(Addresses("192.168.7.7"), testing::ElementsAre("192.168.7.7:11188 by 0"));
    EXPECT_THAT(Addresses("192.168.7.7:20000"), testing::ElementsAre("192.168.7.7:20000 by 0"));
    EXPECT_THAT(Addresses("2001:db8::1"), testing::ElementsAre("[2001:db8::1]:11188 by 0"));
    EXPECT_THAT(Addresses("[2001:db8::1]"), testing::ElementsAre("[2001:db8::1]:11188 by 0"));
    EXPECT_THAT(Addresses("[2001:db8::1]:20000"), testing::ElementsAre("[2001:db8::1]:20000 by 0"));
    EXPECT_EQ(Find("192.168.7.7").kind, TargetKind::Literal);
}

TEST_F(NameRulesTest, ALinkLocalAddressGoesByItsInterfaceOrByAll) {
    EXPECT_THAT(Addresses("fe80::1%eth0"), testing::ElementsAre("[fe80::1]:11188 by 2"));
    EXPECT_THAT(Addresses("[fe80::1%3]:9"), testing::ElementsAre("[fe80::1]:9 by 3"));
    EXPECT_THAT(Addresses("fe80::1"), testing::ElementsAre("[fe80::1]:11188 by 2", "[fe80::1]:11188 by 3"));
    EXPECT_THAT(Addresses("fe80::1%gone0"), testing::IsEmpty());
    EXPECT_EQ(Find("fe80::1%gone0").kind, TargetKind::Literal);
}

TEST_F(NameRulesTest, AnyOtherHostNameIsLookedUp) {
    const NamedTarget studio = Find("studio");
    EXPECT_EQ(studio.kind, TargetKind::Resolvable);
    EXPECT_THAT(studio.hostNames, testing::ElementsAre("studio", "studio.local"));
    EXPECT_EQ(studio.port, kLinkPort);
    EXPECT_THAT(Find("studio.example.org:20000").hostNames, testing::ElementsAre("studio.example.org"));
    EXPECT_EQ(Find("studio.example.org:20000").port, 20000);
    EXPECT_EQ(Find("m\xC3\xBCller").kind, TargetKind::Resolvable);
    EXPECT_EQ(Find("3com").kind, TargetKind::Resolvable);
}

TEST_F(NameRulesTest, WhatNoHostCanBeCalledIsNotLookedUp) {
    for (const std::string& text : {std::string("my computer"),
                                    std::string("a\tb"),
                                    std::string("a\nb"),
                                    std::string(254, 'a'),
                                    std::string("192.168."),
                                    std::string("192.168.1"),
                                    std::string("12"),
                                    std::string("0x7f000001"),
                                    std::string("a:b"),
                                    std::string("studio:"),
                                    std::string("studio:0"),
                                    std::string("studio:70000"),
                                    std::string("a:b:c"),
                                    std::string("[fe80::1"),
                                    std::string("[fe80::1]9"),
                                    std::string("[studio]"),
                                    std::string("[192.168.1.7]"),
                                    std::string("eth0%eth0"),
                                    std::string("192.168.1.7%eth0"),
                                    std::string("0.0.0.0"),
                                    std::string("::"),
                                    std::string("255.255.255.255"),
                                    std::string("ff02::1"),
                                    std::string("."),
                                    std::string("http://studio"),
                                    std::string("a\0b", 3)}) {
        EXPECT_EQ(Find(text).kind, TargetKind::Impossible) << text;
    }
    EXPECT_TRUE(IsHostName(std::string(253, 'a')));
}

TEST_F(NameRulesTest, TheUdpPortsOfRtpMeanASessionOnlyWhereItIsSpoken) {
    for (const bool isSpoken : {false, true}) {
        const NameSurroundings surroundings{local, interfaces, directory, kLinkPort, isSpoken};
        for (const char* text : {"192.168.1.9:5004", "ipad.local:5131", "[fe80::1%eth0]:5006"}) {
            EXPECT_EQ(FindTarget(text, surroundings).isSession, isSpoken) << text;
        }
        for (const char* text : {"192.168.1.9", "192.168.1.9:5003", "ipad.local:5132", "ipad.local"}) {
            EXPECT_FALSE(FindTarget(text, surroundings).isSession) << text;
        }
    }
}

TEST_F(NameRulesTest, AnAnnouncedSessionIsFoundByItsNameBehindTheComputers) {
    Hear(7, "studio");
    const NetworkAddress there = NetworkAddress::V4({192, 168, 1, 9}, 5004, 2);
    const std::vector<AnnouncedSession> sessions = {
        {"iPad of Jo", {there}}, {"studio", {there}}, {"laptop", {there}}};
    const NameSurroundings surroundings{local, interfaces, directory, kLinkPort, true, &sessions};
    const NamedTarget target = FindTarget("IPAD of jo", surroundings);
    EXPECT_EQ(target.kind, TargetKind::Session);
    EXPECT_TRUE(target.isSession);
    EXPECT_EQ(target.sessionName, "iPad of Jo");
    EXPECT_EQ(target.addresses, std::vector{there});
    EXPECT_EQ(FindTarget("studio", surroundings).kind, TargetKind::Directory);
    EXPECT_EQ(FindTarget("laptop", surroundings).kind, TargetKind::Local);
    EXPECT_EQ(Find("iPad of Jo").kind, TargetKind::Impossible);
}

TEST(SessionsOf, EachNameIsThereOnceWithItsAddressesIPv4First) {
    const auto v6 = NetworkAddress::V6({0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}, 5004, 2);
    const auto v4 = NetworkAddress::V4({192, 168, 1, 9}, 5004, 2);
    const std::vector<AnnouncedSession> sessions =
        SessionsOf({{"iPad", v6}, {"iPad", v4}, {"Mac", v4}, {"\x01", v4}, {"", v4}});
    EXPECT_EQ(sessions, (std::vector<AnnouncedSession>{{"iPad", {v4, v6}}, {"Mac", {v4}}}));
    std::vector<FoundService> many;
    for (std::uint8_t each = 1; each < 20; ++each) {
        many.push_back({"iPad", NetworkAddress::V4({192, 168, 1, each}, 5004, 2)});
    }
    EXPECT_EQ(SessionsOf(many).at(0).addresses.size(), ComputerEntry::kMostAddresses);
}

}  // namespace
}  // namespace vexil
