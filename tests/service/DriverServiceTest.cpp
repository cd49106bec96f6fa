// What the options do: configuration, endpoints, test outputs, and the order in which a change is taken up.
#include <gmock/gmock.h>

#include <cerrno>

#include "driver/HostInfos.h"
#include "tests/service/ServiceFixture.h"

namespace vexil {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

const Bytes kNoteOn = {0x90, 60, 100};
const Bytes kNoteOff = {0x80, 60, 64};

class DriverServiceTest : public ServiceFixture {};

TEST_F(DriverServiceTest, PublishesWhatIsEnabledUnderItsNames) {
    stored.OutputPorts = Bit(0) | Bit(1);
    stored.InputPorts = Bit(8);
    stored.CustomNames[0].Out_CustomName = "Stage piano";
    stored.CustomNames[8].In_CustomName = "Strings";
    Start();
    EXPECT_THAT(Addresses(), ElementsAre("> vexil3:Stage piano", "> vexil3:Port 12", "< vexil3:Strings"));
}

TEST_F(DriverServiceTest, PublishesBothSidesOfALocalPipe) {
    stored.LocalPipes = Bit(3);
    stored.CustomNames[3].Out_CustomName = "In here";
    stored.CustomNames[3].In_CustomName = "Out there";
    Start();
    EXPECT_THAT(Addresses(), ElementsAre("> vexil3:In here", "< vexil3:Out there"));
}

TEST_F(DriverServiceTest, ShowConnectorsOffHidesTheEndpoints) {
    stored.OutputPorts = Bit(0);
    stored.MiscOptions &= ~kShowConnectors;
    Start();
    EXPECT_THAT(backend.NewProgram()->Listed(true), IsEmpty());
    stored.MiscOptions |= kShowConnectors;
    Apply();
    EXPECT_THAT(backend.NewProgram()->Listed(true), ElementsAre("vexil3:Port 11"));
}

TEST_F(DriverServiceTest, NeverWritesTheConfiguration) {
    Patch(0, 1);
    Start();
    servicePreferences.Forget();
    service.PanelAttached(1);
    Set(kOptionSendGranularity, PortNumber(50));
    Set(kOptionWirelessOn);
    OpenTest(0, "studio", 1);
    Apply();
    service.PanelDetached();
    service.Status();
    EXPECT_THAT(servicePreferences.Changes(), IsEmpty());
}

TEST_F(DriverServiceTest, ReadsTheCurrentDomainOnly) {
    const PreferenceDomainId older{kOlderDriverDomain, UserScope::kCFPreferencesAnyUser,
                                   HostScope::kCFPreferencesCurrentHost};
    storage->domains[older]["ActiveDevices"] = MakePropertyNumber(6);
    service.Start();
    Turn();
    EXPECT_THAT(Addresses(), ElementsAre("> vexil3:Port 11"));
}

TEST_F(DriverServiceTest, PatchesOnePortToAnother) {
    Patch(0, 1);
    Start();
    const auto player = backend.NewProgram();
    const auto listener = backend.NewProgram();
    ASSERT_TRUE(player->WriteTo("vexil3:Port 11"));
    ASSERT_TRUE(listener->ReadFrom("vexil3:Port 12"));
    player->Write(kNoteOn);
    Turn();
    EXPECT_EQ(kNoteOn, listener->Read());
}

TEST_F(DriverServiceTest, ReloadTouchesOnlyWhatChanged) {
    Patch(0, 1);
    Start();
    const auto player = backend.NewProgram();
    const auto listener = backend.NewProgram();
    ASSERT_TRUE(player->WriteTo("vexil3:Port 11"));
    ASSERT_TRUE(listener->ReadFrom("vexil3:Port 12"));
    player->Write(kNoteOn);
    Turn();
    stored.OutputPorts |= Bit(5);
    Apply();
    EXPECT_EQ(kNoteOn, listener->Read());  // and no release of the note that sounds on
    player->Write(kNoteOff);
    Turn();
    EXPECT_EQ(kNoteOff, listener->Read());
}

TEST_F(DriverServiceTest, ReloadWithoutAChangePublishesNothing) {
    Patch(0, 1);
    Start();
    const int before = backend.publishes;
    const std::uint64_t posted = engine.Posted();
    Apply();
    EXPECT_EQ(before, backend.publishes);
    EXPECT_EQ(posted, engine.Posted());
}

TEST_F(DriverServiceTest, AnInputGoesOnlyAfterItsNotesAreReleased) {
    Patch(0, 1);
    Start();
    const auto player = backend.NewProgram();
    const auto listener = backend.NewProgram();
    ASSERT_TRUE(player->WriteTo("vexil3:Port 11"));
    ASSERT_TRUE(listener->ReadFrom("vexil3:Port 12"));
    player->Write(kNoteOn);
    Turn();
    ASSERT_EQ(kNoteOn, listener->Read());
    stored.InputPorts = 0;
    stored.OutputPorts |= Bit(2);
    Store();
    ASSERT_EQ(0, Set(kOptionReloadConfiguration));
    EXPECT_THAT(Addresses(), ElementsAre("> vexil3:Port 11", "< vexil3:Port 12"));
    EXPECT_GE(service.Timeout(), 0);
    Turn();
    EXPECT_EQ((Bytes{0x80, 60, 64}), listener->Read());
    EXPECT_THAT(Addresses(), ElementsAre("> vexil3:Port 11", "> vexil3:Port 13"));
    EXPECT_EQ(-1, service.Timeout());
}

TEST_F(DriverServiceTest, AMidiSystemThatHangsHoldsAChangeUpFor200MillisecondsOnly) {
    Patch(0, 1);
    Start();
    stored.InputPorts = 0;
    Store();
    ASSERT_EQ(0, Set(kOptionReloadConfiguration));
    now += 199ms;
    service.Settle();
    EXPECT_THAT(Addresses(), ElementsAre("> vexil3:Port 11", "< vexil3:Port 12"));
    EXPECT_EQ(1, service.Timeout());
    now += 1ms;
    service.Settle();
    EXPECT_THAT(Addresses(), ElementsAre("> vexil3:Port 11"));
}

TEST_F(DriverServiceTest, WithoutAMidiSystemAChangeIsTakenUpAtOnce) {
    backend.LoseSystem();
    backend.Service();
    Store();
    service.Start();
    Patch(0, 1);
    Store();
    ASSERT_EQ(0, Set(kOptionReloadConfiguration));
    EXPECT_EQ(-1, service.Timeout());
    EXPECT_EQ(engine.Posted(), engine.Done());
    backend.ReturnSystem();
    service.ServeBackend();
    EXPECT_THAT(Addresses(), ElementsAre("> vexil3:Port 11", "< vexil3:Port 12"));
}

TEST_F(DriverServiceTest, QuantizationFromAPanelLastsUntilTheNextReload) {
    Patch(0, 1);
    stored.SendGranularity = 0;
    Start();
    const auto player = backend.NewProgram();
    const auto listener = backend.NewProgram();
    ASSERT_TRUE(player->WriteTo("vexil3:Port 11"));
    ASSERT_TRUE(listener->ReadFrom("vexil3:Port 12"));
    ASSERT_EQ(0, Set(kOptionSendGranularity, PortNumber(100)));
    backend.now = 2'000'500'000;
    player->Write(kNoteOn);
    backend.Cycle();
    EXPECT_THAT(listener->Read(), IsEmpty());
    for (int cycle = 0; cycle < 10; ++cycle) {
        backend.Cycle();
    }
    EXPECT_EQ(kNoteOn, listener->Read());
    Apply();
    player->Write(kNoteOff);
    backend.Cycle();
    EXPECT_EQ(kNoteOff, listener->Read());
}

TEST_F(DriverServiceTest, TestNotesGoWhereTheRecordSaysAndNowhereElse) {
    Patch(0, 1);
    stored.InputPorts |= Bit(17);
    Start();
    const auto patched = backend.NewProgram();
    const auto target = backend.NewProgram();
    ASSERT_TRUE(patched->ReadFrom("vexil3:Port 12"));
    ASSERT_TRUE(target->ReadFrom("vexil3:Port 32"));
    OpenTest(0, "studio", 17);
    EXPECT_EQ(0, Set(0, PacketList(kNoteOn)));
    Turn();
    EXPECT_THAT(patched->Read(), IsEmpty());
    EXPECT_EQ(kNoteOn, target->Read());
}

TEST_F(DriverServiceTest, ClosingATestOutputReleasesItsNotes) {
    stored.InputPorts = Bit(1);
    Start();
    const auto listener = backend.NewProgram();
    ASSERT_TRUE(listener->ReadFrom("vexil3:Port 12"));
    OpenTest(0, "studio", 1);
    ASSERT_EQ(0, Set(0, PacketList(kNoteOn)));
    Turn();
    ASSERT_EQ(kNoteOn, listener->Read());
    EXPECT_EQ(0, Set(kOptionDeactivateTestOutput, PortNumber(0)));
    Turn();
    EXPECT_EQ(kNoteOff, listener->Read());
    EXPECT_EQ(ENXIO, Set(0, PacketList(kNoteOn)));
}

TEST_F(DriverServiceTest, ReplacingATestOutputReleasesItsNotes) {
    stored.InputPorts = Bit(1) | Bit(2);
    Start();
    const auto first = backend.NewProgram();
    const auto second = backend.NewProgram();
    ASSERT_TRUE(first->ReadFrom("vexil3:Port 12"));
    ASSERT_TRUE(second->ReadFrom("vexil3:Port 13"));
    OpenTest(0, "studio", 1);
    ASSERT_EQ(0, Set(0, PacketList(kNoteOn)));
    Turn();
    ASSERT_EQ(kNoteOn, first->Read());
    OpenTest(0, "studio", 2);
    EXPECT_EQ(kNoteOff, first->Read());
    ASSERT_EQ(0, Set(0, PacketList(kNoteOn)));
    Turn();
    EXPECT_EQ(kNoteOn, second->Read());
    EXPECT_THAT(first->Read(), IsEmpty());
}

TEST_F(DriverServiceTest, ReplacingATestOutputByItselfReleasesItsNotes) {
    stored.InputPorts = Bit(1);
    Start();
    const auto listener = backend.NewProgram();
    ASSERT_TRUE(listener->ReadFrom("vexil3:Port 12"));
    OpenTest(0, "studio", 1);
    ASSERT_EQ(0, Set(0, PacketList(kNoteOn)));
    Turn();
    ASSERT_EQ(kNoteOn, listener->Read());
    OpenTest(0, "studio", 1);
    EXPECT_EQ(kNoteOff, listener->Read());
}

TEST_F(DriverServiceTest, TheEndOfAnAttachmentClosesEveryTestOutput) {
    stored.InputPorts = Bit(1);
    Start();
    const auto listener = backend.NewProgram();
    ASSERT_TRUE(listener->ReadFrom("vexil3:Port 12"));
    service.PanelAttached(1);
    OpenTest(0, "studio", 1);
    OpenTest(63, "studio", 1);
    ASSERT_EQ(0, Set(0, PacketList(kNoteOn)));
    Turn();
    ASSERT_EQ(kNoteOn, listener->Read());
    service.PanelDetached();
    Turn();
    EXPECT_EQ(kNoteOff, listener->Read());
    EXPECT_EQ(ENXIO, Set(kOptionActivateTestOutput, PortNumber(0)));
    EXPECT_EQ(ENXIO, Set(kOptionActivateTestOutput, PortNumber(63)));
}

TEST_F(DriverServiceTest, AnOpenTestOutputFollowsTheConfigurationOfItsTarget) {
    Start();
    OpenTest(0, "studio", 1);
    EXPECT_EQ(0, Set(0, PacketList(kNoteOn)));
    stored.InputPorts = Bit(1);
    Apply();
    const auto listener = backend.NewProgram();
    ASSERT_TRUE(listener->ReadFrom("vexil3:Port 12"));
    EXPECT_EQ(0, Set(0, PacketList(kNoteOn)));
    Turn();
    EXPECT_EQ(kNoteOn, listener->Read());
}

TEST_F(DriverServiceTest, AChangeElsewhereLeavesAnOpenTestOutputAlone) {
    stored.InputPorts = Bit(1);
    Start();
    const auto listener = backend.NewProgram();
    ASSERT_TRUE(listener->ReadFrom("vexil3:Port 12"));
    OpenTest(0, "studio", 1);
    ASSERT_EQ(0, Set(0, PacketList(kNoteOn)));
    stored.OutputPorts = Bit(7);
    Apply();
    EXPECT_EQ(kNoteOn, listener->Read());
}

TEST_F(DriverServiceTest, TestNotesThatTheEngineCannotTakeAreRefused) {
    stored.InputPorts = Bit(1);
    Start();
    OpenTest(0, "studio", 1);
    int taken = 0;
    while (taken < 1000 && Set(0, PacketList(kNoteOn)) == 0) {
        ++taken;
    }
    EXPECT_LT(taken, 1000);
    EXPECT_EQ(ENOBUFS, Set(0, PacketList(kNoteOn)));
    Turn();
    EXPECT_EQ(0, Set(0, PacketList(kNoteOn)));
}

// The engine does not run: what it cannot take is kept, and nothing sounds on a way that should have ended.
TEST_F(DriverServiceTest, ATestOutputThatCouldNotBeClosedYetPlaysNothing) {
    stored.InputPorts = Bit(1) | Bit(2);
    Start();
    const auto first = backend.NewProgram();
    const auto second = backend.NewProgram();
    ASSERT_TRUE(first->ReadFrom("vexil3:Port 12"));
    ASSERT_TRUE(second->ReadFrom("vexil3:Port 13"));
    OpenTest(0, "studio", 1);
    while (Set(0, PacketList(kNoteOn)) == 0) {
    }
    ASSERT_EQ(0, Set(kOptionOpenTestOutput, TestRecord(0, "studio", 2)));
    ASSERT_EQ(0, Set(kOptionActivateTestOutput, PortNumber(0)));
    EXPECT_EQ(ENOBUFS, Set(0, PacketList({0x91, 1, 1})));
    EXPECT_GE(service.Timeout(), 0);
    Turn();
    EXPECT_EQ(-1, service.Timeout());
    const Bytes heard = first->Read();
    ASSERT_GE(heard.size(), 6U);
    EXPECT_EQ(kNoteOff, Bytes(heard.end() - 3, heard.end()));
    EXPECT_EQ(0, Set(0, PacketList({0x91, 1, 1})));
    Turn();
    EXPECT_EQ((Bytes{0x91, 1, 1}), second->Read());
}

TEST_F(DriverServiceTest, TestNotesNeverOvertakeTheirTestOutput) {
    stored.InputPorts = Bit(1) | Bit(2);
    Start();
    const auto first = backend.NewProgram();
    const auto second = backend.NewProgram();
    ASSERT_TRUE(first->ReadFrom("vexil3:Port 12"));
    ASSERT_TRUE(second->ReadFrom("vexil3:Port 13"));
    OpenTest(0, "studio", 1);
    while (Set(0, PacketList(kNoteOn)) == 0) {
    }
    ASSERT_EQ(0, Set(kOptionOpenTestOutput, TestRecord(0, "studio", 2)));
    ASSERT_EQ(0, Set(kOptionActivateTestOutput, PortNumber(0)));
    backend.Cycle();  // the engine has room again before anybody has looked
    first->Read();
    EXPECT_EQ(0, Set(0, PacketList({0x91, 1, 1})));
    Turn();
    EXPECT_EQ(kNoteOff, first->Read());
    EXPECT_EQ((Bytes{0x91, 1, 1}), second->Read());
}

TEST_F(DriverServiceTest, ManyChangesWhileTheEngineHangsEndInTheLast) {
    Patch(0, 1);
    Start();
    for (int target = 2; target < 40; ++target) {
        Patch(0, target);
        Store();
        ASSERT_EQ(0, Set(kOptionReloadConfiguration));
    }
    EXPECT_GE(service.Timeout(), 0);
    for (int round = 0; round < 4; ++round) {
        Turn();
    }
    EXPECT_EQ(-1, service.Timeout());
    const auto player = backend.NewProgram();
    const auto last = backend.NewProgram();
    const auto former = backend.NewProgram();
    ASSERT_TRUE(player->WriteTo("vexil3:Port 11"));
    ASSERT_TRUE(last->ReadFrom("vexil3:Port 58"));
    ASSERT_TRUE(former->ReadFrom("vexil3:Port 57"));
    player->Write(kNoteOn);
    Turn();
    EXPECT_EQ(kNoteOn, last->Read());
    EXPECT_THAT(former->Read(), IsEmpty());
}

TEST_F(DriverServiceTest, TheComputersNameMayComeWithADomain) {
    computer.name = "studio.example.org";
    Patch(0, 1);
    stored.Hosts[0].DstHost = "STUDIO.local.";
    Start();
    EXPECT_TRUE(log.Text().find("Port 11 sends to port 12 of \"STUDIO.local.\".") != std::string::npos)
        << log.Text();
}

TEST_F(DriverServiceTest, AnotherNameOfTheComputerChangesTheRoutes) {
    Patch(0, 1);
    Start();
    computer.name = "stage";
    service.ComputerChanged();
    Turn();
    EXPECT_NE(std::string::npos, log.Text().find("The computer \"studio\" cannot be reached."));
    stored.Hosts[0].DstHost = "stage";
    Apply();
    EXPECT_NE(std::string::npos, log.Text().find("Port 11 sends to port 12 of \"stage\"."));
}

TEST_F(DriverServiceTest, HostsAreThisComputer) {
    Start();
    EXPECT_EQ(0, Set(kOptionBrowseHosts));
    Bytes list;
    EXPECT_EQ(0, service.GetOption(kOptionReadHostInfos, list));
    EXPECT_EQ(MakeHostRecords({computer}), list);
}

TEST_F(DriverServiceTest, UnknownOptionsAreNone) {
    Start();
    for (const int option : {64, 100, 189, 198, 201, 202, 203, 1000, -1}) {
        EXPECT_EQ(ENOPROTOOPT, Set(option)) << option;
        EXPECT_EQ(ENOPROTOOPT, Set(option, {0, 0, 0, 0})) << option;
    }
    Bytes data;
    for (const std::uint32_t option : {0U, 63U, 190U, 197U, 201U, 203U, 0xFFFFFFFFU}) {
        EXPECT_EQ(ENOPROTOOPT, service.GetOption(option, data)) << option;
    }
}

TEST_F(DriverServiceTest, OptionsOfTheWrongLengthAreRefused) {
    Start();
    for (const int option : {190, 195, 196, 197}) {
        EXPECT_EQ(EINVAL, Set(option, {0})) << option;
    }
    for (const int option : {191, 193, 194}) {
        EXPECT_EQ(EINVAL, Set(option)) << option;
        EXPECT_EQ(EINVAL, Set(option, {1, 2, 3})) << option;
        EXPECT_EQ(EINVAL, Set(option, {1, 2, 3, 4, 5})) << option;
    }
    EXPECT_EQ(EINVAL, Set(192, {0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(EINVAL, Set(0));
    EXPECT_EQ(EINVAL, Set(63, {0, 0, 0}));
}

TEST_F(DriverServiceTest, EndsWhenWhatSoundsIsReleased) {
    Patch(0, 1);
    Start();
    const auto player = backend.NewProgram();
    const auto listener = backend.NewProgram();
    ASSERT_TRUE(player->WriteTo("vexil3:Port 11"));
    ASSERT_TRUE(listener->ReadFrom("vexil3:Port 12"));
    player->Write(kNoteOn);
    Turn();
    ASSERT_EQ(kNoteOn, listener->Read());
    EXPECT_FALSE(service.MayStop());
    service.BeginStop();
    EXPECT_FALSE(service.MayStop());
    EXPECT_GE(service.Timeout(), 0);
    Turn();
    EXPECT_TRUE(service.MayStop());
    EXPECT_EQ(kNoteOff, listener->Read());
    service.Stop();
    EXPECT_EQ(1, backend.stops);
}

TEST_F(DriverServiceTest, EndsAfter200MillisecondsWhereTheMidiSystemHangs) {
    Start();
    service.BeginStop();
    now += 199ms;
    EXPECT_FALSE(service.MayStop());
    now += 1ms;
    EXPECT_TRUE(service.MayStop());
}

TEST_F(DriverServiceTest, EnableLoggingSwitchesTheLines) {
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

TEST_F(DriverServiceTest, TurningAwayIsLoggedAlways) {
    stored.MiscOptions &= ~kEnableLogging;
    Start();
    service.ClientRefused(7, 1001);
    EXPECT_EQ("Process 7 of user 1001 may not use this service and was turned away.\n", log.Text());
}

TEST_F(DriverServiceTest, LogTellsTheWaysThatChanged) {
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
        "Port 11 is no output any more.\n"
        "Port 13 sends to port 21 of \"studio\".\n"
        "Port 15 is a local pipe.\n",
        log.Text());
}

TEST_F(DriverServiceTest, LogTellsTheMidiSystemsComingAndGoing) {
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

TEST_F(DriverServiceTest, LogTellsATestThatNobodyHears) {
    Start();
    log.Clear();
    OpenTest(0, "studio", 1);
    EXPECT_EQ("Test of port 11: nobody hears its notes. Port 12 is not enabled as MIDI IN.\n", log.Text());
}

}  // namespace
}  // namespace vexil
