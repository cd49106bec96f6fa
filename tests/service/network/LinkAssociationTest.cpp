// The life of an association, in virtual time: every time is exact.
#include <gmock/gmock.h>

#include <algorithm>

#include "tests/service/network/LinkWorld.h"

namespace vexil::test {
namespace {

using Kind = LinkEvent::Kind;

WorldPlan Quiet() {
    WorldPlan plan;
    plan.ways = 1;
    plan.exclusive = 0;
    plan.wayChange = 0;
    return plan;
}

long CountOf(const LinkWorld& world, int end, Kind kind) {
    const auto& events = world.Events(end);
    return std::count(events.begin(), events.end(), kind);
}

TEST(LinkAssociation, BothComeUpAndEachWayIsOpenedAndAccepted) {
    LinkWorld world(Quiet());
    world.Rest(200 * kMillisecond);
    for (int end = 0; end < 2; ++end) {
        EXPECT_THAT(world.Events(end),
                    testing::UnorderedElementsAre(Kind::Up, Kind::WayOpened, Kind::WayState));
        EXPECT_EQ(world.End(end).PeerName(), end == 0 ? "studio" : "laptop");
    }
    EXPECT_EQ(world.End(0).Number(), world.End(1).Number());
}

TEST(LinkAssociation, AMessageTakesOneWayOfTheWireAndIsAcknowledgedWithinMilliseconds) {
    LinkWorld world(Quiet());
    world.Rest(200 * kMillisecond);
    ASSERT_TRUE(world.SendOne(0, 0));
    world.Rest(200);
    EXPECT_EQ(world.Heard(), 1);
    world.Rest(10 * kMillisecond);
    EXPECT_EQ(world.End(0).Counters().repeated, 0U);
}

TEST(LinkAssociation, ALostMessageIsSentAgainAfterTwoMilliseconds) {
    LinkWorld world(Quiet());
    world.Rest(200 * kMillisecond);
    world.Faults().cut = true;
    ASSERT_TRUE(world.SendOne(0, 0));
    world.Rest(1500);
    world.Faults().cut = false;
    world.Rest(500);
    EXPECT_EQ(world.Heard(), 0);
    world.Rest(200);
    EXPECT_EQ(world.Heard(), 1);
}

TEST(LinkAssociation, AMessageLeavesWhenItIsDueAndNotBefore) {
    LinkWorld world(Quiet());
    world.Rest(200 * kMillisecond);
    const std::array<std::uint8_t, 3> note = {0xA0, 0, 0};
    MidiPiece piece;
    piece.bytes = note;
    world.End(0).Send(world.Now() + 5 * kMillisecond, 60, 0, piece);
    world.Rest(5 * kMillisecond + 199);
    EXPECT_EQ(world.Heard(), 0);
    world.Rest(1);
    EXPECT_EQ(world.Heard(), 1);
    EXPECT_EQ(world.Latencies().back(), 0U);
}

TEST(LinkAssociation, ACableThatIsOutForHalfASecondEndsNothing) {
    LinkWorld world(Quiet());
    world.Rest(200 * kMillisecond);
    world.Faults().cut = true;
    world.Live(500 * kMillisecond);
    world.Faults().cut = false;
    world.Rest(100 * kMillisecond);
    EXPECT_EQ(world.Complaint(), "");
    EXPECT_EQ(world.Associations(), 2);
    EXPECT_EQ(world.Heard(), world.Sent());
}

TEST(LinkAssociation, TwoSecondsOfSilenceEndEveryWayAndNotLess) {
    LinkWorld world(Quiet());
    world.Rest(200 * kMillisecond);
    world.StopCalling();
    world.SendOne(0, 0);
    world.SendOne(1, 0);
    world.Rest(100 * kMillisecond);
    world.Faults().cut = true;
    world.Rest(1800 * kMillisecond);
    EXPECT_EQ(CountOf(world, 0, Kind::WayEnded), 0);
    world.Rest(200 * kMillisecond);
    for (int end = 0; end < 2; ++end) {
        EXPECT_EQ(CountOf(world, end, Kind::WayEnded), 1);
        EXPECT_EQ(CountOf(world, end, Kind::Lost), 1);
        EXPECT_FALSE(world.End(end).IsUp());
    }
}

TEST(LinkAssociation, ALostOneIsUpAgainSoonAfterTheReturn) {
    LinkWorld world(Quiet());
    world.Rest(200 * kMillisecond);
    world.Faults().cut = true;
    world.Rest(3 * kSecond);
    ASSERT_FALSE(world.BothUp());
    world.Faults().cut = false;
    world.Rest(2 * kSecond);
    EXPECT_TRUE(world.BothUp());
    EXPECT_EQ(world.Complaint(), "");
}

TEST(LinkAssociation, APeerThatRestartsIsTakenUpAtOnceAndItsWaysEndFirst) {
    LinkWorld world(Quiet());
    world.Rest(200 * kMillisecond);
    world.SendOne(1, 0);
    world.Rest(50 * kMillisecond);
    world.Restart(1);
    world.Rest(50 * kMillisecond);
    EXPECT_TRUE(world.BothUp());
    EXPECT_EQ(CountOf(world, 0, Kind::Lost), 0);
    EXPECT_THAT(world.Events(0), testing::IsSupersetOf({Kind::WayEnded, Kind::Up}));
    EXPECT_EQ(world.Complaint(), "");
}

TEST(LinkAssociation, OnAWireThatCarriesOneWayOnlyBothSaySoTwoSecondsAfterTheLastDatagram) {
    for (int deaf = 0; deaf < 2; ++deaf) {
        LinkWorld world(Quiet());
        world.Rest(1500 * kMillisecond);
        world.StopCalling();
        world.Faults().deaf[static_cast<std::size_t>(deaf)] = true;
        world.Rest(2010 * kMillisecond);
        EXPECT_EQ(CountOf(world, deaf, Kind::Lost), 1);
        EXPECT_EQ(CountOf(world, deaf, Kind::Ended), 0);
        EXPECT_EQ(CountOf(world, 1 - deaf, Kind::Ended), 1);
        EXPECT_EQ(CountOf(world, 1 - deaf, Kind::Lost), 0);
        EXPECT_EQ(CountOf(world, 1 - deaf, Kind::WayEnded), 1);
    }
}

TEST(LinkAssociation, IdleItSendsTwoDatagramsASecond) {
    LinkWorld world(Quiet());
    world.Rest(2 * kSecond);
    const std::uint64_t before = world.Datagrams();
    world.Rest(10 * kSecond);
    EXPECT_EQ(world.Datagrams() - before, 20U);
    EXPECT_EQ(world.Associations(), 2);
}

TEST(LinkAssociation, AByeEndsTheOtherSideAtOnce) {
    LinkWorld world(Quiet());
    world.Rest(200 * kMillisecond);
    world.StopCalling();
    world.End(1).SayBye({ByeReason::Stopping, Refusal::None});
    world.Rest(kMillisecond);
    EXPECT_EQ(CountOf(world, 0, Kind::Ended), 1);
    EXPECT_EQ(CountOf(world, 0, Kind::WayEnded), 1);
    EXPECT_EQ(CountOf(world, 1, Kind::WayEnded), 1);
    EXPECT_FALSE(world.End(0).IsUp());
}

TEST(LinkAssociation, AMegabyteOfSystemExclusiveTakesLessThanASecond) {
    WorldPlan plan = Quiet();
    LinkWorld world(plan);
    world.Rest(200 * kMillisecond);
    const Microseconds begun = world.Now();
    std::vector<std::uint8_t> whole(std::size_t{1} << 20, 0);
    whole[0] = 0xF0;
    for (std::size_t at = 3; at < whole.size(); ++at) {
        whole[at] = static_cast<std::uint8_t>(at & 0x7F);
    }
    whole.back() = 0xF7;
    for (std::size_t at = 0; at < whole.size();) {
        MidiPiece piece;
        piece.systemExclusive = true;
        piece.first = at == 0;
        piece.bytes = ByteView(whole).subspan(at, std::min<std::size_t>(992, whole.size() - at));
        piece.last = at + piece.bytes.size() == whole.size();
        if (world.End(0).Send(world.Now(), 60, 0, piece) == WayResult::Taken) {
            at += piece.bytes.size();
        } else {
            world.Rest(100);
        }
        ASSERT_LT(world.Now() - begun, 2 * kSecond);
    }
    world.Rest(10 * kMillisecond);
    EXPECT_EQ(world.Complaint(), "");
    EXPECT_EQ(world.Heard(), 1);
    EXPECT_LT(world.Now() - begun, kSecond);
}

// Plays a note and its end while nothing gets through for so long; how many of the two are heard then.
std::size_t HeardAfterACut(LinkWorld& world, Microseconds cut) {
    world.Rest(200 * kMillisecond);
    world.Faults().cut = true;
    for (const std::uint8_t status : {std::uint8_t{0x90}, std::uint8_t{0x80}}) {
        const std::array<std::uint8_t, 3> note = {status, 60, 100};
        MidiPiece piece;
        piece.bytes = note;
        EXPECT_EQ(world.End(0).Send(world.Now(), 60, 0, piece), WayResult::Taken);
    }
    world.Rest(cut);
    world.Faults().cut = false;
    const std::size_t before = world.Latencies().size();
    world.Rest(200 * kMillisecond);
    return world.Latencies().size() - before;
}

TEST(LinkAssociation, ANoteOnThatIsHalfASecondLateIsLeftOutAndItsNoteOffIsHeard) {
    LinkWorld world(Quiet());
    EXPECT_EQ(HeardAfterACut(world, 501 * kMillisecond), 1U);
    EXPECT_EQ(world.End(1).Counters().late, 1U);
}

// What was lost is repeated every 50 ms.
TEST(LinkAssociation, ANoteOnThatIsLessThanHalfASecondLateIsHeard) {
    LinkWorld world(Quiet());
    EXPECT_EQ(HeardAfterACut(world, 445 * kMillisecond), 2U);
    EXPECT_EQ(world.End(1).Counters().late, 0U);
}

TEST(LinkAssociation, AtTenPercentLossMostMessagesCostNoRoundTrip) {
    WorldPlan plan = Quiet();
    plan.faults.loss = 0.1;
    plan.meanInterval = 5000;
    LinkWorld world(plan);
    world.Live(60 * kSecond);
    world.Rest(kSecond);
    EXPECT_EQ(world.Complaint(), "");
    EXPECT_EQ(world.Heard(), world.Sent());
    std::vector<Microseconds> sorted = world.Latencies();
    std::sort(sorted.begin(), sorted.end());
    EXPECT_LT(sorted[sorted.size() * 99 / 100], 3000U);
    EXPECT_LT(sorted[sorted.size() * 999 / 1000], 10000U);
}

TEST(LinkAssociation, WhenTheWindowIsFullMessagesAreLostAndTheWayEndsAndBeginsAgain) {
    WorldPlan plan = Quiet();
    plan.ways = 4;
    plan.meanInterval = 120;
    LinkWorld world(plan);
    world.Rest(200 * kMillisecond);
    world.Live(50 * kMillisecond);
    world.Faults().cut = true;
    world.Live(900 * kMillisecond);
    world.Faults().cut = false;
    world.Live(100 * kMillisecond);
    world.HealAndCheck();
    EXPECT_EQ(world.Complaint(), "");
    EXPECT_EQ(world.Associations(), 2);
    EXPECT_GT(world.End(0).Counters().lost, 0U);
    EXPECT_GT(CountOf(world, 1, Kind::WayEnded), 0);
}

}  // namespace
}  // namespace vexil::test
