// Routes to other computers: what the network is asked for, and what it says is what counts.
#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "tests/service/control/ServiceFixture.h"

namespace vexil {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

const Bytes kNoteOn = {0x90, 60, 100};

// Takes what the engine delivers to other computers.
class RemoteEar : public EngineSink {
  public:
    std::size_t Room(const Destination&) const override { return 65536; }
    void Deliver(const Destination& to, std::uint64_t, std::span<const std::uint8_t> bytes) override {
        heard.emplace_back(to, Bytes(bytes.begin(), bytes.end()));
    }
    std::vector<std::pair<Destination, Bytes>> heard;
};

class RemoteRoutesTest : public ServiceFixture {
  protected:
    RemoteRoutesTest() { engine.SetRemoteSink(&ear); }
    ~RemoteRoutesTest() override { engine.SetRemoteSink(nullptr); }

    void LeadTo(const char* other, int port) {
        stored.OutputPorts = Bit(0);
        stored.Hosts[0].DstHost = other;
        stored.PortFlags[0].targetPort = static_cast<std::uint8_t>(port);
        stored.PortFlags[0].flags |= kSendImmediately;
    }
    nlohmann::json Output() { return nlohmann::json::parse(service.Status(0))["ports"][0]["output"]; }
    void PlayInto(int port) {
        engine.Write(port, backend.now, kNoteOn);
        Turn();
    }

