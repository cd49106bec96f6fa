// Carries MIDI from sources to the inputs of ports: splits each source's byte stream into messages, holds
// them back by the send quantization, merges what reaches one input between messages, and releases held notes
// when a way ends.
//
// Threads. Two: the control thread posts commands and reads counters; the engine thread (a back end's
// realtime thread, or the control thread itself when there is none) does everything else. They meet in
// lock-free queues and atomics only. The engine thread allocates nothing, takes no lock and makes no system
// call.
//
// Times are nanoseconds of the back end's clock, which never goes back.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "service/engine/EngineSink.h"
#include "service/routes/RouteTable.h"

namespace vexil {

inline constexpr std::size_t kLongestTestBytes = 512;
// Nanoseconds for which a system exclusive of which nothing comes keeps other sources from its input. Then it
// is ended there, and its rest is left out.
inline constexpr std::uint64_t kLongestSilence = 1'000'000'000;

// For an engine thread that sleeps while there is nothing to do.
class EngineWaker {
  public:
    virtual ~EngineWaker() = default;
    // Something was posted. Control thread.
    virtual void Wake() = 0;
};

struct SourceCounters {
    std::uint64_t messages = 0;
    std::uint64_t bytes = 0;
    std::uint64_t filtered = 0;  // messages of a route that does not get through
    std::uint64_t dropped = 0;   // messages lost because a queue was full, or cut by kLongestSilence
};
struct InputCounters {
    std::uint64_t messages = 0;
    std::uint64_t bytes = 0;
};

// Room for what all sources have queued. One source may have nearly all of it for a long system exclusive.
inline constexpr std::size_t kDefaultQueueBytes = std::size_t{8} << 20;

class Engine {
  public:
    // Allocates everything the engine will ever need.
    explicit Engine(std::size_t queueBytes = kDefaultQueueBytes);
    ~Engine();
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

    // Control thread. Each posts a command; false when the queue is full (the engine thread has stopped
    // running), in which case nothing was posted and the caller tries again later.

    // Takes up new routes. On every source whose route changed, held notes are released on the old way first.
    // Test sources are not touched. The table's memory comes back to the control thread through Collect.
    bool PostRoutes(std::unique_ptr<const RouteTable> table);
    // Changes the route of one test source; ends its old way.
    bool PostTestRoute(int port, const Route& route);
    // Plays bytes on a port's test source now. At most kLongestTestBytes; more are not posted. Running status
    // does not go on from one call to the next; a system exclusive does.
    bool PostTestBytes(int port, std::span<const std::uint8_t> bytes);
    // Tenths of a millisecond; 0 sends at once. More than kMaxSendGranularity counts as that.
    bool PostQuantization(std::uint32_t sendGranularity);
    // Ends the way of one output's present writers: a program that wrote to it has gone.
    bool PostWriterGone(int port);
    // Ends every way, as before the service stops.
    bool PostReleaseAll();
    // Who is to be woken after each post; null, as at first: nobody, the engine thread calls often enough.
    void SetWaker(EngineWaker* waker);
    // Frees what the engine thread has given back. Call now and then.
    void Collect();
    // Number of commands posted and carried out so far; equal when the engine has caught up. A way that a
    // command ends has ended when what it released is with the sink; until then neither this nor a later
    // command counts as carried out.
    std::uint64_t Posted() const;
    std::uint64_t Done() const;

    SourceCounters CountersOfSource(int source) const;
    InputCounters CountersOfInput(int port) const;

    // Engine thread.

    // Carries out what was posted. Call at the start of each cycle.
    void TakeCommands(std::uint64_t now);
    // Bytes that a program wrote to the output of a port at a time; any split of a stream will do.
    void Write(int port, std::uint64_t time, std::span<const std::uint8_t> bytes);
    // The way of one output's writers ends at a time; as PostWriterGone.
    void WriterGone(int port, std::uint64_t time);
    // Delivers everything that is due before `end`, as far as there is room; the rest stays queued.
    void Run(std::uint64_t end, EngineSink& sink);
    // Forgets all that is queued (it counts as dropped) and all that sounds, and the time: for when the MIDI
    // system has gone with everybody who heard it. Routes stay. The next calls may go by another clock.
    void Forget();
    // When Run has something to do next; none when nothing is queued that could be delivered. A time that has
    // passed means that an input had no room.
    std::optional<std::uint64_t> NextDue() const;

  private:
    class State;
    std::unique_ptr<State> state;
};

}  // namespace vexil
