// What readers that were left behind are owed; no sequencer is needed.
#include <gmock/gmock.h>

#include <vector>

#include "service/backends/alsa/AlsaOwed.h"

namespace vexil {
namespace {

using Bytes = std::vector<std::uint8_t>;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class AlsaOwedTest : public ::testing::Test {
  protected:
    void Hear(const Bytes& bytes, int port = 0) { owed.Heard(port, bytes); }
    // What a reader is sent that is owed everything, while there is room for so many messages.
    std::vector<Bytes> Pay(int port = 0, std::size_t room = 100) {
        std::vector<Bytes> paid;
        isPaid = owed.Pay(debt, port, [&](std::span<const std::uint8_t> bytes) {
            if (paid.size() == room) {
                return false;
            }
            paid.emplace_back(bytes.begin(), bytes.end());
            return true;
        });
        return paid;
    }

    AlsaOwed owed;
    AlsaOwed::Debt debt;
    bool isPaid = false;
};

TEST_F(AlsaOwedTest, NothingIsOwedForWhatHasEnded) {
    Hear({0x90, 60, 100});
    Hear({0x80, 60, 0});
    owed.Leave(0);
    EXPECT_FALSE(owed.IsOwed(0));
}

TEST_F(AlsaOwedTest, TheEndOfWhatSoundedIsOwed) {
    Hear({0x90, 60, 100});
    Hear({0xB0, 64, 127});
    owed.Leave(0);
    Hear({0x80, 60, 0});
    Hear({0xB0, 64, 0});
    EXPECT_TRUE(owed.IsOwed(0));
    EXPECT_FALSE(owed.IsOwed(1));
    debt = owed.All();
    EXPECT_THAT(Pay(), ElementsAre(Bytes{0x80, 60, 64}, Bytes{0xB0, 64, 0}));
    EXPECT_TRUE(isPaid);
    EXPECT_THAT(Pay(), IsEmpty());
}

TEST_F(AlsaOwedTest, WhatBeganLaterIsNotOwed) {
    owed.Leave(0);
    Hear({0x90, 60, 100});
    EXPECT_FALSE(owed.IsOwed(0));
}

TEST_F(AlsaOwedTest, WhatStillSoundsAtTheInputEndsThere) {
    Hear({0x90, 60, 100});
    Hear({0x90, 61, 100});
    owed.Leave(0);
    Hear({0x80, 61, 0});
    debt = owed.All();
    EXPECT_THAT(Pay(), ElementsAre(Bytes{0x80, 61, 64}));
    EXPECT_TRUE(isPaid);
    Hear({0x80, 60, 0});
    EXPECT_THAT(Pay(), ElementsAre(Bytes{0x80, 60, 64}));
}

TEST_F(AlsaOwedTest, ASystemExclusiveThatWasUnderWayIsEnded) {
    Hear({0xF0, 1, 2});
    Hear({0xF8});
    EXPECT_TRUE(owed.IsInExclusive(0));
    owed.Leave(0);
    Hear({3, 0xF7});
    EXPECT_FALSE(owed.IsInExclusive(0));
    debt = owed.All();
    EXPECT_THAT(Pay(), ElementsAre(Bytes{0xF7}));
}

TEST_F(AlsaOwedTest, WithoutRoomTheRestIsPaidLater) {
    for (std::uint8_t note = 0; note < 5; ++note) {
        Hear({0x90, note, 100});
    }
    owed.Leave(0);
    for (std::uint8_t note = 0; note < 5; ++note) {
        Hear({0x80, note, 100});
    }
    debt = owed.All();
    EXPECT_EQ(Pay(0, 2).size(), 2U);
    EXPECT_FALSE(isPaid);
    EXPECT_THAT(Pay(0, 3), ElementsAre(Bytes{0x80, 2, 64}, Bytes{0x80, 3, 64}, Bytes{0x80, 4, 64}));
    EXPECT_TRUE(isPaid);
}

TEST_F(AlsaOwedTest, NothingIsOwedAnyLongerWhenNobodyIsLeftBehind) {
    Hear({0x90, 60, 100});
    Hear({0xF0, 1});
    owed.Leave(0);
    owed.Settle(0);
    EXPECT_FALSE(owed.IsOwed(0));
}

}  // namespace
}  // namespace vexil
