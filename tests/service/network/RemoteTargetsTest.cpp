#include "service/network/RemoteTargets.h"

#include <gmock/gmock.h>

#include "service/engine/SourceNumbers.h"
#include "service/network/DatagramSocket.h"
#include "tests/doubles/MemoryInterfaces.h"
#include "tests/doubles/MemoryResolver.h"

namespace vexil {
namespace {

using State = RemoteTargets::State;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

KeyHash KeyOf(std::uint8_t number) {
    KeyHash key{};
    key.fill(number);
    return key;
}

NetworkAddress Address(std::uint8_t last, std::uint16_t port = kLinkPort) {
    return NetworkAddress::V4({192, 168, 1, last}, port);
}

class RemoteTargetsTest : public testing::Test {
  protected:
    void Hear(std::uint8_t number, std::string_view name, const NetworkAddress& from) {
        ComputerAnswer said;
        said.id = ComputerIdOf(KeyOf(number));
        said.port = from.port;
        said.name = name;
        directory.Hear(now, from, said, Nonce{});
    }
    void Want(std::vector<WantedWay> ways, std::vector<std::string> sources = {}) {
        targets.Set(now, std::move(ways), std::move(sources));
        Find();
    }
    void Find() {
        lookups.HandleAnswers(now);
        lookups.HandleTimeout(now);
        targets.Find(now, {local, interfaces, directory, kLinkPort}, rules);
        lookups.HandleTimeout(now);
        lookups.HandleAnswers(now);
        targets.Find(now, {local, interfaces, directory, kLinkPort}, rules);
    }

