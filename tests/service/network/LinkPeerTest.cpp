// Two peers with sealed sessions on a wire in memory, in virtual time. The wire loses nothing unless a test
// says so: OpenSSL's own timers go by the system's clock.
#include <gmock/gmock.h>

#include <algorithm>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "service/network/LinkPeer.h"

namespace vexil {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Kind = LinkEvent::Kind;

constexpr std::uint64_t kSecond = 1'000'000;
constexpr std::uint64_t kHour = 3600 * kSecond;

const LinkKey& KeyOf(std::size_t computer) {
    static const std::vector<LinkKey> kKeys = {LinkKey::Make().value(), LinkKey::Make().value()};
    return kKeys[computer];
}

LinkAddress AddressOf(std::uint8_t number) {
    LinkAddress address{};
    address[0] = number;
    return address;
}

class Computer : public LinkPeer::Mediator {
  public:
    explicit Computer(std::size_t which)
        : number(which), address(AddressOf(static_cast<std::uint8_t>(which + 1))) {
        Start();
    }
    void Start() {
        peer.reset();
        sealing = LinkSealing::Make(KeyOf(number));
        peer = std::make_unique<LinkPeer>(*this, *sealing, number == 0 ? "laptop" : "studio");
        peer->Association().OpenWay(0, 3, 4);
    }
    Refusal Judge(const KeyHash&) override { return verdict; }
    std::uint64_t Random() override { return ++random * 0x9E3779B97F4A7C15; }
    long CountOf(Kind kind) const { return std::count(events.begin(), events.end(), kind); }

    std::size_t number;
    LinkAddress address;
    Refusal verdict = Refusal::None;
    std::unique_ptr<LinkSealing> sealing;
    std::unique_ptr<LinkPeer> peer;
    std::vector<Kind> events;
    std::vector<Bytes> heard;
    std::optional<LinkEvent> refused;

  private:
    std::uint64_t random = 7;
};

struct OnTheWire {
    std::size_t from = 0;
    LinkAddress source{};
    LinkAddress target{};
    Bytes bytes;
};

class PeerWorld {
  public:
    // Until nothing is under way.
    void Exchange() {
        for (int rounds = 0; rounds < 200; ++rounds) {
            Collect();
            if (wire.empty()) {
                return;
            }
            const OnTheWire datagram = wire.front();
            wire.pop_front();
            Arrive(datagram);
            now += 100;
        }
    }
    void Collect() {
        for (std::size_t which = 0; which < 2; ++which) {
            Computer& computer = computers[which];
            computer.peer->HandleTimeout(now);
            TakeEvents(computer);
            Bytes out(kLongestDatagram);
            while (const auto transmit = computer.peer->PollTransmit(now, out)) {
                wire.push_back(
                    {which, computer.address, transmit->address,
                     Bytes(out.begin(), out.begin() + static_cast<std::ptrdiff_t>(transmit->size))});
            }
            TakeEvents(computer);
        }
    }
    void Arrive(const OnTheWire& datagram) {
        last = datagram;
        Computer& there = computers[1 - datagram.from];
        if (datagram.target != there.address) {
            return;
        }
        if (LinkSealing::IsCall(datagram.bytes) && !there.peer->Claims(datagram.bytes)) {
            Bytes answer(kLongestDatagram);
            LinkSealing::Heard heard = there.sealing->Listen(datagram.bytes, datagram.source, answer);
            if (heard.session) {
                there.peer->TakeCall(now, std::move(heard.session), datagram.source);
            } else if (heard.answerSize > 0) {
                answer.resize(heard.answerSize);
                wire.push_back({there.number, there.address, datagram.source, answer});
            }
        } else {
            there.peer->HandleDatagram(now, datagram.source, datagram.bytes);
        }
        TakeEvents(there);
    }
    void TakeEvents(Computer& computer) {
        while (const auto event = computer.peer->PollEvent(now)) {
            if (event->kind == Kind::Message) {
                computer.heard.emplace_back(event->bytes.begin(), event->bytes.end());
            } else if (event->kind != Kind::WayState) {
                computer.events.push_back(event->kind);
            }
            if (event->kind == Kind::Refused) {
                computer.refused = *event;
            }
        }
    }
    void Call(std::size_t from) { computers[from].peer->Call(now, computers[1 - from].address); }
    void Pass(std::uint64_t span, std::uint64_t step) {
        for (const std::uint64_t end = now + span; now < end; now += step) {
            Exchange();
        }
    }
    bool Play(std::size_t from) {
        const Bytes note = {0x90, 60, 100};
        MidiPiece piece;
        piece.bytes = note;
        Computer& there = computers[1 - from];
        const std::size_t before = there.heard.size();
        computers[from].peer->Association().Send(now, 3, 4, piece);
        Exchange();
        return there.heard.size() == before + 1 && there.heard.back() == note;
    }
    bool BothUp() {
        return computers[0].peer->Association().IsUp() && computers[1].peer->Association().IsUp();
    }

