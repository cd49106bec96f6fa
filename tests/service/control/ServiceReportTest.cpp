// What the log tells a musician, and when.
#include <gmock/gmock.h>
#include <poll.h>

#include "service/control/ServiceReport.h"
#include "tests/doubles/FaultyMidiBackend.h"
#include "tests/service/control/ServiceFixture.h"

namespace vexil {
namespace {

class ServiceReportTest : public ServiceFixture {};

TEST_F(ServiceReportTest, EnableLoggingSwitchesTheLines) {
    stored.MiscOptions &= ~kEnableLogging;
    Start();
    service.PanelAttached(1);
    EXPECT_EQ("", log.Text());
    stored.MiscOptions |= kEnableLogging;
    Apply();
    EXPECT_EQ("Configuration: 0 outputs, 0 inputs, 0 local pipes.\n", log.Text());
    log.Clear();
    stored.MiscOptions &= ~kEnableLogging;
    Apply();
    service.PanelDetached();
    EXPECT_EQ("", log.Text());
}

TEST_F(ServiceReportTest, TurningAwayIsLoggedAlways) {
    stored.MiscOptions &= ~kEnableLogging;
    Start();
    service.ClientRefused(7, 1001);
    EXPECT_EQ("Process 7 of user 1001 may not use this service and was turned away.\n", log.Text());
}

TEST_F(ServiceReportTest, LogTellsTheWaysThatChanged) {
    Patch(0, 1);
    Patch(2, 1);
    Start();
    log.Clear();
    Patch(2, 8);
    stored.LocalPipes = Bit(4);
    stored.OutputPorts &= ~Bit(0);
    Apply();
    EXPECT_EQ(
        "Configuration: 1 output, 2 inputs, 1 local pipe.\n"
        "Port 11 is no longer an output.\n"
        "Port 13 sends to port 21 of \"studio\".\n"
        "Port 15 is a local pipe.\n",
        log.Text());
}

TEST_F(ServiceReportTest, ALoopThatIsSuspectedIsToldOfOnceInAMinute) {
    stored.MiscOptions &= ~kEnableLogging;
    Patch(0, 1);
    Start();
    const auto loop = [this] {
        Play(0, 20'000);
        Play(0, 20'000);
        engine.Write(0, backend.now, Bytes{0xF8});
        pollfd event{service.LoopDescriptor(), POLLIN, 0};
        Turn();
        EXPECT_EQ(1, ::poll(&event, 1, 0));
        service.ServeLoops();
        EXPECT_EQ(0, ::poll(&event, 1, 0));
        Play(0, 1);
        Play(0, 1);
        Turn();
        service.ServeLoops();
    };
    loop();
    EXPECT_EQ("Port 11 -> 12 carries 20000 messages a second: a loop?\n", log.Text());
    loop();
    EXPECT_EQ(1, log.Count("a loop?"));
    now += ServiceReport::kLoopLines;
    loop();
    EXPECT_EQ(2, log.Count("a loop?"));
}

TEST_F(ServiceReportTest, LogTellsTheMidiSystemsComingAndGoing) {
    Start();
    EXPECT_EQ(1, log.Count("Music programs see the ports (memory).\n"));
    backend.LoseSystem();
    service.ServeBackend();
    EXPECT_EQ(1, log.Count("Music programs do not see the ports. The MIDI system in memory is away.\n"));
    service.ServeBackend();
    EXPECT_EQ(1, log.Count("Music programs do not see the ports."));
    backend.ReturnSystem();
    service.ServeBackend();
    EXPECT_EQ(2, log.Count("Music programs see the ports (memory).\n"));
}

TEST_F(ServiceReportTest, LogTellsAMidiSystemThatIsAwayFromTheBeginning) {
    FaultyMidiBackend faulty{backend};
    faulty.away = "It sleeps.";
    ServiceReport report;
    report.SetEnabled(true);
    faulty.Start(engine);
    report.Backend(faulty);
    report.Backend(faulty);
    EXPECT_EQ("Music programs do not see the ports. It sleeps.\n", log.Text());
}

TEST_F(ServiceReportTest, LogTellsATestThatNobodyHears) {
    Start();
    log.Clear();
    OpenTest(0, "studio", 1);
    Set(0, PacketList({0x90, 60, 100}));
    EXPECT_EQ("Test of port 11: nobody hears its notes. Port 12 is not enabled as MIDI IN.\n", log.Text());
}

TEST_F(ServiceReportTest, ATestOutputIsToldOfWhenItIsFirstPlayedAndThenWhenItCloses) {
    Start();
    log.Clear();
    for (const char* typed : {"l", "lo", "loc", "local"}) {
        OpenTest(0, typed, 1);
        ASSERT_EQ(0, Set(kOptionDeactivateTestOutput, PortNumber(0)));
    }
    OpenTest(0, "studio", 1);
    EXPECT_EQ("", log.Text());
    Set(0, PacketList({0x90, 60, 100}));
    Set(0, PacketList({0x90, 60, 100}));
    Set(kOptionDeactivateTestOutput, PortNumber(0));
    EXPECT_EQ(
        "Test of port 11: nobody hears its notes. Port 12 is not enabled as MIDI IN.\n"
        "Test of port 11 closed.\n",
        log.Text());
}

TEST_F(ServiceReportTest, TheConfigurationIsToldOfOnlyWhenItHasChanged) {
    Start();
    log.Clear();
    Apply();
    Apply();
    EXPECT_EQ("", log.Text());
    stored.CustomNames[0].Out_CustomName = "Piano";
    Apply();
    EXPECT_EQ("Configuration: 0 outputs, 0 inputs, 0 local pipes.\n", log.Text());
}

}  // namespace
}  // namespace vexil
