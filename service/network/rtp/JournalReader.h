// Reads a recovery journal (RFC 6295): its form is checked as a whole before anything of it counts.
//
// Pure functions and views of the caller's bytes; nothing is allocated. Any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "service/network/LinkBytes.h"
#include "service/network/rtp/ParameterSelection.h"
#include "service/network/rtp/RtpBytes.h"

namespace vexil::rtp {

// A log of a command that is counted or has one value, of chapter D.
struct SystemLog {
    bool older = false;
    std::uint8_t value = 0;
};

// The chapters of one channel, each empty where it is absent.
struct ChannelJournal {
    int channel = 0;
    ByteView program;      // P
    ByteView controllers;  // C, the logs alone, two bytes each
    ByteView parameters;   // M, behind its header
    std::uint8_t parameterFlags = 0;
    bool hasParameters = false;
    ByteView bend;             // W
    ByteView notes;            // N, the logs alone, two bytes each
    ByteView offs;             // N, a bit for each note
    std::size_t firstOff = 0;  // the note of the first bit
    ByteView noteExtras;       // E, the logs alone, two bytes each
    ByteView pressure;         // T
    ByteView polyPressure;     // A, the logs alone, two bytes each
};

// A log of chapter M.
struct ParameterLog {
    ParameterNumber number;
    std::optional<std::uint8_t> entryHigh;
    std::optional<std::uint8_t> entryLow;
    std::optional<int> buttons;  // increments less decrements since the last entry
};

class JournalReader {
  public:
    // Null when any part of it is malformed.
    static std::optional<JournalReader> Open(ByteView journal);

    // The first packet that the journal covers.
    std::uint16_t Checkpoint() const { return checkpoint; }
    const std::optional<SystemLog>& Resets() const { return resets; }
    const std::optional<SystemLog>& TuneRequests() const { return tuneRequests; }
    const std::optional<SystemLog>& Song() const { return song; }
    // The next channel journal; null after the last.
    std::optional<ChannelJournal> NextChannel();

  private:
    explicit JournalReader(ByteView bytes) : rest(bytes) {}

    bool TakeSystem();

    RtpByteReader rest;
    std::uint16_t checkpoint = 0;
    std::size_t channelsLeft = 0;
    std::optional<SystemLog> resets;
    std::optional<SystemLog> tuneRequests;
    std::optional<SystemLog> song;
};

// The logs of a chapter M of a checked journal.
class ParameterLogReader {
  public:
    explicit ParameterLogReader(const ChannelJournal& journal);

    // The high byte of a parameter's number whose low byte has not come; null when every number is complete.
    const std::optional<ParameterNumber>& Pending() const { return pending; }
    // A parameter is selected, that of the last log.
    bool IsInTransaction() const;
    // The next log; null after the last and at a malformed one.
    std::optional<ParameterLog> Next();
    bool IsMalformed() const { return rest.IsShort(); }

  private:
    RtpByteReader rest;
    std::uint8_t flags;
    std::optional<ParameterNumber> pending;
};

}  // namespace vexil::rtp