    std::array<Computer, 2> computers = {Computer(0), Computer(1)};
    std::deque<OnTheWire> wire;
    OnTheWire last;
    std::uint64_t now = kSecond;
};

TEST(LinkPeer, ACallMakesOneAssociationAndNotesGoBothWays) {
    PeerWorld world;
    world.Call(0);
    world.Exchange();
    ASSERT_TRUE(world.BothUp());
    EXPECT_TRUE(world.Play(0));
    EXPECT_TRUE(world.Play(1));
    EXPECT_EQ(world.computers[0].peer->Key(), KeyOf(1).Hash());
    EXPECT_EQ(world.computers[1].peer->Key(), KeyOf(0).Hash());
    EXPECT_LT(world.now, 2 * kSecond);
}

TEST(LinkPeer, CallsThatCrossEndWithOneAssociation) {
    for (int count = 0; count < 20; ++count) {
        PeerWorld world;
        world.Call(0);
        world.Call(1);
        world.Exchange();
        world.Pass(5 * kSecond, kSecond / 10);
        ASSERT_TRUE(world.BothUp());
        EXPECT_EQ(world.computers[0].peer->Association().Number(),
                  world.computers[1].peer->Association().Number());
        EXPECT_EQ(world.computers[0].CountOf(Kind::Lost), 0);
        EXPECT_EQ(world.computers[1].CountOf(Kind::Lost), 0);
        EXPECT_TRUE(world.Play(0));
        EXPECT_TRUE(world.Play(1));
    }
}

TEST(LinkPeer, APeerThatRestartsIsTakenUpAtOnce) {
    PeerWorld world;
    world.Call(0);
    world.Exchange();
    ASSERT_TRUE(world.Play(0));
    world.Pass(5 * kSecond, kSecond / 10);
    world.computers[0].Start();
    world.computers[0].heard.clear();
    const std::uint64_t restarted = world.now;
    world.Call(0);
    world.Exchange();
    ASSERT_TRUE(world.BothUp());
    EXPECT_LT(world.now - restarted, kSecond / 100);
    EXPECT_EQ(world.computers[1].CountOf(Kind::WayEnded), 1);
    EXPECT_EQ(world.computers[1].CountOf(Kind::Lost), 0);
    EXPECT_TRUE(world.Play(0));
    EXPECT_TRUE(world.Play(1));
}

TEST(LinkPeer, AfterADayTheSessionIsRenewedAndNoWayEnds) {
    PeerWorld world;
    world.Call(0);
    world.Exchange();
    const auto session = world.computers[0].peer->Association().Session();
    const auto number = world.computers[0].peer->Association().Number();
    world.Pass(24 * kHour + 5 * kSecond, kSecond);
    EXPECT_NE(world.computers[0].peer->Association().Session(), session);
    EXPECT_EQ(world.computers[0].peer->Association().Number(), number);
    EXPECT_EQ(world.computers[0].CountOf(Kind::WayEnded), 0);
    EXPECT_EQ(world.computers[1].CountOf(Kind::WayEnded), 0);
    EXPECT_EQ(world.computers[1].CountOf(Kind::Up), 1);
    EXPECT_TRUE(world.Play(0));
    EXPECT_TRUE(world.Play(1));
}

TEST(LinkPeer, ASecretThatIsMissingOrWrongIsToldToBothSides) {
    const struct {
        const char* callers;
        const char* called;
        Refusal refusal;
    } kTable[] = {
        {nullptr, "correct horse", Refusal::SecretNeeded},
        {"another horse", "correct horse", Refusal::SecretWrong},
    };
    for (const auto& row : kTable) {
        PeerWorld world;
        if (row.callers != nullptr) {
            world.computers[0].peer->SetSecret(StretchSecret(row.callers));
        }
        world.computers[1].peer->SetSecret(StretchSecret(row.called));
        world.Call(0);
        world.Exchange();
        EXPECT_FALSE(world.BothUp());
        for (Computer& computer : world.computers) {
            ASSERT_TRUE(computer.refused);
            EXPECT_EQ(computer.refused->bye.refusal, row.refusal);
            EXPECT_EQ(computer.refused->byPeer, computer.number == 0);
            EXPECT_EQ(computer.CountOf(Kind::Up), 0);
        }
        EXPECT_GE(world.computers[0].peer->Calls().Next(), world.now + 29 * kSecond);
    }
}

TEST(LinkPeer, TheSameSecretLetsIn) {
    PeerWorld world;
    const auto secret = StretchSecret("correct horse");
    world.computers[0].peer->SetSecret(secret);
    world.computers[1].peer->SetSecret(secret);
    world.Call(0);
    world.Exchange();
    EXPECT_TRUE(world.BothUp());
    EXPECT_TRUE(world.Play(0));
}

TEST(LinkPeer, AKeyThatIsNotLetInIsToldSo) {
    PeerWorld world;
    world.computers[1].verdict = Refusal::OtherKey;
    world.Call(0);
    world.Exchange();
    EXPECT_FALSE(world.BothUp());
    ASSERT_TRUE(world.computers[0].refused);
    EXPECT_TRUE(world.computers[0].refused->byPeer);
    EXPECT_EQ(world.computers[0].refused->bye.refusal, Refusal::OtherKey);
}

TEST(LinkPeer, APeerThatMovesIsFollowedAfterItAnsweredThere) {
    PeerWorld world;
    world.Call(0);
    world.Exchange();
    world.computers[0].address = AddressOf(9);
    EXPECT_TRUE(world.Play(0));
    EXPECT_TRUE(world.Play(1));
    EXPECT_EQ(world.computers[1].CountOf(Kind::WayEnded), 0);
}

TEST(LinkPeer, ADatagramThatSomebodyElsePassesOnMovesNothing) {
    PeerWorld world;
    world.Call(0);
    world.Exchange();
    const Bytes note = {0x90, 60, 100};
    MidiPiece piece;
    piece.bytes = note;
    world.computers[0].peer->Association().Send(world.now, 3, 4, piece);
    world.Collect();
    ASSERT_FALSE(world.wire.empty());
    OnTheWire passedOn = world.wire.front();
    world.wire.pop_front();
    passedOn.source = AddressOf(66);
    world.Arrive(passedOn);
    world.Exchange();
    EXPECT_TRUE(world.Play(1));
    EXPECT_NE(world.last.target, AddressOf(66));
}

TEST(LinkPeer, OneThatNobodyUsesForHalfAMinuteGetsABye) {
    PeerWorld world;
    world.Call(0);
    world.Exchange();
    for (Computer& computer : world.computers) {
        computer.peer->Association().EndWay(world.now, 3, 4);
    }
    world.Pass(29 * kSecond, kSecond / 10);
    EXPECT_TRUE(world.BothUp());
    world.computers[0].peer->SetNeeded(true);
    world.computers[1].peer->SetNeeded(true);
    world.Pass(60 * kSecond, kSecond / 10);
    EXPECT_TRUE(world.BothUp());
    world.computers[0].peer->SetNeeded(false);
    world.Pass(31 * kSecond, kSecond / 10);
    for (const Computer& computer : world.computers) {
        EXPECT_FALSE(computer.peer->Association().IsUp());
        EXPECT_EQ(computer.CountOf(Kind::Ended), 1);
        EXPECT_EQ(computer.CountOf(Kind::Lost), 0);
    }
}

TEST(LinkPeer, OneThatItsCallerNeedsStaysThoughTheOtherDoesNot) {
    PeerWorld world;
    world.computers[0].peer->SetNeeded(true);
    world.Call(0);
    world.Exchange();
    ASSERT_TRUE(world.BothUp());
    for (Computer& computer : world.computers) {
        computer.peer->Association().EndWay(world.now, 3, 4);
    }
    world.Pass(100 * kSecond, 100'000);
    EXPECT_TRUE(world.BothUp());
    for (const Computer& computer : world.computers) {
        EXPECT_EQ(computer.CountOf(Kind::Ended), 0);
    }
}

TEST(LinkPeer, CallsAreMadeAtGrowingIntervals) {
    CallSchedule calls;
    calls.Begin(0);
    std::vector<std::uint64_t> times;
    for (std::uint64_t now = 0; now < 70 * kSecond; now = calls.Next()) {
        times.push_back(now);
        calls.Called(now);
    }
    EXPECT_THAT(std::vector<std::uint64_t>(times.begin(), times.begin() + 7),
                testing::ElementsAre(0, 100'000, 300'000, 700'000, 1'500'000, 2'500'000, 3'500'000));
    EXPECT_EQ(times.back() - times[times.size() - 2], 2 * kSecond);
    calls.Refused(70 * kSecond);
    EXPECT_EQ(calls.Next(), 100 * kSecond);
    calls.Begin(71 * kSecond);
    EXPECT_EQ(calls.Next(), 71 * kSecond);
}

}  // namespace
}  // namespace vexil
