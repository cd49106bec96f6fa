// Test outputs as the options open, play and close them: what is heard, and where.
#include <gmock/gmock.h>

#include <cerrno>

#include "tests/service/control/ServiceFixture.h"

namespace vexil {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

const Bytes kNoteOn = {0x90, 60, 100};
const Bytes kNoteOff = {0x80, 60, 64};

class ServiceTestOutputsTest : public ServiceFixture {
  protected:
    // A program that hears, at the input of port 1, the note that the test output of port 0 holds.
    auto HearHeldNote() {
        stored.InputPorts |= Bit(1);
        Start();
        auto listener = backend.NewProgram();
        EXPECT_TRUE(listener->ReadFrom("vexil3:Port 12"));
        OpenTest(0, "studio", 1);
        EXPECT_EQ(0, Set(0, PacketList(kNoteOn)));
        Turn();
        EXPECT_EQ(kNoteOn, listener->Read());
        return listener;
    }
};

TEST_F(ServiceTestOutputsTest, TestNotesGoWhereTheRecordSaysAndNowhereElse) {
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

TEST_F(ServiceTestOutputsTest, ClosingATestOutputReleasesItsNotes) {
    const auto listener = HearHeldNote();
    EXPECT_EQ(0, Set(kOptionDeactivateTestOutput, PortNumber(0)));
    Turn();
    EXPECT_EQ(kNoteOff, listener->Read());
    EXPECT_EQ(ENXIO, Set(0, PacketList(kNoteOn)));
}

TEST_F(ServiceTestOutputsTest, ReplacingATestOutputReleasesItsNotes) {
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

TEST_F(ServiceTestOutputsTest, ReplacingATestOutputByItselfReleasesItsNotes) {
    const auto listener = HearHeldNote();
    OpenTest(0, "studio", 1);
    EXPECT_EQ(kNoteOff, listener->Read());
}

TEST_F(ServiceTestOutputsTest, HidingTheConnectorsReleasesTestNotes) {
    const auto listener = HearHeldNote();
    stored.MiscOptions &= ~kShowConnectors;
    Apply();
    EXPECT_EQ(kNoteOff, listener->Read());
}

// A MIDI system that cannot hide an input takes it away.
TEST_F(ServiceTestOutputsTest, NoTestNoteIsLeftHangingAtAnInputThatGoesWhenItIsHidden) {
    backend.canHide = false;
    const auto listener = HearHeldNote();
    const std::uint64_t before = engine.CountersOfInput(1).messages;
    stored.MiscOptions &= ~kShowConnectors;
    Store();
    ASSERT_EQ(0, Set(kOptionReloadConfiguration));
    EXPECT_EQ(0, Set(0, PacketList(kNoteOn)));
    Turn();
    EXPECT_EQ(0, Set(0, PacketList(kNoteOn)));
    Turn();
    EXPECT_EQ(kNoteOff, listener->Read());
    EXPECT_EQ(before + 1, engine.CountersOfInput(1).messages);
}

TEST_F(ServiceTestOutputsTest, ATestOutputIsHeardAgainWhenItsInputIsShownAgain) {
    backend.canHide = false;
    HearHeldNote();
    stored.MiscOptions &= ~kShowConnectors;
    Apply();
    stored.MiscOptions |= kShowConnectors;
    Apply();
    const auto listener = backend.NewProgram();
    ASSERT_TRUE(listener->ReadFrom("vexil3:Port 12"));
    EXPECT_EQ(0, Set(0, PacketList(kNoteOn)));
    Turn();
    EXPECT_EQ(kNoteOn, listener->Read());
}

// An input of JACK stays a little longer than it is wanted, and what is played to it then could not be
// released.
TEST_F(ServiceTestOutputsTest, ATestOutputIsHeardWhenItsInputIsThere) {
    stored.InputPorts = Bit(1);
    Start();
    OpenTest(0, "studio", 1);
    stored.InputPorts = 0;
    Apply();
    stored.InputPorts = Bit(1);
    Store();
    ASSERT_EQ(0, Set(kOptionReloadConfiguration));
    EXPECT_EQ(0, Set(0, PacketList(kNoteOn)));
    EXPECT_EQ(0, Set(kOptionOpenTestOutput, TestRecord(3, "studio", 1)));
    EXPECT_EQ(0, Set(kOptionActivateTestOutput, PortNumber(3)));
    EXPECT_EQ(0, Set(3, PacketList(kNoteOn)));
    backend.Cycle();
    EXPECT_EQ(0U, engine.CountersOfInput(1).messages);
    EXPECT_THAT(log.Text(), HasSubstr("Test of port 14: its notes go to port 12"));
    Turn();
    const auto listener = backend.NewProgram();
    ASSERT_TRUE(listener->ReadFrom("vexil3:Port 12"));
    EXPECT_EQ(0, Set(3, PacketList(kNoteOn)));
    Turn();
    EXPECT_EQ(kNoteOn, listener->Read());
}

TEST_F(ServiceTestOutputsTest, TheEndOfAnAttachmentClosesEveryTestOutput) {
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

TEST_F(ServiceTestOutputsTest, AnOpenTestOutputFollowsTheConfigurationOfItsTarget) {
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

TEST_F(ServiceTestOutputsTest, AChangeElsewhereLeavesAnOpenTestOutputAlone) {
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

TEST_F(ServiceTestOutputsTest, TestNotesThatTheEngineCannotTakeAreRefused) {
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
TEST_F(ServiceTestOutputsTest, ATestOutputThatCouldNotBeClosedYetPlaysNothing) {
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

TEST_F(ServiceTestOutputsTest, TestNotesNeverOvertakeTheirTestOutput) {
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

}  // namespace
}  // namespace vexil
