// Carries MIDI from sources to destinations: splits each source's byte stream into messages, holds them back
// by the send quantization, merges what reaches one destination between messages, and releases held notes
// when a way ends.
//
// Threads. Three: the control thread posts commands and reads counters; the network's thread, where there is
// one, posts what comes from other computers; the engine thread (whichever thread drives the engine: a MIDI
// system's, or another while no MIDI system runs) does everything else. They meet in lock-free queues and
// atomics only. The engine thread allocates nothing, takes no lock and makes no system call.
//
// Loops. Programs that are connected in a ring send a message round and round, as fast as the engine carries
// it. A limit to each turn keeps the engine thread from taking the whole of a processor for that, and lets
// other sources go first (see Merger.h); which outputs are suspected of it is known (see LoopWatch.h).
//
// Times are nanoseconds of the clock by which the engine is driven, which never goes back.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "service/engine/Counter.h"
#include "service/engine/EngineSink.h"
#include "service/engine/MessageTap.h"
#include "service/engine/SourceNumbers.h"
#include "service/engine/TurnLimit.h"
#include "service/engine/Way.h"

namespace vexil {

inline constexpr std::size_t kLongestTestBytes = 512;

// For a thread that sleeps while there is nothing to do.
class EngineWaker {
  public:
    virtual ~EngineWaker() = default;
    // There is something to do. Never waits. Any of the threads that post.
    virtual void Wake() = 0;
};

// What has come from another computer for a taken source.
struct Arrival {
    enum class Kind : std::uint8_t {
        Message,    // one whole message that is not system exclusive
        Exclusive,  // bytes of system exclusive
        Way,        // `way` from now on; the way before ends, also when it is the same
        GiveBack,   // the way ends, and when that is done the source can be taken again
    };

    Kind kind = Kind::Message;
    int source = 0;
    std::uint64_t time = 0;  // when it came: nanoseconds of the steady clock
    vexil::Way way{};        // Way
};

// Room for what all sources have queued. One source may have most of it for a long system exclusive.
inline constexpr std::size_t kDefaultQueueBytes = std::size_t{12} << 20;

class Engine {
  public:
    // Allocates everything the engine will ever need.
    explicit Engine(std::size_t queueBytes = kDefaultQueueBytes);
    ~Engine();
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

    // What hears remote destinations; null, as at first: nobody. Set while no thread drives the engine.
    void SetRemoteSink(EngineSink* sink);
    // Who is woken, on the engine thread, when SuspectedRate has become another than 0 for a source, or 0
    // again; null, as at first: nobody. Set while no thread drives the engine.
    void SetSuspicionWaker(EngineWaker* waker);
    // Who is woken, on the engine thread, as AwaitTraffic asks for it; null, as at first: nobody. Set while
    // no thread drives the engine.
    void SetTrafficWaker(EngineWaker* waker);

    // Control thread. Each posts a command; false when the queue is full (the engine thread has stopped
    // running), in which case nothing was posted and the caller tries again later.

    // The ways of the outputs. On every one that changes, held notes are released on the old way first.
    bool PostWays(const WayTable& outputs);
    // The way of a test output; ends the way before, also when it is the same.
    bool PostWay(int source, const Way& way);
    // Plays bytes on a port's test output now. At most kLongestTestBytes; more are not posted. Running status
    // does not go on from one call to the next; a system exclusive does.
    bool PostTestBytes(int port, std::span<const std::uint8_t> bytes);
    // Tenths of a millisecond; 0 sends at once. More than kMaxSendGranularity counts as that.
    bool PostQuantization(std::uint32_t sendGranularity);
    // Ends the way of one output's present writers: a program that wrote to it has gone.
    bool PostWriterGone(int port);
    // Ends every way, as before the service stops.
    bool PostReleaseAll();
    // Ends every note everywhere: releases what sounds on any way, which goes on afterwards, and tells the
    // inputs in the mask (bit p: of port p) and the ways to other computers to end what they have besides
    // (see Silencing.h).
    bool PostPanic(std::uint64_t inputs);
    // Who is to be woken after each post; null, as at first: nobody, the engine thread calls often enough.
    void SetWaker(EngineWaker* waker);
    // Number of commands posted and carried out so far; equal when the engine has caught up. A way that a
    // command ends has ended when what it released is with the sink; until then neither this nor a later
    // command counts as carried out. The same goes for ways that arrivals end.
    std::uint64_t Posted() const;
    std::uint64_t Done() const;

