// Computers with their engines on a wire in memory, in virtual time, and peers by hand that call them.
#include "service/network/rtp/RtpTransport.h"

#include <gmock/gmock.h>

#include "service/network/LinkTexts.h"
#include "tests/doubles/MemoryWire.h"
#include "tests/service/engine/EngineFixture.h"
#include "tests/service/network/rtp/SessionWorld.h"

namespace vexil {
namespace {

using test::kSecond;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using Command = SessionCommandKind;
using State = LinkPeerState::Kind;

const Bytes kNoteOn = {0x90, 60, 100};
const Bytes kNoteOff = {0x80, 60, 64};  // as the engine releases a note

struct NobodyToWake : EngineWaker {
    void Wake() override {}
};

class Computer : public TransportGate {
  public:
    Computer(MemoryWire& itsWire, std::uint8_t itsHost, const char* name)
        : wire(itsWire), host(itsHost), ring(std::size_t{1} << 20, waker) {
        engine.SetRemoteSink(&ring);
        Start(name);
    }
    void Start(const char* name) {
        rtp = std::make_unique<RtpTransport>(
            RtpTransport::Parts{engine, ring, *this,
                                [this](std::uint16_t port) -> std::unique_ptr<DatagramSocket> {
                                    if (port == takenPort) {
                                        return nullptr;
                                    }
                                    return std::make_unique<MemoryDatagramSocket>(
                                        wire, std::vector{NetworkAddress::V4({10, 0, 0, host}, port, 2)});
                                }},
            name);
    }
    std::uint64_t Now() const { return wire.Now() / 1000; }
    // A computer at a port of another one.
    void Reach(int as, std::uint8_t other, int port = 0, const char* name = "") {
        const auto number = static_cast<std::uint16_t>(kRtpPort + 2 * port);
        const LinkCandidate candidate{NetworkAddress::V4({10, 0, 0, other}, number), false};
        rtp->SetComputer(Now(), as, {name, {candidate}, {}, false});
    }
    void Route(int as, int source, int input = kSessionPort) {
        rtp->SetOffered(Now(), rtp->Offered() | std::uint64_t{1} << source % kMaxPorts);
        rtp->OpenWay(Now(), as, source, input);
        if (source < kTestSourceBase) {
            ways[static_cast<std::size_t>(source)] = {Destination::Remote(as, input, source), true};
            ASSERT_TRUE(engine.PostWays(ways));
        } else {
            ASSERT_TRUE(engine.PostWay(source, {Destination::Remote(as, input, source), true}));
        }
    }
    void Offer(std::uint64_t ports) { rtp->SetOffered(Now(), ports); }
    void Play(int source, const Bytes& bytes) {
        engine.TakeCommands(wire.Now());
        engine.Write(source, wire.Now(), bytes);
        Turn();
    }
    void Turn() {
        engine.TakeCommands(wire.Now());
        engine.TakeArrivals(0);
        engine.Run(wire.Now() + 1, heard);
        for (RemoteRing::Delivery delivery; ring.Take(delivery);) {
            rtp->Deliver(delivery);
        }
        rtp->SendDelivered(Now());
    }
    void Step() {
        rtp->Read(Now());
        rtp->HandleTimeout(Now());
        Turn();
    }
    LinkPeerState StateAt(std::size_t place) const {
        const std::vector<LinkPeerState> states = rtp->States();
        return place < states.size() ? states[place] : LinkPeerState();
    }
    bool MayCall(const NetworkAddress&) override { return mayCall; }
    WayVerdict JudgeWay(std::string_view name, const NetworkAddress&, int source, int input) override {
        judged = std::string(name) + " " + std::to_string(source) + " " + std::to_string(input);
        return verdict;
    }
    std::uint64_t Random() override { return ++random * 0x9E3779B97F4A7C15 + host; }

