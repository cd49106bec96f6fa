// Two computers in one process: each with its engine, its thread and its socket, on loopback.
#include "service/network/NetworkHub.h"

#include <gmock/gmock.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <variant>

#include "platform/linux/network/UdpSocket.h"
#include "service/SteadyEngineClock.h"

namespace vexil {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kInput = 7;

bool HoldsWithin(std::chrono::seconds longest, const std::function<bool()>& holds) {
    for (const Clock::time_point end = Clock::now() + longest; Clock::now() < end;) {
        if (holds()) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return holds();
}

std::unique_ptr<UdpSocket> OpenSocket() {
    auto opened = UdpSocket::Open({0, InterfaceChoice::Loopback()});
    auto* socket = std::get_if<std::unique_ptr<UdpSocket>>(&opened);
    return socket == nullptr ? nullptr : std::move(*socket);
}

class Computer {
  public:
    explicit Computer(const char* itsName)
        : key(LinkKey::Make().value()),
          sealing(LinkSealing::Make(key)),
          socket(OpenSocket()),
          ring(std::size_t{256} << 10, waker),
          driver(engine, clock),
          hub({engine, ring, *socket, *sealing}, {key.Hash(), {itsName}}) {
        engine.SetRemoteSink(&ring);
        InputRules rules;
        rules.configuration.InputPorts = std::uint64_t{1} << kInput;
        rules.configuration.PortFlags[kInput].flags = kSourceComputerUnused | kSourcePortUnused;
        rules.heard = rules.configuration.InputPorts;
        hub.SetInputs(rules);
        hub.Start();
        driver.Turn();
        thread = std::make_unique<NetworkThread>(hub, driver);
        waker.thread = thread.get();
    }
    ~Computer() { EndThread(); }
    // The thread goes without a word to anybody.
    void EndThread() {
        waker.thread = nullptr;
        thread.reset();
    }
    void EndInOrder() {
        {
            const std::lock_guard lock(thread->Lock());
            hub.Stop();
        }
        EndThread();
    }
    template <class Use>
    auto With(Use use) {
        const std::lock_guard lock(thread->Lock());
        const auto result = use(hub);
        thread->Wake();
        return result;
    }
    void LeadTo(const Computer& other) {
        With([&](NetworkHub& mine) {
            const NetworkAddress there = NetworkAddress::V4({127, 0, 0, 1}, other.socket->Port());
            mine.Link().SetComputer(BootMicroseconds(), 1, {"", {{there, false}}, {}, false});
            mine.Link().OpenWay(BootMicroseconds(), 1, kTestSourceBase, kInput);
            return 0;
        });
        ASSERT_TRUE(engine.PostWay(kTestSourceBase, {Destination::Remote(1, kInput, kTestSourceBase), true}));
        driver.Turn();
    }
    LinkPeerState State() {
        return With([](NetworkHub& mine) {
            const std::vector<LinkPeerState> states = mine.Link().States();
            return states.empty() ? LinkPeerState() : states.front();
        });
    }
    bool HasAnswer(WayProblem problem) {
        const LinkPeerState state = State();
        return state.kind == LinkPeerState::Kind::Up && !state.waysOut.empty() && state.waysOut[0].answered &&
               state.waysOut[0].problem == problem;
    }
    void Play(std::vector<std::uint8_t> bytes) {
        ASSERT_TRUE(engine.PostTestBytes(0, bytes));
        driver.Turn();
    }
    std::uint64_t Heard() const { return engine.CountersOfInput(kInput).messages; }

    struct ThreadWaker : EngineWaker {
        void Wake() override {
            if (NetworkThread* woken = thread.load()) {
                woken->Wake();
            }
        }
        std::atomic<NetworkThread*> thread{nullptr};
    };

    LinkKey key;
    std::unique_ptr<LinkSealing> sealing;
    std::unique_ptr<UdpSocket> socket;
    ThreadWaker waker;
    Engine engine;
    RemoteRing ring;
    SteadyEngineClock clock;
    NetworkDriver driver;
    NetworkHub hub;
    std::unique_ptr<NetworkThread> thread;
};

class NetworkHubTest : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!OpenSocket()) {
            GTEST_SKIP() << "This machine has no loopback to bind to.";
        }
        laptop = std::make_unique<Computer>("laptop");
        studio = std::make_unique<Computer>("studio");
    }

    std::unique_ptr<Computer> laptop;
    std::unique_ptr<Computer> studio;
};

TEST_F(NetworkHubTest, ANoteOfOneComputerIsHeardOnTheOther) {
    laptop->LeadTo(*studio);
    ASSERT_TRUE(HoldsWithin(std::chrono::seconds(30), [&] { return laptop->HasAnswer(WayProblem::None); }));
    EXPECT_EQ(laptop->State().peerName, "studio");
    laptop->Play({0x90, 60, 100});
    EXPECT_TRUE(HoldsWithin(std::chrono::seconds(30), [&] { return studio->Heard() == 1; }));
}

