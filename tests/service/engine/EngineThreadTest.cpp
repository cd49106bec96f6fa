// The engine on a thread of its own while another thread posts commands and reads counters.
#include <atomic>
#include <cstdlib>
#include <new>
#include <random>
#include <thread>

#include "service/engine/Engine.h"
#include "tests/service/engine/EngineFixture.h"
#include "tests/service/engine/InputListener.h"

namespace {

// Of the thread that reads it.
thread_local std::uint64_t allocations = 0;

void* Allocate(std::size_t size) {
    ++allocations;
    void* memory = std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

}  // namespace

void* operator new(std::size_t size) {
    return Allocate(size);
}
void* operator new[](std::size_t size) {
    return Allocate(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace vexil {
namespace {

constexpr int kWriters = 8;
constexpr int kInputs = 4;

class ListeningSink : public EngineSink {
  public:
    std::size_t Room(const Destination&) const override { return 4096; }
    void Deliver(const Destination& to, std::uint64_t, std::span<const std::uint8_t> bytes) override {
        listeners[to.port].Hear(bytes);
    }
    std::array<InputListener, kMaxPorts> listeners;
};

// Calls the engine as a back end does, until told to end and caught up.
struct EngineThread {
    void Main() {
        std::minstd_rand random(7);
        const std::uint64_t before = allocations;
        std::array<std::uint8_t, 40> stream{};
        for (std::uint64_t now = 1; !(ending.load() && engine.Done() == posted.load()); now += 50'000) {
            engine.TakeCommands(now);
            engine.TakeArrivals(0);
            for (int writer = 0; writer < kWriters && !ending.load(); ++writer) {
                Compose(stream, writer, random);
                const std::size_t cut = random() % stream.size();
                engine.Write(writer, now, std::span(stream).first(cut));
                engine.Write(writer, now, std::span(stream).subspan(cut));
            }
            if (random() % 50 == 0) {
                engine.WriterGone(static_cast<int>(random() % kWriters), now);
            }
            WriteOfOneProgram(now, random);
            engine.Run(now + 50'000, sink);
            ++cycles;
        }
        allocated = allocations - before;
    }
    // A program that the MIDI system tells apart comes, plays a note and may leave.
    void WriteOfOneProgram(std::uint64_t now, std::minstd_rand& random) {
        if (ending.load()) {
            return;
        }
        if (!program) {
            program = engine.TakeWriter(static_cast<int>(random() % kWriters));
        }
        const std::array<std::uint8_t, 3> note = {0x95, static_cast<std::uint8_t>(random() % 8), 100};
        engine.WriteMessage(*program, now, note);
        if (random() % 4 == 0) {
            engine.GiveBackWriter(*program, now);
            program.reset();
        }
    }
    static void Compose(std::array<std::uint8_t, 40>& stream, int writer, std::minstd_rand& random) {
        stream.fill(static_cast<std::uint8_t>(writer));
        stream[0] = static_cast<std::uint8_t>(0x90 | random() % 4);
        stream[1] = static_cast<std::uint8_t>(random() % 8);
        stream[2] = static_cast<std::uint8_t>(random() % 2);
        stream[3] = 0xE0;
        stream[6] = 0xF0;
        stream[20] = 0xF8;
        stream[39] = 0xF7;
    }

    Engine engine;
    ListeningSink sink;
    std::optional<int> program;
    std::atomic<bool> ending{false};
    std::atomic<std::uint64_t> posted{0};  // final once `ending` is true
    std::uint64_t cycles = 0;
    std::uint64_t allocated = 0;
};

template <class Post>
void PostPatiently(Post post) {
    while (!post()) {
        std::this_thread::yield();
    }
}

TEST(EngineThreadTest, CommandsCountersAndMessagesOfTwoThreadsMeetAndTheEngineAllocatesNothing) {
    auto shared = std::make_unique<EngineThread>();
    Engine& engine = shared->engine;
    std::thread thread([&] { shared->Main(); });
    std::mt19937 random(11);
    std::uint64_t read = 0;
    std::vector<int> taken;
    for (int round = 0; round < 3000; ++round) {
        const int port = static_cast<int>(random() % kWriters);
        const Way way = random() % 4 == 0 ? Way{} : To(static_cast<int>(random() % kInputs));
        switch (random() % 9) {
            case 0:
                PostPatiently([&] {
                    WayTable ways;
                    ways.fill(way);
                    return engine.PostWays(ways);
                });
                break;
            case 1:
                PostPatiently([&] { return engine.PostWay(kTestSourceBase + port, way); });
                break;
            case 2:
                PostPatiently([&] { return engine.PostTestBytes(port, Bytes{0x90, 1, 100, 0xE0, 1, 1}); });
                break;
            case 3:
                PostPatiently(
                    [&] { return engine.PostQuantization(static_cast<std::uint32_t>(random() % 3)); });
                break;
            case 4:
                PostPatiently([&] { return engine.PostWriterGone(port); });
                break;
            case 5:
                if (const std::optional<int> source = engine.TakeSource(way, 0)) {
                    taken.push_back(*source);
                }
                break;
            case 6:
                if (!taken.empty() && engine.PostArrival({Arrival::Kind::GiveBack, taken.back(), 0})) {
                    taken.pop_back();
                }
                break;
            case 7:
                if (!taken.empty()) {
                    PostPatiently([&] {
                        return engine.PostArrival({Arrival::Kind::Message, taken.back(), 0},
                                                  Bytes{0x90, 1, 100});
                    });
                }
                break;
            default:
                read += engine.CountersOfSource(port).messages + engine.CountersOfInput(port).bytes;
                break;
        }
    }
    // On a busy computer the engine may have done nothing but take commands until here.
    for (int port = 0; read == 0; port = (port + 1) % kWriters) {
        read += engine.CountersOfSource(port).messages;
        std::this_thread::yield();
    }
    // Nothing may be written behind the release.
    for (const int source : taken) {
        PostPatiently([&] { return engine.PostArrival({Arrival::Kind::GiveBack, source, 0}); });
    }
    PostPatiently([&] { return engine.PostWays({}); });
    PostPatiently([&] { return engine.PostReleaseAll(); });
    shared->posted = engine.Posted();
    shared->ending = true;
    thread.join();
    EXPECT_EQ(engine.Done(), engine.Posted());
    EXPECT_GT(read, 0U);
    EXPECT_GT(shared->cycles, 0U);
    EXPECT_EQ(shared->allocated, 0U);
    for (int port = 0; port < kInputs; ++port) {
        const InputListener& listener = shared->sink.listeners[static_cast<std::size_t>(port)];
        EXPECT_FALSE(listener.IsBroken()) << port;
        EXPECT_TRUE(listener.IsAtRest()) << port;
    }
}

TEST(EngineThreadTest, TheCountOfAllocationsSeesOne) {
    const std::uint64_t before = allocations;
    const auto memory = std::make_unique<int>(1);
    EXPECT_GT(allocations, before) << *memory;
}

}  // namespace
}  // namespace vexil
