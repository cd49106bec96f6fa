// What was sent on one channel, as far as its channel journal tells of it (RFC 6295, appendix A).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "service/network/LinkBytes.h"
#include "service/network/rtp/ChannelMessages.h"
#include "service/network/rtp/ParameterSelection.h"
#include "service/network/rtp/RecentList.h"
#include "service/network/rtp/RtpBytes.h"

namespace vexil::rtp {

// A note is recommended to be played late up to this, in kRtpTicksPerSecond.
inline constexpr std::uint32_t kLatestNote = 5000;

// The packet that a journal is written for: what in it is of the packet just before counts as new.
struct JournalTime {
    std::uint64_t newest = 0;     // the packet before it
    std::uint32_t timestamp = 0;  // its own
};

class JournalChannel {
  public:
    // A whole channel message that was sent in a packet.
    void Sent(std::uint64_t packet, std::uint32_t timestamp, ByteView message);
    // The instrument was put back to how it was switched on: everything before counts no longer.
    void Reset() { *this = JournalChannel(); }
    // What was sent before this packet needs no log.
    void DropBefore(std::uint64_t packet);
    // The number of the first packet from which on everything is logged: parameters for which there was no
    // room are logged from there on only.
    std::uint64_t CompleteFrom() const { return completeFrom; }

    bool IsEmpty() const;
    // Writes the channel journal, which is not empty. Whether nothing in it is new. `fits` becomes false when
    // it does not fit into its fields; the writer says itself when it does not fit into its room.
    bool Write(int channel, const JournalTime& time, RtpByteWriter& writer, bool& fits) const;

  private:
    static constexpr std::size_t kMostParameters = 16;

    struct Parameter {
        ParameterNumber number;
        std::uint8_t entryHigh = 0;
        std::uint8_t entryLow = 0;
        bool hasHigh = false;
        bool hasLow = false;
        bool hasButtons = false;
        bool highBeforeReset = false;
        bool lowBeforeReset = false;
        bool buttonsBeforeReset = false;
        std::int16_t buttons = 0;  // increments less decrements since the last entry
        std::int16_t buttonsSinceReset = 0;
    };

    void SentNoteOn(std::uint64_t packet, std::uint32_t timestamp, std::uint8_t note, std::uint8_t velocity);
    void SentNoteOff(std::uint64_t packet, std::uint8_t note, std::uint8_t velocity);
    void SentController(std::uint64_t packet, std::uint8_t controller, std::uint8_t value);
    void SentSelection(std::uint64_t packet, std::uint8_t controller, std::uint8_t value);
    void SentEntry(std::uint64_t packet, std::uint8_t controller, std::uint8_t value);
    Parameter& TouchParameter(std::uint64_t packet, const ParameterNumber& number);
    void NotesEnded();
    void ControllersReset();

    bool HasParameters() const { return !parameters.IsEmpty() || selectionPacket != 0; }
    bool WriteProgram(const JournalTime& time, RtpByteWriter& writer) const;
    bool WriteControllers(const JournalTime& time, RtpByteWriter& writer, bool& fits) const;
    bool WriteParameters(const JournalTime& time, RtpByteWriter& writer, bool& fits) const;
    bool WriteParameter(std::size_t index, const JournalTime& time, RtpByteWriter& writer) const;
    bool WriteBend(const JournalTime& time, RtpByteWriter& writer) const;
    bool WriteNotes(const JournalTime& time, RtpByteWriter& writer) const;
    // Chapter E has logs of both for notes of which there is more to say than on or off.
    bool HasCount(std::size_t note) const { return held[note] > (velocities[note] == 0 ? 0 : 1); }
    bool HasRelease(std::size_t note) const {
        return velocities[note] == 0 && releases[note] != kPlainRelease;
    }
    bool HasNoteExtras() const;
    bool WriteNoteExtras(const JournalTime& time, RtpByteWriter& writer, bool& fits) const;
    bool WritePressure(const JournalTime& time, RtpByteWriter& writer) const;
    bool WritePolyPressure(const JournalTime& time, RtpByteWriter& writer, bool& fits) const;

    using Numbers = std::array<std::uint8_t, kNumbers>;

    std::uint64_t completeFrom = 0;

    // P. Packets are 0 where there is nothing to log.
    std::uint64_t programPacket = 0;
    std::uint8_t program = 0;
    std::uint8_t programBankHigh = 0;
    std::uint8_t programBankLow = 0;
    bool programHasBank = false;
    bool programAfterReset = false;  // controllers were reset between bank and program
    // The bank for the next program.
    std::uint8_t bankHigh = 0;
    std::uint8_t bankLow = 0;
    bool hasBank = false;
    bool resetAfterBank = false;

    // C.
    RecentList<kNumbers> controllers;
    Numbers values{};
    Numbers counts{};
    Numbers toggles{};        // of switches: how often they went on or off
    Numbers loggedToggles{};  // up to the command that is logged
    Numbers on{};             // of switches: they are on now

    // M.
    RecentList<kMostParameters> parameters;
    std::array<Parameter, kMostParameters> parameterValues;
    ParameterSelection selection;
    std::uint64_t selectionPacket = 0;  // of a selection that no parameter's log tells

    // W.
    std::uint64_t bendPacket = 0;
    std::array<std::uint8_t, 2> bend{};

    // N and E.
    RecentList<kNumbers> notes;
    Numbers velocities{};  // 0: off
    Numbers releases{};    // velocity of the note-off
    Numbers held{};        // note-ons less note-offs
    std::array<std::uint32_t, kNumbers> onTimes{};
    std::uint64_t offPacket = 0;  // of the newest note-off

    // T.
    std::uint64_t pressurePacket = 0;
    std::uint8_t pressure = 0;

    // A.
    RecentList<kNumbers> polyNotes;
    Numbers polyPressure{};
    Numbers polyStale{};  // notes were ended since
};

}  // namespace vexil::rtp