    std::uint64_t now = 1'000'000;
    LocalNames local{{"laptop"}};
    AccessRules rules{KeyOf(1)};
    ComputerDirectory directory{local, rules};
    MemoryResolver resolver;
    NameLookups lookups{resolver};
    RemoteTargets targets{lookups};
    std::vector<NetworkInterface> interfaces = {MakeInterface(2, "eth0", "192.168.1.5", 24),
                                                MakeInterface(3, "wlan0", "192.168.2.6", 24)};
};

TEST_F(RemoteTargetsTest, ANameThatWasAnnouncedIsKnown) {
    rules.Pin("studio", KeyOf(7), 0);
    Hear(7, "studio", Address(20));
    Want({{"studio", 3, 5}});
    EXPECT_EQ(targets.Of("studio"), (RemoteTargets::Found{State::Known, 1}));
    ASSERT_THAT(targets.Targets(), SizeIs(1));
    const RemoteTargets::Target& studio = targets.Targets()[0];
    EXPECT_EQ(studio.link.name, "studio");
    EXPECT_THAT(studio.link.candidates, ElementsAre(LinkCandidate{Address(20), false}));
    EXPECT_THAT(studio.link.pinned, ElementsAre(KeyOf(7)));
    EXPECT_THAT(studio.ways, ElementsAre(std::pair(5, 3)));
    EXPECT_FALSE(studio.link.needed);
    EXPECT_THAT(resolver.Asked(), IsEmpty());
}

TEST_F(RemoteTargetsTest, WaysToOneComputerShareItsNumber) {
    Hear(7, "studio", Address(20));
    Want({{"studio", 3, 5}, {"STUDIO.local", 4, 6}});
    EXPECT_EQ(targets.Of("studio").number, 1);
    EXPECT_EQ(targets.Of("STUDIO.local").number, 1);
    ASSERT_THAT(targets.Targets(), SizeIs(1));
    EXPECT_THAT(targets.Targets()[0].ways, ElementsAre(std::pair(5, 3), std::pair(6, 4)));
}

TEST_F(RemoteTargetsTest, ANameAndItsAddressAreOneComputer) {
    Hear(7, "studio", Address(20));
    Want({{"192.168.1.20", 3, 5}, {"studio", 4, 6}});
    EXPECT_EQ(targets.Of("studio").number, targets.Of("192.168.1.20").number);
    ASSERT_THAT(targets.Targets(), SizeIs(1));
    EXPECT_EQ(targets.Targets()[0].link.name, "studio");
}

TEST_F(RemoteTargetsTest, AnotherPortOfAnAddressIsAnotherComputer) {
    Want({{"192.168.1.20", 3, 5}, {"192.168.1.20:20000", 4, 6}});
    EXPECT_NE(targets.Of("192.168.1.20").number, targets.Of("192.168.1.20:20000").number);
}

TEST_F(RemoteTargetsTest, TwoAddressesThatOneComputerAnswersAtAreOne) {
    Want({{"192.168.1.20", 3, 5}, {"10.0.0.20", 4, 6}});
    ASSERT_THAT(targets.Targets(), SizeIs(2));
    targets.Learn(1, ComputerIdOf(KeyOf(7)));
    targets.Learn(2, ComputerIdOf(KeyOf(7)));
    Find();
    ASSERT_THAT(targets.Targets(), SizeIs(1));
    EXPECT_THAT(targets.Targets()[0].link.candidates, SizeIs(2));
    targets.Learn(1, ComputerIdOf(KeyOf(8)));
    Want({{"10.0.0.20", 4, 6}});
    Want({{"192.168.1.20", 3, 5}, {"10.0.0.20", 4, 6}});
    EXPECT_THAT(targets.Targets(), SizeIs(2)) << "what is no longer wanted is forgotten";
}

TEST_F(RemoteTargetsTest, ANameThatNobodyAnnouncedIsLookedUp) {
    resolver.Know("attic.local", {Address(30, 0)});
    resolver.Hold(true);
    Want({{"attic", 3, 5}});
    EXPECT_EQ(targets.Of("attic"), (RemoteTargets::Found{State::LookedUp, 1}));
    EXPECT_TRUE(targets.IsAnyUnannounced());
    resolver.Hold(false);
    Find();
    EXPECT_EQ(targets.Of("attic"), (RemoteTargets::Found{State::Known, 1}));
    EXPECT_THAT(targets.Targets()[0].link.candidates, ElementsAre(LinkCandidate{Address(30), false}));
    EXPECT_THAT(resolver.Asked(), UnorderedElementsAre("attic", "attic.local"));
}

// The network is turned off and on: the directory begins anew.
TEST_F(RemoteTargetsTest, AComputerThatAnsweredBeforeIsUnannouncedToANewDirectory) {
    Hear(7, "studio", Address(20));
    Want({{"studio", 3, 5}});
    targets.Learn(1, ComputerIdOf(KeyOf(7)));
    Find();
    EXPECT_FALSE(targets.IsAnyUnannounced());
    const ComputerDirectory anew(local, rules);
    targets.Find(now, {local, interfaces, anew, kLinkPort}, rules);
    EXPECT_TRUE(targets.IsAnyUnannounced());
}

TEST_F(RemoteTargetsTest, ANameThatNobodyKnowsIsUnknown) {
    Want({{"attic", 3, 5}});
    EXPECT_EQ(targets.Of("attic"), (RemoteTargets::Found{State::Unknown, 1}));
}

TEST_F(RemoteTargetsTest, ANameThatLeadsHereIsThisComputer) {
    resolver.Know("my-alias", {Address(5, 0)});
    Want({{"my-alias", 3, 5}});
    EXPECT_EQ(targets.Of("my-alias"), (RemoteTargets::Found{State::ThisComputer, 0}));
    EXPECT_THAT(targets.Targets(), IsEmpty());
}

TEST_F(RemoteTargetsTest, WhatCannotBeANameIsImpossible) {
    Want({{"two words", 3, 5}});
    EXPECT_EQ(targets.Of("two words"), (RemoteTargets::Found{State::Impossible, 0}));
    EXPECT_THAT(targets.Targets(), IsEmpty());
    EXPECT_THAT(resolver.Asked(), IsEmpty());
}

TEST_F(RemoteTargetsTest, AnInputThatListensToAComputerNeedsIt) {
    Hear(7, "studio", Address(20));
    Want({}, {"studio"});
    ASSERT_THAT(targets.Targets(), SizeIs(1));
    EXPECT_TRUE(targets.Targets()[0].link.needed);
}

TEST_F(RemoteTargetsTest, AnAddressBehindAWirelessInterfaceIsCalledByWireless) {
    interfaces[1].wireless = true;
    Want({{"192.168.2.20", 3, 5}, {"192.168.1.20", 3, 6}});
    EXPECT_TRUE(targets.Targets()[0].link.candidates[0].wireless);
    EXPECT_FALSE(targets.Targets()[1].link.candidates[0].wireless);
}

TEST_F(RemoteTargetsTest, AComputerKeepsItsNumberWhileOthersComeAndGo) {
    Want({{"192.168.1.20", 3, 5}, {"192.168.1.21", 3, 6}});
    EXPECT_EQ(targets.Of("192.168.1.21").number, 2);
    Want({{"192.168.1.21", 3, 6}});
    EXPECT_EQ(targets.Of("192.168.1.21").number, 2);
    Want({{"192.168.1.22", 3, 5}, {"192.168.1.21", 3, 6}});
    EXPECT_EQ(targets.Of("192.168.1.21").number, 2);
    EXPECT_EQ(targets.Of("192.168.1.22").number, 1);
}

TEST_F(RemoteTargetsTest, AComputerKeepsItsNumberWhenItIsFoundAnotherWay) {
    resolver.Know("studio", {Address(20, 0)});
    Want({{"other", 1, 1}, {"studio", 3, 5}});
    EXPECT_EQ(targets.Of("studio").number, 2);
    Hear(7, "studio", Address(20));
    Find();
    EXPECT_EQ(targets.Of("studio"), (RemoteTargets::Found{State::Known, 2}));
    EXPECT_TRUE(targets.Targets()[1].id.has_value());
}

TEST_F(RemoteTargetsTest, MoreComputersThanTheLinkTakesAreTooMany) {
    std::vector<WantedWay> ways;
    for (int i = 0; i <= LinkTransport::kMostComputers; ++i) {
        ways.push_back({"10.0.0." + std::to_string(i + 1), 0, i});
    }
    Want(ways);
    EXPECT_EQ(targets.Of("10.0.0.32"), (RemoteTargets::Found{State::Known, 32}));
    EXPECT_EQ(targets.Of("10.0.0.33"), (RemoteTargets::Found{State::TooMany, 0}));
    EXPECT_THAT(targets.Targets(), SizeIs(LinkTransport::kMostComputers));
}

TEST_F(RemoteTargetsTest, ATestOutputsTargetIsNotLookedForWhileItIsTyped) {
    const int from = kTestSourceBase + 4;
    Want({{"s", 3, from}});
    now += 300'000;
    Want({{"st", 3, from}});
    now += 300'000;
    Find();
    EXPECT_EQ(targets.Of("st").state, State::Waiting);
    EXPECT_EQ(targets.NextTime(), now + 200'000);
    EXPECT_THAT(resolver.Asked(), IsEmpty());
    now += 200'000;
    Find();
    EXPECT_EQ(targets.Of("st").state, State::Unknown);
    EXPECT_EQ(targets.NextTime(), std::nullopt);
    EXPECT_THAT(resolver.Asked(), UnorderedElementsAre("st", "st.local"));
}

TEST_F(RemoteTargetsTest, ATestOutputWhoseTargetStaysGoesOn) {
    const int from = kTestSourceBase + 4;
    Want({{"192.168.1.20", 3, from}});
    now += RemoteTargets::kTestDelay;
    Find();
    Want({{"192.168.1.20", 4, from}});
    EXPECT_EQ(targets.Of("192.168.1.20").state, State::Known);
}

TEST_F(RemoteTargetsTest, ATestOutputToAComputerOfARouteDoesNotWait) {
    const int from = kTestSourceBase + 4;
    Want({{"192.168.1.20", 3, 0}, {"192.168.1.20", 3, from}});
    EXPECT_EQ(targets.Of("192.168.1.20").state, State::Known);
    EXPECT_THAT(targets.Targets()[0].ways, ElementsAre(std::pair(0, 3)));
    EXPECT_EQ(targets.NextTime(), now + RemoteTargets::kTestDelay);
}

}  // namespace
}  // namespace vexil
