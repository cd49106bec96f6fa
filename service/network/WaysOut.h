// The ways from this computer to one peer: opens and ends them, keeps messages until they are due, and hands
// them to the send window. A way is (source, input) and stays wanted over any number of associations; it is
// opened anew in each.
//
// Where the window is full a message is lost and counted, and its way ends; it is opened again when there is
// room. Pieces of system exclusive are never lost so: whoever sends them asks for room first.
//
// Times are microseconds. One thread at a time; nothing is allocated once it is made.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "service/engine/MidiParser.h"
#include "service/network/DueQueue.h"
#include "service/network/KeptWays.h"
#include "service/network/LinkCodec.h"
#include "service/network/SendWindow.h"
#include "service/network/WayOrder.h"

namespace vexil {

// A way takes so many bytes of pieces before the peer says that it may send more.
inline constexpr std::uint32_t kPieceCredit = 65536;

enum class WayResult : std::uint8_t {
    Taken,
    NotUp,    // there is no association; dropped
    NotOpen,  // the way is not wanted, or the peer refuses it; dropped
    NoRoom,   // a piece that does not fit now; keep it
    Lost,     // there was no room; the way ends
};

class WaysOut {
  public:
    WaysOut();

    // A new association begins: nothing is queued, every wanted way is opened in it.
    void Begin(std::uint64_t now);
    // The association is over; what is queued is dropped.
    void Stop();

    // The way is wanted, or no longer. What was sent before its end is still heard.
    void Open(std::uint64_t now, std::uint8_t source, std::uint8_t input);
    void End(std::uint64_t now, std::uint8_t source, std::uint8_t input);
    bool IsAnyWanted() const { return !wanted.IsEmpty(); }

    // One whole message or one piece of at most kLongestLinkPiece bytes, to leave at `due`, which never goes
    // back on one way.
    WayResult Send(std::uint64_t due, std::uint8_t source, std::uint8_t input, const MidiPiece& piece);
    // Bytes of pieces that the way can take now.
    std::size_t PieceRoom(std::uint8_t source, std::uint8_t input) const;

    // What the peer says of a way.
    void TakeState(std::uint8_t source, std::uint8_t input, const WayStateContent& state);

    // Hands what is due to the window.
    void MoveDue(std::uint64_t now);
    // A name or a state of a way that ends here, with its number. False when there is no room now.
    bool PushNow(std::uint64_t now, const LinkRecord& record);
    std::optional<std::uint64_t> NextDue() const;

    SendWindow& Window() { return window; }
    const SendWindow& Window() const { return window; }
    std::uint64_t LostMessages() const { return lost; }
    std::uint64_t CutWays() const { return cutCount; }

  private:
    struct Way {
        std::uint64_t lastDue = 0;
        std::uint32_t pieceBytes = 0;   // handed to the window, over the association
        std::uint32_t queuedBytes = 0;  // of pieces, in the queue
        std::uint32_t pieceLimit = kPieceCredit;
        std::uint32_t queued = 0;  // records in the queue
        std::uint16_t number = 0;  // of its next record
        WayProblem problem = WayProblem::None;
        bool onWire = false;         // the peer hears of it as open
        bool cut = false;            // a message was lost: all up to its end is
        bool skipsExclusive = true;  // pieces belong to a message whose beginning was not sent
    };

    Way& Of(std::uint8_t source, std::uint8_t input) { return ways[WayIndex(source, input)]; }
    bool Enqueue(std::uint64_t due, const LinkRecord& record);
    WayResult SendPiece(std::uint64_t due, Way& way, LinkRecord record);
    void Cut(Way& way, std::size_t index);
    void MoveOne(std::uint64_t now, const LinkRecord& record, std::uint64_t due);
    void Number(Way& way, LinkRecord record, std::uint64_t due);
    void Reopen(std::uint64_t now);

    KeptWays<Way> ways;
    WaySet wanted;
    WaySet cutWays;
    DueQueue queue;
    SendWindow window;
    RecordScratch scratch{};
    bool up = false;
    std::size_t queuedParts = 0;  // of pieces, in the queue
    std::uint64_t lost = 0;
    std::uint64_t cutCount = 0;
};

}  // namespace vexil
