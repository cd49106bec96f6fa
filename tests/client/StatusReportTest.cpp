#include "client/StatusReport.h"

#include <gtest/gtest.h>

#include "tests/client/SampleStatus.h"

namespace vexil {
namespace {

using nlohmann::json;

// What is said against a status, "" when it is read.
std::string Problem(const std::string& text) {
    std::string problem = "left from before";
    const bool read = ReadStatusReport(text, problem).has_value();
    EXPECT_EQ(read, problem.empty());
    return problem;
}

std::string Problem(const json& status) {
    return Problem(status.dump());
}

TEST(StatusReport, EveryFieldIsRead) {
    std::string problem;
    const auto status = ReadStatusReport(SampleStatus().dump(), problem);
    ASSERT_TRUE(status) << problem;
    EXPECT_EQ(status->version, "3.3.900");
    EXPECT_EQ(status->host, "studio");
    EXPECT_EQ(status->names, (std::vector<std::string>{"studio", "studio.lan"}));
    EXPECT_EQ(status->backend, "jack");
    EXPECT_TRUE(status->running);
    EXPECT_TRUE(status->attached);
    EXPECT_TRUE(status->wireless);
    EXPECT_FALSE(status->launchMonitor);
    EXPECT_TRUE(status->logging);
    EXPECT_TRUE(status->showConnectors);
    EXPECT_EQ(status->sendGranularity, 12U);
    EXPECT_EQ(status->memory, "locked");
    EXPECT_EQ(status->control, "/run/user/1000/vexil3/com.sonavert.driver.vexil3");

    ASSERT_EQ(status->hosts.size(), 1U);
    EXPECT_EQ(status->hosts[0].name, "studio");
    EXPECT_EQ(status->hosts[0].address, "192.168.1.5");
    EXPECT_EQ(status->hosts[0].hardware, "00:11:22:33:44:55");
    EXPECT_EQ(status->hosts[0].port, 0);
    EXPECT_TRUE(status->hosts[0].enabled);

    ASSERT_TRUE(status->network);
    EXPECT_EQ(status->network->speaks, "eth0,wlan0");
    EXPECT_EQ(status->network->key, "0123456789abcdef");
    EXPECT_EQ(status->network->port, 11188);
    EXPECT_EQ(status->network->remarks,
              (std::vector<std::string>{"The computer \"attic\" is reached by air only."}));

    ASSERT_EQ(status->sessions.size(), 2U);
    const SessionReport& stage = status->sessions[0];
    EXPECT_EQ(stage.computer, "stage");
    EXPECT_EQ(stage.state, "up");
    EXPECT_TRUE(stage.up);
    EXPECT_EQ(stage.address, "192.168.1.6:11188");
    EXPECT_EQ(stage.interface, "eth0");
    EXPECT_FALSE(stage.wireless);
    EXPECT_EQ(stage.key, "0011223344556677");
    EXPECT_EQ(stage.seconds, 754U);
    EXPECT_EQ(stage.roundTrip, 340U);
    EXPECT_EQ(stage.repaired, 3U);
    EXPECT_EQ(stage.lost, 0U);
    EXPECT_EQ(stage.late, 1U);
    ASSERT_EQ(stage.ways.size(), 2U);
    EXPECT_EQ(stage.ways[1].from, 11U);
    EXPECT_EQ(stage.ways[1].to, 12U);
    EXPECT_TRUE(stage.ways[1].incoming && stage.ways[1].test);
    EXPECT_EQ(stage.ways[1].problem, "Port 12 is a local pipe.");
    EXPECT_EQ(status->sessions[1].problem, "It does not answer.");
    EXPECT_FALSE(status->sessions[1].roundTrip);

    ASSERT_EQ(status->ports.size(), 3U);
    const PortReport& first = status->ports[0];
    EXPECT_EQ(first.port, 11U);
    EXPECT_FALSE(first.pipe);
    ASSERT_TRUE(first.output && first.input && first.test);
    EXPECT_EQ(first.output->endpoint.name, "Stage piano");
    EXPECT_EQ(first.output->endpoint.address, "vexil3:Stage piano");
    EXPECT_EQ(first.output->endpoint.connections, 1U);
    EXPECT_EQ(first.output->target.computer, "studio");
    EXPECT_EQ(first.output->target.port, 12U);
    EXPECT_EQ(first.output->route, RouteEnd::Local);
    EXPECT_EQ(first.output->traffic.messages, 1284U);
    EXPECT_EQ(first.output->traffic.bytes, 3852U);
    EXPECT_EQ(first.output->traffic.filtered, 3U);
    EXPECT_EQ(first.output->traffic.dropped, 1U);
    EXPECT_FALSE(first.input->sourceComputer);
    EXPECT_FALSE(first.input->sourcePort);
    EXPECT_TRUE(first.test->open && first.test->active);

    EXPECT_TRUE(status->ports[1].pipe);
    EXPECT_EQ(status->ports[1].input->sourceComputer, "studio");
    EXPECT_EQ(status->ports[1].input->sourcePort, 12U);
    EXPECT_FALSE(status->ports[1].test);
    EXPECT_EQ(status->ports[2].output->route, RouteEnd::Nowhere);
    EXPECT_FALSE(status->ports[2].input);
}

TEST(StatusReport, EarlierServicesTellOfNoNetwork) {
    json status = SampleStatus();
    status.erase("network");
    status.erase("sessions");
    EXPECT_EQ(Problem(status), "");
}

TEST(StatusReport, TextThatIsNoJsonIsRefused) {
    for (const char* text : {"", "{", "status", "{\"version\":\"3\"} more", "{\"version\":\"\xff\"}"}) {
        EXPECT_EQ(Problem(std::string(text)), "it is no JSON") << text;
    }
}

TEST(StatusReport, JsonThatIsNoObjectIsRefused) {
    for (const char* text : {"[]", "null", "3", "\"status\""}) {
        EXPECT_EQ(Problem(std::string(text)), "it is no object") << text;
    }
}

TEST(StatusReport, DeepNestingIsRefusedWithoutHarm) {
    EXPECT_EQ(Problem(std::string(65536, '[')), "it is no JSON");
    EXPECT_EQ(Problem(std::string(32768, '[') + std::string(32768, ']')), "it is no object");
}

// Every value of the sample in turn is taken away, and replaced by one of another type.
TEST(StatusReport, NoFieldMayBeMissingOrOfAnotherType) {
    const json sample = SampleStatus();
    const json flat = sample.flatten();
    for (const auto& [path, value] : flat.items()) {
        // The element of a list leaves a shorter list, and the index of a port is not read.
        const std::string name = path.substr(path.rfind('/') + 1);
        const bool element = name.find_first_not_of("0123456789") == std::string::npos;
        if (name == "index") {
            continue;
        }
        // A driver that runs on from before an update tells of no warnings.
        if (!element && name != "warning") {
            json without = sample;
            const json::json_pointer parent = json::json_pointer(path).parent_pointer();
            without[parent].erase(name);
            EXPECT_NE(Problem(without), "") << path << " missing";
        }
        json other = sample;
        other[json::json_pointer(path)] = json::array({1});
        EXPECT_NE(Problem(other), "") << path << " of another type";
    }
}

TEST(StatusReport, TheProblemNamesThePlace) {
    json status = SampleStatus();
    status["ports"][1]["output"].erase("route");
    EXPECT_EQ(Problem(status), "its ports[1].output.route is missing");
    status = SampleStatus();
    status["names"][1] = 5;
    EXPECT_EQ(Problem(status), "its names[1] is no text");
    status = SampleStatus();
    status["midi"] = "jack";
    EXPECT_EQ(Problem(status), "its midi is no object");
    status = SampleStatus();
    status["ports"][2]["output"]["route"] = "sideways";
    EXPECT_EQ(Problem(status), "its ports[2].output.route is not known");
}

TEST(StatusReport, NumbersOutOfRangeAreRefused) {
    for (const json& number : {json(-1), json(1.5), json(1e300), json("1")}) {
        json status = SampleStatus();
        status["ports"][0]["output"]["messages"] = number;
        EXPECT_EQ(Problem(status), "its ports[0].output.messages is no number, or out of range") << number;
    }
    json status = SampleStatus();
    status["ports"][0]["port"] = 1000;
    EXPECT_EQ(Problem(status), "its ports[0].port is no number, or out of range");
    status = SampleStatus();
    status["hosts"][0]["port"] = 65536;
    EXPECT_EQ(Problem(status), "its hosts[0].port is no number, or out of range");
}

TEST(StatusReport, TheLargestCountIsRead) {
    json status = SampleStatus();
    status["ports"][0]["output"]["messages"] = UINT64_MAX;
    std::string problem;
    const auto report = ReadStatusReport(status.dump(), problem);
    ASSERT_TRUE(report) << problem;
    EXPECT_EQ(report->ports[0].output->traffic.messages, UINT64_MAX);
}

TEST(StatusReport, ThePortOfAnyStoredByteIsRead) {
    json status = SampleStatus();
    status["ports"][0]["output"]["target"]["port"] = 328;  // byte 255
    EXPECT_EQ(Problem(status), "");
}

TEST(StatusReport, PortsThatWereLeftOutAreCounted) {
    json status = SampleStatus();
    status["portsLeftOut"] = 3;
    std::string problem;
    EXPECT_EQ(ReadStatusReport(status.dump(), problem).value_or(StatusReport()).portsLeftOut, 3U);
    status["portsLeftOut"] = "3";
    EXPECT_EQ(Problem(status), "its portsLeftOut is no number, or out of range");
}

TEST(StatusReport, MoreThan64PortsAreRefused) {
    json status = SampleStatus();
    const json port = status["ports"][0];
    status["ports"] = json::array();
    for (int i = 0; i < 64; ++i) {
        status["ports"].push_back(port);
    }
    EXPECT_EQ(Problem(status), "");
    status["ports"].push_back(port);
    EXPECT_EQ(Problem(status), "its ports is no list, or too long");
}

TEST(StatusReport, UnknownFieldsArePassedOver) {
    json status = SampleStatus();
    status["weather"] = "fine";
    status["ports"][0]["output"]["latency"] = 3;
    EXPECT_EQ(Problem(status), "");
}

}  // namespace
}  // namespace vexil
