// How much the readers of an input can take; no sequencer is needed.
#include <map>

#include "service/backends/alsa/AlsaCodec.h"
#include "service/backends/alsa/AlsaReaders.h"
#include "tests/service/engine/EngineFixture.h"

namespace vexil {
namespace {

constexpr std::uint64_t kSecond = 1'000'000'000;
constexpr std::size_t kPlenty = 100'000'000;

class AlsaReadersTest : public ::testing::Test, protected AlsaReaders::RoomSource {
  protected:
    std::optional<AlsaRoom> RoomOf(int client) const override {
        ++asked;
        const auto found = rooms.find(client);
        return found == rooms.end() ? std::nullopt : std::optional(found->second);
    }
    void Connect(int port, std::initializer_list<int> clients) {
        std::vector<AlsaAddress> addresses;
        for (const int client : clients) {
            addresses.push_back({static_cast<std::uint8_t>(client), 0});
        }
        readers.SetReaders(port, addresses);
    }
    std::size_t RoomAt(std::uint64_t time) {
        readers.BeginCycle(time);
        return readers.Room(0);
    }

    std::map<int, AlsaRoom> rooms;
    mutable int asked = 0;
    AlsaReaders readers{*this};
};

TEST_F(AlsaReadersTest, NobodyTakesEverything) {
    EXPECT_FALSE(readers.HasReaders(0));
    EXPECT_GT(RoomAt(1), kPlenty);
    EXPECT_EQ(asked, 0);
}

TEST_F(AlsaReadersTest, TheFullestReaderCounts) {
    rooms = {{130, {200, 200}}, {131, {200, 30}}};
    Connect(0, {130});
    const std::size_t alone = RoomAt(1);
    Connect(0, {130, 131});
    const std::size_t both = RoomAt(2);
    EXPECT_LT(both, alone);
    EXPECT_GT(both, 0U);
}

TEST_F(AlsaReadersTest, ClientsOfTheKernelAndThoseThatHaveGoneTakeEverything) {
    rooms = {{20, {0, 0}}};
    Connect(0, {20, 140});
    EXPECT_GT(RoomAt(1), kPlenty);
}

TEST_F(AlsaReadersTest, ARoomIsAskedForOnceInACycle) {
    rooms = {{130, {200, 200}}};
    Connect(0, {130});
    Connect(1, {130});
    readers.BeginCycle(1);
    readers.Room(0);
    readers.Room(1);
    readers.Room(0);
    EXPECT_EQ(asked, 1);
    readers.BeginCycle(2);
    readers.Room(0);
    EXPECT_EQ(asked, 2);
}

// Of every size of a pool and whatever is sent, the kernel is never given more than it has room for.
TEST_F(AlsaReadersTest, NoMoreIsSentThanThereAreCells) {
    for (std::size_t total = 4; total < 2001; total += total < 64 ? 1 : 97) {
        rooms = {{130, {total, total}}};
        Connect(0, {130});
        readers.BeginCycle(1);
        std::size_t cells = 0;
        for (int round = 0;; ++round) {
            const std::size_t room = readers.Room(0);
            if (room < 3) {
                break;
            }
            // An exclusive as large as can be, or a short message.
            std::size_t left = round % 3 == 0 ? std::min(room, std::size_t{700}) : 0;
            do {
                const std::size_t piece = std::min(left, kAlsaPieceBytes);
                readers.Sent(0, piece);
                cells += 1 + (piece + kAlsaCellBytes - 1) / kAlsaCellBytes;
                left -= piece;
            } while (left != 0);
        }
        EXPECT_LE(cells, total);
        EXPECT_GT(cells, 0U) << total;
    }
}

TEST_F(AlsaReadersTest, WhatIsSentToOneInputIsMissingAtAnotherOfTheSameProgram) {
    rooms = {{130, {20, 20}}};
    Connect(0, {130});
    Connect(1, {130});
    readers.BeginCycle(1);
    const std::size_t before = readers.Room(1);
    readers.Room(0);
    readers.Sent(0, before);
    EXPECT_LT(readers.Room(1), before);
}

TEST_F(AlsaReadersTest, AReaderThatTakesNothingIsLeftBehindAndTakenUpAgain) {
    rooms = {{130, {200, 0}}, {131, {200, 200}}};
    Connect(0, {130, 131});
    EXPECT_EQ(RoomAt(kSecond), 0U);
    EXPECT_EQ(RoomAt(kSecond + AlsaReaders::kLongestWait - 1), 0U);
    EXPECT_GT(RoomAt(kSecond + AlsaReaders::kLongestWait), 1000U);
    EXPECT_TRUE(readers.HasLeftBehind(0));
    rooms[130].free = 150;
    EXPECT_GT(RoomAt(3 * kSecond), 1000U);
    EXPECT_FALSE(readers.HasCaughtUp(130));
    rooms[130].free = 200;
    readers.BeginCycle(4 * kSecond);
    EXPECT_TRUE(readers.HasCaughtUp(130));
    readers.TakeUp(130);
    EXPECT_FALSE(readers.HasLeftBehind(0));
    rooms[130].free = 0;
    EXPECT_EQ(RoomAt(5 * kSecond), 0U);
}

TEST_F(AlsaReadersTest, AReaderIsLeftBehindAtAllInputsThatItReads) {
    rooms = {{130, {200, 0}}, {131, {200, 200}}};
    Connect(0, {130, 131});
    Connect(1, {130});
    RoomAt(kSecond);
    RoomAt(kSecond + AlsaReaders::kLongestWait);
    EXPECT_TRUE(readers.HasLeftBehind(1));
    EXPECT_GT(readers.Room(1), kPlenty);
}

TEST_F(AlsaReadersTest, WhatOthersAreSentTakesNothingFromAReaderThatIsLeftBehind) {
    rooms = {{130, {200, 0}}, {131, {200, 200}}};
    Connect(0, {130, 131});
    RoomAt(kSecond);
    RoomAt(kSecond + AlsaReaders::kLongestWait);
    rooms[130].free = 200;
    readers.BeginCycle(3 * kSecond);
    const std::size_t before = readers.CellsOf(130);
    readers.Sent(0, 0);
    EXPECT_EQ(readers.CellsOf(130), before);
    readers.SentTo(130, 2);
    EXPECT_EQ(readers.CellsOf(130), before - 2);
}

TEST_F(AlsaReadersTest, AReaderThatDisconnectsIsNoLongerLeftBehind) {
    rooms = {{130, {200, 0}}};
    Connect(0, {130});
    RoomAt(kSecond);
    RoomAt(kSecond + AlsaReaders::kLongestWait);
    Connect(0, {});
    EXPECT_TRUE(readers.LeftBehind().none());
}

// A look each 10 ms at a reader that takes one event in each 100 ms; how long others of its input wait.
class SlowReaderTest : public AlsaReadersTest {
  protected:
    static constexpr std::uint64_t kLook = 10'000'000;

