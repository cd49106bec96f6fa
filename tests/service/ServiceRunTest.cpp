// The life of the service as a whole, with a MIDI system that takes its time.
#include "service/ServiceRun.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <thread>

#include "service/SteadyEngineClock.h"
#include "service/backends/none/NoneBackend.h"
#include "service/engine/TimedDriver.h"
#include "tests/config/TemporaryFolder.h"
#include "tests/doubles/MemoryPreferenceDomains.h"
#include "tests/doubles/MemoryPreferenceWatch.h"
#include "tests/doubles/MemoryRemoteNetwork.h"
#include "tests/service/control/RawClient.h"

namespace vexil {
namespace {

// Starts when it is let.
class SlowBackend : public NoneBackend {
  public:
    void Start(Engine&) override {
        while (!mayStart) {
            poll(nullptr, 0, 1);
        }
    }
    void Stop() override { isStopped = true; }

    std::atomic<bool> mayStart = false;
    std::atomic<bool> isStopped = false;
};

TEST(ServiceRun, AnswersWhoHasConnectedBeforeItStartsTheMidiSystem) {
    const ServiceSignals signals;
    const test::TemporaryFolder folder;
    Paths paths;
    paths.control = folder / "vexil3";
    std::string problem;
    const auto listener = ControlListener::Open(paths, problem);
    ASSERT_TRUE(listener) << problem;
    const RawClient panel(listener->Path());
    ASSERT_TRUE(panel.Send(1, kControlAttach, kControlUnit));

    MemoryPreferenceDomains preferences;
    Engine engine(std::size_t{1} << 20);
    const SteadyEngineClock clock;
    TimedDriver driver(engine, clock);
    SlowBackend backend;
    MemoryRemoteNetwork network;
    DriverService service({preferences, engine, backend, driver, [] { return std::vector(1, HostRecord{}); },
                           DriverService::Clock::now});
    MemoryPreferenceWatch watch;
    StoreWatch storeWatch(
        {watch, [] { return std::nullopt; }, [&] { service.StoreChanged(); }, StoreWatch::Clock::now});
    bool isGood = false;
    std::thread thread(
        [&] { isGood = RunService(signals, *listener, backend, network, service, storeWatch); });
    pollfd answer{panel.Number(), POLLIN, 0};
    EXPECT_EQ(1, poll(&answer, 1, 10000));
    EXPECT_EQ((RawClient::Reply{1, 0, {}}), panel.Receive());

    backend.mayStart = true;
    kill(getpid(), SIGTERM);
    thread.join();
    EXPECT_TRUE(isGood);
    EXPECT_TRUE(backend.isStopped);
}

}  // namespace
}  // namespace vexil
