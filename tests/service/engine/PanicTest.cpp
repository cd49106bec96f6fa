// Every note ends everywhere: what sounds on ways, and what inputs may have been left with besides.
#include "service/engine/Engine.h"
#include "service/engine/Silencing.h"
#include "tests/service/engine/EngineFixture.h"

namespace vexil {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Pedals and All Notes Off on every channel, in their order.
std::vector<Bytes> Silencing() {
    std::vector<Bytes> messages;
    for (std::uint8_t channel = 0; channel < 16; ++channel) {
        for (const std::uint8_t control : Bytes{64, 66, 67, 69, 123}) {
            messages.push_back({static_cast<std::uint8_t>(0xB0 | channel), control, 0});
        }
    }
    return messages;
}

std::vector<Bytes> Behind(std::vector<Bytes> first, const std::vector<Bytes>& rest) {
    first.insert(first.end(), rest.begin(), rest.end());
    return first;
}

class PanicTest : public ::testing::Test {
  protected:
    PanicTest() { engine.SetRemoteSink(&remote); }

    static std::uint64_t Bit(int port) { return std::uint64_t{1} << port; }
    void SetWay(int port, const Way& way) {
        ways[static_cast<std::size_t>(port)] = way;
        ASSERT_TRUE(engine.PostWays(ways));
        engine.TakeCommands(now);
    }
    void Write(int source, const Bytes& bytes) { engine.Write(source, now, bytes); }
    void Panic(std::uint64_t silenced = 0) {
        ASSERT_TRUE(engine.PostPanic(silenced));
        engine.TakeCommands(now);
    }
    void Run() { engine.Run(now + 1, inputs, nullptr); }
    std::vector<Bytes> Heard(int port) {
        Run();
        return inputs.MessagesOf(port);
    }
    bool IsDone() const { return engine.Done() == engine.Posted(); }

    Engine engine;
    MemorySink inputs;
    MemorySink remote;
    WayTable ways;
    std::uint64_t now = 1'000'000'000;
};

TEST_F(PanicTest, WhatSoundsOnAWayIsReleasedAndTheWayGoesOn) {
    SetWay(3, To(7));
    Write(3, {0x90, 60, 100, 0xB0, 64, 127});
    Panic();
    Write(3, {0x91, 40, 1});
    EXPECT_THAT(Heard(7), ElementsAre(Bytes{0x90, 60, 100}, Bytes{0xB0, 64, 127}, Bytes{0x80, 60, 64},
                                      Bytes{0xB0, 64, 0}, Bytes{0x91, 40, 1}));
    EXPECT_TRUE(IsDone());
}

TEST_F(PanicTest, WhatAnotherComputerPlaysIsReleased) {
    const std::optional<int> source = engine.TakeSource(To(7), now);
    ASSERT_TRUE(source.has_value());
    const Bytes note = {0x90, 60, 100};
    ASSERT_TRUE(engine.PostArrival({Arrival::Kind::Message, *source, now}, note));
    engine.TakeArrivals(0);
    Panic();
    EXPECT_THAT(Heard(7), ElementsAre(note, Bytes{0x80, 60, 64}));
}

TEST_F(PanicTest, WhatATestOutputPlaysIsReleased) {
    ASSERT_TRUE(engine.PostWay(kTestSourceBase + 3, To(7)));
    ASSERT_TRUE(engine.PostTestBytes(3, Bytes{0x90, 60, 100}));
    Panic();
    EXPECT_THAT(Heard(7), ElementsAre(Bytes{0x90, 60, 100}, Bytes{0x80, 60, 64}));
}

TEST_F(PanicTest, AnInputHearsPedalsAndAllNotesOffOnEveryChannelBehindTheReleases) {
    SetWay(3, To(7));
    Write(3, {0x90, 60, 100});
    Panic(Bit(7));
    EXPECT_EQ(Heard(7), Behind({{0x90, 60, 100}, {0x80, 60, 64}}, Silencing()));
    EXPECT_TRUE(IsDone());
}

TEST_F(PanicTest, AnInputToWhichNoWayLeadsHearsItToo) {
    Panic(Bit(9));
    EXPECT_EQ(Heard(9), Silencing());
    EXPECT_THAT(inputs.MessagesOf(8), IsEmpty());
}

TEST_F(PanicTest, AWayToAnotherComputerIsReleasedAndSilencedThere) {
    SetWay(3, {Destination::Remote(5, 8, 3)});
    Write(3, {0x90, 60, 100});
    Panic();
    Run();
    EXPECT_EQ(remote.MessagesOf(8), Behind({{0x90, 60, 100}, {0x80, 60, 64}}, Silencing()));
    Write(3, {0x91, 40, 1});
    Run();
    EXPECT_EQ(remote.MessagesOf(8).back(), (Bytes{0x91, 40, 1})) << "the way goes on";
}

TEST_F(PanicTest, ATestOutputToAnotherComputerIsSilencedThere) {
    ASSERT_TRUE(engine.PostWay(kTestSourceBase + 3, {Destination::Remote(5, 8, kTestSourceBase + 3)}));
    Panic();
    Run();
    EXPECT_EQ(remote.MessagesOf(8), Silencing());
}

TEST_F(PanicTest, ASystemExclusiveIsEndedAndItsRestIsLeftOut) {
    SetWay(3, To(7));
    Write(3, {0xF0, 1, 2});
    Panic(Bit(7));
    Write(3, {3, 4, 0xF7, 0x90, 60, 100});
    const Bytes stream = [&] {
        Run();
        return inputs.StreamOf(7);
    }();
    EXPECT_THAT(Bytes(stream.begin(), stream.begin() + 5), ElementsAre(0xF0, 1, 2, 0xF7, 0xB0));
    EXPECT_THAT(Bytes(stream.end() - 3, stream.end()), ElementsAre(0x90, 60, 100));
    EXPECT_EQ(stream.size(), 4 + 3 * kSilencingMessages + 3);
}

TEST_F(PanicTest, NothingIsDoneBeforeEveryInputHadRoom) {
    inputs.Refill(7, 30);
    Panic(Bit(7) | Bit(8));
    EXPECT_EQ(Heard(7).size(), 10U);
    EXPECT_EQ(Heard(8), Silencing()) << "one without room keeps no other waiting";
    EXPECT_FALSE(IsDone());
    inputs.Refill(1000);
    EXPECT_EQ(Heard(7), Silencing());
    EXPECT_TRUE(IsDone());
}

TEST_F(PanicTest, AnotherOneWhileTheFirstWaitsForRoomSaysNothingTwice) {
    inputs.Refill(7, 0);
    Panic(Bit(7));
    Run();
    Panic(Bit(7));
    inputs.Refill(1000);
    EXPECT_EQ(Heard(7), Silencing());
    Panic(Bit(7));
    EXPECT_EQ(Heard(7).size(), 2 * kSilencingMessages) << "a later one says it again";
}

TEST_F(PanicTest, WhatWaitsWhenTheMidiSystemGoesIsForgottenAndCountsForNobody) {
    inputs.Refill(7, 0);
    Panic(Bit(7));
    Run();
    engine.Forget();
    inputs.Refill(1000);
    EXPECT_THAT(Heard(7), IsEmpty());
    EXPECT_EQ(engine.CountersOfSource(0).dropped, 0U);
    EXPECT_TRUE(IsDone());
}

}  // namespace
}  // namespace vexil
