#include "driver/TestOutput.h"

#include <cerrno>
#include <memory>
#include <new>

#include "driver/DriverOptions.h"
#include "driver/MidiPacketList.h"
#include "shared/System/svLog.h"

namespace vexil {

namespace {

constexpr std::uint8_t kNoteOn = 0x90;
constexpr std::uint8_t kTestVelocity = 100;
constexpr std::uint8_t kVelocityOff = 0;
constexpr std::size_t kNoteMessageSize = 3;
constexpr std::size_t kMaxChordNotes = 6;

std::uint64_t PortBit(int port) {
    return std::uint64_t{1} << port;
}

// The status byte for a channel of 1 to 16. Channel 16 gives 0xFF and not 0x9F: the rule of this program,
// which drivers and recordings know.
std::uint8_t StatusOfChannel(int channel) {
    return static_cast<std::uint8_t>(kNoteOn | (channel % 16 - 1));
}

// The chords, one for each press: MIDI note numbers, ended by a zero.
// clang-format off
constexpr std::uint8_t kTestChords[kChordCount][kMaxChordNotes + 1] = {
    {40, 52, 55, 62, 67, 71, 0},
    {45, 55, 61, 65, 70, 0},
    {51, 55, 61, 65, 72, 0},
    {50, 53, 60, 64, 69, 0},
    {43, 53, 59, 63, 68, 0},
    {49, 53, 59, 63, 70, 0},
    {36, 48, 52, 58, 62, 67, 0},
    {47, 51, 57, 61, 66, 0},
    {46, 50, 56, 60, 65, 0},
    {45, 49, 55, 59, 64, 0},
    {40, 57, 62, 67, 71, 0},
    {45, 55, 61, 65, 70, 0},
    {50, 54, 60, 64, 69, 0},
    {50, 54, 60, 64, 71, 0},
    {50, 54, 60, 64, 69, 0},
    {43, 53, 60, 65, 69, 72, 0},
    {49, 53, 59, 64, 68, 71, 0},
    {48, 52, 58, 64, 69, 72, 0},
    {47, 51, 57, 63, 68, 71, 0},
    {46, 50, 56, 62, 67, 70, 0},
    {45, 49, 55, 61, 66, 69, 0},
    {44, 54, 60, 65, 69, 0},
    {43, 53, 59, 64, 68, 71, 0},
    {48, 52, 57, 62, 67, 72, 0},
};
// clang-format on

}  // namespace

void TestOutput::Open() {
    const int port = connection.currentPort;
    if (connection.IsTestOutputOpen(port)) {
        return;
    }

    const DriverConfiguration& configuration = mediator.EditedConfiguration();
    const PortHosts& hosts = configuration.Hosts[port];
    const std::uint32_t length = TestOutputRecordLength(hosts);
    std::unique_ptr<std::uint8_t[]> record(new (std::nothrow) std::uint8_t[length]);
    if (!record) {
        LogPrintf("Out of memory opening testout %d\n", port);
        return;
    }
    PutTestOutputRecord(record.get(), port, configuration.PortFlags[port], hosts);
    const int opened = connection.SendCommand(kOptionOpenTestOutput, record.get(), length);
    const int openError = errno;
    record.reset();
    if (opened != 0) {
        LogPrintf("Service access error %d openng testout %d\n", openError, port);
        return;
    }

    const auto index = MakeUint32(static_cast<std::uint32_t>(port));
    if (connection.SendCommand(kOptionActivateTestOutput, index.data(), index.size()) != 0) {
        LogPrintf("Cannot activate testout %d; error %d\n", port, errno);
        return;
    }
    connection.testOutActive |= PortBit(port);
}

void TestOutput::Close() {
    const int port = connection.currentPort;
    if (connection.IsTestOutputOpen(port)) {
        Deactivate(port);
    }
}

void TestOutput::Retarget() {
    if (!connection.IsConnected() || !connection.IsTestOutputOpen(connection.currentPort)) {
        return;
    }
    Deactivate(connection.currentPort);
    Open();  // does nothing after a failed deactivation
}

void TestOutput::Play(bool noteOn) {
    const int port = connection.currentPort;
    if (!connection.IsTestOutputOpen(port)) {
        return;
    }

    const std::uint8_t status = StatusOfChannel(mediator.TestChannel());
    std::uint8_t* packet = MidiPacketListInit(packetList.data(), listSize);
    if (packet == nullptr) {
        return;
    }

    std::array<std::uint8_t, kMaxChordNotes * kNoteMessageSize> notes;
    std::size_t length = 0;
    for (const std::uint8_t* note = kTestChords[connection.chordIndex]; *note != 0; ++note) {
        notes[length++] = status;
        notes[length++] = *note;
        notes[length++] = noteOn ? kTestVelocity : kVelocityOff;
    }
    if (MidiPacketListAdd(packetList.data(), listSize, packet, mediator.HostTime(), length, notes.data()) ==
        nullptr) {
        LogPrintf("Unexpected error while playing...\n");
        return;
    }

    const auto listLength = static_cast<std::uint32_t>(MidiPacketListLength(packetList.data()));
    if (connection.SendCommand(port, packetList.data(), listLength) != 0) {
        LogPrintf("testout error %d while playing...\n", errno);
    }
    if (!noteOn) {
        connection.chordIndex = (connection.chordIndex + 1) % kChordCount;
    }
}

void TestOutput::Deactivate(int port) {
    const auto index = MakeUint32(static_cast<std::uint32_t>(port));
    if (connection.SendCommand(kOptionDeactivateTestOutput, index.data(), index.size()) != 0) {
        LogPrintf("Cannot deactivate testout %d; error %d\n", port, errno);
        return;
    }
    connection.testOutActive &= ~PortBit(port);
}

}  // namespace vexil
