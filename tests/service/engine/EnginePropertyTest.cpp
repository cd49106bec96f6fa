// Random streams through randomly changing routes. Every run is fixed by its seed.
#include <random>

#include "service/engine/Engine.h"
#include "tests/service/engine/EngineFixture.h"
#include "tests/service/engine/InputListener.h"

namespace vexil {
namespace {

constexpr int kWriters = 6;
constexpr int kInputs = 4;

// Writes of one program, cut anywhere. Channels of notes and controls are shared with the others; polyphonic
// pressure on the channel of the writer's own number carries a number that goes up.
struct Program {
    Bytes pending;    // of the message that is being written
    int number = -1;  // that the message carries; -1: none
    int lastNumber = 0;
};

// Lets a turn go on so many times.
class CountedLimit : public TurnLimit {
  public:
    explicit CountedLimit(std::uint32_t times) : left(times) {}
    bool MayGoOn() override {
        hasStopped = left == 0;
        return left != 0 && left-- != 0;
    }
    bool HasStopped() const { return hasStopped; }

  private:
    std::uint32_t left;
    bool hasStopped = false;
};

enum class Turns { Whole, Limited };

class EngineWorld {
  public:
    EngineWorld(unsigned seed, std::size_t queueBytes, std::size_t room, Turns turns = Turns::Whole)
        : engine(queueBytes), random(seed), roomOfOneRun(room), isLimited(turns == Turns::Limited) {}

    void Live(int steps) {
        for (int step = 0; step < steps; ++step) {
            now += Draw(isLimited ? 10'000 : 300'000);
            Step();
        }
    }
    void End() {
        ASSERT_TRUE(engine.PostReleaseAll());
        engine.TakeCommands(now);
        for (int run = 0; run < 3; ++run) {
            sink.Refill(100'000'000);
            engine.Run(kForever, sink);
        }
        EXPECT_EQ(engine.Done(), engine.Posted());
        EXPECT_FALSE(engine.NextDue().has_value());
    }

    void ExpectAtRest() {
        for (int port = 0; port < kMaxPorts; ++port) {
            InputListener listener;
            for (const Delivery& delivery : sink.heard[static_cast<std::size_t>(port)]) {
                listener.Hear(delivery.bytes);
            }
            EXPECT_FALSE(listener.IsBroken()) << "input " << port;
            EXPECT_TRUE(listener.IsAtRest()) << "input " << port;
        }
    }
    // The numbers that each input heard of each writer: all that were written for it, or some of them, in
    // order.
    void ExpectNumbersInOrder(bool allOfThem) {
        std::array<std::array<std::vector<int>, kWriters>, kInputs> heard;
        for (std::size_t port = 0; port < kInputs; ++port) {
            for (const Delivery& delivery : sink.heard[port]) {
                if (delivery.bytes[0] >> 4 == 0xA) {
                    heard[port][delivery.bytes[0] & 0x0FU].push_back(delivery.bytes[1] << 7 |
                                                                     delivery.bytes[2]);
                }
            }
            for (std::size_t writer = 0; writer < kWriters; ++writer) {
                const std::vector<int>& numbers = heard[port][writer];
                if (allOfThem) {
                    EXPECT_EQ(numbers, written[port][writer]) << "writer " << writer << " at input " << port;
                }
                EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end(), std::less_equal<>()));
                heardInAll += numbers.size();
            }
        }
        EXPECT_GT(heardInAll, 0U) << "the run shows nothing";
    }
    std::uint64_t Dropped() const {
        std::uint64_t dropped = 0;
        for (int source = 0; source < kTakenSourceBase; ++source) {
            dropped += engine.CountersOfSource(source).dropped;
        }
        return dropped;
    }

    int StoppedTurns() const { return stoppedTurns; }

  private:
    std::uint32_t Draw(std::uint32_t below) { return static_cast<std::uint32_t>(random() % below); }
    std::uint8_t Byte(std::uint32_t below) { return static_cast<std::uint8_t>(Draw(below)); }

