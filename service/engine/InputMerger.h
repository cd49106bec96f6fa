// Brings what sources have queued to the inputs that hear them: in the order of time, between messages and
// never inside another source's system exclusive, as far as an input has room. Remembers what each source has
// left sounding and puts it back where its way ends. The engine thread's; nothing is allocated once it is
// made.
#pragma once

#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "service/engine/Engine.h"
#include "service/engine/NoteTracker.h"
#include "service/engine/PieceQueue.h"

namespace vexil {

// A count that one thread raises and others read.
class Counter {
  public:
    void Add(std::uint64_t more) {
        value.store(value.load(std::memory_order_relaxed) + more, std::memory_order_relaxed);
    }
    std::uint64_t Read() const { return value.load(std::memory_order_relaxed); }

  private:
    std::atomic<std::uint64_t> value{0};
};

// A set of sources.
class SourceSet {
  public:
    void Add(int source) { Word(source) |= Bit(source); }
    void Remove(int source) { Word(source) &= ~Bit(source); }
    bool IsEmpty() const { return (words[0] | words[1]) == 0; }
    SourceSet And(const SourceSet& other) const {
        SourceSet both;
        both.words = {words[0] & other.words[0], words[1] & other.words[1]};
        return both;
    }
    // Removes the lowest and returns it. Not of an empty set.
    int TakeFirst() {
        std::uint64_t& word = words[0] != 0 ? words[0] : words[1];
        const int bit = std::countr_zero(word);
        word &= word - 1;
        return &word == &words[1] ? bit + 64 : bit;
    }

  private:
    std::uint64_t& Word(int source) { return words[static_cast<std::size_t>(source / 64)]; }
    static std::uint64_t Bit(int source) { return std::uint64_t{1} << (source % 64); }

    std::array<std::uint64_t, kSourceCount / 64> words{};
};

class InputMerger {
  public:
    explicit InputMerger(std::size_t queueBytes) : queues(queueBytes), gathered(kLongestDelivery) {}

    // Queues a piece for the input that hears the source. `due` never goes back on one source. False when
    // there is no room.
    bool Push(int source, std::uint64_t due, const MidiPiece& piece);
    // Behind what is queued, puts back what the source has left sounding and begins the way to `nextInput`
    // (-1: none).
    void EndWay(int source, std::uint64_t due, int nextInput);
    // As Engine::Run and Engine::NextDue.
    void Run(std::uint64_t end, EngineSink& sink);
    std::optional<std::uint64_t> NextDue() const;
    // Sources whose system exclusive was ended since the last call because nothing more of it came. Nothing
    // of its rest may be pushed.
    SourceSet TakeCut() { return std::exchange(cutSources, {}); }
    // Ways that have been told to end and have not yet done so.
    int OpenEnds() const { return openEnds; }
    // Forgets what is queued and what sounds; ways that were to end have ended. Returns the number of
    // messages lost.
    std::uint64_t Forget(int source);
    // Times begin anew at every input.
    void ForgetTimes();

    InputCounters CountersOf(int input) const;

  private:
    static constexpr std::size_t kLongestDelivery = 32768;

    struct Source {
        NoteTracker sounding;
        int input = -1;            // that hears it; -1: none, and then nothing is queued
        bool inExclusive = false;  // the input has heard the beginning of a system exclusive and not its end
    };
    struct Input {
        SourceSet sources;
        int owner = -1;                // source whose system exclusive is under way
        std::uint64_t ownerHeard = 0;  // when it was last heard of
        std::uint64_t lastTime = 0;
        Counter messages;
        Counter bytes;
    };

    Source& Of(int source) { return sources[static_cast<std::size_t>(source)]; }
    SourceSet Ready(const Input& input) const;
    bool RunInput(int port, std::uint64_t end, EngineSink& sink);
    bool DeliverFront(int source, int port, std::uint64_t end, bool mayBegin, EngineSink& sink);
    bool DeliverExclusive(int source, int port, std::uint64_t end, bool mayBegin, EngineSink& sink);
    std::optional<std::uint64_t> EndOfSilence(const Input& input) const;
    bool CutSilentExclusive(int port, std::uint64_t end, EngineSink& sink);
    bool FinishWay(int source, int port, EngineSink& sink);
    bool IsHeldByAnother(int source, int port, const std::array<std::uint8_t, 3>& release) const;
    void Deliver(int port, std::uint64_t due, std::span<const std::uint8_t> bytes, EngineSink& sink);
    void Connect(int source, int input);
    void NoteEmptied(int source);

    PieceQueues queues;
    std::array<Source, kSourceCount> sources;
    std::array<Input, kMaxPorts> inputs;
    SourceSet waiting;     // sources with something queued
    SourceSet cutSources;  // see TakeCut
    std::vector<std::uint8_t> gathered;
    int openEnds = 0;
};

}  // namespace vexil
