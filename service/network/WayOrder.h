// Puts the records of one peer into the order in which they are heard: that of their numbers within each way.
// A hole in one way holds back no other. What can be heard waits here until it is asked for.
//
// A way is (source, input). It is open from the record that opens it to the one that ends it; what comes
// outside is left out and counted. No clock; one thread at a time; nothing is allocated once it is made.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "service/network/KeptWays.h"
#include "service/network/LinkCodec.h"
#include "service/network/PieceStore.h"
#include "service/network/StoredRecord.h"
#include "service/network/WaySet.h"

namespace vexil {

// What comes out, in order.
struct OrderedRecord {
    enum class Kind : std::uint8_t { WayOpened, WayEnded, Message, Piece, WayState, Name };

    Kind kind = Kind::Message;
    std::uint8_t source = 0;
    std::uint8_t input = 0;
    bool first = true;  // Piece
    bool last = true;
    std::uint32_t due = 0;  // as it was taken
    ByteView bytes;         // until the next call
};

class WayOrder {
  public:
    // Records that are held back or not asked for yet, at most.
    static constexpr std::size_t kHeldRecords = 8192;
    static constexpr std::size_t kHeldPieceBytes = std::size_t{128} << 10;

    WayOrder();

    // Forgets everything; every way is closed and its numbers begin at 0.
    void Reset();

    // Takes a record; `due` comes out with it again. False when there is no room, with nothing taken: the
    // peer sends it again. There is always room for the next record of a way as long as what comes out is
    // asked for.
    bool Take(const LinkRecord& record, std::uint32_t due);
    // The next that can be heard; null when there is nothing.
    std::optional<OrderedRecord> Next();
    // Everything has ended: what can be heard is still heard, what is held back is not, and each open way
    // ends.
    void EndAll() { ending = true; }
    // Neither anything to hear nor an open way: after EndAll, it is done.
    bool IsAtRest() const { return readyHead == kNone && open.IsEmpty(); }
    bool IsOpen(std::uint8_t source, std::uint8_t input) const { return open.Has(WayIndex(source, input)); }

    bool IsAnyOpen() const { return !open.IsEmpty(); }

    // Messages and pieces outside their way, which an honest peer does not send.
    std::uint64_t OutsideWays() const { return outsideWays; }

  private:
    static constexpr std::uint16_t kNone = 0xFFFF;
    // For records that can be heard at once, so that what fills the rest can get out.
    static constexpr std::size_t kKeptRecords = 1024;
    static constexpr std::size_t kKeptPieceBytes = std::size_t{32} << 10;

    struct Way {
        std::uint16_t expected = 0;
        std::uint16_t state = 0;     // number of the newest state
        std::uint16_t heldHead = 0;  // the oldest that is held back, plus 1; 0: nothing is held back
        std::uint16_t heldTail = 0;  // the newest, plus 1
    };
    struct Held {  // as StoredRecord, not initialized
        StoredRecord record;
        std::uint16_t next;
    };

    bool TakeUnordered(const LinkRecord& record, std::uint32_t due);
    std::uint16_t Keep(const LinkRecord& record, std::uint32_t due);
    void MakeReady(std::uint16_t place);
    bool Hold(Way& way, std::uint16_t place);
    void FollowUp(Way& way);
    void Release(std::uint16_t place);
    std::optional<OrderedRecord> EndOneWay();
    std::optional<OrderedRecord> Hear(const StoredRecord& stored);

    KeptWays<Way> ways;
    WaySet open;
    std::uint16_t nameNumber = 0;
    std::unique_ptr<Held[]> pool;
    std::size_t usedCount = 0;        // of the pool, that were in use at some time
    std::uint16_t firstFree = kNone;  // of these
    std::size_t freeCount = 0;
    std::uint16_t readyHead = kNone;
    std::uint16_t readyTail = kNone;
    PieceStore pieces;
    RecordScratch scratch{};
    bool ending = false;
    std::uint64_t outsideWays = 0;
};

}  // namespace vexil