    Way RandomWay() {
        const std::uint32_t draw = Draw(10);
        return draw < 2 ? Way{} : To(static_cast<int>(Draw(kInputs)), draw == 2);
    }
    void Step() {
        const std::uint32_t draw = Draw(100);
        if (draw < 2) {
            ways[Draw(kWriters)] = RandomWay();
            ASSERT_TRUE(engine.PostWays(ways));
            engine.TakeCommands(now);
        } else if (draw < 3) {
            const int writer = static_cast<int>(Draw(kWriters));
            if (Draw(2) == 0) {
                engine.OneWriterGone(writer, now);
            } else {
                programs[static_cast<std::size_t>(writer)].pending.clear();
                engine.WriterGone(writer, now);
            }
        } else if (draw < 4) {
            ASSERT_TRUE(engine.PostQuantization(Draw(3) * 10));
            engine.TakeCommands(now);
        } else if (draw < 6) {
            ASSERT_TRUE(engine.PostWay(kTestSourceBase + static_cast<int>(Draw(2)), RandomWay()));
            engine.TakeCommands(now);
        } else if (draw < 10) {
            const auto status = static_cast<std::uint8_t>(0x90 | Draw(3));
            ASSERT_TRUE(engine.PostTestBytes(static_cast<int>(Draw(2)), Bytes{status, Byte(5), Byte(2)}));
            engine.TakeCommands(now);
        } else if (draw < 30) {
            Run();
        } else {
            Write(Draw(kWriters));
        }
    }
    void Run() {
        sink.Refill(roomOfOneRun == 0 ? Draw(40) : roomOfOneRun);
        if (isLimited) {
            // Seldom, or there is never more to do than a turn may.
            if (Draw(200) == 0) {
                CountedLimit limit(Draw(3));
                engine.Run(now + 1, sink, &limit);
                stoppedTurns += limit.HasStopped() ? 1 : 0;
            }
        } else {
            engine.Run(now + 1, sink);
        }
    }
    Bytes RandomMessage(std::size_t writer) {
        Program& program = programs[writer];
        const std::uint8_t channel = Byte(3);
        program.number = -1;
        switch (Draw(8)) {
            case 0:
            case 1:
                return {static_cast<std::uint8_t>(0x90 | channel), Byte(5), Byte(3)};
            case 2:
                return {static_cast<std::uint8_t>(0x80 | channel), Byte(5), 0};
            case 3:
                return {static_cast<std::uint8_t>(0xB0 | channel),
                        Byte(2) == 0 ? std::uint8_t{1} : std::uint8_t{64}, Byte(2)};
            case 4:
                return {static_cast<std::uint8_t>(0xE0 | channel), 0,
                        static_cast<std::uint8_t>(63 + Draw(2))};
            case 5: {
                Bytes exclusive(Draw(Draw(20) == 0 ? 5000 : 20), static_cast<std::uint8_t>(writer));
                exclusive.insert(exclusive.begin(), 0xF0);
                exclusive.push_back(0xF7);
                return exclusive;
            }
            default:
                program.number = ++program.lastNumber;
                return {static_cast<std::uint8_t>(0xA0 | writer),
                        static_cast<std::uint8_t>(program.number >> 7),
                        static_cast<std::uint8_t>(program.number & 0x7F)};
        }
    }
    void Write(std::size_t writer) {
        Program& program = programs[writer];
        if (Draw(10) == 0) {
            engine.Write(static_cast<int>(writer), now, Bytes{0xF8});
        }
        if (program.pending.empty()) {
            program.pending = RandomMessage(writer);
        }
        const std::size_t count = 1 + Draw(static_cast<std::uint32_t>(program.pending.size()));
        engine.Write(static_cast<int>(writer), now, std::span(program.pending).first(count));
        program.pending.erase(program.pending.begin(),
                              program.pending.begin() + static_cast<std::ptrdiff_t>(count));
        const Destination& to = ways[writer].to;
        if (program.pending.empty() && program.number >= 0 && to.kind == Destination::Kind::Input) {
            written[to.port][writer].push_back(program.number);
        }
    }

    Engine engine;
    MemorySink sink;
    WayTable ways;
    std::mt19937 random;
    std::array<Program, kWriters> programs;
    std::array<std::array<std::vector<int>, kWriters>, kInputs> written;
    std::size_t roomOfOneRun;  // 0: little, and never the same
    bool isLimited;
    int stoppedTurns = 0;
    std::size_t heardInAll = 0;
    std::uint64_t now = 1'000'000'000;
};

TEST(EnginePropertyTest, WithRoomNothingIsLostAndEverythingComesToRest) {
    for (unsigned seed = 1; seed <= 60; ++seed) {
        SCOPED_TRACE(seed);
        EngineWorld world(seed, kDefaultQueueBytes, 1'000'000);
        world.Live(4000);
        world.End();
        world.ExpectNumbersInOrder(true);
        world.ExpectAtRest();
        EXPECT_EQ(world.Dropped(), 0U);
        if (::testing::Test::HasFailure()) {
            break;
        }
    }
}

TEST(EnginePropertyTest, WithLittleRoomAtTheInputsNothingIsLostThatTheQueuesHold) {
    for (unsigned seed = 101; seed <= 140; ++seed) {
        SCOPED_TRACE(seed);
        EngineWorld world(seed, kDefaultQueueBytes, 0);
        world.Live(4000);
        world.End();
        world.ExpectNumbersInOrder(true);
        world.ExpectAtRest();
        EXPECT_EQ(world.Dropped(), 0U);
        if (::testing::Test::HasFailure()) {
            break;
        }
    }
}

TEST(EnginePropertyTest, InTurnsThatAreLimitedNothingIsLostAndEverythingComesToRest) {
    int stopped = 0;
    for (const std::size_t room : {std::size_t{1'000'000}, std::size_t{500}}) {
        for (unsigned seed = 301; seed <= 315; ++seed) {
            SCOPED_TRACE(seed);
            EngineWorld world(seed, kDefaultQueueBytes, room, Turns::Limited);
            world.Live(20000);
            world.End();
            world.ExpectNumbersInOrder(true);
            world.ExpectAtRest();
            EXPECT_EQ(world.Dropped(), 0U);
            stopped += world.StoppedTurns();
            if (::testing::Test::HasFailure()) {
                return;
            }
        }
    }
    EXPECT_GT(stopped, 0) << "no turn was limited";
}

TEST(EnginePropertyTest, WithQueuesThatOverrunEverythingStillComesToRestInOrder) {
    std::uint64_t dropped = 0;
    for (unsigned seed = 201; seed <= 240; ++seed) {
        SCOPED_TRACE(seed);
        EngineWorld world(seed, 0, 0);
        world.Live(12000);
        world.End();
        world.ExpectNumbersInOrder(false);
        world.ExpectAtRest();
        dropped += world.Dropped();
        if (::testing::Test::HasFailure()) {
            break;
        }
    }
    EXPECT_GT(dropped, 0U) << "no queue has overrun";
}

}  // namespace
}  // namespace vexil
