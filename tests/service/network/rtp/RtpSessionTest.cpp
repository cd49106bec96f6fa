// Sessions that face each other, and peers that behave in the ways that are known of them.
#include "service/network/rtp/RtpSession.h"

#include <gmock/gmock.h>

#include <map>
#include <random>
#include <set>

#include "tests/service/network/rtp/SessionWorld.h"

namespace vexil {
namespace {

using test::Bytes;
using test::kSecond;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using Kind = SessionCommandKind;
using EventKind = RtpEvent::Kind;

const Bytes kNoteOn = {0x90, 60, 100};
const Bytes kNoteOff = {0x80, 60, 0};

Bytes Exclusive(std::size_t size) {
    Bytes bytes(size, 0x11);
    bytes.front() = 0xF0;
    bytes.back() = 0xF7;
    for (std::size_t place = 1; place + 1 < size; ++place) {
        bytes[place] = static_cast<std::uint8_t>(place % 128);
    }
    return bytes;
}

class RtpSessionPair : public ::testing::Test {
  protected:
    void Pass(std::uint64_t microseconds) { test::Pass(wire, microseconds, here, there); }

    MemoryWire wire;
    test::SessionEnd here{wire, 1, 2};
    test::SessionEnd there{wire, 2, 1};
};

TEST_F(RtpSessionPair, OneThatIsCalledComesUpOnBothSides) {
    here.Want();
    Pass(kSecond / 10);
    EXPECT_THAT(here.events, ElementsAre(EventKind::Up));
    EXPECT_THAT(there.events, ElementsAre(EventKind::Up));
    EXPECT_EQ(here.session.PeerName(), "HOST 11");
    EXPECT_EQ(there.session.PeerSsrc(), here.session.OwnSsrc());
}

TEST_F(RtpSessionPair, NotesGoBothWays) {
    here.Want();
    Pass(kSecond / 10);
    EXPECT_EQ(here.Play(kNoteOn), RtpTaken::Taken);
    EXPECT_EQ(there.Play(kNoteOff), RtpTaken::Taken);
    Pass(kSecond / 100);
    EXPECT_THAT(there.heard, ElementsAre(kNoteOn));
    EXPECT_THAT(here.heard, ElementsAre(kNoteOff));
}

TEST_F(RtpSessionPair, CallsThatCrossEndInOneSession) {
    here.Want();
    there.Want();
    Pass(5 * kSecond);
    EXPECT_THAT(here.events, ElementsAre(EventKind::Up));
    EXPECT_THAT(there.events, ElementsAre(EventKind::Up));
    EXPECT_EQ(there.session.PeerSsrc(), here.session.OwnSsrc());
    EXPECT_EQ(here.session.PeerSsrc(), there.session.OwnSsrc());
}

TEST_F(RtpSessionPair, NothingIsSentAndNoTimeIsWaitedForWithoutAnyWish) {
    Pass(60 * kSecond);
    EXPECT_EQ(here.session.PollTimeout(here.Now()), std::nullopt);
    EXPECT_EQ(wire.Sent(), 0U);
}

TEST_F(RtpSessionPair, ByeEndsItOnBothSidesAndThenNobodyWaits) {
    here.Want();
    Pass(kSecond);
    here.session.SayBye(here.Now());
    Pass(kSecond);
    EXPECT_THAT(here.events, ElementsAre(EventKind::Up, EventKind::Ended));
    EXPECT_THAT(there.events, ElementsAre(EventKind::Up, EventKind::Ended));
    EXPECT_EQ(here.session.PollTimeout(here.Now()), std::nullopt);
    EXPECT_EQ(there.session.PollTimeout(there.Now()), std::nullopt);
}

TEST_F(RtpSessionPair, ExclusivesOfAllSizesArrive) {
    here.Want();
    Pass(kSecond);
    for (const std::size_t size : {std::size_t{2}, std::size_t{3}, std::size_t{512}, std::size_t{513},
                                   std::size_t{992}, std::size_t{993}, std::size_t{4096}}) {
        there.heard.clear();
        ASSERT_TRUE(here.PlayExclusive(Exclusive(size)));
        Pass(kSecond);
        EXPECT_THAT(there.heard, ElementsAre(Exclusive(size))) << size;
    }
}

TEST_F(RtpSessionPair, ExclusivesLeaveAt20000BytesASecond) {
    here.Want();
    Pass(kSecond);
    const std::uint64_t begin = here.Now();
    ASSERT_TRUE(here.PlayExclusive(Exclusive(20'000)));
    here.Play(kNoteOn);
    while (there.heard.size() < 2 && here.Now() < begin + 5 * kSecond) {
        Pass(kSecond / 100);
    }
    EXPECT_NEAR(static_cast<double>(here.Now() - begin), 1.0 * kSecond, 0.05 * kSecond);
}

TEST_F(RtpSessionPair, RealtimePassesAnExclusiveThatWaits) {
    here.Want();
    Pass(kSecond);
    ASSERT_TRUE(here.PlayExclusive(Exclusive(4096)));
    Pass(1000);
    here.Play({0xF8}, 1);
    there.heard.clear();
    Pass(1000);
    EXPECT_THAT(there.heard, ::testing::Contains(Bytes{0xF8}));
}

TEST_F(RtpSessionPair, AnotherSourceWaitsForTheEndOfAnExclusive) {
    here.Want();
    Pass(kSecond);
    MidiPiece piece;
    const Bytes begin = {0xF0, 1, 2};
    piece.bytes = begin;
    piece.systemExclusive = true;
    piece.last = false;
    ASSERT_EQ(here.session.Send(here.Now(), 0, piece), RtpTaken::Taken);
    EXPECT_EQ(here.Play(kNoteOn, 64), RtpTaken::NoRoom);
    here.session.EndSource(0);
    EXPECT_EQ(here.Play(kNoteOn, 64), RtpTaken::Taken);
    Pass(kSecond);
    EXPECT_THAT(there.heard, ElementsAre(Bytes({0xF0, 1, 2, 0xF7}), kNoteOn));
}

TEST_F(RtpSessionPair, WhatIsNotDueYetLeavesWhenItIs) {
    here.Want();
    Pass(kSecond);
    MidiPiece piece;
    piece.bytes = kNoteOn;
    here.session.Send(here.Now() + 5000, 0, piece);
    Pass(5000);
    EXPECT_THAT(there.heard, IsEmpty());
    Pass(400);
    EXPECT_THAT(there.heard, ElementsAre(kNoteOn));
}

TEST_F(RtpSessionPair, PeerThatVanishesWhileANoteSoundsIsLostWithin3Seconds) {
    here.Want();
    Pass(20 * kSecond);
    there.Play(kNoteOn);
    Pass(kSecond / 10);
    wire.conditions.cut = true;
    Pass(3 * kSecond + kSecond / 4);
    EXPECT_THAT(here.events, ElementsAre(EventKind::Up, EventKind::Lost));
    EXPECT_THAT(there.events, ElementsAre(EventKind::Up, EventKind::Lost));
}

TEST_F(RtpSessionPair, LostOnesAreUpAgainWithin2SecondsOfTheReturn) {
    here.Want();
    Pass(kSecond);
    wire.conditions.cut = true;
    Pass(60 * kSecond);
    ASSERT_FALSE(here.session.IsUp());
    wire.conditions.cut = false;
    Pass(2 * kSecond + kSecond / 100);
    EXPECT_TRUE(here.session.IsUp());
    EXPECT_TRUE(there.session.IsUp());
    EXPECT_NE(here.session.OwnSsrc(), 0U);
}

TEST_F(RtpSessionPair, LossOf10PercentNeitherEndsAnIdleSessionNorOneWithANote) {
    wire.conditions.loss = 0.1;
    here.Want();
    Pass(60 * kSecond);
    here.Play(kNoteOn);
    Pass(600 * kSecond);
    EXPECT_THAT(here.events, ElementsAre(EventKind::Up));
    EXPECT_THAT(there.events, ElementsAre(EventKind::Up));
}

// The notes that sound, the controllers and the program after what was played.
struct Standing {
    void Take(const Bytes& message) {
        const int kind = message[0] & 0xF0;
        if (kind == 0x90 && message[2] != 0) {
            notes.insert(message[1]);
        } else if (kind == 0x80 || kind == 0x90) {
            notes.erase(message[1]);
        } else if (kind == 0xB0) {
            controllers[message[1]] = message[2];
        } else if (kind == 0xC0) {
            program = message[1];
        }
    }
    bool operator==(const Standing&) const = default;
    std::set<int> notes;
    std::map<int, int> controllers;
    int program = -1;
};

TEST_F(RtpSessionPair, WhatWasLostIsPutRightWithin200MillisecondsAndNoNoteIsPlayedTwice) {
    here.Want();
    Pass(kSecond);
    std::mt19937 random(7);
    Standing played;
    for (int phrase = 0; phrase < 60; ++phrase) {
        wire.conditions.loss = 0.3;
        for (int each = 0; each < 20; ++each) {
            const auto key = static_cast<std::uint8_t>(60 + random() % 4);
            const Bytes message = played.notes.count(key) != 0 ? Bytes{0x80, key, 64}
                                  : random() % 4 == 0
                                      ? Bytes{0xB0, 7, static_cast<std::uint8_t>(random() % 128)}
                                  : random() % 8 == 0 ? Bytes{0xC0, static_cast<std::uint8_t>(random() % 128)}
                                                      : Bytes{0x90, key, 100};
            played.Take(message);
            here.Play(message);
            Pass(random() % 8000);
        }
        wire.conditions.loss = 0;
        Pass(kSecond / 5);
        Standing heard;
        std::map<int, int> begun;
        for (const Bytes& message : there.heard) {
            heard.Take(message);
            if ((message[0] & 0xF0) == 0x90 && message[2] != 0) {
                EXPECT_EQ(begun[message[1]]++, 0) << "phrase " << phrase << ", note " << int{message[1]};
            } else if ((message[0] & 0xF0) == 0x80) {
                begun[message[1]] = 0;
            }
        }
        ASSERT_EQ(heard.notes, played.notes) << "phrase " << phrase;
        ASSERT_EQ(heard.controllers, played.controllers) << "phrase " << phrase;
        ASSERT_EQ(heard.program, played.program) << "phrase " << phrase;
    }
    EXPECT_GT(there.session.Counters().missing, 100U);
}

TEST_F(RtpSessionPair, LostEndOfALastNoteComesWithin100Milliseconds) {
    here.Want();
    Pass(kSecond);
    here.Play(kNoteOn);
    Pass(kSecond);
    wire.conditions.cut = true;
    here.Play(kNoteOff);
    Pass(2000);
    wire.conditions.cut = false;
    Pass(kSecond / 10);
    ASSERT_THAT(there.heard, SizeIs(2));
    EXPECT_EQ(there.heard[1][0], 0x80);
}

class RtpSessionPeer : public ::testing::Test {
  protected:
    void Pass(std::uint64_t microseconds) { test::Pass(wire, microseconds, here, peer); }
    // The peer calls.
    void BeCalled() {
        peer.Say(RtpPort::Control, Kind::Invitation, 11);
        Pass(1000);
        peer.Say(RtpPort::Data, Kind::Invitation, 11);
        Pass(1000);
        ASSERT_TRUE(here.session.IsUp());
    }
    // Times of commands, in milliseconds since the first of them.
    static std::vector<std::uint64_t> Times(const std::vector<test::PeerByHand::Heard>& heard) {
        std::vector<std::uint64_t> times;
        times.reserve(heard.size());
        for (const auto& each : heard) {
            times.push_back((each.time - heard.front().time) / 1000);
        }
        return times;
    }
    std::vector<test::PeerByHand::Heard> Questions() const {
        auto questions = peer.Commands(Kind::Clock);
        std::erase_if(questions, [](const auto& each) { return each.command->count != 0; });
        return questions;
    }

    MemoryWire wire;
    test::SessionEnd here{wire, 1, 2};
    test::PeerByHand peer{wire, 2, 1};
};

TEST_F(RtpSessionPeer, InvitationGoesToTheControlPortUntilItIsAnsweredAndThenToTheDataPort) {
    here.Want();
    Pass(kSecond / 10);
    const auto invitations = peer.Commands(Kind::Invitation);
    ASSERT_THAT(invitations, SizeIs(2));
    EXPECT_EQ(invitations[0].port, RtpPort::Control);
    EXPECT_EQ(invitations[1].port, RtpPort::Data);
    EXPECT_EQ(invitations[0].command->token, invitations[1].command->token);
    EXPECT_EQ(invitations[0].command->ssrc, invitations[1].command->ssrc);
}

TEST_F(RtpSessionPeer, InvitationIsRepeatedEverySecond12TimesAndThenEvery2Seconds) {
    peer.accepts = false;
    here.Want();
    Pass(16 * kSecond + 1000);
    EXPECT_THAT(
        Times(peer.Commands(Kind::Invitation)),
        ElementsAre(0, 1000, 2000, 3000, 4000, 5000, 6000, 7000, 8000, 9000, 10000, 11000, 13000, 15000));
}

TEST_F(RtpSessionPeer, NobodyIsInvitedAnyLongerWhenTheSessionIsNoLongerWanted) {
    peer.accepts = false;
    here.Want();
    Pass(kSecond / 2);
    here.session.SetWanted(here.Now(), false);
    peer.heard.clear();
    Pass(10 * kSecond);
    EXPECT_THAT(peer.heard, IsEmpty());
    EXPECT_EQ(here.session.PollTimeout(here.Now()), std::nullopt);
}

TEST_F(RtpSessionPeer, PeerWithTwoTokensGetsEachBackAndOneSsrc) {
    peer.Say(RtpPort::Control, Kind::Invitation, 11);
    Pass(1000);
    peer.Say(RtpPort::Data, Kind::Invitation, 22);
    Pass(1000);
    const auto answers = peer.Commands(Kind::Accepted);
    ASSERT_THAT(answers, SizeIs(2));
    EXPECT_EQ(answers[0].command->token, 11U);
    EXPECT_EQ(answers[1].command->token, 22U);
    EXPECT_EQ(answers[0].command->ssrc, answers[1].command->ssrc);
    EXPECT_EQ(answers[1].port, RtpPort::Data);
    EXPECT_TRUE(here.session.IsUp());
}

TEST_F(RtpSessionPeer, InvitationThatComesAgainIsAnsweredAgainAndChangesNothing) {
    BeCalled();
    peer.Say(RtpPort::Control, Kind::Invitation, 11);
    peer.Say(RtpPort::Data, Kind::Invitation, 11);
    Pass(1000);
    EXPECT_THAT(peer.Commands(Kind::Accepted), SizeIs(4));
    EXPECT_THAT(here.events, ElementsAre(EventKind::Up));
}

TEST_F(RtpSessionPeer, PeerThatCallsAnewWithItsOldNumberHasRestarted) {
    BeCalled();
    peer.Say(RtpPort::Control, Kind::Invitation, 12);
    Pass(1000);
    EXPECT_THAT(here.events, ElementsAre(EventKind::Up));
    peer.Say(RtpPort::Data, Kind::Invitation, 12);
    Pass(1000);
    EXPECT_THAT(here.events, ElementsAre(EventKind::Up, EventKind::Ended, EventKind::Up));
}

TEST_F(RtpSessionPeer, InvitationOnTheDataPortAloneIsNotAnswered) {
    peer.Say(RtpPort::Data, Kind::Invitation, 11);
    Pass(kSecond);
    EXPECT_THAT(peer.heard, IsEmpty());
}

TEST_F(RtpSessionPeer, CallThatStopsHalfwayIsForgottenAfter10Seconds) {
    peer.Say(RtpPort::Control, Kind::Invitation, 11);
    Pass(11 * kSecond);
    EXPECT_FALSE(here.session.IsBusy());
    EXPECT_EQ(here.session.PollTimeout(here.Now()), std::nullopt);
}

TEST_F(RtpSessionPeer, RefusalIsToldOnceAndThePeerIsCalledAgainAfter30Seconds) {
    peer.accepts = false;
    here.Want();
    Pass(1000);
    for (int again = 0; again < 2; ++again) {
        peer.Say(RtpPort::Control, Kind::Refused, peer.heard.back().command->token);
        peer.heard.clear();
        Pass(30 * kSecond - 1000);
        EXPECT_THAT(peer.heard, IsEmpty());
        Pass(2000);
        EXPECT_THAT(peer.heard, SizeIs(1));
    }
    EXPECT_THAT(here.events, ElementsAre(EventKind::Refused));
    EXPECT_TRUE(here.session.IsRefused());
}

TEST_F(RtpSessionPeer, ByeWithoutATokenCounts) {
    BeCalled();
    peer.Say(RtpPort::Control, Kind::Bye, std::nullopt);
    Pass(1000);
    EXPECT_THAT(here.events, ElementsAre(EventKind::Up, EventKind::Ended));
}

TEST_F(RtpSessionPeer, ByeOfAStrangerChangesNothing) {
    BeCalled();
    peer.ssrc = 0x9999;
    peer.Say(RtpPort::Control, Kind::Bye, 11);
    Pass(1000);
    EXPECT_THAT(here.events, ElementsAre(EventKind::Up));
}

TEST_F(RtpSessionPeer, WantedPeerThatSaidByeIsCalledAgainAfter2Seconds) {
    here.Want();
    Pass(kSecond);
    peer.Say(RtpPort::Control, Kind::Bye, std::nullopt);
    Pass(1000);
    peer.heard.clear();
    Pass(2 * kSecond - 5000);
    EXPECT_THAT(peer.heard, IsEmpty());
    Pass(kSecond);
    EXPECT_THAT(here.events, ElementsAre(EventKind::Up, EventKind::Ended, EventKind::Up));
}

TEST_F(RtpSessionPeer, CallerAsksForTheTimeAtOnceThenEveryHalfSecondThenEvery4Seconds) {
    here.Want();
    Pass(12 * kSecond);
    EXPECT_THAT(Times(Questions()), ElementsAre(0, 500, 1000, 1500, 2000, 2500, 3000, 7000, 11000));
    EXPECT_EQ(Questions()[0].port, RtpPort::Data);
}

TEST_F(RtpSessionPeer, CallerAsksEverySecondWhileANoteSounds) {
    here.Want();
    Pass(8 * kSecond);
    peer.SayList(1, kNoteOn);
    Pass(kSecond);
    peer.heard.clear();
    Pass(5 * kSecond);
    EXPECT_THAT(Questions(), SizeIs(5));
    peer.SayList(2, kNoteOff);
    Pass(4 * kSecond);
    peer.heard.clear();
    Pass(8 * kSecond);
    EXPECT_THAT(Questions(), SizeIs(2));
}

TEST_F(RtpSessionPeer, AnswerToAQuestionEndsTheExchangeOnceAndAnEndIsNotAnswered) {
    peer.answersClock = false;
    here.Want();
    Pass(1000);
    const std::uint64_t asked = Questions().at(0).command->times[0];
    peer.heard.clear();
    peer.SayClock(1, {asked, 500, 0});
    peer.SayClock(1, {asked, 500, 0});
    peer.SayClock(2, {asked, 500, asked});
    Pass(1000);
    const auto clocks = peer.Commands(Kind::Clock);
    ASSERT_THAT(clocks, SizeIs(1));
    EXPECT_EQ(clocks[0].command->count, 2);
    EXPECT_EQ(clocks[0].command->times[0], asked);
    EXPECT_EQ(clocks[0].command->times[1], 500U);
}

TEST_F(RtpSessionPeer, QuestionIsAnsweredWithItsTimeAndTheTimeHere) {
    BeCalled();
    peer.heard.clear();
    peer.SayClock(0, {12345, 0, 0});
    Pass(1000);
    const auto clocks = peer.Commands(Kind::Clock);
    ASSERT_THAT(clocks, SizeIs(1));
    EXPECT_EQ(clocks[0].command->count, 1);
    EXPECT_EQ(clocks[0].command->times[0], 12345U);
    EXPECT_NEAR(static_cast<double>(clocks[0].command->times[1]), static_cast<double>(here.Now()) / 100, 10);
}

TEST_F(RtpSessionPeer, StormOfQuestionsIsAnswered20TimesASecondAndTheSessionLives) {
    BeCalled();
    peer.heard.clear();
    for (std::uint64_t each = 0; each < 5000; ++each) {
        peer.SayClock(0, {each, 0, 0});
        peer.SayClock(2, {each, each, each});
        Pass(200);
    }
    EXPECT_THAT(peer.Commands(Kind::Clock), SizeIs(::testing::Le(45U)));
    peer.SayList(1, kNoteOn);
    Pass(1000);
    EXPECT_THAT(here.heard, ElementsAre(kNoteOn));
}

TEST_F(RtpSessionPeer, CallerThatFallsSilentAtOnceWithANoteIsLostAfter3Seconds) {
    BeCalled();
    peer.SayList(1, kNoteOn);
    Pass(1000);
    peer.answersClock = false;
    Pass(3 * kSecond + kSecond / 10);
    EXPECT_THAT(here.events, ElementsAre(EventKind::Up, EventKind::Lost));
}

TEST_F(RtpSessionPeer, CallerThatAnswersNoQuestionIsKeptAsLongAsItAsksWithinAMinute) {
    peer.answersClock = false;
    BeCalled();
    for (int minute = 0; minute < 3; ++minute) {
        Pass(59 * kSecond);
        peer.SayClock(0, {1, 0, 0});
        Pass(1000);
    }
    EXPECT_THAT(here.events, ElementsAre(EventKind::Up));
    peer.SayList(1, kNoteOn);
    Pass(24 * kSecond);
    EXPECT_THAT(here.events, ElementsAre(EventKind::Up));
    Pass(2 * kSecond);
    EXPECT_THAT(here.events, ElementsAre(EventKind::Up, EventKind::Lost));
    EXPECT_THAT(peer.Commands(Kind::Bye), SizeIs(1));
}

TEST_F(RtpSessionPeer, PeerThatNoLongerAnswersGetsAByeAndIsInvitedAgain) {
    here.Want();
    Pass(10 * kSecond);
    peer.answersClock = false;
    peer.accepts = false;
    const std::uint32_t before = here.session.OwnSsrc();
    Pass(8 * kSecond);
    EXPECT_THAT(here.events, ElementsAre(EventKind::Up, EventKind::Lost));
    const auto byes = peer.Commands(Kind::Bye);
    ASSERT_THAT(byes, SizeIs(1));
    EXPECT_EQ(byes[0].command->ssrc, before);
    EXPECT_EQ(byes[0].port, RtpPort::Control);
    EXPECT_THAT(peer.Commands(Kind::Invitation), SizeIs(::testing::Gt(2U)));
}

TEST_F(RtpSessionPeer, WhatHasComeIsToldEverySecondWhilePacketsComeAndNotOtherwise) {
    BeCalled();
    for (std::uint16_t number = 100; number < 150; ++number) {
        peer.SayList(number, {0xB0, 7, 1});
        Pass(kSecond / 10);
    }
    Pass(kSecond);
    const auto told = peer.Commands(Kind::Feedback);
    EXPECT_THAT(told, SizeIs(::testing::AllOf(::testing::Ge(5U), ::testing::Le(6U))));
    EXPECT_EQ(told.back().command->feedback, FeedbackOf(149));
    EXPECT_EQ(told.back().port, RtpPort::Control);
    peer.heard.clear();
    Pass(10 * kSecond);
    EXPECT_THAT(peer.Commands(Kind::Feedback), IsEmpty());
}

TEST_F(RtpSessionPeer, PacketsThatGuardFollowUntilThePeerHasSaidThatTheLastCommandsCame) {
    for (const bool inLowHalf : {false, true}) {
        BeCalled();
        peer.heard.clear();
        here.Play(kNoteOn);
        Pass(40'000);
        ASSERT_THAT(peer.Packets(), SizeIs(2));
        const auto first = ReadRtpPacket(peer.Packets()[0].bytes);
        const auto second = ReadRtpPacket(peer.Packets()[1].bytes);
        EXPECT_FALSE(first->list.empty());
        EXPECT_TRUE(second->list.empty());
        EXPECT_EQ(static_cast<std::uint16_t>(first->header.sequence + 1), second->header.sequence);
        SessionCommand feedback;
        feedback.kind = Kind::Feedback;
        feedback.feedback = inLowHalf ? first->header.sequence : FeedbackOf(first->header.sequence);
        peer.Say(RtpPort::Control, feedback);
        peer.heard.clear();
        Pass(10 * kSecond);
        EXPECT_THAT(peer.Packets(), IsEmpty());
        peer.Say(RtpPort::Control, Kind::Bye, std::nullopt);
        Pass(1000);
    }
}

TEST_F(RtpSessionPeer, PeerThatNeverSaysWhatHasComeIsGuarded10Times) {
    BeCalled();
    here.Play(kNoteOn);
    Pass(60 * kSecond);
    EXPECT_THAT(peer.Packets(), SizeIs(11));
}

TEST_F(RtpSessionPeer, BitrateThatThePeerWantsIsObeyed) {
    BeCalled();
    SessionCommand limit;
    limit.kind = Kind::BitrateLimit;
    limit.bitrate = 31'250;  // of a cable
    peer.Say(RtpPort::Control, limit);
    Pass(1000);
    peer.heard.clear();
    ASSERT_TRUE(here.PlayExclusive(Exclusive(8000)));
    Pass(kSecond);
    std::size_t bytes = 0;
    for (const auto& packet : peer.Packets()) {
        bytes += ReadRtpPacket(packet.bytes)->list.size();
    }
    EXPECT_NEAR(static_cast<double>(bytes), 31'250.0 / 8, 520);
}

TEST_F(RtpSessionPeer, PacketThatComesTwiceOrBehindANewerOneIsLeftOut) {
    BeCalled();
    peer.SayList(10, {0xB0, 7, 10});
    peer.SayList(12, {0xB0, 7, 12});
    Pass(1000);
    peer.SayList(11, {0xB0, 7, 11});
    Pass(1000);
    peer.SayList(12, {0xB0, 7, 12});
    Pass(1000);
    peer.SayList(13, {0xB0, 7, 13});
    Pass(1000);
    EXPECT_THAT(here.heard, ElementsAre(Bytes({0xB0, 7, 10}), Bytes({0xB0, 7, 12}), Bytes({0xB0, 7, 13})));
    EXPECT_EQ(here.session.Counters().late, 2U);
    EXPECT_EQ(here.session.Counters().missing, 1U);
}

TEST_F(RtpSessionPeer, PeerThatCountsAnewIsHeardFromItsSecondPacketOn) {
    BeCalled();
    peer.SayList(30000, {0xB0, 7, 1});
    Pass(1000);
    for (std::uint16_t number = 5; number < 8; ++number) {
        peer.SayList(number, {0xB0, 7, static_cast<std::uint8_t>(number)});
        Pass(1000);
    }
    EXPECT_THAT(here.heard, ElementsAre(Bytes({0xB0, 7, 1}), Bytes({0xB0, 7, 6}), Bytes({0xB0, 7, 7})));
}

TEST_F(RtpSessionPeer, GapInAnExclusiveEndsItWithF7) {
    BeCalled();
    peer.SayList(1, {0xF0, 1, 2, 0xF0});
    Pass(1000);
    peer.SayList(3, {0xF7, 5, 6, 0xF7});
    Pass(1000);
    EXPECT_THAT(here.heard, ElementsAre(Bytes({0xF0, 1, 2, 0xF7})));
    EXPECT_EQ(here.session.Counters().cutExclusive, 1U);
}

TEST_F(RtpSessionPeer, PacketOfAStrangerIsNotHeard) {
    BeCalled();
    peer.ssrc = 0x9999;
    peer.SayList(1, kNoteOn);
    Pass(1000);
    EXPECT_THAT(here.heard, IsEmpty());
}

TEST_F(RtpSessionPeer, WhatIsPlayedWithoutAConnectionIsDropped) {
    EXPECT_EQ(here.Play(kNoteOn), RtpTaken::NotUp);
}

}  // namespace
}  // namespace vexil
