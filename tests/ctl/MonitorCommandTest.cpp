// "vexil3ctl monitor" with a service that a test plays.
#include "driver/LittleEndian.h"
#include "driver/MonitorPackets.h"
#include "tests/ctl/CtlFixture.h"

namespace vexil {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class MonitorCommandTest : public CtlFixture {
  protected:
    using Bytes = std::vector<std::uint8_t>;

    // A service that sends each watcher these packets' data.
    void Stream(const std::vector<Bytes>& packets, const std::string& status = SampleStatus().dump()) {
        service.SetHook([packets, status](const Seen& request) {
            if (request.kind == kControlStatus) {
                Answer(request, status);
                return true;
            }
            ControlSocketService::Reply(request, request.kind == kControlMonitor ? 0 : EPERM);
            for (const Bytes& data : packets) {
                ControlSocketService::Reply(request, 0, data);
            }
            return true;
        });
        service.Start();
    }
    static Bytes Packet(std::uint32_t leftOut, const std::vector<std::pair<int, Bytes>>& notes) {
        MonitorPacket packet(leftOut);
        for (const auto& [port, bytes] : notes) {
            packet.Add({1, static_cast<std::uint8_t>(port), kMonitoredOutput, 0, bytes});
        }
        return {packet.Data().begin(), packet.Data().end()};
    }
    // Until so much was shown.
    CtlResult Monitor(std::size_t shown, const std::vector<std::string>& arguments = {}) {
        console.shownAtLast = shown;
        std::vector<std::string> all = {"monitor"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return Run(all);
    }
    std::vector<Bytes> Masks() const {
        std::vector<Bytes> masks;
        for (const Seen& request : service.Requests()) {
            if (request.kind == kControlMonitor) {
                masks.push_back(request.payload);
            }
        }
        return masks;
    }
};

TEST_F(MonitorCommandTest, ShowsMessagesAsTheyComeUntilCtrlC) {
    Stream({Packet(0, {{0, {0x90, 60, 64}}, {5, {0xF8}}}), Packet(7, {{0, {0x80, 60, 64}}})});
    const CtlResult result = Monitor(3);
    EXPECT_EQ(result.status, kCtlDone) << result.errors;
    EXPECT_EQ(result.output, "");
    ASSERT_EQ(console.shown.size(), 3U);
    EXPECT_THAT(console.shown[0], StartsWith("TIME "));
    EXPECT_THAT(console.shown[1], HasSubstr(" 11   out "));
    EXPECT_THAT(console.shown[1], HasSubstr("note on C4 velocity 64"));
    EXPECT_THAT(console.shown[1], HasSubstr(" 16   out "));
    EXPECT_THAT(console.shown[2], StartsWith("! 7 messages or parts of them were left out.\n"));
    EXPECT_THAT(console.shown[2], HasSubstr("note off C4 velocity 64"));
    EXPECT_THAT(Masks(), ElementsAre(Bytes(8, 0xFF)));
}

TEST_F(MonitorCommandTest, PortsHaveTheNamesOfTheStatus) {
    nlohmann::json status = SampleStatus();
    const std::string name = status["ports"][0]["output"]["name"];
    const int port =
        (status["ports"][0]["port"].get<int>() / 10 - 1) * 8 + status["ports"][0]["port"].get<int>() % 10 - 1;
    ASSERT_FALSE(name.empty());
    Stream({Packet(0, {{port, {0xF8}}})}, status.dump());
    Monitor(2);
    EXPECT_THAT(console.shown.back(), HasSubstr(name.substr(0, 8)));
}

TEST_F(MonitorCommandTest, WatchesThePortsThatAreNamed) {
    Stream({});
    Monitor(1, {"11", "88"});
    EXPECT_THAT(Masks(), ElementsAre(Bytes{1, 0, 0, 0, 0, 0, 0, 0x80}));
    for (const char* port : {"9", "19", "81x", "", "90"}) {
        ExpectUsageError({"monitor", port}, "'" + std::string(port) +
                                                "' is no port: they are 11 to 18, 21 to 28, up to 81 to 88");
    }
}

TEST_F(MonitorCommandTest, AsJsonEachLineIsAnObject) {
    Stream({Packet(3, {{0, {0x90, 60, 64}}})});
    Monitor(1, {"--json"});
    ASSERT_EQ(console.shown.size(), 1U) << "there are no titles";
    const std::string& text = console.shown[0];
    const std::size_t end = text.find('\n');
    EXPECT_EQ(text.substr(0, end), "{\"leftOut\":3}");
    EXPECT_EQ(nlohmann::json::parse(text.substr(end + 1))["port"], 11);
}

TEST_F(MonitorCommandTest, WithoutAServiceItFails) {
    const CtlResult result = Monitor(0);
    EXPECT_EQ(result.status, kCtlNoService);
    EXPECT_THAT(console.shown, IsEmpty());
}

TEST_F(MonitorCommandTest, AServiceThatHasGoneIsWaitedFor) {
    Stream({});
    console.meanwhile = {[this] { EndService(); }, [this] { Stream({Packet(0, {{0, {0xF8}}})}); }};
    const CtlResult result = Monitor(4);
    EXPECT_EQ(result.status, kCtlDone) << result.errors;
    ASSERT_EQ(console.shown.size(), 4U);
    EXPECT_EQ(console.shown[1], "! The service has gone. The monitor goes on when it is back.\n");
    EXPECT_EQ(console.shown[2], "! The service is back.\n");
    EXPECT_THAT(console.shown[3], HasSubstr(" clock "));
}

TEST_F(MonitorCommandTest, EndsWhenNothingCanBeShown) {
    Stream({Packet(0, {{0, {0xF8}}})});
    console.showError = ENOSPC;
    const CtlResult result = Monitor(1);
    EXPECT_EQ(result.status, kCtlFailed);
    EXPECT_EQ(result.errors, "vexil3ctl: standard output: No space left on device\n");
}

}  // namespace
}  // namespace vexil
