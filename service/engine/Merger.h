// Brings what sources have queued to their destinations: in the order of time, between messages and never
// inside another source's system exclusive, as far as a destination has room. A realtime message of another
// source may stand inside one. Remembers what each source has left sounding and puts it back where its way
// ends. The engine thread's; nothing is allocated once it is made.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "service/engine/Counter.h"
#include "service/engine/EngineSink.h"
#include "service/engine/NoteTracker.h"
#include "service/engine/PieceQueue.h"
#include "service/engine/SourceLists.h"
#include "service/routes/Destination.h"

namespace vexil {

// Nanoseconds for which a silent system exclusive keeps other sources from its destination. Then it is ended
// there, and its rest is left out.
inline constexpr std::uint64_t kLongestSilence = 1'000'000'000;

class Merger {
  public:
    explicit Merger(std::size_t queueBytes);

    // Queues a piece for the destination of the source. `due` never goes back on one source. False when there
    // is no room.
    bool Push(int source, std::uint64_t due, const MidiPiece& piece);
    // Behind what is queued, puts back what the source has left sounding and begins the way to `next`.
    void EndWay(int source, std::uint64_t due, const Destination& next);
    bool IsWaiting(int source) const { return Of(source).isWaiting; }
    // The source leads nowhere, and nothing is queued or sounds.
    bool IsIdle(int source) const { return Of(source).outlet == kNoOutlet; }

    // Delivers what is due before `end`, inputs to the one sink, what is remote to the other.
    void Run(std::uint64_t end, EngineSink& inputSink, EngineSink& remoteSink);
    // As Engine::NextDue.
    std::optional<std::uint64_t> NextDue() const;
    // Calls `each` for the sources whose system exclusive was ended since the last call because it had fallen
    // silent. Nothing of its rest may be pushed.
    template <class Each>
    void TakeCut(Each each) {
        for (const int source : cut) {
            each(source);
        }
        cut.clear();
    }
    // Ways that are to end and have not yet ended.
    int OpenEnds() const { return openEnds; }

    // Forgets what is queued, and what sounds at an input here; ways that were to end have ended. What sounds
    // at another computer is released there by the next Run. Returns the number of messages lost.
    std::uint64_t Forget(int source);
    // Times begin anew at every destination.
    void ForgetTimes();

    InputCounters CountersOf(int input) const;

  private:
    static constexpr std::size_t kLongestDelivery = 32768;
    // Where sources meet: each input here, and for other computers each port and test output, as which the
    // other computer hears them.
    static constexpr int kFirstRemoteOutlet = kMaxPorts;
    static constexpr int kOutlets = 3 * kMaxPorts;
    static constexpr int kNoOutlet = -1;

    struct Source {
        NoteTracker sounding;
        Destination to;
        int outlet = kNoOutlet;  // kNoOutlet: it leads nowhere, and then nothing is queued
        bool inExclusive =
            false;               // the destination has heard the beginning of a system exclusive, not its end
        bool isWaiting = false;  // something is queued
    };
    struct Outlet {
        int owner = -1;                // source whose system exclusive is under way
        std::uint64_t ownerHeard = 0;  // when the owner was last heard
        std::uint64_t lastTime = 0;
        Counter messages;
        Counter bytes;
    };

    Source& Of(int source) { return sources[static_cast<std::size_t>(source)]; }
    const Source& Of(int source) const { return sources[static_cast<std::size_t>(source)]; }
    Outlet& OutletOf(const Source& source) { return outlets[static_cast<std::size_t>(source.outlet)]; }
    static int OutletFor(const Destination& to);
    std::uint64_t& ActiveWord(int outlet) { return active[static_cast<std::size_t>(outlet / 64)]; }

    // The source that delivers next, and for how long it stays so.
    struct Turn {
        int source = -1;
        std::uint64_t due = 0;
        std::uint64_t until = 0;
    };
    Turn NextTurn(int outlet, std::uint64_t end) const;
    bool MayDeliver(int source, const Outlet& outlet) const;
    bool RunOutlet(int number, std::uint64_t end, EngineSink& sink);
    bool DeliverFront(int source, std::uint64_t end, bool mayBegin, EngineSink& sink);
    bool DeliverExclusive(int source, std::uint64_t end, bool mayBegin, EngineSink& sink);
    std::optional<std::uint64_t> EndOfSilence(int outlet) const;
    bool CutSilentExclusive(int number, std::uint64_t end, EngineSink& sink);
    bool FinishWay(int source, EngineSink& sink);
    bool IsHeldByAnother(int source, const NoteTracker::Release& release) const;
    void Deliver(Source& source, std::uint64_t due, std::span<const std::uint8_t> bytes, EngineSink& sink);
    void Connect(int source, const Destination& to);
    void BeginWaiting(int source);
    void EndWaiting(int source);
    void NoteTaken(int source);

    PieceQueues queues;
    std::vector<Source> sources;
    std::array<Outlet, kOutlets> outlets;
    SourceLists<kOutlets> members;                      // by outlet: the sources that lead there
    SourceLists<kOutlets> waiting;                      // by outlet: those of them with something queued
    std::array<std::uint64_t, kOutlets / 64> active{};  // bit o: somebody waits at outlet o
    std::vector<int> cut;                               // see TakeCut
    std::vector<std::uint8_t> gathered;
    int openEnds = 0;
};

}  // namespace vexil