    std::uint64_t WaitOfOthers() {
        std::uint64_t waited = 0;
        for (int look = 0; look < 500; ++look) {
            rooms[130].free += look % 10 == 0 ? 1 : 0;
            now += kLook;
            if (RoomAt(now) != 0) {
                if (rooms[130].free == 0 || readers.Room(0) > 1000) {
                    return waited;
                }
                readers.Sent(0, 0);
                rooms[130].free -= std::min<std::size_t>(rooms[130].free, 1);
            }
            waited += kLook;
        }
        return waited;
    }

    std::uint64_t now = kSecond;
};

TEST_F(SlowReaderTest, KeepsOthersOfItsInputWaitingForASecondAndTheNextTimeForAMoment) {
    rooms = {{130, {200, 0}}, {131, {200, 200}}};
    Connect(0, {130, 131});
    EXPECT_LE(WaitOfOthers(), AlsaReaders::kLongestWait + 20 * kLook);
    readers.TakeUp(130);
    rooms[130].free = 190;
    RoomAt(now += kLook);
    rooms[130].free = 0;
    EXPECT_LE(WaitOfOthers(), AlsaReaders::kShortWait + 3 * kLook);
}

TEST_F(SlowReaderTest, IsLeftBehindAlsoIfItReadsEverythingNowAndThen) {
    rooms = {{130, {200, 0}}, {131, {200, 200}}};
    Connect(0, {130, 131});
    std::uint64_t waited = 0;
    for (int look = 0; look < 500 && !readers.HasLeftBehind(0); ++look) {
        rooms[130].free = look % 16 >= 13 ? 200 : 0;
        waited += RoomAt(now += kLook) == 0 ? kLook : 0;
    }
    EXPECT_TRUE(readers.HasLeftBehind(0));
    EXPECT_LE(waited, AlsaReaders::kLongestWait + 20 * kLook);
}

TEST_F(SlowReaderTest, IsAnotherAfterItHasDisconnected) {
    rooms = {{130, {200, 0}}, {131, {200, 200}}};
    Connect(0, {130, 131});
    WaitOfOthers();
    Connect(0, {131});
    Connect(0, {130, 131});
    rooms[130].free = 0;
    EXPECT_EQ(RoomAt(now += kLook), 0U);
    EXPECT_EQ(RoomAt(now += 10 * kLook), 0U);
}

TEST_F(SlowReaderTest, AGoodReaderOfALongMessageIsNeverLeftBehind) {
    rooms = {{130, {200, 0}}, {131, {200, 200}}};
    Connect(0, {130, 131});
    for (int look = 0; look < 1000; ++look) {
        rooms[130].free = look % 2 == 0 ? 60 : 0;
        const std::size_t room = RoomAt(now += kLook);
        EXPECT_LT(room, 2000U) << look;
    }
}

TEST_F(AlsaReadersTest, AReaderThatTakesALittleIsWaitedFor) {
    rooms = {{130, {200, 0}}};
    Connect(0, {130});
    for (std::uint64_t time = 1; time < 10; ++time) {
        rooms[130].free = 0;
        EXPECT_EQ(RoomAt(time * kSecond), 0U);
        rooms[130].free = 40;
        EXPECT_GT(RoomAt(time * kSecond + kSecond / 2), 0U);
    }
}

}  // namespace
}  // namespace vexil
