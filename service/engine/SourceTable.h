// The sources: takes apart what is written to each, holds it back by the send quantization and queues it for
// the destination of its way. The engine thread's, but for the counters; nothing is allocated once it is
// made.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "service/engine/Counter.h"
#include "service/engine/LoopWatch.h"
#include "service/engine/Merger.h"
#include "service/engine/MessageTap.h"
#include "service/engine/MidiParser.h"
#include "service/engine/SourceNumbers.h"
#include "service/engine/Way.h"

namespace vexil {

class SourceTable {
  public:
    // The tap must outlive this object.
    SourceTable(std::size_t queueBytes, MessageTap& messageTap);

    // As Engine's.
    void Write(int source, std::uint64_t time, std::span<const std::uint8_t> bytes);
    void WriteMessage(int source, std::uint64_t time, std::span<const std::uint8_t> message);
    void WriteExclusive(int source, std::uint64_t time, std::span<const std::uint8_t> bytes);
    // Data bytes without a status byte belong to no message from here on.
    void EndRunningStatus(int source) { Of(source).parser.EndRunningStatus(); }

    // Outputs, and the writers of each, take up their ways. What sounds on a way that ends is released.
    void SetWays(const WayTable& ways, std::uint64_t now);
    // The way of a test output or a taken source; the one before ends, also when it is the same.
    void SetWay(int source, const Way& way, std::uint64_t now);
    // Whoever wrote to the source has gone.
    void EndStream(int source, std::uint64_t now);
    // As Engine's.
    void OneWriterGone(int source, std::uint64_t now);
    void MessagesLost(int source, std::uint64_t now, std::uint64_t messages);
    void EndAllStreams(std::uint64_t now);
    // As Engine::PostPanic.
    void Silence(std::uint64_t inputs, std::uint64_t now);

    // A writer source of an output; none when all are taken.
    std::optional<int> TakeWriter(int port);
    // Ends the way of a writer or a taken source, which is free once that is done.
    void GiveBack(int source, std::uint64_t now);
    // Frees what was given back and has ended; calls `each` for taken sources that are free now.
    template <class Each>
    void FreeEnded(Each each) {
        std::erase_if(leaving, [&](int source) {
            if (!merger.IsIdle(source)) {
                return false;
            }
            if (source >= kWriterSourceBase) {
                freeWriters.push_back(source);
            } else {
                each(source);
            }
            return true;
        });
    }

    // Nanoseconds to whose multiples messages are held back; 0: at once.
    void SetQuantum(std::uint64_t nanoseconds) { quantum = nanoseconds; }

    void Run(std::uint64_t end, EngineSink& inputSink, EngineSink& remoteSink, TurnLimit* limit);
    std::optional<std::uint64_t> NextDue() const;
    int OpenEnds() const { return merger.OpenEnds(); }
    void Forget();
    void ForgetTimes();

    // Bytes of system exclusive that wait in the queue of a source.
    std::size_t QueuedExclusive(int source) const { return merger.QueuedExclusive(source); }

    // Of an output with its writers, a test output or a taken source.
    SourceCounters CountersOf(int source) const;
    InputCounters CountersOfInput(int port) const { return merger.CountersOf(port); }
    // As Engine's.
    std::uint64_t SuspectedRate(int source) const {
        return origins[static_cast<std::size_t>(source)].watch.Rate();
    }
    // Whether a suspicion has come or gone since the last call.
    bool TakeSuspicionsChanged() { return std::exchange(suspicionsChanged, false); }
    // Whether a message was taken since the last call.
    bool TakeCarried() { return std::exchange(carried, false); }

  private:
    struct Source {
        MidiParser parser;
        std::uint64_t lastDue = 0;
        std::uint64_t exclusiveDue = 0;  // when the last piece of its system exclusive was due
        std::int16_t origin = 0;
        bool isOpen = false;       // may be written to
        bool owesRelease = false;  // the way ends behind the system exclusive that is under way
    };
    // What a source and its like have in common: the writers of an output share its way and its counters.
    struct Origin {
        Way way;
        Counter messages;
        Counter bytes;
        Counter filtered;
        Counter dropped;
        LoopWatch watch;
    };

    Source& Of(int source) { return sources[static_cast<std::size_t>(source)]; }
    Origin& OriginOf(const Source& source) { return origins[static_cast<std::size_t>(source.origin)]; }
    void TakePiece(int source, std::uint64_t time, const MidiPiece& piece);
    // Not part of what each message costs while nobody watches.
    [[gnu::noinline]] void ShowPiece(int source, std::uint64_t time, const MidiPiece& piece);
    std::uint64_t DueTime(const Source& source, bool immediate, std::uint64_t time,
                          const MidiPiece& piece) const;
    void EndWay(int source, std::uint64_t now);
    bool PushSilence(int source, std::uint64_t due);
    void Suspect(std::int16_t origin);
    void EndSilentExclusives(std::uint64_t end);

    std::vector<Source> sources;
    std::vector<Origin> origins;
    MessageTap& tap;
    Merger merger;
    std::uint64_t quantum = 0;
    std::vector<int> freeWriters;
    std::vector<int> leaving;            // given back, and not yet at rest
    std::vector<int> owing;              // sources that owe a release
    std::vector<std::int16_t> suspects;  // origins of which a loop is suspected
    bool suspicionsChanged = false;
    bool carried = false;
};

}  // namespace vexil
