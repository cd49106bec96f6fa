// The ways from one peer to this computer: takes its records, says what has arrived, and what this computer
// says of each way: its state, and how many bytes of pieces may come.
//
// One thread at a time; nothing is allocated once it is made.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "service/network/KeptWays.h"
#include "service/network/LinkCodec.h"
#include "service/network/ReceiveWindow.h"
#include "service/network/WayOrder.h"

namespace vexil {

class WaysIn {
  public:
    WaysIn();

    // A new association begins.
    void Begin();

    enum class Taken : std::uint8_t { New, Duplicate, NotTaken };
    // Takes a record of the peer; `due` in the low bits of this computer's microseconds.
    Taken Take(std::uint32_t number, const LinkRecord& record, std::uint32_t due);

    // What this computer says of a way, until it says something else.
    void Answer(std::uint8_t source, std::uint8_t input, WayProblem problem);
    // So many bytes of pieces have been passed on; as many more may come.
    void PiecesPassedOn(std::uint8_t source, std::uint8_t input, std::size_t bytes);

    // A state that is still to be told, with its content in `content`; null when no state waits. Told counts
    // it as told.
    std::optional<LinkRecord> StateToTell(std::array<std::uint8_t, kWayStateSize>& content);
    void Told(const LinkRecord& state);
    bool HasStatesToTell() const { return !untold.IsEmpty(); }

    WayOrder& Order() { return order; }
    const WayOrder& Order() const { return order; }
    const ReceiveWindow& Window() const { return window; }
    std::uint64_t TooFarAhead() const { return tooFarAhead; }

  private:
    struct Way {
        std::uint32_t passedOn = 0;  // bytes of pieces
        std::uint32_t limit = 0;     // as told
        std::uint16_t number = 0;    // of the state that was told last
        WayProblem problem = WayProblem::None;
    };

    ReceiveWindow window;
    WayOrder order;
    KeptWays<Way> ways;
    WaySet untold;
    std::uint64_t tooFarAhead = 0;
};

}  // namespace vexil