    MemoryWire& wire;
    const std::uint8_t host;
    NobodyToWake waker;
    Engine engine;
    RemoteRing ring;
    MemorySink heard;
    WayTable ways;
    WayVerdict verdict;
    bool mayCall = true;
    std::string judged;
    std::uint16_t takenPort = 0;
    std::unique_ptr<RtpTransport> rtp;

  private:
    std::uint64_t random = 7;
};

class RtpTransportTest : public ::testing::Test {
  protected:
    void Pass(std::uint64_t microseconds) {
        const std::uint64_t end = wire.Now() / 1000 + microseconds;
        for (;;) {
            std::uint64_t next = end;
            for (Computer* computer : {&laptop, &studio}) {
                computer->Step();
                next = std::min(next, computer->rtp->PollTimeout(computer->Now()).value_or(end));
            }
            const std::uint64_t now = wire.Now() / 1000;
            if (now >= end) {
                return;
            }
            // Peers by hand take theirs afterwards.
            if (const auto arrival = wire.NextArrival(); arrival && *arrival > wire.Now()) {
                next = std::min(next, *arrival / 1000);
            }
            wire.Advance((std::max(next, now + 1) - now) * 1000);
        }
    }
    // What the laptop's output of port 11 + 3 plays goes to the studio's port 11.
    void Connect() {
        studio.Offer(1);
        laptop.Reach(1, 2);
        laptop.Route(1, 3);
        Pass(kSecond / 10);
        ASSERT_EQ(laptop.StateAt(0).kind, State::Up);
    }
    // A peer by hand calls the studio's port 11.
    void CallStudio(test::PeerByHand& peer, const char* name = "iPad") {
        SessionCommand invitation;
        invitation.name = name;
        invitation.token = 1;
        peer.Say(RtpPort::Control, invitation);
        Pass(1000);
        peer.Say(RtpPort::Data, invitation);
        Pass(1000);
        peer.Step();
    }

