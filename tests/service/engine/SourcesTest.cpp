// Sources that come and go, and destinations beyond this computer.
#include <set>

#include "service/engine/Engine.h"
#include "service/engine/Merger.h"
#include "tests/service/engine/EngineFixture.h"

namespace vexil {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class SourcesTest : public ::testing::Test {
  protected:
    int Take(const Way& way) {
        const std::optional<int> source = engine.TakeSource(way, now);
        EXPECT_TRUE(source.has_value());
        engine.TakeArrivals(0);
        return source.value_or(-1);
    }
    void GiveBack(int source) {
        ASSERT_TRUE(engine.PostArrival({Arrival::Kind::GiveBack, source, now}));
        engine.TakeArrivals(0);
        engine.TakeCommands(now);
    }
    int TakeWriter(int port) {
        const std::optional<int> source = engine.TakeWriter(port);
        EXPECT_TRUE(source.has_value());
        return source.value_or(-1);
    }
    void SetWay(int port, const Way& way) {
        ways[static_cast<std::size_t>(port)] = way;
        ASSERT_TRUE(engine.PostWays(ways));
        engine.TakeCommands(now);
    }
    void Write(int source, const Bytes& bytes) { engine.Write(source, now, bytes); }
    std::vector<Bytes> Heard(int port) {
        engine.Run(now + 1, sink);
        return sink.MessagesOf(port);
    }

    Engine engine;
    MemorySink sink;
    WayTable ways;
    std::uint64_t now = 1'000'000'000;
};

TEST_F(SourcesTest, ATakenSourceIsHeardAndItsNotesAreReleasedWhenItIsGivenBack) {
    const int source = Take(To(7));
    Write(source, {0x90, 60, 100});
    GiveBack(source);
    EXPECT_THAT(Heard(7), ElementsAre(Bytes{0x90, 60, 100}, Bytes{0x80, 60, 64}));
}

TEST_F(SourcesTest, WhatIsWrittenToASourceThatWasGivenBackIsLeftOut) {
    const int source = Take(To(7));
    GiveBack(source);
    Write(source, {0x90, 60, 100});
    EXPECT_THAT(Heard(7), IsEmpty());
}

TEST_F(SourcesTest, AllSourcesCanBeTakenAtOnceAndEachIsAnother) {
    std::set<int> taken;
    for (int i = 0; i < kTakenSources; ++i) {
        taken.insert(Take(To(7)));
    }
    EXPECT_EQ(taken.size(), static_cast<std::size_t>(kTakenSources));
    EXPECT_GE(kTakenSources, 512);
    EXPECT_EQ(engine.TakeSource(To(7), now), std::nullopt);
    GiveBack(*taken.begin());
    EXPECT_EQ(Take(To(7)), *taken.begin());
}

TEST_F(SourcesTest, ASourceIsNotTakenAgainWhileItsNotesAreStillToBeReleased) {
    const int sounding = Take(To(7));
    for (int i = 1; i < kTakenSources; ++i) {
        Take(To(8));
    }
    Write(sounding, {0x90, 60, 100});
    engine.Run(now + 1, sink);
    sink.Refill(0);
    GiveBack(sounding);
    engine.Run(now + 1, sink);
    EXPECT_EQ(engine.TakeSource(To(7), now), std::nullopt);
    sink.Refill(100);
    engine.Run(now + 1, sink);
    EXPECT_EQ(engine.TakeSource(To(7), now), sounding);
}

TEST_F(SourcesTest, AWayThatComesFromElsewhereCanBeLedElsewhere) {
    const int source = Take(To(7));
    Write(source, {0x90, 60, 100});
    ASSERT_TRUE(engine.PostArrival({Arrival::Kind::Way, source, now, To(8)}));
    engine.TakeArrivals(0);
    Write(source, {0x90, 62, 100});
    EXPECT_THAT(Heard(7), ElementsAre(Bytes{0x90, 60, 100}, Bytes{0x80, 60, 64}));
    EXPECT_THAT(Heard(8), ElementsAre(Bytes{0x90, 62, 100}));
}

TEST_F(SourcesTest, AWriterHasTheWayOfItsOutputAlsoWhenThatChanges) {
    SetWay(3, To(7));
    const int writer = TakeWriter(3);
    engine.WriteMessage(writer, now, Bytes{0x90, 60, 100});
    SetWay(3, To(8));
    engine.WriteMessage(writer, now, Bytes{0x90, 62, 100});
    EXPECT_THAT(Heard(7), ElementsAre(Bytes{0x90, 60, 100}, Bytes{0x80, 60, 64}));
    EXPECT_THAT(Heard(8), ElementsAre(Bytes{0x90, 62, 100}));
}

TEST_F(SourcesTest, AWriterThatIsGivenBackIsReleasedAloneAndCanBeTakenForAnotherOutput) {
    SetWay(3, To(7));
    SetWay(4, To(8));
    const int gone = TakeWriter(3);
    const int staying = TakeWriter(3);
    engine.WriteMessage(gone, now, Bytes{0x90, 60, 100});
    engine.WriteMessage(staying, now, Bytes{0x90, 62, 100});
    engine.GiveBackWriter(gone, now);
    EXPECT_THAT(Heard(7), ElementsAre(Bytes{0x90, 60, 100}, Bytes{0x80, 60, 64}, Bytes{0x90, 62, 100}));
    EXPECT_EQ(TakeWriter(4), gone);
    engine.WriteMessage(gone, now, Bytes{0x90, 64, 100});
    EXPECT_THAT(Heard(8), ElementsAre(Bytes{0x90, 64, 100}));
}

TEST_F(SourcesTest, WritersRunOutAfterAllAreTaken) {
    for (int i = 0; i < kWriterSources; ++i) {
        TakeWriter(i % kMaxPorts);
    }
    EXPECT_EQ(engine.TakeWriter(0), std::nullopt);
}

TEST_F(SourcesTest, ARealtimeMessageOfAnotherSourceStandsBetweenThePiecesOfASystemExclusive) {
    ways[4] = To(7);
    SetWay(3, To(7));
    Write(3, {0xF0, 1});
    engine.Run(now + 1, sink);
    Write(4, {0xF8, 0x90, 60, 100, 0xF8});
    EXPECT_THAT(Heard(7), ElementsAre(Bytes{0xF0, 1}, Bytes{0xF8}));
    Write(3, {2, 0xF7});
    EXPECT_THAT(Heard(7),
                ElementsAre(Bytes{0xF0, 1}, Bytes{0xF8}, Bytes{2, 0xF7}, Bytes{0x90, 60, 100}, Bytes{0xF8}));
}

TEST_F(SourcesTest, OfMessagesDueAtOneTimeTheOneThatCameFirstIsHeardFirst) {
    ways[4] = To(7);
    SetWay(3, To(7));
    Write(4, {0xC0, 4});
    Write(3, {0xC0, 3});
    EXPECT_THAT(Heard(7), ElementsAre(Bytes{0xC0, 4}, Bytes{0xC0, 3}));
}

// Keeps what other computers are to hear.
class RemoteSink : public EngineSink {
  public:
    std::size_t Room(const Destination&) const override { return room; }
    void Deliver(const Destination& to, std::uint64_t, std::span<const std::uint8_t> bytes) override {
        heard.emplace_back(to, Bytes(bytes.begin(), bytes.end()));
    }
    std::size_t room = 1'000'000;
    std::vector<std::pair<Destination, Bytes>> heard;
};

class RemoteDestinationTest : public SourcesTest {
  protected:
    RemoteDestinationTest() { engine.SetRemoteSink(&remote); }
    static Way ToOther(int computer, int port, int from) {
        return {Destination::Remote(computer, port, from)};
    }

