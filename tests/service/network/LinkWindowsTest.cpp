// The windows and the order of ways by themselves.
#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "service/network/ReceiveWindow.h"
#include "service/network/SendWindow.h"
#include "service/network/WayOrder.h"

namespace vexil {
namespace {

using Bytes = std::vector<std::uint8_t>;
const Bytes kNote = {0x90, 60, 100};

LinkRecord RecordOf(RecordType type, std::uint16_t number, std::uint8_t input = 0) {
    LinkRecord record;
    record.type = type;
    record.input = input;
    record.number = number;
    if (type == RecordType::Message) {
        record.bytes = kNote;
    }
    return record;
}

// The numbers of the records that a window puts into one body.
std::vector<std::uint32_t> Sent(SendWindow& window, std::uint64_t now) {
    Bytes body(kLongestBody);
    BodyWriter writer(body, {});
    window.Fill(now, writer);
    body.resize(writer.Size());
    auto reader = BodyReader::Open(body);
    std::vector<std::uint32_t> numbers;
    while (const auto frame = reader->NextFrame()) {
        RecordReader records(frame->content);
        while (records.Next()) {
            numbers.push_back(records.Number());
        }
    }
    return numbers;
}

void PushNote(SendWindow& window) {
    window.Push(RecordOf(RecordType::Message, 0), 0);
}

TEST(ReceiveWindow, NamesItsHolesFromTheLowestOn) {
    ReceiveWindow window;
    for (const std::uint32_t number : {0U, 1U, 4U, 70U, 71U, 200U}) {
        ASSERT_EQ(window.PlaceOf(number), ReceiveWindow::Place::New);
        window.Take(number);
    }
    EXPECT_EQ(window.AllBelow(), 2U);
    ASSERT_TRUE(window.HasGaps());
    const Gaps gaps = window.ReadGaps();
    EXPECT_EQ(gaps.highest, 200U);
    ASSERT_EQ(gaps.count, 3U);
    EXPECT_EQ(gaps.holes[0], (Hole{2, 4}));
    EXPECT_EQ(gaps.holes[1], (Hole{5, 70}));
    EXPECT_EQ(gaps.holes[2], (Hole{72, 200}));
    EXPECT_EQ(window.PlaceOf(70), ReceiveWindow::Place::Duplicate);
    EXPECT_EQ(window.PlaceOf(1), ReceiveWindow::Place::Duplicate);
}

TEST(ReceiveWindow, TakesNothingThatIsTooFarAhead) {
    const ReceiveWindow window;
    EXPECT_EQ(window.PlaceOf(32767), ReceiveWindow::Place::New);
    EXPECT_EQ(window.PlaceOf(32768), ReceiveWindow::Place::TooFarAhead);
}

TEST(SendWindow, WhatIsNotAcknowledgedGoesAgainBehindNewRecordsThreeTimes) {
    SendWindow window;
    std::vector<std::vector<std::uint32_t>> bodies;
    for (std::uint64_t count = 0; count < 5; ++count) {
        PushNote(window);
        bodies.push_back(Sent(window, 10'000 + 1000 * count));
    }
    EXPECT_THAT(bodies[0], testing::ElementsAre(0));
    EXPECT_THAT(bodies[1], testing::UnorderedElementsAre(0, 1));
    EXPECT_THAT(bodies[3], testing::UnorderedElementsAre(0, 1, 2, 3));
    EXPECT_THAT(bodies[4], testing::UnorderedElementsAre(1, 2, 3, 4));
}

TEST(SendWindow, WhatIsNotAcknowledgedIsRepeatedMoreAndMoreSeldom) {
    SendWindow window;
    PushNote(window);
    std::uint64_t now = 10'000;
    EXPECT_THAT(Sent(window, now), testing::ElementsAre(0));
    std::vector<std::uint64_t> intervals;
    for (int count = 0; count < 8; ++count) {
        const std::uint64_t due = window.NextTimeout().value_or(now);
        EXPECT_THAT(Sent(window, due - 1), testing::IsEmpty());
        EXPECT_THAT(Sent(window, due), testing::ElementsAre(0));
        intervals.push_back(due - now);
        now = due;
    }
    EXPECT_THAT(intervals, testing::ElementsAre(2000, 6000, 9000, 13'500, 20'250, 30'375, 45'562, 50'000));
}

TEST(SendWindow, OnAShortWayThatLosesDatagramsTheFirstRepeatsComeSooner) {
    SendWindow window;
    window.SetRoundTrip(200);
    const auto timesOfRepeats = [&window](std::uint64_t begin) {
        PushNote(window);
        EXPECT_EQ(Sent(window, begin).size(), 1U);
        std::vector<std::uint64_t> times;
        for (int count = 0; count < 3; ++count) {
            const std::uint64_t due = window.NextTimeout().value_or(begin);
            EXPECT_EQ(Sent(window, due).size(), 1U);
            times.push_back(due - begin);
        }
        return times;
    };
    EXPECT_THAT(timesOfRepeats(10'000), testing::ElementsAre(2000, 3000, 9000));
    window.Acknowledge(20'000, 1);
    EXPECT_THAT(timesOfRepeats(30'000), testing::ElementsAre(1200, 2200, 8200));
    window.Acknowledge(40'000, 2);
    // A second without a loss.
    EXPECT_THAT(timesOfRepeats(1'050'000), testing::ElementsAre(2000, 3000, 9000));
    window.Acknowledge(1'060'000, 3);
    // Where an acknowledgement takes longer its absence says nothing.
    window.SetRoundTrip(5000);
    EXPECT_THAT(timesOfRepeats(1'100'000), testing::ElementsAre(2000, 13'500, 30'750));
}

TEST(SendWindow, AReportedGapGoesAtOnceAndNotAgainWithinARoundTrip) {
    SendWindow window;
    window.SetRoundTrip(5000);
    for (int count = 0; count < 4; ++count) {
        PushNote(window);
    }
    ASSERT_THAT(Sent(window, 10'000), testing::ElementsAre(0, 1, 2, 3));
    Gaps gaps;
    gaps.highest = 3;
    gaps.holes[0] = {1, 3};
    gaps.count = 1;
    window.TakeGaps(16'000, gaps);
    EXPECT_THAT(Sent(window, 16'000), testing::ElementsAre(1, 2));
    window.TakeGaps(17'000, gaps);
    EXPECT_THAT(Sent(window, 17'000), testing::IsEmpty());
    EXPECT_THAT(Sent(window, 21'100), testing::ElementsAre(1, 2));
    window.Acknowledge(22'000, 4);
    EXPECT_TRUE(window.IsEmpty());
    EXPECT_FALSE(window.NextTimeout());
}

TEST(SendWindow, AnAcknowledgementOfWhatWasNeverSentCountsForNothing) {
    SendWindow window;
    PushNote(window);
    window.Acknowledge(10'000, 1);
    window.Acknowledge(10'000, 0x80000000);
    EXPECT_FALSE(window.IsEmpty());
    EXPECT_THAT(Sent(window, 10'000), testing::ElementsAre(0));
}

TEST(WayOrder, AHoleHoldsBackItsOwnWayOnly) {
    WayOrder order;
    for (const std::uint8_t input : {std::uint8_t{0}, std::uint8_t{1}}) {
        ASSERT_TRUE(order.Take(RecordOf(RecordType::OpenWay, 0, input), 0));
        ASSERT_EQ(order.Next()->kind, OrderedRecord::Kind::WayOpened);
    }
    ASSERT_TRUE(order.Take(RecordOf(RecordType::Message, 2, 0), 0));
    EXPECT_FALSE(order.Next());
    ASSERT_TRUE(order.Take(RecordOf(RecordType::Message, 1, 1), 0));
    EXPECT_EQ(order.Next()->input, 1);
    ASSERT_TRUE(order.Take(RecordOf(RecordType::Message, 1, 0), 0));
    EXPECT_EQ(order.Next()->input, 0);
    EXPECT_EQ(order.Next()->input, 0);
    EXPECT_FALSE(order.Next());
}

TEST(WayOrder, WhatIsHeldBackNeverKeepsTheMissingRecordOut) {
    WayOrder order;
    ASSERT_TRUE(order.Take(RecordOf(RecordType::OpenWay, 0), 0));
    std::uint16_t number = 2;
    while (order.Take(RecordOf(RecordType::Message, number), 0)) {
        ++number;
    }
    EXPECT_GT(number, 7000);
    ASSERT_TRUE(order.Take(RecordOf(RecordType::Message, 1), 0));
    int heard = 0;
    while (order.Next()) {
        ++heard;
    }
    EXPECT_EQ(heard, number);
}

TEST(WayOrder, AtTheEndEveryOpenWayEndsOnce) {
    WayOrder order;
    order.Take(RecordOf(RecordType::OpenWay, 0, 5), 0);
    order.Take(RecordOf(RecordType::Message, 1, 5), 0);
    order.Take(RecordOf(RecordType::Message, 3, 5), 0);
    order.EndAll();
    std::vector<OrderedRecord::Kind> heard;
    while (const auto record = order.Next()) {
        heard.push_back(record->kind);
    }
    EXPECT_THAT(heard, testing::ElementsAre(OrderedRecord::Kind::WayOpened, OrderedRecord::Kind::Message,
                                            OrderedRecord::Kind::WayEnded));
    EXPECT_TRUE(order.IsAtRest());
}

}  // namespace
}  // namespace vexil