TEST_F(NetworkHubTest, WhatTheEngineDeliveredWhileTheThreadHadToWaitIsHeardWhole) {
    constexpr int kSources = 8;
    constexpr std::size_t kEach = 1000;
    laptop->LeadTo(*studio);
    laptop->With([](NetworkHub& hub) {
        for (int source = 0; source < kSources; ++source) {
            hub.Link().OpenWay(BootMicroseconds(), 1, source, kInput);
        }
        return 0;
    });
    ASSERT_TRUE(HoldsWithin(std::chrono::seconds(30), [&] {
        const LinkPeerState state = laptop->State();
        return state.waysOut.size() == kSources + 1 &&
               std::all_of(state.waysOut.begin(), state.waysOut.end(),
                           [](const LinkWayOut& way) { return way.answered; });
    }));
    laptop->With([this](NetworkHub& hub) {
        const std::array<std::uint8_t, 3> message = {0xB0, 7, 100};
        for (std::size_t number = 0; number < kSources * kEach; ++number) {
            const Destination to = Destination::Remote(1, kInput, static_cast<int>(number % kSources));
            EXPECT_GE(laptop->ring.Room(to), message.size());
            laptop->ring.Deliver(to, laptop->clock.Now(), message);
        }
        hub.Deliver();
        return 0;
    });
    EXPECT_TRUE(HoldsWithin(std::chrono::seconds(30), [&] { return studio->Heard() == kSources * kEach; }));
    EXPECT_EQ(laptop->State().counters.lost, 0U);
}

TEST_F(NetworkHubTest, AChangeIsToldToTheControlThread) {
    pollfd news{studio->thread->EventDescriptor(), POLLIN, 0};
    studio->thread->TakeEvent();
    laptop->LeadTo(*studio);
    EXPECT_EQ(poll(&news, 1, 30'000), 1);
    studio->thread->TakeEvent();
}

TEST_F(NetworkHubTest, AnInputThatIsSwitchedOffEndsTheWayAndTellsTheReason) {
    laptop->LeadTo(*studio);
    ASSERT_TRUE(HoldsWithin(std::chrono::seconds(30), [&] { return laptop->HasAnswer(WayProblem::None); }));
    laptop->Play({0x90, 60, 100});
    ASSERT_TRUE(HoldsWithin(std::chrono::seconds(30), [&] { return studio->Heard() == 1; }));
    studio->With([](NetworkHub& hub) {
        hub.SetInputs({});
        return 0;
    });
    EXPECT_TRUE(
        HoldsWithin(std::chrono::seconds(30), [&] { return laptop->HasAnswer(WayProblem::TargetNotInput); }));
    // The note is released.
    EXPECT_TRUE(HoldsWithin(std::chrono::seconds(30), [&] { return studio->Heard() == 2; }));
}

TEST_F(NetworkHubTest, WhatSoundsIsReleasedWhenThePeerEnds) {
    laptop->LeadTo(*studio);
    ASSERT_TRUE(HoldsWithin(std::chrono::seconds(30), [&] { return laptop->HasAnswer(WayProblem::None); }));
    laptop->Play({0x90, 60, 100});
    ASSERT_TRUE(HoldsWithin(std::chrono::seconds(30), [&] { return studio->Heard() == 1; }));
    laptop->EndInOrder();
    EXPECT_TRUE(HoldsWithin(std::chrono::seconds(30), [&] { return studio->Heard() == 2; }));
    EXPECT_EQ(studio->With([](NetworkHub& hub) { return hub.Link().UpCount(); }), 0U);
}

TEST_F(NetworkHubTest, WhatSoundsIsReleasedWhenThePeerFallsSilentAndNotBeforeTwoSeconds) {
    laptop->LeadTo(*studio);
    ASSERT_TRUE(HoldsWithin(std::chrono::seconds(30), [&] { return laptop->HasAnswer(WayProblem::None); }));
    laptop->Play({0x90, 60, 100});
    ASSERT_TRUE(HoldsWithin(std::chrono::seconds(30), [&] { return studio->Heard() == 1; }));
    const Clock::time_point silent = Clock::now();
    laptop->EndThread();
    EXPECT_TRUE(HoldsWithin(std::chrono::seconds(30), [&] { return studio->Heard() == 2; }));
    // The last datagram may have come up to a second before.
    EXPECT_GE(Clock::now() - silent, std::chrono::milliseconds(900));
}

TEST_F(NetworkHubTest, AComputerThatIsAskedForNothingSendsNothing) {
    const auto socket = OpenSocket();
    studio->With([&](NetworkHub& hub) {
        const NetworkAddress there = NetworkAddress::V4({127, 0, 0, 1}, socket->Port());
        hub.Link().SetComputer(BootMicroseconds(), 1, {"", {{there, false}}, {}, false});
        return 0;
    });
    // It is announced once more after the start, and then never again.
    EXPECT_TRUE(HoldsWithin(std::chrono::seconds(30), [&] {
        return studio->With([](NetworkHub& hub) { return !hub.NextTime().has_value(); });
    }));
    pollfd heard{socket->EventDescriptor(), POLLIN, 0};
    EXPECT_EQ(poll(&heard, 1, 300), 0);
}

}  // namespace
}  // namespace vexil
