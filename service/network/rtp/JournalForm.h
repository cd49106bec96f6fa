// The bits of the recovery journal (RFC 6295, section 5 and appendices A and B).
#pragma once

#include <cstddef>
#include <cstdint>

namespace vexil::rtp {

// The first bit of nearly every element: nothing in it is about the packet before.
inline constexpr std::uint8_t kOlder = 0x80;
inline constexpr std::uint8_t kDataBits = 0x7F;

// First byte of the journal. Below are the number of channels, less one; behind it the checkpoint.
inline constexpr std::uint8_t kHasSystem = 0x40;
inline constexpr std::uint8_t kHasChannels = 0x20;
inline constexpr std::size_t kJournalHeaderSize = 3;

// First byte of the system journal; its length follows in 10 bits.
inline constexpr std::uint8_t kHasSimple = 0x40;  // chapter D
inline constexpr std::size_t kSystemHeaderSize = 2;

// Chapter D, in the order of its logs.
inline constexpr std::uint8_t kHasReset = 0x40;
inline constexpr std::uint8_t kHasTuneRequest = 0x20;
inline constexpr std::uint8_t kHasSong = 0x10;

// The third byte of a channel journal, in the order of its chapters. In front of it are the channel and a
// length of 10 bits.
inline constexpr std::uint8_t kHasProgram = 0x80;       // P
inline constexpr std::uint8_t kHasControllers = 0x40;   // C
inline constexpr std::uint8_t kHasParameters = 0x20;    // M
inline constexpr std::uint8_t kHasBend = 0x10;          // W
inline constexpr std::uint8_t kHasNotes = 0x08;         // N
inline constexpr std::uint8_t kHasNoteExtras = 0x04;    // E
inline constexpr std::uint8_t kHasPressure = 0x02;      // T
inline constexpr std::uint8_t kHasPolyPressure = 0x01;  // A
inline constexpr std::size_t kChannelHeaderSize = 3;

inline constexpr std::size_t kLongestLength = 1023;  // of a field of 10 bits
inline constexpr std::size_t kLogSize = 2;           // of chapters C, N, E and A
inline constexpr std::size_t kMostLogs = 128;        // of chapters C, E and A

inline constexpr std::size_t kProgramSize = 3;
inline constexpr std::uint8_t kHasBank = 0x80;             // of the byte with the bank's high byte
inline constexpr std::uint8_t kResetBeforeProgram = 0x80;  // of the byte with its low byte

// Chapter C: what the second byte of a log is.
inline constexpr std::uint8_t kAlternative = 0x80;  // not the value
inline constexpr std::uint8_t kCount = 0x40;        // of an alternative: commands are counted, not toggles
inline constexpr std::uint8_t kCountBits = 0x3F;

// Chapter M: its first byte. The length is in 10 bits.
inline constexpr std::uint8_t kHasPending = 0x40;
inline constexpr std::uint8_t kInTransaction = 0x20;
inline constexpr std::uint8_t kAllRegistered = 0x10;
inline constexpr std::uint8_t kAllUnregistered = 0x08;
inline constexpr std::uint8_t kAllBelow128 = 0x04;
inline constexpr std::size_t kParametersHeaderSize = 2;
inline constexpr std::uint8_t kUnregistered = 0x80;  // of a byte with the high byte of a parameter's number
// The third byte of a log, with its fields in this order.
inline constexpr std::uint8_t kHasEntryHigh = 0x80;
inline constexpr std::uint8_t kHasEntryLow = 0x40;
inline constexpr std::uint8_t kHasButtons = 0x20;
inline constexpr std::uint8_t kHasButtonsSinceReset = 0x10;
inline constexpr std::uint8_t kHasTransactionCount = 0x08;
inline constexpr std::uint8_t kUsesValue = 0x02;
inline constexpr std::uint8_t kBeforeReset = 0x80;  // of a byte of data entry
inline constexpr std::uint16_t kButtonsBeforeReset = 0x4000;
inline constexpr std::uint16_t kButtonsBelowZero = 0x8000;
inline constexpr std::uint16_t kMostButtons = 0x3FFF;

// Chapter N.
inline constexpr std::size_t kNotesHeaderSize = 2;
inline constexpr std::uint8_t kNoOffs = 0xF0;            // low 15, high 0
inline constexpr std::uint8_t kNoOffsAnd127Logs = 0xF1;  // low 15, high 1
inline constexpr std::uint8_t kPlayNow = 0x80;           // of the byte with the velocity
// Chapter E.
inline constexpr std::uint8_t kIsRelease = 0x80;  // of the second byte: a velocity, not a count
// Chapter A.
inline constexpr std::uint8_t kBeforeNotesEnded = 0x80;  // of the byte with the pressure

}  // namespace vexil::rtp
