// Two computers on a wire in memory, in virtual time. A seed chooses load and faults: loss, delay, jitter
// (which reorders), duplicates, a wire that is cut for a while, and restarts. What each computer hears is
// checked as it comes.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <queue>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "service/engine/NoteTracker.h"
#include "service/network/LinkAssociation.h"

namespace vexil::test {

using Microseconds = std::uint64_t;
inline constexpr Microseconds kMillisecond = 1000;
inline constexpr Microseconds kSecond = 1'000'000;

// What a wire does to what is put on it.
struct WireFaults {
    double loss = 0;
    double duplicates = 0;
    Microseconds delay = 200;
    Microseconds jitter = 0;
    bool cut = false;            // nothing gets through
    std::array<bool, 2> deaf{};  // nothing gets through to this end
};

// Mistakes that are planted to see whether the checks find them.
enum class Planted : std::uint8_t {
    None,
    MessageSwallowed,
    MessageTwice,
    MessagesSwapped,
    EndSwallowed,
    ExclusiveDamaged,
    FalseAcknowledgement,  // of records that have not arrived
    WayNumbersShifted,
};

struct WorldPlan {
    unsigned seed = 1;
    WireFaults faults;
    int ways = 3;                      // in each direction
    Microseconds meanInterval = 3000;  // between messages of one way
    double exclusive = 0.02;           // share of system exclusive messages
    std::size_t longestExclusive = 3000;
    double wayChange = 0.002;  // a way ends, or is opened again, for each message
    double restart = 0;        // of one end, for each 100 ms
    double cut = 0;            // of the wire, for each 100 ms
    Microseconds longestCut = 4 * kSecond;
    Planted planted = Planted::None;
};

// What one end hears of one way.
struct HeardWay {
    bool open = false;
    int next = -1;                        // number that has to come; -1: the first since it opened
    long last = -1;                       // heard last, over all openings
    std::vector<std::uint8_t> exclusive;  // that is under way
    NoteTracker sounding;
    long count = 0;
};

class LinkWorld {
  public:
    explicit LinkWorld(const WorldPlan& plan);

    // Lets time pass with load and faults.
    void Live(Microseconds span);
    // Lets time pass with nothing but what is under way.
    void Rest(Microseconds span);
    // The faults stop. What has to be so then: both are up within 3 s, every way that is wanted is open, what
    // is sent is heard.
    void HealAndCheck();

    // The first thing that was wrong; empty when nothing was.
    const std::string& Complaint() const { return complaint; }
    void Complain(const std::string& what) {
        if (complaint.empty()) {
            complaint = "seed " + std::to_string(plan.seed) + " at " + std::to_string(now) + " us: " + what;
        }
    }

    LinkAssociation& End(int end) { return *ends[Index(end)].association; }
    Microseconds Now() const { return now; }
    WireFaults& Faults() { return plan.faults; }
    void Restart(int end);
    bool BothUp() { return End(0).IsUp() && End(1).IsUp(); }
    long Sent() const { return sent; }
    long Heard() const { return heard; }
    long Associations() const { return associations; }
    std::uint64_t Datagrams() const { return datagrams; }
    // Microseconds from due time to hearing, of every message.
    const std::vector<Microseconds>& Latencies() const { return latencies; }
    const std::vector<LinkEvent::Kind>& Events(int end) const { return ends[Index(end)].events; }
    bool SendOne(int end, int way);
    // Nobody calls any longer.
    void StopCalling() { calls = false; }

  private:
    struct Datagram {
        Microseconds time = 0;
        std::uint64_t order = 0;
        int to = 0;
        enum class Kind : std::uint8_t { Call, CallTaken, Body } kind = Kind::Body;
        std::uint32_t session = 0;
        std::uint64_t number = 0;
        std::vector<std::uint8_t> body;
        bool operator<(const Datagram& other) const {
            return time != other.time ? time > other.time : order > other.order;
        }
    };
    struct Program {
        bool wanted = true;
        long number = 0;
        Microseconds nextAt = 0;
        std::vector<MidiPiece> waiting;
        std::vector<std::uint8_t> exclusive;  // that is being sent
        std::size_t exclusiveAt = 0;
    };
    struct Computer {
        std::unique_ptr<LinkAssociation> association;
        std::map<int, Program> programs;
        std::map<int, HeardWay> heard;
        std::vector<LinkEvent::Kind> events;
        Microseconds callAt = 0;
        Datagram call;              // that is under way
        std::uint32_t calling = 0;  // its session; 0: there is no call
        Microseconds callBegun = 0;
        std::uint32_t lastTaken = 0;
    };

    static std::size_t Index(int end) { return static_cast<std::size_t>(end); }
    static std::uint8_t Source(int way) { return static_cast<std::uint8_t>(way % 3 + 60); }
    static std::uint8_t Input(int way) { return static_cast<std::uint8_t>(way); }
    double Chance() { return static_cast<double>(random() >> 11) / 9007199254740992.0; }
    std::uint64_t Draw(std::uint64_t bound) { return bound == 0 ? 0 : random() % bound; }

    void Advance(Microseconds until, bool withLoad);
    void Put(int to, Datagram datagram);
    void Deliver(const Datagram& datagram);
    void Serve(int end);
    void TakeEvent(int end, const LinkEvent& event);
    void Hear(HeardWay& way, ByteView message, bool exclusive);
    void HearNumber(HeardWay& way, int number);
    void Tamper(std::vector<std::uint8_t>& body);
    void Load(int end);
    void PlayOne(int end, int way, Program& program);
    bool GoOnWithExclusive(int end, int way, Program& program);
    void Misfortunes();

    WorldPlan plan;
    std::mt19937_64 random;
    Microseconds now = 10 * kSecond;
    std::array<Computer, 2> ends;
    std::priority_queue<Datagram> wire;
    std::uint64_t order = 0;
    std::uint32_t nextSession = 1;
    Microseconds nextMisfortune = 0;
    Microseconds cutUntil = 0;
    bool calls = true;
    bool planted = false;
    std::optional<LinkEvent> swapped;
    std::vector<std::uint8_t> swappedBytes;
    std::string complaint;
    long sent = 0;
    long heard = 0;
    long associations = 0;
    std::uint64_t datagrams = 0;
    std::vector<Microseconds> latencies;
};

}  // namespace vexil::test