    RemoteEar ear;
};

TEST_F(RemoteRoutesTest, ARouteToAnotherComputerIsWantedOfTheNetwork) {
    LeadTo("stage", 8);
    Start();
    EXPECT_THAT(network.wishes.ways, ElementsAre(RemoteWish{"stage", 8, 0}));
    EXPECT_THAT(network.wishes.names, ElementsAre("studio"));
}

TEST_F(RemoteRoutesTest, ALocalRouteIsNotWantedOfTheNetwork) {
    LeadTo("studio", 8);
    Start();
    EXPECT_THAT(network.wishes.ways, IsEmpty());
}

TEST_F(RemoteRoutesTest, NothingIsSentBeforeTheOtherComputerHearsIt) {
    network.answers["stage"] = {3, "The computer \"stage\" is being called.", true};
    LeadTo("stage", 8);
    Start();
    PlayInto(0);
    EXPECT_THAT(ear.heard, IsEmpty());
    EXPECT_EQ(Output()["routeProblem"], "The computer \"stage\" is being called.");
    EXPECT_EQ(Output()["route"], "remote");
    EXPECT_THAT(log.Text(), Not(HasSubstr("is being called"))) << "that passes";

    network.answers["stage"] = {3, "", false};
    service.ServeNetwork();
    Turn();
    PlayInto(0);
    EXPECT_THAT(ear.heard, ElementsAre(std::pair(Destination::Remote(3, 8, 0), kNoteOn)));
    EXPECT_EQ(Output()["routeProblem"], "");
    EXPECT_THAT(log.Text(), HasSubstr("Port 11 sends to port 21 of \"stage\"."));
}

TEST_F(RemoteRoutesTest, WhatSoundsIsReleasedWhenTheOtherComputerNoLongerHearsIt) {
    network.answers["stage"] = {3, "", false};
    LeadTo("stage", 8);
    Start();
    PlayInto(0);
    network.answers["stage"] = {3, "The computer \"stage\" is no longer heard.", false};
    service.ServeNetwork();
    Turn();
    ASSERT_EQ(ear.heard.size(), 2U);
    EXPECT_THAT(ear.heard[1].second, ElementsAre(0x80, 60, 64));
    EXPECT_THAT(log.Text(), HasSubstr("The computer \"stage\" is no longer heard."));
}

TEST_F(RemoteRoutesTest, AnAnswerWithoutANumberIsNoWay) {
    network.answers["stage"] = {0, "", false};
    LeadTo("stage", 8);
    Start();
    PlayInto(0);
    EXPECT_THAT(ear.heard, IsEmpty());
}

TEST_F(RemoteRoutesTest, AnAddressOfThisComputerIsThisComputer) {
    network.own = {"192.168.1.5"};
    LeadTo("192.168.1.5", 1);
    stored.InputPorts = Bit(1);
    Start();
    EXPECT_THAT(network.wishes.ways, IsEmpty());
    EXPECT_EQ(Output()["route"], "local");
    EXPECT_EQ(Output()["routeProblem"], "");
}

TEST_F(RemoteRoutesTest, AnInputThatListensToAnAddressOfThisComputerHearsIt) {
    network.own = {"192.168.1.5"};
    LeadTo("studio", 1);
    stored.InputPorts = Bit(1);
    stored.PortFlags[1].flags = kSourcePortUnused;
    stored.Hosts[1].SrcHost = "192.168.1.5";
    Start();
    EXPECT_EQ(Output()["routeProblem"], "");
}

TEST_F(RemoteRoutesTest, AnAddressThatHasGoneIsAnotherComputer) {
    network.own = {"192.168.1.5"};
    LeadTo("192.168.1.5", 1);
    stored.InputPorts = Bit(1);
    Start();
    network.own.clear();
    service.ServeNetwork();
    EXPECT_EQ(Output()["route"], "remote");
    EXPECT_THAT(network.wishes.ways, ElementsAre(RemoteWish{"192.168.1.5", 1, 0}));
}

TEST_F(RemoteRoutesTest, ATestOutputIsWantedWhileItIsOpenAndSoundsAtTheOtherComputer) {
    network.answers["stage"] = {3, "", false};
    Start();
    OpenTest(4, "stage", 8);
    EXPECT_THAT(network.wishes.ways, ElementsAre(RemoteWish{"stage", 8, kTestSourceBase + 4}));
    ASSERT_EQ(0, Set(4, PacketList(kNoteOn)));
    Turn();
    EXPECT_THAT(ear.heard, ElementsAre(std::pair(Destination::Remote(3, 8, kTestSourceBase + 4), kNoteOn)));
    ASSERT_EQ(0, Set(kOptionDeactivateTestOutput, PortNumber(4)));
    EXPECT_THAT(network.wishes.ways, IsEmpty());
}

TEST_F(RemoteRoutesTest, TheReasonOfATestOutputIsInItsStatusAndInTheLog) {
    network.answers["stage"] = {3, "Port 21 of \"stage\" is not enabled as MIDI IN.", false};
    Start();
    OpenTest(4, "stage", 8);
    Set(4, PacketList(kNoteOn));
    const nlohmann::json test = nlohmann::json::parse(service.Status(0))["ports"][0]["test"];
    EXPECT_EQ(test["routeProblem"], "Port 21 of \"stage\" is not enabled as MIDI IN.");
    EXPECT_THAT(log.Text(), HasSubstr("Port 21 of \"stage\" is not enabled as MIDI IN."));
}

TEST_F(RemoteRoutesTest, TheNetworkKnowsWhetherWirelessIsUsed) {
    Start();
    EXPECT_FALSE(network.wishes.wireless);
    Set(kOptionWirelessOn);
    EXPECT_TRUE(network.wishes.wireless);
    Set(kOptionWirelessOff);
    EXPECT_FALSE(network.wishes.wireless);
}

TEST_F(RemoteRoutesTest, TheNetworkKnowsWhichInputsAreHeard) {
    stored.InputPorts = Bit(1);
    Start();
    EXPECT_EQ(network.wishes.heard, Bit(1));
    stored.InputPorts = Bit(2);
    Store();
    EXPECT_EQ(0, Set(kOptionReloadConfiguration));
    EXPECT_EQ(network.wishes.heard & Bit(1), 0U);
}

TEST_F(RemoteRoutesTest, OtherComputersAreInTheListBehindThisOne) {
    HostRecord stage;
    stage.name = "stage";
    network.computers = {stage};
    Start();
    const nlohmann::json hosts = nlohmann::json::parse(service.Status(0))["hosts"];
    ASSERT_EQ(hosts.size(), 2U);
    EXPECT_EQ(hosts[1]["name"], "stage");
    std::vector<std::uint8_t> data;
    ASSERT_EQ(0, service.GetOption(kOptionReadHostInfos, data));
    EXPECT_EQ(data, MakeHostRecords({computer, stage}));
    Set(kOptionBrowseHosts);
    EXPECT_EQ(network.browses, 1);
}

TEST_F(RemoteRoutesTest, RoutesFollowWhatTheUserSaysOfTheNetwork) {
    LeadTo("stage", 8);
    Start();
    network.answers["stage"] = {3, "", false};
    EXPECT_EQ(service.Network({"speak", "on"}), "{}");
    EXPECT_THAT(network.commands, ElementsAre(ElementsAre("speak", "on")));
    EXPECT_EQ(Output()["routeProblem"], "");
}

TEST_F(RemoteRoutesTest, TheNetworkTakesItsLeaveWhenTheServiceEnds) {
    Start();
    service.BeginStop();
    service.Stop();
    EXPECT_TRUE(network.stopped);
}

}  // namespace
}  // namespace vexil
