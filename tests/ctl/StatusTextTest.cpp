#include "ctl/StatusText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "ctl/SessionText.h"
#include "ctl/TerminalText.h"
#include "shared/System/PrintableText.h"
#include "tests/client/SampleStatus.h"

namespace vexil {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

StatusReport Read(const json& status) {
    std::string problem;
    const auto report = ReadStatusReport(status.dump(), problem);
    EXPECT_EQ(problem, "");
    return report.value_or(StatusReport());
}

std::string Text(const json& status) {
    return StatusText(Read(status));
}

TEST(StatusText, ShowsTheServiceAndEachSideOfAPort) {
    EXPECT_EQ(Text(SampleStatus()), R"(Vexil III 3.3.900 on studio
MIDI system    JACK, running
Memory         locked
Control panel  attached
Options        Show Connectors, Enable Logging, Use Wireless
Quantization   1.2 ms
Own names      studio, studio.lan
Control        /run/user/1000/vexil3/com.sonavert.driver.vexil3
Network        on eth0, wlan0, UDP port 11188, key 0123456789abcdef
               ! The computer "attic" is reached by air only.

PORT SIDE ENDPOINT                 LINKS ROUTE                 MESSAGES    BYTES
11   out  vexil3:Stage piano           1 to studio, port 12        1284     3852
          ! 3 filtered, 1 dropped
     in   vexil3:Keys                  0 from any                     0        0
     test open                           to studio, port 12          12       36
12   out  vexil3:Port 12               2 to its own input             7       21
     in   vexil3:Port 12               2 from its own output          7       21
88   out  Far away                     0 to stage, port 21            5       15
          ! The name is taken by another program.
          ! No computer of the name "stage" is known.
          ! 5 dropped

Sent           1308 messages, 3924 bytes; 3 filtered, 6 dropped
Received       7 messages, 21 bytes

COMPUTER     STATE      FOR ADDRESS           BY       TRIP  LOST REPAIRED  LATE
stage        up         12m 192.168.1.6:11188 eth0   340 us     0        3     1
             ! from its test output of port 11 to port 12 here: Port 12 is a
             local pipe.
attic        calling     7s                                     0        0     0
             ! It does not answer.
)");
}

TEST(StatusText, SaysSoWhenNoPortIsUsed) {
    json status = SampleStatus();
    status["ports"] = json::array();
    EXPECT_THAT(Text(status), HasSubstr("\n\nNo port is in use.\n"));
}

TEST(StatusText, SaysWhyTheMidiSystemIsNotThere) {
    json status = SampleStatus();
    status["midi"] = {{"backend", "alsa"},
                      {"running", false},
                      {"problem", "The sequencer cannot be opened."},
                      {"realtime", "No right to it."}};
    status["memory"] = "not locked: the limit is 64 kB";
    EXPECT_THAT(Text(status), HasSubstr("MIDI system    ALSA, not running: The sequencer cannot be opened.\n"
                                        "Realtime       no: No right to it.\n"
                                        "Memory         not locked: the limit is 64 kB\n"));
    status["midi"]["backend"] = "none";
    EXPECT_THAT(Text(status), HasSubstr("MIDI system    none\n"));
}

TEST(StatusText, TheProblemOfTheMidiSystemIsSaidOnce) {
    json status = SampleStatus();
    status["midi"]["running"] = false;
    status["midi"]["problem"] = "No server runs.";
    for (const char* side : {"output", "input"}) {
        status["ports"][0][side]["problem"] = "No server runs.";
    }
    const std::string text = Text(status);
    EXPECT_EQ(text.find("No server runs."), text.rfind("No server runs."));
    EXPECT_THAT(text, HasSubstr("MIDI system    JACK, not running: No server runs.\n"));
}

TEST(StatusText, AnEndpointWithoutAnyNameIsCalledByItsPort) {
    json status = SampleStatus();
    status["ports"][2]["output"]["name"] = "";
    EXPECT_THAT(Text(status), HasSubstr("\n88   out  Port 88 "));
}

TEST(StatusText, SaysThatNoPanelIsAttachedAndNoOptionOn) {
    json status = SampleStatus();
    status["attached"] = false;
    status["options"] = {{"wireless", false},
                         {"launchMonitor", false},
                         {"logging", false},
                         {"showConnectors", false},
                         {"sendGranularity", 0}};
    EXPECT_THAT(Text(status), HasSubstr("Control panel  not attached\n"
                                        "Options        none\n"
                                        "Quantization   0.0 ms, messages are sent at once\n"));
}

TEST(StatusText, SaysHowManyPortsTheServiceLeftOut) {
    json status = SampleStatus();
    status["portsLeftOut"] = 5;
    EXPECT_THAT(Text(status),
                HasSubstr("! 5 more ports are in use, for which the answer had no room.\n\nSent"));
    status["portsLeftOut"] = 1;
    EXPECT_THAT(Text(status), HasSubstr("! 1 more port is in use, for which the answer had no room.\n"));
}

TEST(StatusText, AnOutputWithoutTargetComputerGoesNowhereWithoutComplaint) {
    json status = SampleStatus();
    json& output = status["ports"][2]["output"];
    output["target"]["computer"] = "";
    output["routeProblem"] = "";
    output["problem"] = "";
    output["dropped"] = 0;
    EXPECT_THAT(Text(status), HasSubstr("0 nowhere "));
    EXPECT_THAT(Text(status), HasSubstr(" 15\n\nSent"));
}

TEST(StatusText, AnOutputThatArrivesNowhereIsNeverSilent) {
    json status = SampleStatus();
    status["ports"][2]["output"]["routeProblem"] = "";
    EXPECT_THAT(Text(status), HasSubstr("! What is sent there arrives nowhere.\n"));
}

TEST(StatusText, AnOutputIsWarnedOfAndThatOfAnEarlierServiceIsNot) {
    json status = SampleStatus();
    json& output = status["ports"][0]["output"];
    output["warning"] = "Port 11 -> 12 carries 37000 messages a second: a loop?";
    EXPECT_THAT(Text(status), HasSubstr("! Port 11 -> 12 carries 37000 messages a second: a loop?\n"));
    output.erase("warning");
    EXPECT_THAT(Text(status), Not(HasSubstr("loop")));
}

TEST(StatusText, InputsNameTheirSource) {
    json status = SampleStatus();
    json& source = status["ports"][0]["input"]["source"];
    source["computer"] = "stage";
    EXPECT_THAT(Text(status), HasSubstr("from stage, any"));
    source = {{"computer", nullptr}, {"port", 21}};
    EXPECT_THAT(Text(status), HasSubstr("from any, port 21"));
}

TEST(StatusText, TestOutputsSayWhetherTheyAreActive) {
    json status = SampleStatus();
    json& test = status["ports"][0]["test"];
    test["active"] = false;
    EXPECT_THAT(Text(status), HasSubstr("test open, not active"));
    test["open"] = false;
    EXPECT_THAT(Text(status), HasSubstr("test closed"));
}

TEST(StatusText, NothingThatWasSentReachesTheTerminalRaw) {
    json status = SampleStatus();
    const std::string evil = "x\x1b]0;y\x07\u009b\u202e\nz";
    const json flat = SampleStatus().flatten();
    for (const auto& [path, value] : flat.items()) {
        if (value.is_string() && path.find("route") == std::string::npos) {
            status[json::json_pointer(path)] = evil;
        }
    }
    status["ports"][0]["output"]["routeProblem"] = evil;
    status["ports"][0]["output"]["warning"] = evil;
    const StatusReport report = Read(status);
    for (const std::string& text : {StatusText(report), HostsText(report)}) {
        EXPECT_EQ(text, PrintableLines(text));
        EXPECT_THAT(text, Not(HasSubstr("\nz")));
    }
}

TEST(StatusText, FitsTheTerminalWhateverTheNames) {
    json status = SampleStatus();
    const json flat = SampleStatus().flatten();
    const std::string words = "the grand piano of the large hall on the upper floor, left of the organ";
    for (const std::string& name : {std::string(300, 'n'), words}) {
        for (const auto& [path, value] : flat.items()) {
            if (value.is_string() && path.find("/route") == std::string::npos) {
                status[json::json_pointer(path)] = name;
            }
            const bool isPort =
                path.find("port") != std::string::npos || path.find("/ways") != std::string::npos;
            if (value.is_number() && !isPort) {
                status[json::json_pointer(path)] = 4'000'000'000U;
            }
        }
        const StatusReport report = Read(status);
        std::istringstream lines(StatusText(report) + HostsText(report));
        for (std::string line; std::getline(lines, line);) {
            EXPECT_LE(DisplayWidth(line), 80U) << line;
        }
    }
}

TEST(StatusText, CountsStayWithinTheirColumn) {
    EXPECT_EQ(CountText(0), "0");
    EXPECT_EQ(CountText(99'999'999), "99999999");
    EXPECT_EQ(CountText(100'000'000), "100.0M");
    EXPECT_EQ(CountText(123'456'789'012), "123.4G");
    EXPECT_EQ(CountText(UINT64_MAX), "18446.7P");
    EXPECT_LE(CountText(99'999'999'999'999'999).size(), 8U);
}

TEST(StatusText, ShortCountsStayWithinTheirColumn) {
    EXPECT_EQ(ShortCountText(99'999), "99999");
    EXPECT_EQ(ShortCountText(100'000), "100k");
    EXPECT_EQ(ShortCountText(9'999'999), "9999k");
    EXPECT_EQ(ShortCountText(10'000'000), "10M");
    EXPECT_EQ(ShortCountText(UINT64_MAX), "18E");
}

TEST(SessionText, TellsOfNoNetworkWhereTheServiceDoesNot) {
    json status = SampleStatus();
    status.erase("network");
    status.erase("sessions");
    EXPECT_THAT(Text(status), Not(HasSubstr("Network")));
    EXPECT_THAT(Text(status), Not(HasSubstr("COMPUTER")));
}

TEST(SessionText, SaysWhereTheServiceSpeaksAndWhyItDoesNot) {
    json status = SampleStatus();
    status["network"] = {
        {"speaks", "off"}, {"problem", ""}, {"key", ""}, {"port", 0}, {"remarks", json::array()}};
    EXPECT_THAT(Text(status), HasSubstr("\nNetwork        off\n\n"));
    status["network"]["speaks"] = "lo";
    EXPECT_THAT(Text(status), HasSubstr("\nNetwork        within this computer only\n"));
    status["network"]["speaks"] = "on";
    status["network"]["problem"] = "Another user's service speaks to the network.";
    EXPECT_THAT(Text(status), HasSubstr("\nNetwork        on every interface\n"
                                        "               ! Another user's service speaks to the network.\n"));
    status["network"]["problem"] = "";
    status["network"]["avahi"] = "No Avahi.";
    EXPECT_THAT(Text(status), HasSubstr("\nNetwork        on every interface\n"
                                        "               No Avahi.\n"));
}

TEST(SessionText, ShowsSessionsAlsoWithoutAPort) {
    json status = SampleStatus();
    status["ports"] = json::array();
    EXPECT_THAT(Text(status), HasSubstr("No port is in use.\n\nCOMPUTER "));
}

TEST(SessionText, DurationsAreShort) {
    EXPECT_EQ(DurationText(0), "0s");
    EXPECT_EQ(DurationText(59), "59s");
    EXPECT_EQ(DurationText(60), "1m");
    EXPECT_EQ(DurationText(3599), "59m");
    EXPECT_EQ(DurationText(3600), "1h");
    EXPECT_EQ(DurationText(86'400), "1d");
    EXPECT_EQ(DurationText(UINT64_MAX), "999d");
}

TEST(SessionText, RoundTripsAreShort) {
    EXPECT_EQ(RoundTripText(999), "999 us");
    EXPECT_EQ(RoundTripText(1250), "1.2 ms");
    EXPECT_EQ(RoundTripText(10'000), "10 ms");
    EXPECT_EQ(RoundTripText(999'999), "999 ms");
    EXPECT_EQ(RoundTripText(1'000'000), "1 s");
    EXPECT_LE(RoundTripText(UINT32_MAX).size(), 6U);
}

TEST(HostsText, ShowsEachComputer) {
    EXPECT_EQ(HostsText(Read(SampleStatus())),
              "NAME                         ADDRESS          PORT HARDWARE          ENABLED\n"
              "studio                       192.168.1.5         0 00:11:22:33:44:55 yes\n");
}

TEST(HostsText, SaysSoWhenThereIsNone) {
    json status = SampleStatus();
    status["hosts"] = json::array();
    EXPECT_EQ(HostsText(Read(status)), "No computers are known.\n");
}

}  // namespace
}  // namespace vexil
