// What peers take up, sealing and all: of computers that play to each other, by what the system counts as
// resident. A program of its own, without sanitizers.
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <fstream>
#include <memory>
#include <vector>

#include "service/network/LinkPeer.h"

namespace vexil {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kBound = std::size_t{512} << 10;
constexpr std::uint8_t kWays = 64;

std::size_t Resident() {
    std::ifstream file("/proc/self/statm");
    std::size_t size = 0;
    std::size_t resident = 0;
    file >> size >> resident;
    return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

struct End : LinkPeer::Mediator {
    End(LinkSealing& itsSealing, const char* name) : sealing(itsSealing), peer(*this, itsSealing, name) {}
    Refusal Judge(const KeyHash&) override { return Refusal::None; }
    std::uint64_t Random() override { return ++random * 0x9E3779B97F4A7C15; }

    LinkSealing& sealing;
    LinkPeer peer;
    std::uint64_t random = 7;
    long heard = 0;
};

// Two computers that are peers of each other, on a wire that is out while `cut`.
class Pair {
  public:
    Pair(LinkSealing& one, LinkSealing& other) : ends{End(one, "laptop"), End(other, "studio")} {}

    void Call(std::uint64_t now) { ends[0].peer.Call(now, Address(1)); }
    static LinkAddress Address(std::size_t end) {
        LinkAddress address{};
        address[0] = static_cast<std::uint8_t>(end + 1);
        return address;
    }
    void Exchange(std::uint64_t now) {
        for (bool again = true; again;) {
            again = false;
            for (std::size_t from = 0; from < ends.size(); ++from) {
                ends[from].peer.HandleTimeout(now);
                TakeEvents(now, ends[from]);
                Bytes out(kLongestDatagram);
                while (const auto transmit = ends[from].peer.PollTransmit(now, out)) {
                    again = !cut;
                    if (!cut) {
                        Arrive(now, 1 - from, ByteView(out).first(transmit->size));
                    }
                }
                TakeEvents(now, ends[from]);
            }
        }
    }
    void Arrive(std::uint64_t now, std::size_t at, ByteView datagram) {
        End& end = ends[at];
        if (!LinkSealing::IsCall(datagram) || end.peer.Claims(datagram)) {
            end.peer.HandleDatagram(now, Address(1 - at), datagram);
            return;
        }
        Bytes answer(kLongestDatagram);
        LinkSealing::Heard heard = end.sealing.Listen(datagram, Address(1 - at), answer);
        if (heard.session) {
            end.peer.TakeCall(now, std::move(heard.session), Address(1 - at));
        } else if (heard.answerSize > 0) {
            Arrive(now, 1 - at, ByteView(answer).first(heard.answerSize));
        }
    }
    void TakeEvents(std::uint64_t now, End& end) {
        LinkAssociation& association = end.peer.Association();
        while (const auto event = end.peer.PollEvent(now)) {
            if (event->kind == LinkEvent::Kind::WayOpened) {
                association.AnswerWay(event->source, event->input, WayProblem::None);
            } else if (event->kind == LinkEvent::Kind::Piece) {
                association.PiecesPassedOn(event->source, event->input, event->bytes.size());
            }
            end.heard += event->kind == LinkEvent::Kind::Message ? 1 : 0;
        }
    }
    void Play(std::uint64_t now, std::uint8_t way, const Bytes& bytes) {
        MidiPiece piece;
        piece.bytes = bytes;
        piece.systemExclusive = bytes.front() == 0xF0;
        for (End& end : ends) {
            end.peer.Association().Send(now, way, way, piece);
        }
    }

    std::array<End, 2> ends;
    bool cut = false;
};

// Peers that play to each other by 64 ways; how much each takes up. `outage`: so long the wire is out.
std::size_t MemoryOfAPeer(std::uint64_t outage) {
    constexpr std::size_t kPairs = 16;
    constexpr std::uint64_t kMillisecond = 1000;
    const std::unique_ptr<LinkSealing> one = LinkSealing::Make(LinkKey::Make().value());
    const std::unique_ptr<LinkSealing> other = LinkSealing::Make(LinkKey::Make().value());
    std::vector<std::unique_ptr<Pair>> pairs;
    // What the libraries need once is there before the measurement begins.
    std::size_t before = 0;
    for (std::size_t index = 0; index <= kPairs; ++index) {
        if (index == 1) {
            before = Resident();
        }
        pairs.push_back(std::make_unique<Pair>(*one, *other));
        std::uint64_t now = 1'000'000;
        Pair& pair = *pairs.back();
        pair.Call(now);
        for (int count = 0; count < 50; ++count, now += kMillisecond) {
            pair.Exchange(now);
        }
        EXPECT_TRUE(pair.ends[0].peer.Association().IsUp() && pair.ends[1].peer.Association().IsUp());
        for (std::uint8_t way = 0; way < kWays; ++way) {
            for (End& end : pair.ends) {
                end.peer.Association().OpenWay(now, way, way);
            }
        }
        const std::uint64_t cutFrom = now + 300 * kMillisecond;
        const std::uint64_t until = cutFrom + outage + 300 * kMillisecond;
        long played = 0;
        for (; now < until; now += kMillisecond) {
            pair.cut = now >= cutFrom && now < cutFrom + outage;
            for (std::uint8_t way = 0; way < kWays; ++way, ++played) {
                pair.Play(now, way, {0x90, 60, 100});
            }
            if (played % 6400 == 0) {
                Bytes exclusive(900, 5);
                exclusive.front() = 0xF0;
                exclusive.back() = 0xF7;
                pair.Play(now, 0, exclusive);
            }
            pair.Exchange(now);
        }
        for (; now < until + 500 * kMillisecond; now += kMillisecond) {
            pair.Exchange(now);
        }
        EXPECT_EQ(pair.ends[1].heard, played);
    }
    return (Resident() - before) / (2 * kPairs);
}

TEST(LinkMemory, APeerThatPlaysSixtyFourThousandMessagesASecondTakesUpLittle) {
    const std::size_t each = MemoryOfAPeer(0);
    RecordProperty("KiB", static_cast<int>(each >> 10));
    std::printf("%zu KiB for each peer\n", each >> 10);
    EXPECT_LE(each, kBound / 2);
}

TEST(LinkMemory, AfterAnOutageOfAFifthOfASecondItIsWithinItsBound) {
    const std::size_t each = MemoryOfAPeer(200'000);
    RecordProperty("KiB", static_cast<int>(each >> 10));
    std::printf("%zu KiB for each peer\n", each >> 10);
    EXPECT_LE(each, kBound);
}

}  // namespace
}  // namespace vexil