    RemoteSink remote;
};

TEST_F(RemoteDestinationTest, AMessageGoesToTheComputerAndThePortOfItsWay) {
    SetWay(3, ToOther(300, 9, 3));
    Write(3, {0x90, 60, 100});
    EXPECT_THAT(Heard(9), IsEmpty());
    EXPECT_THAT(remote.heard, ElementsAre(std::pair(Destination::Remote(300, 9, 3), Bytes{0x90, 60, 100})));
}

TEST_F(RemoteDestinationTest, NotesAreReleasedAtTheComputerThatHeardThem) {
    SetWay(3, ToOther(300, 9, 3));
    Write(3, {0x90, 60, 100});
    SetWay(3, ToOther(301, 9, 3));
    Write(3, {0x90, 62, 100});
    Heard(9);
    EXPECT_THAT(remote.heard, ElementsAre(std::pair(Destination::Remote(300, 9, 3), Bytes{0x90, 60, 100}),
                                          std::pair(Destination::Remote(300, 9, 3), Bytes{0x80, 60, 64}),
                                          std::pair(Destination::Remote(301, 9, 3), Bytes{0x90, 62, 100})));
}

TEST_F(RemoteDestinationTest, AnotherOutputDoesNotWaitForASystemExclusive) {
    ways[4] = ToOther(300, 9, 4);
    SetWay(3, ToOther(300, 9, 3));
    Write(3, {0xF0, 1});
    Write(4, {0x90, 60, 100});
    Heard(9);
    EXPECT_EQ(remote.heard.size(), 2U);
}

TEST_F(RemoteDestinationTest, AComputerWithoutRoomIsWaitedForWhileInputsHearOn) {
    ways[4] = To(7);
    SetWay(3, ToOther(300, 9, 3));
    remote.room = 0;
    Write(3, {0x90, 60, 100});
    Write(4, {0x90, 62, 100});
    EXPECT_THAT(Heard(7), ElementsAre(Bytes{0x90, 62, 100}));
    EXPECT_THAT(remote.heard, IsEmpty());
    EXPECT_EQ(engine.NextDue(), now);
    remote.room = 100;
    Heard(7);
    EXPECT_EQ(remote.heard.size(), 1U);
}

TEST_F(RemoteDestinationTest, TheLossOfTheMidiSystemReleasesWhatSoundsAtOtherComputers) {
    SetWay(3, ToOther(300, 9, 3));
    Write(3, {0x90, 60, 100});
    Heard(9);
    Write(3, {0x90, 62, 100});
    engine.Forget();
    remote.heard.clear();
    Heard(9);
    EXPECT_THAT(remote.heard, ElementsAre(std::pair(Destination::Remote(300, 9, 3), Bytes{0x80, 60, 64})));
}

}  // namespace
}  // namespace vexil
