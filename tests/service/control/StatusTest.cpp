// What the service tells of itself, by the keys on which others rely.
#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "driver/ControlChannel.h"
#include "service/control/Status.h"
#include "shared/System/Version.h"
#include "tests/service/control/ServiceFixture.h"

namespace vexil {
namespace {

using nlohmann::json;
using ::testing::HasSubstr;

class StatusTest : public ServiceFixture {
  protected:
    json Status(std::size_t first = 0) { return json::parse(service.Status(first)); }
};

TEST_F(StatusTest, OfAServiceWithoutPortsIsWhole) {
    computer.address = {192, 168, 1, 5};
    computer.hardware = {0, 0x11, 0x22, 0x33, 0x44, 0x55};
    Start();
    service.SetMemory("locked");
    service.SetControlPath("/run/x");
    network.status.speaks = "off";
    EXPECT_EQ(
        json::parse(std::string(R"({"version": ")") + kVersion + R"(", "host": "studio", "names": ["studio"],
        "midi": {"backend": "memory", "running": true, "problem": "", "realtime": ""},
        "attached": false,
        "options": {"wireless": false, "launchMonitor": true, "logging": true, "showConnectors": true,
                    "sendGranularity": 2},
        "network": {"speaks": "off", "problem": "", "key": "", "port": 0, "avahi": "", "remarks": [], "refused": []},
        "memory": "locked", "control": "/run/x", "looks": 0,
        "hosts": [{"name": "studio", "address": "192.168.1.5", "port": 0, "hardware": "00:11:22:33:44:55",
                   "enabled": true}],
        "sessions": [], "ports": []})"),
        Status());
}

TEST_F(StatusTest, SaysOfEveryHiddenEndpointThatItIsHidden) {
    Patch(0, 1);
    stored.MiscOptions &= ~kShowConnectors;
    for (const bool canHide : {true, false}) {
        backend.canHide = canHide;
        Start();
        const json ports = Status()["ports"];
        EXPECT_NE(ports[0]["output"]["problem"], "") << canHide;
        EXPECT_NE(ports[1]["input"]["problem"], "") << canHide;
    }
}

TEST_F(StatusTest, OfAPatchHasEndpointsRouteAndCounters) {
    Patch(0, 1);
    stored.CustomNames[0].Out_CustomName = "Stage piano";
    stored.PortFlags[1] = {0, 0, 0, 1};
    stored.Hosts[1].SrcHost = "localhost";
    Start();
    const auto player = backend.NewProgram();
    const auto listener = backend.NewProgram();
    ASSERT_TRUE(player->WriteTo("vexil3:Stage piano"));
    ASSERT_TRUE(listener->ReadFrom("vexil3:Port 12"));
    player->Write({0x90, 60, 100, 62, 100});
    Turn();
    EXPECT_EQ(json::parse(R"([
        {"port": 11, "index": 0, "pipe": false,
         "output": {"name": "Stage piano", "address": "vexil3:Stage piano", "connections": 1, "problem": "",
                    "target": {"computer": "studio", "port": 12}, "route": "local", "routeProblem": "",
                    "warning": "", "messages": 2, "bytes": 5, "filtered": 0, "dropped": 0}},
        {"port": 12, "index": 1, "pipe": false,
         "input": {"name": "", "address": "vexil3:Port 12", "connections": 1, "problem": "",
                   "source": {"computer": "localhost", "port": 11}, "messages": 2, "bytes": 6}}])"),
              Status()["ports"]);
}

TEST_F(StatusTest, WarnsOfAWayThatIsSuspectedOfALoop) {
    Patch(0, 1);
    Start();
    Play(0, 20'000);
    Play(0, 20'000);
    Play(0, 1);
    EXPECT_EQ("Port 11 -> 12 carries 20000 messages a second: a loop?",
              Status()["ports"][0]["output"]["warning"]);
}

TEST_F(StatusTest, OfALocalPipeHasBothSides) {
    stored.LocalPipes = Bit(9);
    Start();
    const json port = Status()["ports"].at(0);
    EXPECT_EQ(22, port["port"]);
    EXPECT_EQ(true, port["pipe"]);
    EXPECT_EQ((json{{"computer", "studio"}, {"port", 22}}), port["output"]["target"]);
    EXPECT_EQ("local", port["output"]["route"]);
    EXPECT_EQ((json{{"computer", "studio"}, {"port", 22}}), port["input"]["source"]);
}

TEST_F(StatusTest, OfAnInputForEverybodyHasNoSource) {
    stored.InputPorts = Bit(0);
    Start();
    EXPECT_EQ((json{{"computer", nullptr}, {"port", nullptr}}), Status()["ports"][0]["input"]["source"]);
}

TEST_F(StatusTest, OfATestOutputHasItsTargetAndWhyNobodyHearsIt) {
    Start();
    OpenTest(4, "stage", 63);
    Set(4, PacketList({0x90, 60, 100}));
    Turn();
    EXPECT_EQ(json::parse(R"([{"port": 15, "index": 4, "pipe": false,
        "test": {"open": true, "active": true, "target": {"computer": "stage", "port": 88}, "route": "remote",
                 "routeProblem": "The computer \"stage\" cannot be reached.",
                 "messages": 1, "bytes": 3, "filtered": 1, "dropped": 0}}])"),
              Status()["ports"]);
}

TEST_F(StatusTest, OfATestOutputThatIsNotActiveSaysSo) {
    Start();
    ASSERT_EQ(0, Set(kOptionOpenTestOutput, TestRecord(4, "studio", 0)));
    EXPECT_EQ(false, Status()["ports"][0]["test"]["active"]);
}

TEST_F(StatusTest, OfAMidiSystemThatIsAwayHasTheReason) {
    stored.OutputPorts = 1;
    Start();
    backend.LoseSystem();
    service.ServeBackend();
    const json status = Status();
    EXPECT_EQ(false, status["midi"]["running"]);
    EXPECT_EQ("The MIDI system in memory is away.", status["midi"]["problem"]);
    EXPECT_EQ("The MIDI system in memory is away.", status["ports"][0]["output"]["problem"]);
}

TEST_F(StatusTest, TellsWhyThereIsNoRealtimePriority) {
    backend.realtimeProblem = "Not allowed.";
    Start();
    EXPECT_EQ("Not allowed.", Status()["midi"]["realtime"]);
}

TEST_F(StatusTest, FollowsPanelAndOptions) {
    stored.MiscOptions = kUseWireless | kEnableLogging;
    Start();
    EXPECT_EQ(true, Status()["options"]["wireless"]);
    EXPECT_EQ(false, Status()["options"]["launchMonitor"]);
    EXPECT_EQ(false, Status()["options"]["showConnectors"]);
    service.PanelAttached(1);
    ASSERT_EQ(0, Set(kOptionWirelessOff));
    ASSERT_EQ(0, Set(kOptionSendGranularity, PortNumber(55)));
    EXPECT_EQ(true, Status()["attached"]);
    EXPECT_EQ(false, Status()["options"]["wireless"]);
    EXPECT_EQ(55, Status()["options"]["sendGranularity"]);
    ASSERT_EQ(0, Set(kOptionWirelessOn));
    service.PanelDetached();
    EXPECT_EQ(false, Status()["attached"]);
    EXPECT_EQ(true, Status()["options"]["wireless"]);
}

// The stored bit is kept cleared while a panel runs; what it was at the start and what the panel says counts.
TEST_F(StatusTest, WirelessIsNotChangedByAReload) {
    Start();
    ASSERT_EQ(0, Set(kOptionWirelessOn));
    Apply();
    EXPECT_EQ(true, Status()["options"]["wireless"]);
}

TEST_F(StatusTest, QuantizationAboveTheLongestIsTheLongest) {
    Start();
    ASSERT_EQ(0, Set(kOptionSendGranularity, {1, 2, 3, 4}));
    EXPECT_EQ(100, Status()["options"]["sendGranularity"]);
}

TEST_F(StatusTest, NamesThatAreNoUtf8AreReplacedAndTheRestIsThere) {
    stored.OutputPorts = 1;
    stored.CustomNames[0].Out_CustomName =
        "a\xFF"
        "b\n\"";
    Start();
    EXPECT_EQ(
        "a\xEF\xBF\xBD"
        "b\n\"",
        Status()["ports"][0]["output"]["name"]);
}

TEST_F(StatusTest, OfEveryPortInFullUseFitsOnePacket) {
    for (int port = 0; port < kMaxPorts; ++port) {
        Patch(port, port);
        stored.PortFlags[port].flags = 0;
        stored.CustomNames[port].Out_CustomName = "A name of thirty-one characters";
        stored.CustomNames[port].In_CustomName = "Another of thirty-two characters";
        stored.Hosts[port].SrcHost = "localhost";
    }
    Start();
    const json status = Status();
    EXPECT_EQ(64U, status["ports"].size());
    EXPECT_FALSE(status.contains("portsLeftOut"));
}

TEST_F(StatusTest, OfEndlessNamesLeavesPortsOutAndStillFits) {
    for (int port = 0; port < kMaxPorts; ++port) {
        Patch(port, port);
        stored.CustomNames[port].Out_CustomName = svString('x', 4000);
    }
    Start();
    const std::string text = service.Status(0);
    EXPECT_LE(text.size(), kMaxControlData);
    const json status = json::parse(text);
    EXPECT_LT(status["ports"].size(), 64U);
    EXPECT_EQ(64U, status["ports"].size() + status["portsLeftOut"].get<std::size_t>());
}

TEST_F(StatusTest, WhatOneAnswerHasNoRoomForComesWithTheNextOnes) {
    for (int port = 0; port < kMaxPorts; ++port) {
        Patch(port, port);
        stored.CustomNames[port].Out_CustomName = svString('x', 4000);
    }
    others.assign(300, {.name = std::string(300, 'h')});
    Start();
    std::size_t hosts = 0;
    std::vector<int> ports;
    std::size_t first = 0;
    int answers = 0;
    for (bool isLeft = true; isLeft; ++answers) {
        const std::string text = service.Status(first);
        EXPECT_LE(text.size(), kMaxControlData);
        const json status = json::parse(text);
        hosts += status["hosts"].size();
        for (const json& port : status["ports"]) {
            ports.push_back(port["index"].get<int>());
        }
        isLeft = status.contains("next");
        if (isLeft) {
            ASSERT_GT(status["next"].get<std::size_t>(), first);
            first = status["next"].get<std::size_t>();
            EXPECT_EQ(64U, ports.size() + status["portsLeftOut"].get<std::size_t>());
        }
    }
    EXPECT_EQ(301U, hosts);
    EXPECT_EQ(64U, ports.size());
    EXPECT_TRUE(std::is_sorted(ports.begin(), ports.end(), std::less_equal<>()));
    EXPECT_GT(answers, 3);
}

TEST_F(StatusTest, APortThatNoAnswerCouldHoldIsPassedOver) {
    stored.OutputPorts = 3;
    stored.CustomNames[0].Out_CustomName = svString('x', 70000);
    Start();
    const json status = Status();
    ASSERT_EQ(1U, status["ports"].size());
    EXPECT_EQ(1, status["ports"][0]["index"]);
    EXPECT_FALSE(status.contains("next"));
}

TEST_F(StatusTest, ASessionHasItsWaysAndTheirReasons) {
    RemoteSession stage;
    stage.computer = "stage";
    stage.state = "up";
    stage.up = true;
    stage.address = "192.168.1.6:11188";
    stage.interface = "eth0";
    stage.key = "0011223344556677";
    stage.since = 1793000000;
    stage.seconds = 12;
    stage.roundTrip = 340;
    stage.repaired = 3;
    stage.lost = 2;
    stage.late = 1;
    stage.ways = {{0, 8, false, true, "Port 21 is not enabled as MIDI IN."}};
    RemoteSession attic;
    attic.computer = "attic";
    attic.state = "calling";
    attic.problem = "It does not answer.";
    attic.needs = "secret";
    network.status.sessions = {stage, attic};
    Start();
    EXPECT_EQ(json::parse(R"([
        {"computer": "stage", "state": "up", "up": true, "problem": "", "address": "192.168.1.6:11188",
         "interface": "eth0", "wireless": false, "key": "0011223344556677", "since": 1793000000,
         "needs": "", "seconds": 12, "roundTrip": 340, "repaired": 3, "lost": 2, "late": 1, "ways": [
            {"from": 11, "to": 21, "incoming": false, "test": true,
             "problem": "Port 21 is not enabled as MIDI IN."}]},
        {"computer": "attic", "state": "calling", "up": false, "problem": "It does not answer.",
         "address": "", "interface": "", "wireless": false, "key": "", "since": 0, "needs": "secret", "seconds": 0,
         "roundTrip": null, "repaired": 0, "lost": 0, "late": 0, "ways": []}])"),
              Status()["sessions"]);
}

TEST_F(StatusTest, SummaryIsOneSentence) {
    Patch(0, 1);
    Start();
    EXPECT_EQ("2 ports", service.Summary());
    service.PanelAttached(1);
    EXPECT_EQ("2 ports, panel attached", service.Summary());
    backend.LoseSystem();
    service.ServeBackend();
    EXPECT_EQ("2 ports, panel attached. The MIDI system in memory is away.", service.Summary());
}

}  // namespace
}  // namespace vexil
