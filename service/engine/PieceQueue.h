// The queues of what sources have still to deliver, in one store of chunks that is made once and never grows.
// Each queue can always hold a little; beyond that they share, so that one long message may fill megabytes
// while the other sources are quiet. One thread at a time.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "service/engine/MidiParser.h"
#include "service/engine/SourceNumbers.h"
#include "service/routes/Destination.h"

namespace vexil {

enum class RecordKind : std::uint8_t {
    Message,    // one whole message that is not system exclusive
    Exclusive,  // one piece of a system exclusive message
    EndOfWay,   // the way ends; another begins
};

struct Record {
    std::uint64_t due = 0;  // when it leaves, in nanoseconds
    // Bytes of a message or piece; those of a piece that does not fit here stand behind the record.
    std::uint16_t length = 0;
    RecordKind kind = RecordKind::Message;
    bool last = true;                     // a piece that ends its message
    std::array<std::uint8_t, 4> bytes{};  // of a short message; EndOfWay: see NextDestination
};
static_assert(sizeof(Record) == 16);

// EndOfWay: where what follows is heard.
Destination NextDestination(const Record& endOfWay);

class PieceQueues {
  public:
    // `bytes` is what all queues hold together; at least enough for a little in each.
    explicit PieceQueues(std::size_t bytes);

    // False, with nothing queued, when there is no room.
    bool PushPiece(int source, std::uint64_t due, const MidiPiece& piece);
    // Always succeeds: room for it is kept. Two ends with nothing between them become one, which leads to
    // the later destination; false then.
    bool PushEndOfWay(int source, std::uint64_t due, const Destination& following);

    bool IsEmpty(int source) const;
    // Bytes of system exclusive in the queue.
    std::size_t QueuedExclusive(int source) const {
        // Nothing else is taken in parts.
        return Of(source).exclusive - Of(source).taken;
    }
    // The oldest record and its bytes, as far as Take has not taken them. Not of an empty queue.
    const Record& Front(int source) const;
    std::span<const std::uint8_t> FrontBytes(int source) const;
    // Takes the first `count` bytes of the oldest record; with the last of them the record goes.
    void Take(int source, std::size_t count);
    void TakeRecord(int source);

  private:
    static constexpr std::size_t kChunkSize = 2048;  // room for two of the longest pieces and an end of way
    static constexpr std::size_t kOwnChunks = 2;     // that each queue may always have
    static constexpr std::uint16_t kNone = 0xFFFF;

    struct alignas(Record) Chunk {
        std::array<std::uint8_t, kChunkSize> bytes;
    };
    struct Queue {
        std::uint16_t head = kNone;  // chunk that is read
        std::uint16_t tail = kNone;  // chunk that is written
        std::uint16_t count = 0;     // chunks
        std::uint16_t taken = 0;     // bytes taken of the oldest record
        std::uint32_t readAt = 0;
        std::uint32_t writeAt = 0;
        std::uint32_t exclusive = 0;  // bytes of system exclusive
        std::uint32_t lastEnd =
            kChunkSize;  // where the newest record stands when it ends the way; else kChunkSize
    };

    Queue& Of(int source) { return queues[static_cast<std::size_t>(source)]; }
    const Queue& Of(int source) const { return queues[static_cast<std::size_t>(source)]; }
    Record& At(std::uint16_t chunk, std::uint32_t offset);
    const Record& At(std::uint16_t chunk, std::uint32_t offset) const;
    bool AddChunk(Queue& queue);
    void DropHeadChunk(Queue& queue);
    void Append(Queue& queue, const Record& record, std::span<const std::uint8_t> behind);

    std::vector<Chunk> chunks;
    std::vector<std::uint16_t> next;      // chunk behind a chunk, in a queue or among the free ones
    std::vector<std::uint32_t> usedSize;  // of a chunk that is no longer written
    std::uint16_t firstFree = 0;
    std::size_t sharedFree = 0;  // chunks that queues may have beyond their own
    std::vector<Queue> queues;   // by source
};

}  // namespace vexil
