// Brings what sources have queued to their destinations: in the order of time, between messages and never
// inside another source's system exclusive, as far as a destination has room. A realtime message of another
// source may stand inside one. Remembers what each source has left sounding and puts it back where its way
// ends. The engine thread's; nothing is allocated once it is made.
//
// Where a turn is limited and there is more to do, each source has a share of every kShareTime. Until
// everything is done, sources that have not used up theirs go first, and the limit does not stop them; the
// others take turns in what it leaves.
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
#include "service/engine/TurnLimit.h"
#include "service/routes/Destination.h"

namespace vexil {

// Nanoseconds for which a silent system exclusive keeps other sources from its destination. Then it is ended
// there, and its rest is left out.
inline constexpr std::uint64_t kLongestSilence = 1'000'000'000;

// The share of a source, several times what a cable carries: messages, where 64 bytes more of system
// exclusive count as another, and the nanoseconds that it is for.
inline constexpr std::uint32_t kShare = 64;
inline constexpr std::uint64_t kShareTime = 10'000'000;

class Merger {
  public:
    explicit Merger(std::size_t queueBytes);

    // Queues a piece for the destination of the source. `due` never goes back on one source. False when there
    // is no room.
    bool Push(int source, std::uint64_t due, const MidiPiece& piece);
    // Behind what is queued, puts back what the source has left sounding and begins the way to `next`.
    void EndWay(int source, std::uint64_t due, const Destination& next);
    bool IsWaiting(int source) const { return Of(source).isWaiting; }
    // Bytes of system exclusive that are queued.
    std::size_t QueuedExclusive(int source) const { return queues.QueuedExclusive(source); }
    // The source leads nowhere, and nothing is queued or sounds.
    bool IsIdle(int source) const { return Of(source).outlet == kNoOutlet; }

    // Delivers what is due before `end`, inputs to the one sink, what is remote to the other. `limit`: null
    // without a limit.
    void Run(std::uint64_t end, EngineSink& inputSink, EngineSink& remoteSink, TurnLimit* limit);
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
        std::uint32_t used = 0;  // of its share of ...
        std::uint64_t share = 0;  // ... this kShareTime, counted from the beginning of time
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

    // One way through the outlets.
    struct Pass {
        std::uint64_t end;
        std::uint64_t share;  // as Source::share
        EngineSink& inputSink;
        EngineSink& remoteSink;
        TurnLimit* limit;
        bool withinShare = false;    // only sources that have not used up theirs
        std::uint32_t unasked = 0;   // messages since the limit was asked
        bool isStopped = false;      // by the limit
        EngineSink* sink = nullptr;  // of the outlet that has its turn
    };
    static bool MayGoOn(Pass& pass);
    void RunAll(Pass& pass);
    void RunInTurns(Pass& pass);

    // The source that delivers next, and for how long it stays so.
    struct Turn {
        int source = -1;
        std::uint64_t due = 0;
        std::uint64_t until = 0;
    };
    Turn NextTurn(int outlet, std::uint64_t end, const Pass* pass) const;
    bool MayDeliver(int source, const Outlet& outlet) const;
    bool HasShare(int source, const Outlet& outlet, const Pass& pass) const;
    bool RunOutlet(int number, Pass& pass, std::uint32_t most, bool mayBegin);
    bool DeliverFront(int source, bool mayBegin, Pass& pass);
    bool DeliverExclusive(int source, bool mayBegin, Pass& pass);
    std::optional<std::uint64_t> EndOfSilence(int outlet) const;
    bool CutSilentExclusive(int number, Pass& pass);
    bool FinishWay(int source, Pass& pass);
    bool IsHeldByAnother(int source, const NoteTracker::Release& release) const;
    void Deliver(Source& source, std::uint64_t due, std::span<const std::uint8_t> bytes, Pass& pass);
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
    bool isPressed = false;  // a limit has stopped a turn, and since then not everything could be done
    int firstInTurn = 0;     // the outlet at which the turns of those who have used up their shares begin
};

}  // namespace vexil
