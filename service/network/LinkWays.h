// What LinkTransport keeps of the ways of all peers: the sources of the engine to which ways that come in
// lead, and what the engine has delivered and a peer cannot take yet. One thread at a time.
#pragma once

#include <algorithm>
#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "service/engine/ByteRing.h"
#include "service/engine/Engine.h"
#include "service/engine/MidiParser.h"
#include "service/engine/RemoteRing.h"
#include "service/network/LinkCodec.h"

namespace vexil {

// What the gate says of a way.
struct WayVerdict {
    WayProblem problem = WayProblem::None;
    bool isHeard = true;  // programs can hear the input already; else what comes is left out until they can
    bool operator==(const WayVerdict&) const = default;
};

// A way to a peer, and what the peer says of it.
struct LinkWayOut {
    int source = 0;
    int input = 0;
    bool answered = false;
    WayProblem problem = WayProblem::None;
};

struct LinkWayIn {
    int source = 0;  // of the peer
    int input = 0;   // here
    WayProblem problem = WayProblem::None;
};

// What the engine has delivered: a whole message, or a piece of system exclusive, which begins with F0, a
// data byte or F7.
MidiPiece PieceOfDelivery(ByteView bytes);

// The ways that come in: each one that is let in has a source of the engine.
class LinkWaysIn {
  public:
    explicit LinkWaysIn(Engine& itsEngine);

    struct Way {
        const void* peer = nullptr;  // null: free
        std::uint8_t source = 0;
        std::uint8_t input = 0;
        WayVerdict verdict;
        int engineSource = -1;          // -1: it has none at the moment
        std::uint32_t outstanding = 0;  // bytes of system exclusive in the engine
        std::uint32_t passedOn = 0;     // as the engine said last
        std::uint32_t leftOut =
            0;  // bytes of system exclusive that did not reach the engine, or left with its source
        std::int16_t next = -1;  // in its row of `rows`
    };

    // Opens a way; what the peer is to be told of it: no source is left when it is TooManyWays.
    WayProblem Open(const void* peer, std::uint8_t source, std::uint8_t input, const WayVerdict& verdict,
                    std::uint64_t time);
    // Another verdict on a way that is there; what the peer is to be told.
    WayProblem Change(Way& way, const WayVerdict& verdict, std::uint64_t time);
    // Returns the bytes of system exclusive that the peer may send again for those that it has sent.
    std::uint32_t End(const void* peer, std::uint8_t source, std::uint8_t input, std::uint64_t time);
    void EndAll(const void* peer, std::uint64_t time);

    // A message, or a piece of system exclusive.
    void Hear(const void* peer, std::uint8_t source, std::uint8_t input, bool exclusive, ByteView bytes,
              std::uint64_t time);

    // Calls `each` with a way and the bytes of system exclusive that have left the engine, or were left out,
    // since the last call.
    template <class Each>
    void TakePassedOn(Each each) {
        for (Way& way : ways) {
            if (way.outstanding + way.leftOut == 0) {
                continue;
            }
            std::uint32_t bytes = std::exchange(way.leftOut, 0U);
            if (way.engineSource >= 0) {
                const std::uint32_t before =
                    std::exchange(way.passedOn, engine.ExclusivePassedOn(way.engineSource));
                const std::uint32_t passed = std::min(way.outstanding, way.passedOn - before);
                way.outstanding -= passed;
                bytes += passed;
            }
            anyOutstanding -= std::min<std::size_t>(anyOutstanding, bytes);
            if (bytes != 0) {
                each(way, bytes);
            }
        }
    }
    // Sources that could not be given back for want of room are, if there is room now.
    void Retry(std::uint64_t time);
    // TakePassedOn and Retry are to be called again soon: after so many microseconds.
    static constexpr std::uint64_t kPoll = 2'000;
    bool IsWaiting() const { return anyOutstanding != 0 || !owed.empty(); }

    template <class Each>
    void ForEach(const void* peer, Each each) {
        for (Way& way : ways) {
            if (way.peer == peer) {
                each(way);
            }
        }
    }
    template <class Each>
    void ForEach(const void* peer, Each each) const {
        for (const Way& way : ways) {
            if (way.peer == peer) {
                each(way);
            }
        }
    }
    // Messages that were left out because the engine took nothing.
    std::uint64_t Lost() const { return lost; }

  private:
    std::int16_t& RowOf(const void* peer, std::uint8_t source, std::uint8_t input);
    Way* Find(const void* peer, std::uint8_t source, std::uint8_t input);
    bool Take(Way& way, std::uint64_t time);
    void GiveBack(Way& way, std::uint64_t time);
    std::uint32_t Free(Way& way, std::uint64_t time);

    Engine& engine;
    static constexpr std::size_t kRows = 1024;  // twice as many as there are ways

    std::vector<Way> ways;
    std::vector<std::int16_t> rows;  // where a way is found: the first of each row, among `ways`; -1: empty
    std::vector<int> owed;           // sources to give back
    std::size_t anyOutstanding = 0;
    std::uint64_t lost = 0;
};

// For each source here, what the engine has delivered and the peer cannot take yet.
class StagedSources {
  public:
    bool Has(int source) const { return waiting[static_cast<std::size_t>(source)]; }
    bool IsEmpty() const { return waiting.none(); }
    void Put(const RemoteRing::Delivery& delivery);
    // Of every source, in their order, as long as `pass` returns true for what has waited longest.
    template <class Pass>
    void Flush(Pass pass) {
        for (std::size_t source = 0; source < stages.size(); ++source) {
            while (waiting[source] && pass(stages[source]->front)) {
                Next(*stages[source], source);
            }
        }
    }

  private:
    struct Head {
        Destination to;
        std::uint64_t time = 0;
    };
    struct Stage {
        ByteRing<Head> ring{RemoteRing::kSourceBytes * 2};
        RemoteRing::Delivery front;
    };
    void Next(Stage& stage, std::size_t source);

    std::array<std::unique_ptr<Stage>, kTakenSourceBase> stages;
    std::bitset<kTakenSourceBase> waiting;
};

}  // namespace vexil
