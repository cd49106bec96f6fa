// What was heard of a peer on one channel, and how a channel journal puts it right (RFC 6295, appendix A).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "service/network/LinkBytes.h"
#include "service/network/rtp/ChannelMessages.h"
#include "service/network/rtp/JournalReader.h"
#include "service/network/rtp/ParameterSelection.h"

namespace vexil {

// Who hears what is played to put something right: whole messages, with their status byte.
class RepairListener {
  public:
    virtual ~RepairListener() = default;
    virtual void Repair(ByteView message) = 0;
};

namespace rtp {

class HeardChannel {
  public:
    // A whole channel message was heard.
    void Heard(ByteView message);
    // The instrument was put back to how it was switched on.
    void Reset() { *this = HeardChannel(); }

    // Ends the notes of which the journal says so, and those that it says were begun anew with another
    // velocity. `isSingle`: one packet is missing, so what the journal calls older was heard.
    void RepairReleases(const ChannelJournal& journal, bool isSingle, RepairListener& listener);
    // Then everything else; the beginnings of notes behind what they depend on.
    void RepairRest(const ChannelJournal& journal, bool isSingle, RepairListener& listener);
    // Ends all notes and pedals but those of which the journal says that they go on. Null: it says nothing of
    // this channel.
    void Release(int channel, const ChannelJournal* journal, RepairListener& listener);

  private:
    static constexpr std::size_t kMostParameters = 16;
    static constexpr std::uint8_t kUnknown = 0xFF;

    using Numbers = std::array<std::uint8_t, kNumbers>;

    struct Parameter {
        ParameterNumber number;
        std::uint8_t entryHigh = kUnknown;
        std::uint8_t entryLow = kUnknown;
        int buttons = 0;
        std::uint32_t turn = 0;  // when it was used last, of turns
    };

    // What several logs for one controller say of it.
    struct ControllerLogs {
        std::uint8_t number = 0;
        bool older = false;
        std::uint8_t value = kUnknown;
        std::uint8_t count = kUnknown;
        std::uint8_t toggles = kUnknown;
    };

    // A channel that is under repair, and who hears it.
    struct Player {
        int channel;
        RepairListener& listener;
    };

    void HeardController(std::uint8_t controller, std::uint8_t value);
    void HeardEntry(std::uint8_t controller, std::uint8_t value);
    void ControllersReset();
    Parameter& UseParameter(const ParameterNumber& number);

    void Play(const Player& player, std::uint8_t kind, std::size_t first, int second);
    void PlayController(const Player& player, std::size_t controller, int value) {
        Play(player, kControlChange, controller, value);
    }
    void Select(const Player& player, const ParameterNumber& number);
    void Deselect(const Player& player);

    bool IsCountLost(const ChannelJournal& journal, bool isSingle, bool (*isMeant)(std::size_t)) const;
    void RepairControllers(const ChannelJournal& journal, bool isSingle, const Player& player);
    void RepairController(const ControllerLogs& logs, bool isSingle, const Player& player);
    void RepairProgram(const ChannelJournal& journal, const Player& player);
    void RepairParameters(const ChannelJournal& journal, const Player& player);
    void RepairParameter(const ParameterLog& log, const Player& player);
    void RepairNotes(const ChannelJournal& journal, const Player& player);

    Numbers velocities{};  // of notes that sound; 0: silent
    Numbers values = Unknowns();
    Numbers counts{};
    Numbers toggles{};

    std::uint8_t program = kUnknown;
    std::uint8_t programBankHigh = kUnknown;  // the bank at the program change
    std::uint8_t programBankLow = kUnknown;

    ParameterSelection selection;
    std::array<Parameter, kMostParameters> parameters;
    std::uint32_t turns = 0;

    std::array<std::uint8_t, 2> bend = {kUnknown, kUnknown};
    std::uint8_t pressure = kUnknown;
    Numbers polyPressure = Unknowns();

    static constexpr Numbers Unknowns() {
        Numbers numbers{};
        numbers.fill(kUnknown);
        return numbers;
    }
};

}  // namespace rtp

}  // namespace vexil