    MemoryWire wire;
    Computer laptop{wire, 1, "laptop"};
    Computer studio{wire, 2, "studio"};
};

TEST_F(RtpTransportTest, RouteInvitesASessionAndIsHeardAtTheInputOfThePortThatWasCalled) {
    Connect();
    laptop.Play(3, kNoteOn);
    Pass(kSecond / 100);
    EXPECT_THAT(studio.heard.MessagesOf(0), ElementsAre(kNoteOn));
    EXPECT_EQ(studio.judged, "laptop 14 0 0");
    const LinkPeerState state = laptop.StateAt(0);
    EXPECT_TRUE(state.isSession);
    EXPECT_EQ(state.computer, 1);
    EXPECT_EQ(state.peerName, "studio 11");
    ASSERT_THAT(state.waysOut, SizeIs(1));
    EXPECT_TRUE(state.waysOut[0].answered);
    EXPECT_EQ(state.waysOut[0].problem, WayProblem::None);
}

TEST_F(RtpTransportTest, WhatThePeerPlaysBackIsHeardAtTheInputOfTheSamePort) {
    Connect();
    studio.Reach(1, 1, 3);
    studio.Route(1, 0);
    Pass(kSecond);
    studio.Play(0, kNoteOn);
    Pass(kSecond / 100);
    EXPECT_THAT(laptop.heard.MessagesOf(3), ElementsAre(kNoteOn));
    EXPECT_THAT(studio.rtp->States(), SizeIs(1));
    EXPECT_THAT(laptop.rtp->States(), SizeIs(1));
}

TEST_F(RtpTransportTest, OutputAndTestOutputOfAPortShareASession) {
    Connect();
    laptop.Route(1, kTestSourceBase + 3);
    ASSERT_TRUE(laptop.engine.PostTestBytes(3, kNoteOn));
    Pass(kSecond / 10);
    laptop.Play(3, kNoteOff);
    Pass(kSecond / 10);
    EXPECT_THAT(studio.heard.MessagesOf(0), ElementsAre(kNoteOn, kNoteOff));
    EXPECT_THAT(studio.rtp->States(), SizeIs(1));
}

TEST_F(RtpTransportTest, AnotherPortOfASessionIsRefusedHere) {
    studio.Offer(1);
    laptop.Reach(1, 2);
    laptop.Route(1, 3, 5);
    Pass(kSecond);
    const LinkPeerState state = laptop.StateAt(0);
    ASSERT_THAT(state.waysOut, SizeIs(1));
    EXPECT_TRUE(state.waysOut[0].answered);
    EXPECT_EQ(state.waysOut[0].problem, WayProblem::TargetPortUnused);
    EXPECT_EQ(WayProblemText(state.waysOut[0].problem, "iPad", 5, true), "\"iPad\" has one port, 11.");
    EXPECT_EQ(wire.Sent(), 0U);
}

TEST_F(RtpTransportTest, PortsThatAreOfferedNeitherSendNorWaitForATime) {
    studio.Offer(~std::uint64_t{0});
    Pass(60 * kSecond);
    EXPECT_EQ(wire.Sent(), 0U);
    EXPECT_EQ(studio.rtp->PollTimeout(studio.Now()), std::nullopt);
}

TEST_F(RtpTransportTest, PortWhoseSocketsCannotBeOpenedIsNotOffered) {
    studio.takenPort = kRtpPort + 5;
    EXPECT_FALSE(studio.rtp->SetOffered(studio.Now(), 7));
    EXPECT_EQ(studio.rtp->Offered(), 3U);
}

TEST_F(RtpTransportTest, EndOfTheLastWayEndsASessionThatThisComputerCalledAndReleasesItsNotes) {
    Connect();
    laptop.Play(3, kNoteOn);
    Pass(kSecond);
    laptop.rtp->EndWay(laptop.Now(), 1, 3, kSessionPort);
    Pass(kSecond / 10);
    EXPECT_THAT(studio.heard.MessagesOf(0), ElementsAre(kNoteOn, kNoteOff));
    EXPECT_THAT(studio.rtp->States(), IsEmpty());
    EXPECT_EQ(laptop.rtp->PollTimeout(laptop.Now()), std::nullopt);
    EXPECT_EQ(studio.rtp->PollTimeout(studio.Now()), std::nullopt);
}

TEST_F(RtpTransportTest, PortThatIsNoLongerOfferedSaysByeToItsSessions) {
    Connect();
    laptop.Play(3, kNoteOn);
    Pass(kSecond);
    laptop.Offer(0);
    Pass(kSecond / 10);
    EXPECT_THAT(studio.heard.MessagesOf(0), ElementsAre(kNoteOn, kNoteOff));
}

TEST_F(RtpTransportTest, PeerThatVanishesIsReleasedAndIsBackWithin2SecondsOfItsReturn) {
    Connect();
    laptop.Play(3, kNoteOn);
    Pass(kSecond);
    wire.conditions.cut = true;
    Pass(4 * kSecond);
    EXPECT_THAT(studio.heard.MessagesOf(0), ElementsAre(kNoteOn, kNoteOff));
    EXPECT_EQ(laptop.StateAt(0).kind, State::Lost);
    wire.conditions.cut = false;
    Pass(2 * kSecond);
    laptop.Play(3, kNoteOn);
    Pass(kSecond / 100);
    EXPECT_THAT(studio.heard.MessagesOf(0), ElementsAre(kNoteOn, kNoteOff, kNoteOn));
}

TEST_F(RtpTransportTest, SessionThatHasNotAnsweredIsSilentAndThenIsUp) {
    laptop.Reach(1, 2);
    laptop.Route(1, 3);
    Pass(kSecond / 10);
    EXPECT_EQ(laptop.StateAt(0).kind, State::Calling);
    EXPECT_FALSE(laptop.StateAt(0).silent);
    Pass(2 * kSecond);
    EXPECT_TRUE(laptop.StateAt(0).silent);
    studio.Offer(1);
    Pass(kSecond);
    EXPECT_EQ(laptop.StateAt(0).kind, State::Up);
}

TEST_F(RtpTransportTest, SessionIsCalledAtOneAddressAfterAnother) {
    studio.Offer(1);
    const LinkCandidate nobody{NetworkAddress::V4({10, 0, 0, 9}, kRtpPort), false};
    const LinkCandidate there{NetworkAddress::V4({10, 0, 0, 2}, kRtpPort), false};
    laptop.rtp->SetComputer(laptop.Now(), 1, {"", {nobody, there}, {}, false});
    laptop.Route(1, 3);
    Pass(kSecond + kSecond / 10);
    EXPECT_EQ(laptop.StateAt(0).kind, State::Up);
}

TEST_F(RtpTransportTest, LongExclusiveWaitsAndNothingOfItIsLost) {
    Connect();
    Bytes exclusive(100'000, 0x22);
    exclusive.front() = 0xF0;
    exclusive.back() = 0xF7;
    laptop.Play(3, exclusive);
    laptop.Play(3, kNoteOn);
    Pass(6 * kSecond);
    Bytes stream = studio.heard.StreamOf(0);
    exclusive.insert(exclusive.end(), kNoteOn.begin(), kNoteOn.end());
    EXPECT_EQ(stream.size(), exclusive.size());
    EXPECT_EQ(stream, exclusive);
}

TEST_F(RtpTransportTest, CallerIsHeardUnderItsNameAtThePortThatItCalled) {
    studio.Offer(1);
    test::PeerByHand peer(wire, 3, 2);
    CallStudio(peer);
    peer.SayList(1, kNoteOn);
    Pass(kSecond / 100);
    EXPECT_EQ(studio.judged, "iPad 0 0");
    EXPECT_THAT(studio.heard.MessagesOf(0), ElementsAre(kNoteOn));
    ASSERT_THAT(studio.rtp->States(), SizeIs(1));
    EXPECT_EQ(studio.StateAt(0).peerName, "iPad");
    EXPECT_EQ(studio.StateAt(0).computer, 0);
    ASSERT_THAT(studio.StateAt(0).waysIn, SizeIs(1));
}

TEST_F(RtpTransportTest, CallerWhoseNameIsUnfitIsCalledByItsAddress) {
    studio.Offer(1);
    test::PeerByHand peer(wire, 3, 2);
    CallStudio(peer, "\x01\xFF");
    EXPECT_EQ(studio.StateAt(0).peerName, "10.0.0.3");
}

TEST_F(RtpTransportTest, CallerThatTheInputDoesNotAdmitIsRefused) {
    studio.Offer(1);
    studio.verdict.problem = WayProblem::WrongSourceComputer;
    test::PeerByHand peer(wire, 3, 2);
    CallStudio(peer);
    ASSERT_THAT(peer.heard, SizeIs(1));
    EXPECT_EQ(peer.heard[0].command->kind, Command::Refused);
    EXPECT_EQ(peer.heard[0].command->token, 1U);
    EXPECT_THAT(studio.rtp->States(), IsEmpty());
}

TEST_F(RtpTransportTest, CallerFromAnAddressThatMayNotCallHearsNothing) {
    studio.Offer(1);
    studio.mayCall = false;
    test::PeerByHand peer(wire, 3, 2);
    CallStudio(peer);
    EXPECT_THAT(peer.heard, IsEmpty());
}

TEST_F(RtpTransportTest, CallerIsTakenLeaveOfWhenTheInputNoLongerAdmitsIt) {
    studio.Offer(1);
    test::PeerByHand peer(wire, 3, 2);
    CallStudio(peer);
    peer.SayList(1, kNoteOn);
    Pass(kSecond / 100);
    studio.verdict.problem = WayProblem::WrongSourceComputer;
    studio.rtp->JudgeWaysAgain(studio.Now());
    Pass(kSecond / 100);
    peer.Step();
    EXPECT_THAT(peer.Commands(Command::Bye), SizeIs(1));
    EXPECT_THAT(studio.heard.MessagesOf(0), ElementsAre(kNoteOn, kNoteOff));
}

TEST_F(RtpTransportTest, SessionThatIsWantedStaysWhenTheInputDoesNotAdmitIt) {
    laptop.verdict.problem = WayProblem::TargetNotInput;
    Connect();
    laptop.rtp->JudgeWaysAgain(laptop.Now());
    laptop.Play(3, kNoteOn);
    Pass(kSecond / 100);
    EXPECT_THAT(studio.heard.MessagesOf(0), ElementsAre(kNoteOn));
}

TEST_F(RtpTransportTest, RestartedPeerTakesThePlaceOfItsOldSessionAndNothingOfThatSoundsOn) {
    studio.Offer(1);
    test::PeerByHand peer(wire, 3, 2);
    CallStudio(peer);
    peer.SayList(1, kNoteOn);
    Pass(kSecond / 100);
    peer.ssrc = 0x7777;
    CallStudio(peer);
    EXPECT_THAT(studio.heard.MessagesOf(0), ElementsAre(kNoteOn, kNoteOff));
    EXPECT_THAT(studio.rtp->States(), SizeIs(1));
    peer.SayList(1, kNoteOn);
    Pass(kSecond / 100);
    EXPECT_THAT(studio.heard.MessagesOf(0), ElementsAre(kNoteOn, kNoteOff, kNoteOn));
}

TEST_F(RtpTransportTest, ByeOfAStrangerEndsNoSessionOfAnother) {
    studio.Offer(1);
    test::PeerByHand peer(wire, 3, 2);
    CallStudio(peer);
    test::PeerByHand stranger(wire, 4, 2);
    stranger.Say(RtpPort::Control, Command::Bye);
    stranger.ssrc = 0x1234;
    stranger.Say(RtpPort::Control, Command::Bye);
    peer.ssrc = 0x1234;
    peer.Say(RtpPort::Control, Command::Bye);
    Pass(kSecond);
    EXPECT_THAT(studio.rtp->States(), SizeIs(1));
}

TEST_F(RtpTransportTest, FloodOfInvitationsIsHeldToItsBoundsAndASessionLives) {
    Connect();
    test::PeerByHand flood(wire, 5, 2);
    for (std::uint32_t each = 1; each <= 200; ++each) {
        flood.ssrc = each;
        flood.Say(RtpPort::Control, Command::Invitation, each);
        Pass(1000);
        flood.Step();
    }
    // 50 a second are looked at; 16 of them may be half open at a time, the others are refused.
    EXPECT_THAT(flood.heard, SizeIs(50));
    EXPECT_THAT(flood.Commands(Command::Accepted), SizeIs(16));
    laptop.Play(3, kNoteOn);
    Pass(kSecond / 100);
    EXPECT_THAT(studio.heard.MessagesOf(0), ElementsAre(kNoteOn));
    Pass(12 * kSecond);
    EXPECT_THAT(studio.rtp->States(), SizeIs(1));
}

TEST_F(RtpTransportTest, NoMoreThan64SessionsAreTaken) {
    studio.Offer(1);
    std::vector<std::unique_ptr<test::PeerByHand>> callers;
    for (int each = 0; each < 70; ++each) {
        callers.push_back(std::make_unique<test::PeerByHand>(wire, 10 + each, 2));
        CallStudio(*callers.back());
    }
    EXPECT_THAT(studio.rtp->States(), SizeIs(64));
    EXPECT_THAT(callers.back()->Commands(Command::Refused), SizeIs(1));
}

TEST_F(RtpTransportTest, GarbageIsDroppedAndASessionLives) {
    Connect();
    test::SessionSockets garbage(wire, 6);
    for (std::size_t size = 1; size < 300; ++size) {
        const Bytes bytes(size, static_cast<std::uint8_t>(size));
        garbage.Send(2, RtpPort::Control, bytes);
        garbage.Send(2, RtpPort::Data, bytes);
    }
    Pass(kSecond);
    EXPECT_EQ(studio.rtp->Dropped(), 598U);
    EXPECT_EQ(studio.StateAt(0).kind, State::Up);
}

}  // namespace
}  // namespace vexil
