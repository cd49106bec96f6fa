// What readers that were left behind are owed before they hear an input again: the end of what sounded there,
// and of the system exclusive that was under way, when they stopped hearing it. The engine thread's; nothing
// is allocated.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>

#include "config/DriverConfiguration.h"
#include "service/engine/MidiStatus.h"
#include "service/engine/NoteTracker.h"

namespace vexil {

class AlsaOwed {
  public:
    // What somebody is owed at each input. Of what several readers are owed the sum is kept: an end too many
    // does no harm.
    struct Debt {
        std::array<NoteTracker, kMaxPorts> sounding;
        std::uint64_t exclusives = 0;  // bit p: input p
    };

    // The readers of an input hear a whole message, or a piece of a system exclusive.
    void Heard(int port, std::span<const std::uint8_t> bytes);
    // A reader of an input hears no more of it.
    void Leave(int port);
    // No reader of an input is left behind any longer.
    void Settle(int port);

    const Debt& All() const { return owed; }
    bool IsOwed(int port) const;
    // A system exclusive is under way at an input: who begins to hear it now would hear the rest of it.
    bool IsInExclusive(int port) const { return (inExclusive & Bit(port)) != 0; }

    // Calls `send` for each message that pays what a reader of an input is owed, until it returns false,
    // which leaves the rest owed. True when only that is left which goes on sounding at the input: its end is
    // still to come.
    template <class Send>
    bool Pay(Debt& debt, int port, Send send) const {
        if ((debt.exclusives & Bit(port)) != 0) {
            if (!send(std::span<const std::uint8_t>(kEndBytes))) {
                return false;
            }
            debt.exclusives &= ~Bit(port);
        }
        NoteTracker& unpaid = debt.sounding[static_cast<std::size_t>(port)];
        NoteTracker left = unpaid;
        while (const std::optional<NoteTracker::Release> release = left.NextRelease()) {
            left.Heard(release->Message());
            if (sounding[static_cast<std::size_t>(port)].Holds(*release)) {
                continue;
            }
            if (!send(release->Message())) {
                return false;
            }
            unpaid.Heard(release->Message());
        }
        return true;
    }

  private:
    static constexpr std::uint64_t Bit(int port) { return std::uint64_t{1} << port; }

    std::array<NoteTracker, kMaxPorts> sounding;
    std::uint64_t inExclusive = 0;
    Debt owed;
};

}  // namespace vexil
