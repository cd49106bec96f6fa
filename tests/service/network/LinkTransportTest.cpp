// Computers with their engines on a wire in memory, in virtual time.
#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "service/network/LinkTexts.h"
#include "service/network/LinkTransport.h"
#include "tests/doubles/MemoryWire.h"
#include "tests/service/engine/EngineFixture.h"

namespace vexil {
namespace {

constexpr std::uint64_t kSecond = 1'000'000;

const LinkKey& KeyOf(std::size_t computer) {
    static const std::vector<LinkKey> kKeys = {LinkKey::Make().value(), LinkKey::Make().value(),
                                               LinkKey::Make().value()};
    return kKeys[computer];
}

NetworkAddress AddressOf(std::size_t computer) {
    return NetworkAddress::V4({10, 0, 0, static_cast<std::uint8_t>(computer + 1)}, kLinkPort, 2);
}

struct NobodyToWake : EngineWaker {
    void Wake() override {}
};

class Computer : public LinkTransport::Gate {
  public:
    Computer(MemoryWire& itsWire, std::size_t which, const char* itsName)
        : wire(itsWire), number(which), name(itsName), ring(std::size_t{1} << 20, waker) {
        engine.SetRemoteSink(&ring);
        Start();
    }
    void Start() {
        Stop();
        socket = std::make_unique<MemoryDatagramSocket>(wire, addresses);
        sealing = LinkSealing::Make(KeyOf(number));
        link = std::make_unique<LinkTransport>(LinkTransport::Parts{engine, ring, *socket, *sealing, *this},
                                               ComputerIdOf(KeyOf(number).Hash()), name);
    }
    void Stop() {
        link.reset();
        socket.reset();
    }
    std::uint64_t Now() const { return wire.Now() / 1000; }
    void Reach(int as, std::size_t other, const char* otherName = "") {
        link->SetComputer(Now(), as, {otherName, {{AddressOf(other), false}}, {}, false});
    }
    // From an output of this computer to an input of the other.
    void Route(int as, int source, int input) {
        link->OpenWay(Now(), as, source, input);
        ways[static_cast<std::size_t>(source)] = {Destination::Remote(as, input, source), true};
        ASSERT_TRUE(engine.PostWays(ways));
    }
    void Play(int source, const Bytes& bytes) {
        engine.TakeCommands(wire.Now());
        engine.Write(source, wire.Now(), bytes);
        Turn();
    }
    void Turn() {
        engine.TakeCommands(wire.Now());
        engine.TakeArrivals(0);
        engine.Run(wire.Now() + 1, heard);
        if (link) {
            for (RemoteRing::Delivery delivery; ring.Take(delivery);) {
                link->Deliver(delivery);
            }
            link->SendDelivered(Now());
        }
    }
    void Step() {
        Bytes datagram(kLongestDatagram);
        while (link) {
            const std::optional<ReceivedDatagram> received = socket->Receive(datagram);
            if (!received) {
                break;
            }
            const ByteView bytes = ByteView(datagram).first(received->size);
            const std::optional<PlainDatagram> plain = ReadPlainDatagram(bytes);
            if (plain && plain->kind == PlainKind::Query) {
                Answer(*received, plain->nonce);
            } else {
                link->HandleDatagram(Now(), *received, bytes);
            }
        }
        if (link) {
            link->HandleTimeout(Now());
        }
        Turn();
    }
    void Answer(const ReceivedDatagram& received, const Nonce& nonce) {
        ComputerAnswer answer;
        answer.id = ComputerIdOf(KeyOf(number).Hash());
        answer.port = kLinkPort;
        answer.name = name;
        Bytes out(kQuerySize);
        out.resize(WriteAnswer(nonce, answer, out));
        socket->Send(received.from, received.own, out);
    }
    LinkPeerState State(std::size_t place = 0) const {
        const std::vector<LinkPeerState> states = link->States();
        return place < states.size() ? states[place] : LinkPeerState();
    }

