// What one queue may take, and what it must leave to the others.
#include "service/engine/PieceQueue.h"

#include <gtest/gtest.h>

#include <vector>

namespace vexil {
namespace {

// Each queue has room of its own for this many of the longest pieces: two in each of its two chunks.
constexpr int kOwnPieces = 4;

class PieceQueueTest : public ::testing::Test {
  protected:
    // Queues the longest pieces until there is no room; returns their number.
    int Fill(int source) {
        const MidiPiece piece{.bytes = bytes, .systemExclusive = true, .first = false, .last = false};
        int count = 0;
        while (count < 1000 && queues.PushPiece(source, 0, piece)) {
            ++count;
        }
        return count;
    }
    void Drain(int source) {
        while (!queues.IsEmpty(source)) {
            queues.TakeRecord(source);
        }
    }

    const std::vector<std::uint8_t> bytes = std::vector<std::uint8_t>(kLongestPiece, 1);
    PieceQueues queues{0};  // as little as there can be: nothing to share
};

TEST_F(PieceQueueTest, AQueueThatMayShareNothingTakesItsOwnRoomAndNoMore) {
    EXPECT_EQ(kOwnPieces, Fill(0));
}

TEST_F(PieceQueueTest, EveryQueueHasItsOwnRoomWhileAllOthersAreFull) {
    for (int source = 0; source < kSourceCount; ++source) {
        ASSERT_EQ(kOwnPieces, Fill(source)) << source;
    }
}

TEST_F(PieceQueueTest, AQueueThatWasFilledAndEmptiedOftenTakesNothingOfTheOthersRoom) {
    for (int round = 0; round < 3 * kSourceCount; ++round) {
        ASSERT_EQ(kOwnPieces, Fill(0)) << round;
        Drain(0);
    }
    for (int source = 0; source < kSourceCount; ++source) {
        ASSERT_EQ(kOwnPieces, Fill(source)) << source;
    }
}

TEST_F(PieceQueueTest, WhatAQueueTookOfTheSharedRoomComesBack) {
    constexpr int kSharedChunks = 10;
    constexpr int kPiecesOfAChunk = 2;
    PieceQueues sharing((2 * kSourceCount + kSharedChunks) * std::size_t{2048});
    std::swap(queues, sharing);
    for (int round = 0; round < 5; ++round) {
        ASSERT_EQ(kOwnPieces + kSharedChunks * kPiecesOfAChunk, Fill(0)) << round;
        ASSERT_EQ(kOwnPieces, Fill(1)) << round;
        Drain(0);
        Drain(1);
    }
}

}  // namespace
}  // namespace vexil