    // Of an output with all its writers, a test output or a taken source.
    SourceCounters CountersOfSource(int source) const;
    InputCounters CountersOfInput(int port) const;
    // Messages in the last second of an output with all its writers, a test output or a taken source that is
    // suspected to be part of a loop; 0 where none is suspected. Any thread.
    std::uint64_t SuspectedRate(int source) const;
    // The turn that takes the next message wakes the traffic waker, once.
    void AwaitTraffic();

    // What passes through the engine, for somebody who watches.
    MessageTap& Tap();

    // The network's thread. What it posts is carried out in its order.

    // Takes one of the kTakenSources, with its way. None when all are taken or nothing can be posted.
    std::optional<int> TakeSource(const Way& way, std::uint64_t time);
    // Hands something to the engine thread; `bytes` are those of a message or of system exclusive. False when
    // there is no room: nothing was posted.
    bool PostArrival(const Arrival& arrival, std::span<const std::uint8_t> bytes = {});
    // Bytes of system exclusive that were posted for a source and are no longer in the engine: delivered or
    // left out. Counts on for as long as the engine lives, and begins anew at 0.
    std::uint32_t ExclusivePassedOn(int source) const;
    // How far the engine's times are ahead of the steady clock, nanoseconds.
    std::int64_t ClockLead() const;

    // Engine thread.

    // The clock of the times that follow is so far ahead of the steady clock; 0 at first.
    void SetClockLead(std::int64_t nanoseconds);
    // Writes what has arrived to its sources, `delay` nanoseconds after it came: a thread that turns once a
    // period delays by the period, which keeps the distances. Call behind TakeCommands.
    void TakeArrivals(std::uint64_t delay);

    // Carries out what was posted. Call at the start of each turn.
    void TakeCommands(std::uint64_t now);
    // Bytes that were written to a source at a time; any split of a stream will do. What is written to a
    // source that is not taken is left out.
    void Write(int source, std::uint64_t time, std::span<const std::uint8_t> bytes);
    // The same for one whole message that is not system exclusive, and for bytes of system exclusive, in
    // which whatever does not belong there is left out. A source is written to either by Write or by these.
    void WriteMessage(int source, std::uint64_t time, std::span<const std::uint8_t> message);
    void WriteExclusive(int source, std::uint64_t time, std::span<const std::uint8_t> bytes);
    // The way of a source's present writers ends at a time; as PostWriterGone.
    void WriterGone(int source, std::uint64_t time);
    // One of several writers of a source has gone, whom nobody can tell apart: what sounds is released, and
    // running status stays. A system exclusive under way may be another's: it goes on, and the release comes
    // behind it. When it has been silent for kLongestSilence it is ended, and counts as dropped.
    void OneWriterGone(int source, std::uint64_t time);
    // So many messages to a source were lost before they came here. They count as dropped, and the way ends:
    // nobody knows what they would have put right.
    void MessagesLost(int source, std::uint64_t time, std::uint64_t messages);
    // A source for one of the programs that write to an output: it has the output's way. None when all
    // kWriterSources are taken.
    std::optional<int> TakeWriter(int port);
    // The program has gone: its way ends at a time, and the source can be taken again once that is done.
    void GiveBackWriter(int source, std::uint64_t time);
    // Delivers everything that is due before `end`, as far as there is room and the limit goes; the rest
    // stays queued. `sink` hears the inputs. `limit`: null: without a limit.
    void Run(std::uint64_t end, EngineSink& sink, TurnLimit* limit = nullptr);
    // Forgets all that is queued (it counts as dropped), all that sounds here, and the time: for when the
    // MIDI system has gone with everybody who heard it. What sounds at other computers is released. Ways
    // stay. The next calls may go by another clock.
    void Forget();
    // The next calls may go by another clock, whose times may be a little earlier.
    void ForgetTimes();
    // When Run has something to do next; null when there is nothing to do. A time that has passed means that
    // a destination had no room, or that the limit has stopped the last turn.
    std::optional<std::uint64_t> NextDue() const;

  private:
    class State;
    std::unique_ptr<State> state;
};

}  // namespace vexil