    bool MayCall(const NetworkAddress&) override { return mayCall; }
    Refusal Judge(const KeyHash&, std::string_view peerName) override {
        return peerName == refusedName ? Refusal::OtherKey : Refusal::None;
    }
    WayVerdict JudgeWay(std::string_view, const NetworkAddress&, int, int) override { return verdict; }
    std::uint64_t Random() override { return ++random * 0x9E3779B97F4A7C15 + number; }

    MemoryWire& wire;
    std::size_t number;
    std::string name;
    std::vector<NetworkAddress> addresses = {AddressOf(number)};  // it sends from the first unless it answers
    NobodyToWake waker;
    Engine engine;
    RemoteRing ring;
    MemorySink heard;
    WayTable ways;
    WayVerdict verdict;
    bool mayCall = true;
    std::string refusedName = "nobody";
    std::unique_ptr<MemoryDatagramSocket> socket;
    std::unique_ptr<LinkSealing> sealing;
    std::unique_ptr<LinkTransport> link;

  private:
    std::uint64_t random = 7;
};

class LinkTransportTest : public ::testing::Test {
  protected:
    void Pass(std::uint64_t microseconds) {
        for (const std::uint64_t end = wire.Now() / 1000 + microseconds; wire.Now() / 1000 < end;) {
            for (Computer* computer : {&laptop, &studio, &stage}) {
                computer->Step();
            }
            wire.Advance(std::min<std::uint64_t>(step, (end - wire.Now() / 1000)) * 1000);
        }
        for (Computer* computer : {&laptop, &studio, &stage}) {
            computer->Step();
        }
    }
    bool PassUntil(std::uint64_t longest, const std::function<bool()>& holds) {
        for (std::uint64_t passed = 0; passed < longest && !holds(); passed += 10'000) {
            Pass(10'000);
        }
        return holds();
    }
    bool Connect() {
        laptop.Reach(1, 1);
        laptop.Route(1, 3, 7);
        return PassUntil(kSecond, [&] {
            const LinkPeerState state = laptop.State();
            return state.kind == LinkPeerState::Kind::Up && !state.waysOut.empty() &&
                   state.waysOut[0].answered;
        });
    }

    MemoryWire wire;
    Computer laptop{wire, 0, "laptop"};
    Computer studio{wire, 1, "studio"};
    Computer stage{wire, 2, "stage"};
    std::uint64_t step = 500;  // microseconds
};

TEST_F(LinkTransportTest, ANoteOfOneComputerIsHeardOnTheOther) {
    ASSERT_TRUE(Connect());
    EXPECT_EQ(laptop.State().peerName, "studio");
    laptop.Play(3, {0x90, 60, 100});
    Pass(5'000);
    EXPECT_THAT(studio.heard.MessagesOf(7), ::testing::ElementsAre(Bytes{0x90, 60, 100}));
    EXPECT_EQ(studio.link->States().size(), 1U);
    EXPECT_EQ(studio.State().waysIn.size(), 1U);
}

TEST_F(LinkTransportTest, WhatComesByABufferedInterfaceIsPlayedAWhileLaterAndInOrder) {
    ASSERT_TRUE(Connect());
    studio.link->SetBuffered({9});
    laptop.Play(3, {0x90, 60, 100});
    Pass(1'000);
    EXPECT_EQ(studio.heard.MessagesOf(7).size(), 1U) << "it came by another one";
    studio.link->SetBuffered({2});
    laptop.Play(3, {0x80, 60, 100});
    Pass(1'000);
    EXPECT_EQ(studio.heard.MessagesOf(7).size(), 1U);
    Pass(2'000);
    EXPECT_EQ(studio.heard.MessagesOf(7).size(), 2U);
    // What sounds is released behind what still waits.
    laptop.Play(3, {0x90, 62, 100});
    Pass(500);
    studio.verdict.problem = WayProblem::TargetNotInput;
    studio.link->JudgeWaysAgain(studio.Now());
    Pass(5'000);
    EXPECT_THAT(studio.heard.MessagesOf(7),
                ::testing::ElementsAre(Bytes{0x90, 60, 100}, Bytes{0x80, 60, 100}, Bytes{0x90, 62, 100},
                                       Bytes{0x80, 62, 64}));
}

TEST_F(LinkTransportTest, WhereFullDatagramsAreTooLongSmallOnesCarryTheSame) {
    wire.conditions.longest = kSmallDatagram;
    ASSERT_TRUE(Connect());
    Bytes dump(20'000, 0x11);
    dump.front() = 0xF0;
    dump.back() = 0xF7;
    laptop.Play(3, dump);
    for (int note = 0; note < 100; ++note) {
        laptop.Play(3, {0x90, static_cast<std::uint8_t>(note), 100});
    }
    ASSERT_TRUE(PassUntil(5 * kSecond, [&] { return studio.heard.StreamOf(7).size() == 20'000 + 300; }))
        << studio.heard.StreamOf(7).size();
    const Bytes heard = studio.heard.StreamOf(7);
    EXPECT_EQ(Bytes(heard.begin(), heard.begin() + 20'000), dump);
    EXPECT_EQ(laptop.State().counters.lost, 0U);
}

TEST_F(LinkTransportTest, WhereFullDatagramsVanishSmallOnesCarryTheSame) {
    ASSERT_TRUE(Connect());
    wire.conditions.longestThrough = kSmallDatagram;
    Bytes dump(20'000, 0x11);
    dump.front() = 0xF0;
    dump.back() = 0xF7;
    std::vector<std::uint64_t> repeated = {laptop.State().counters.repeated};
    for (std::size_t count = 1; count <= 6; ++count) {
        laptop.Play(3, dump);
        ASSERT_TRUE(PassUntil(kSecond, [&] { return studio.heard.StreamOf(7).size() == count * 20'000; }));
        const Bytes heard = studio.heard.StreamOf(7);
        EXPECT_EQ(Bytes(heard.end() - 20'000, heard.end()), dump);
        repeated.push_back(laptop.State().counters.repeated);
    }
    EXPECT_EQ(laptop.State().kind, LinkPeerState::Kind::Up);
    EXPECT_EQ(laptop.State().counters.lost, 0U);
    // First all had to go again; in the end it is known that full ones vanish, and nothing has to.
    EXPECT_GE(repeated[1] - repeated[0], 42U);
    EXPECT_EQ(repeated[6] - repeated[5], 0U) << ::testing::PrintToString(repeated);
}

TEST_F(LinkTransportTest, FiveFullDatagramsThatAreLostInARowAreRepaired) {
    ASSERT_TRUE(Connect());
    Pass(100'000);
    Bytes dump(5'000, 0x11);
    dump.front() = 0xF0;
    dump.back() = 0xF7;
    wire.conditions.cut = true;
    const std::uint64_t before = wire.Sent();
    laptop.Play(3, dump);
    ASSERT_GE(wire.Sent() - before, 5U);
    wire.conditions.cut = false;
    laptop.Play(3, {0x90, 60, 100});
    Pass(10'000);
    const Bytes heard = studio.heard.StreamOf(7);
    ASSERT_EQ(heard.size(), 5'003U);
    EXPECT_EQ(Bytes(heard.begin(), heard.begin() + 5'000), dump);
}

TEST_F(LinkTransportTest, ByABufferedInterfaceWhatWasLostGoesAgainSooner) {
    ASSERT_TRUE(Connect());
    const auto repairTime = [&] {
        step = 100;
        Pass(100'000);
        const std::uint64_t repeated = laptop.State().counters.repeated;
        wire.conditions.cut = true;
        laptop.Play(3, {0x90, 60, 100});
        wire.conditions.cut = false;
        const std::uint64_t begin = wire.Now();
        while (laptop.State().counters.repeated == repeated && wire.Now() < begin + 50'000'000) {
            Pass(100);
        }
        return (wire.Now() - begin) / 1000;
    };
    EXPECT_GE(repairTime(), 2'000U);
    laptop.link->SetBuffered({2});
    Pass(2 * kSecond);
    EXPECT_LE(repairTime(), 1'300U);
}

TEST_F(LinkTransportTest, TwoNamesOfOneComputerDoNotEndEachOthersAssociation) {
    ASSERT_TRUE(Connect());
    laptop.Reach(2, 1);
    laptop.Route(2, 4, 8);
    Pass(3 * kSecond);
    EXPECT_EQ(laptop.link->UpCount(), 1U);
    EXPECT_EQ(laptop.State(0).kind, LinkPeerState::Kind::Up);
    EXPECT_EQ(laptop.State(1).answered, ComputerIdOf(KeyOf(1).Hash()));
}

TEST_F(LinkTransportTest, AComputerWithTheKeyOfThisOneIsRefused) {
    laptop.Reach(1, 0);
    laptop.Route(1, 3, 7);
    Pass(kSecond);
    EXPECT_EQ(laptop.State().kind, LinkPeerState::Kind::Refused);
    EXPECT_EQ(laptop.State().refusal, Refusal::SameKey);
    EXPECT_EQ(laptop.link->UpCount(), 0U);
}

TEST_F(LinkTransportTest, NobodyIsCalledAndNothingIsSentWhileNothingIsWanted) {
    laptop.Reach(1, 1);
    Pass(5 * kSecond);
    EXPECT_EQ(wire.Sent(), 0U);
    EXPECT_EQ(laptop.link->PollTimeout(laptop.Now()), std::nullopt);
    EXPECT_EQ(laptop.State().kind, LinkPeerState::Kind::Searching);
}

TEST_F(LinkTransportTest, BothDirectionsUseOneAssociation) {
    studio.Reach(5, 0, "laptop");
    studio.Route(5, 9, 2);
    ASSERT_TRUE(Connect());
    ASSERT_TRUE(PassUntil(kSecond, [&] { return studio.State().kind == LinkPeerState::Kind::Up; }));
    Pass(3 * kSecond);
    EXPECT_EQ(laptop.link->UpCount(), 1U);
    EXPECT_EQ(studio.link->UpCount(), 1U);
    studio.Play(9, {0xC0, 5});
    laptop.Play(3, {0xC0, 6});
    Pass(5'000);
    EXPECT_THAT(laptop.heard.MessagesOf(2), ::testing::ElementsAre(Bytes{0xC0, 5}));
    EXPECT_THAT(studio.heard.MessagesOf(7), ::testing::ElementsAre(Bytes{0xC0, 6}));
}

TEST_F(LinkTransportTest, CallsThatCrossOverTwoAddressesEndWithOneAssociation) {
    const NetworkAddress laptopElsewhere = NetworkAddress::V4({10, 0, 1, 1}, kLinkPort, 2);
    const NetworkAddress studioElsewhere = NetworkAddress::V4({10, 0, 1, 2}, kLinkPort, 2);
    laptop.addresses = {AddressOf(0), laptopElsewhere};
    studio.addresses = {studioElsewhere, AddressOf(1)};
    for (int run = 0; run < 20; ++run) {
        laptop.Start();
        studio.Start();
        laptop.Reach(1, 1, "studio");
        laptop.Route(1, 3, 7);
        studio.link->SetComputer(studio.Now(), 5, {"laptop", {{laptopElsewhere, false}}, {}, false});
        studio.Route(5, 9, 2);
        const auto isHeard = [](const Computer& computer) {
            const LinkPeerState state = computer.State();
            return state.kind == LinkPeerState::Kind::Up && state.waysOut[0].answered;
        };
        ASSERT_TRUE(PassUntil(kSecond, [&] { return isHeard(laptop) && isHeard(studio); })) << run;
        Pass(kSecond / 10);
        EXPECT_TRUE(isHeard(laptop) && isHeard(studio)) << run;
        EXPECT_EQ(laptop.link->UpCount(), 1U);
        EXPECT_EQ(studio.link->UpCount(), 1U);
    }
}

TEST_F(LinkTransportTest, ACallThatCameByAnotherNameServesWhoeverAsksForItsNameLater) {
    ASSERT_TRUE(Connect());
    studio.link->SetComputer(studio.Now(), 2, {"LAPTOP.local", {}, {}, false});
    studio.Route(2, 9, 2);
    Pass(20'000);
    EXPECT_EQ(studio.State().kind, LinkPeerState::Kind::Up);
    EXPECT_EQ(studio.link->UpCount(), 1U);
    studio.Play(9, {0xC0, 5});
    Pass(5'000);
    EXPECT_THAT(laptop.heard.MessagesOf(2), ::testing::ElementsAre(Bytes{0xC0, 5}));
}

TEST_F(LinkTransportTest, APeerThatVanishesIsReleasedAfterTwoSecondsAndCalledAgainWhenItIsBack) {
    ASSERT_TRUE(Connect());
    laptop.Play(3, {0x90, 60, 100});
    Pass(5'000);
    laptop.Stop();
    Pass(1'900'000);
    EXPECT_EQ(studio.heard.MessagesOf(7).size(), 1U);
    Pass(400'000);
    EXPECT_THAT(studio.heard.MessagesOf(7),
                ::testing::ElementsAre(Bytes{0x90, 60, 100}, Bytes{0x80, 60, 64}));
    EXPECT_EQ(studio.link->UpCount(), 0U);
    laptop.Start();
    ASSERT_TRUE(Connect());
    laptop.Play(3, {0x90, 62, 100});
    Pass(5'000);
    EXPECT_EQ(studio.heard.MessagesOf(7).back(), (Bytes{0x90, 62, 100}));
}

TEST_F(LinkTransportTest, TheCallerFindsAPeerThatWasStartedAgain) {
    ASSERT_TRUE(Connect());
    studio.Stop();
    Pass(5 * kSecond);
    EXPECT_EQ(laptop.State().kind, LinkPeerState::Kind::Lost);
    studio.Start();
    EXPECT_TRUE(PassUntil(2 * kSecond, [&] { return laptop.State().kind == LinkPeerState::Kind::Up; }));
    Pass(20'000);
    laptop.Play(3, {0x90, 62, 100});
    Pass(5'000);
    EXPECT_EQ(studio.heard.MessagesOf(7).back(), (Bytes{0x90, 62, 100}));
}

TEST_F(LinkTransportTest, WhereTheNetworkCarriesOneWayOnlyBothSayWhichWithinThreeSecondsAndAreUpAfterwards) {
    laptop.Reach(1, 1);
    laptop.Route(1, 3, 7);
    studio.Reach(1, 0);
    studio.Route(1, 3, 7);
    const auto areUp = [&] {
        return laptop.State().kind == LinkPeerState::Kind::Up &&
               studio.State().kind == LinkPeerState::Kind::Up;
    };
    ASSERT_TRUE(PassUntil(kSecond, areUp));
    for (const Computer* deaf : {&laptop, &studio}) {
        Pass(kSecond);
        wire.conditions.deaf = deaf->addresses.front();
        Pass(3 * kSecond);
        const Computer& heardNoMore = deaf == &laptop ? studio : laptop;
        EXPECT_EQ(deaf->State().kind, LinkPeerState::Kind::Lost);
        EXPECT_EQ(ConnectionProblemText(deaf->State(), heardNoMore.name),
                  "The computer \"" + heardNoMore.name + "\" is no longer heard.");
        EXPECT_EQ(heardNoMore.State().kind, LinkPeerState::Kind::Unheard);
        EXPECT_EQ(ConnectionProblemText(heardNoMore.State(), deaf->name),
                  "The computer \"" + deaf->name + "\" no longer hears this one.");
        EXPECT_STREQ(StateText(heardNoMore.State().kind), "lost");
        wire.conditions.deaf = NetworkAddress();
        EXPECT_TRUE(PassUntil(3 * kSecond, areUp));
    }
}

TEST_F(LinkTransportTest, AByeReleasesAtOnce) {
    ASSERT_TRUE(Connect());
    laptop.Play(3, {0x90, 60, 100});
    Pass(5'000);
    laptop.link->SayBye(laptop.Now());
    Pass(50'000);
    EXPECT_EQ(studio.heard.MessagesOf(7).back(), (Bytes{0x80, 60, 64}));
    EXPECT_EQ(studio.link->UpCount(), 0U);
}

TEST_F(LinkTransportTest, AWayThatIsRefusedIsToldAndWhenItIsAdmittedLaterItIsHeard) {
    studio.verdict.problem = WayProblem::WrongSourcePort;
    ASSERT_TRUE(Connect());
    EXPECT_EQ(laptop.State().waysOut[0].problem, WayProblem::WrongSourcePort);
    laptop.Play(3, {0x90, 60, 100});
    Pass(5'000);
    EXPECT_TRUE(studio.heard.MessagesOf(7).empty());
    studio.verdict.problem = WayProblem::None;
    studio.link->JudgeWaysAgain(studio.Now());
    Pass(20'000);
    EXPECT_EQ(laptop.State().waysOut[0].problem, WayProblem::None);
    laptop.Play(3, {0x90, 62, 100});
    Pass(5'000);
    EXPECT_THAT(studio.heard.MessagesOf(7), ::testing::ElementsAre(Bytes{0x90, 62, 100}));
    // And the other way round: what sounds is released.
    studio.verdict.problem = WayProblem::TargetNotInput;
    studio.link->JudgeWaysAgain(studio.Now());
    Pass(20'000);
    EXPECT_EQ(laptop.State().waysOut[0].problem, WayProblem::TargetNotInput);
    EXPECT_EQ(studio.heard.MessagesOf(7).back(), (Bytes{0x80, 62, 64}));
}

TEST_F(LinkTransportTest, AnInputThatNobodyCanHearYetLeavesMessagesOut) {
    studio.verdict.isHeard = false;
    ASSERT_TRUE(Connect());
    laptop.Play(3, {0x90, 60, 100});
    Pass(5'000);
    EXPECT_TRUE(studio.heard.MessagesOf(7).empty());
    studio.verdict.isHeard = true;
    studio.link->JudgeWaysAgain(studio.Now());
    laptop.Play(3, {0x90, 62, 100});
    Pass(5'000);
    EXPECT_THAT(studio.heard.MessagesOf(7), ::testing::ElementsAre(Bytes{0x90, 62, 100}));
}

TEST_F(LinkTransportTest, AnAddressThatMayNotCallIsNotAnswered) {
    studio.mayCall = false;
    laptop.Reach(1, 1);
    laptop.Route(1, 3, 7);
    Pass(4 * kSecond);
    EXPECT_EQ(laptop.State().kind, LinkPeerState::Kind::Calling);
    EXPECT_EQ(studio.link->UpCount(), 0U);
}

TEST_F(LinkTransportTest, ANameThatIsNotLetInIsToldWhy) {
    studio.refusedName = "laptop";
    laptop.Reach(1, 1);
    laptop.Route(1, 3, 7);
    ASSERT_TRUE(PassUntil(2 * kSecond, [&] { return laptop.State().kind == LinkPeerState::Kind::Refused; }));
    EXPECT_EQ(laptop.State().refusal, Refusal::OtherKey);
    EXPECT_TRUE(laptop.State().refusedThere);
    EXPECT_EQ(studio.link->UpCount(), 0U);
}

TEST_F(LinkTransportTest, WhoWasRefusedCallsAgainWhenThatComputerAnnouncesItself) {
    studio.refusedName = "laptop";
    laptop.Reach(1, 1);
    laptop.Route(1, 3, 7);
    ASSERT_TRUE(PassUntil(2 * kSecond, [&] { return laptop.State().kind == LinkPeerState::Kind::Refused; }));
    studio.refusedName = "nobody";
    laptop.link->CallSoonAt(laptop.Now(), AddressOf(2));
    Pass(kSecond);
    EXPECT_EQ(laptop.State().kind, LinkPeerState::Kind::Refused) << "that was another one";
    laptop.link->CallSoonAt(laptop.Now(), AddressOf(1));
    EXPECT_TRUE(PassUntil(kSecond, [&] { return laptop.State().kind == LinkPeerState::Kind::Up; }));
}

TEST_F(LinkTransportTest, OneWithAnotherKeyThanThePinnedIsPassedOver) {
    laptop.link->SetComputer(
        laptop.Now(), 1,
        {"studio", {{AddressOf(1), false}, {AddressOf(2), false}}, {KeyOf(2).Hash()}, false});
    laptop.Route(1, 3, 7);
    ASSERT_TRUE(PassUntil(kSecond, [&] { return laptop.State().kind == LinkPeerState::Kind::Up; }));
    EXPECT_EQ(laptop.State().peerName, "stage");
    laptop.link->SetComputer(laptop.Now(), 2, {"other", {{AddressOf(1), false}}, {KeyOf(2).Hash()}, false});
    laptop.Route(2, 4, 7);
    Pass(100'000);
    EXPECT_EQ(laptop.State(1).kind, LinkPeerState::Kind::Refused);
    EXPECT_EQ(laptop.State(1).refusal, Refusal::OtherKey);
    EXPECT_FALSE(laptop.State(1).refusedThere);
}

TEST_F(LinkTransportTest, ASecretIsProvedByBothOrTheReasonIsTold) {
    const auto secret = StretchSecret("correct horse");
    studio.link->SetSecret(secret);
    laptop.Reach(1, 1);
    laptop.Route(1, 3, 7);
    ASSERT_TRUE(PassUntil(2 * kSecond, [&] { return laptop.State().kind == LinkPeerState::Kind::Refused; }));
    EXPECT_EQ(laptop.State().refusal, Refusal::SecretNeeded);
    laptop.link->SetSecret(secret);
    laptop.link->CallSoon(laptop.Now(), 1);
    EXPECT_TRUE(PassUntil(5 * kSecond, [&] { return laptop.State().kind == LinkPeerState::Kind::Up; }));
}

TEST_F(LinkTransportTest, ALongSystemExclusiveArrivesWholeBesideNotesOfOthersAlsoWithLosses) {
    // OpenSSL sends lost parts of a handshake again by the clock of the system.
    ASSERT_TRUE(Connect());
    wire.conditions.loss = 0.05;
    laptop.Route(1, 4, 8);
    Bytes exclusive(200'000, 5);
    exclusive.front() = 0xF0;
    exclusive.back() = 0xF7;
    laptop.Play(3, exclusive);
    for (int note = 0; note < 50; ++note) {
        Pass(2'000);
        laptop.Play(4, {0x90, static_cast<std::uint8_t>(note), 1});
    }
    ASSERT_TRUE(PassUntil(20 * kSecond, [&] { return studio.heard.StreamOf(7).size() == exclusive.size(); }));
    EXPECT_EQ(studio.heard.StreamOf(7), exclusive);
    EXPECT_TRUE(PassUntil(kSecond, [&] { return studio.heard.MessagesOf(8).size() == 50; }));
}

TEST_F(LinkTransportTest, AReaderThatTakesNothingHoldsOnlyItsOwnWay) {
    ASSERT_TRUE(Connect());
    laptop.Route(1, 4, 8);
    studio.heard.Refill(1000);
    Bytes exclusive(300'000, 5);
    exclusive.front() = 0xF0;
    exclusive.back() = 0xF7;
    laptop.Play(3, exclusive);
    Pass(300'000);
    EXPECT_LE(studio.heard.StreamOf(7).size(), 1000U);
    laptop.Play(4, {0x90, 60, 1});
    Pass(5'000);
    EXPECT_THAT(studio.heard.MessagesOf(8), ::testing::ElementsAre(Bytes{0x90, 60, 1}));
    studio.heard.Refill(1'000'000);
    ASSERT_TRUE(PassUntil(5 * kSecond, [&] { return studio.heard.StreamOf(7).size() == exclusive.size(); }));
    EXPECT_EQ(studio.heard.StreamOf(7), exclusive);
}

TEST_F(LinkTransportTest, AMegabyteToAReaderThatTakesNothingOrLittleDelaysOtherWaysByLessThanAMillisecond) {
    ASSERT_TRUE(Connect());
    laptop.Route(1, 4, 8);
    Pass(100'000);
    // From the playing of a note to its hearing, of 99 of 100.
    const auto latest = [&](std::size_t readerTakes) {
        std::vector<std::uint64_t> times;
        for (std::size_t note = 0; note < 200; ++note) {
            studio.heard.Refill(7, readerTakes);
            const std::uint64_t played = wire.Now();
            const std::size_t before = studio.heard.heard[8].size();
            laptop.Play(4, {0x90, 60, 1});
            while (studio.heard.heard[8].size() == before && wire.Now() < played + 1'000'000'000) {
                Pass(step);
            }
            times.push_back((wire.Now() - played) / 1000);
            Pass(3'000 + note % 4 * 250);
        }
        std::sort(times.begin(), times.end());
        return times[times.size() * 99 / 100];
    };
    step = 250;
    const std::uint64_t alone = latest(0);
    ASSERT_LE(alone, 5'000U);
    Bytes exclusive(std::size_t{1} << 20, 5);
    exclusive.front() = 0xF0;
    exclusive.back() = 0xF7;
    laptop.Play(3, exclusive);
    EXPECT_LE(latest(0), alone + 1'000);
    EXPECT_TRUE(studio.heard.heard[7].empty());
    EXPECT_LE(latest(100), alone + 1'000);
    EXPECT_FALSE(studio.heard.heard[7].empty());
    EXPECT_EQ(laptop.State().counters.lost, 0U);
}

TEST_F(LinkTransportTest, AnEngineThatStandsStillCutsTheWayAndReleasesWhatSounds) {
    ASSERT_TRUE(Connect());
    laptop.Play(3, {0x90, 60, 100});
    Pass(5'000);
    // The engine of the studio takes nothing for a while.
    const auto source = studio.engine.TakeSource(Way{}, 1);
    ASSERT_TRUE(source);
    while (studio.engine.PostArrival({Arrival::Kind::Message, *source, 1}, Bytes{0x90, 1, 1})) {
    }
    laptop.Play(3, {0x90, 61, 100});
    wire.Advance(1'000'000);
    Bytes datagram(kLongestDatagram);
    while (const auto received = studio.socket->Receive(datagram)) {
        studio.link->HandleDatagram(studio.Now(), *received, ByteView(datagram).first(received->size));
    }
    EXPECT_TRUE(studio.link->PollTimeout(studio.Now()).has_value());
    Pass(20'000);
    EXPECT_EQ(studio.heard.MessagesOf(7).back(), (Bytes{0x80, 60, 64}));
    laptop.Play(3, {0x90, 62, 100});
    Pass(5'000);
    EXPECT_EQ(studio.heard.MessagesOf(7).back(), (Bytes{0x90, 62, 100}));
}

TEST_F(LinkTransportTest, AComputerThatIsNoLongerWantedGetsAByeAfterHalfAMinute) {
    ASSERT_TRUE(Connect());
    laptop.link->EndWay(laptop.Now(), 1, 3, 7);
    laptop.link->RemoveComputer(laptop.Now(), 1);
    step = 20'000;
    Pass(29 * kSecond);
    EXPECT_EQ(laptop.link->UpCount(), 1U);
    Pass(2 * kSecond);
    EXPECT_EQ(laptop.link->UpCount(), 0U);
    EXPECT_EQ(studio.link->UpCount(), 0U);
    Pass(6 * kSecond);
    EXPECT_TRUE(laptop.link->States().empty());
    EXPECT_TRUE(studio.link->States().empty());
    EXPECT_EQ(studio.link->PollTimeout(studio.Now()), std::nullopt);
}

TEST_F(LinkTransportTest, AByWireWithoutAnswerIsFollowedByWireless) {
    laptop.link->SetComputer(laptop.Now(), 1,
                             {"studio", {{AddressOf(1).WithPort(9), false}, {AddressOf(1), true}}, {}, true});
    laptop.Step();
    EXPECT_EQ(wire.Sent(), 1U);
    EXPECT_TRUE(PassUntil(kSecond, [&] { return laptop.State().kind == LinkPeerState::Kind::Up; }));
}

TEST_F(LinkTransportTest, GarbageIsDroppedAndCounted) {
    ASSERT_TRUE(Connect());
    const std::uint64_t before = studio.link->Dropped();
    stage.socket->Send(AddressOf(1), {}, Bytes{0x17, 1, 2, 3});
    stage.socket->Send(AddressOf(1), {}, Bytes{0xFF});
    Pass(5'000);
    EXPECT_EQ(studio.link->Dropped(), before + 2);
    laptop.Play(3, {0x90, 60, 100});
    Pass(5'000);
    EXPECT_EQ(studio.heard.MessagesOf(7).size(), 1U);
}

}  // namespace
}  // namespace vexil
