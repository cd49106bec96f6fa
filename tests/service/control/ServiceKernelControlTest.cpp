// The panel's control socket over the real server and driver, against the contract of the kernel control.
#include <poll.h>
#include <sys/eventfd.h>

#include <mutex>
#include <thread>

#include "platform/linux/control/ControlSocket.h"
#include "service/SteadyEngineClock.h"
#include "service/backends/none/NoneBackend.h"
#include "service/control/ControlListener.h"
#include "service/control/DriverService.h"
#include "service/engine/TimedDriver.h"
#include "tests/config/TemporaryFolder.h"
#include "tests/doubles/KernelControlContract.h"
#include "tests/doubles/MemoryPreferenceDomains.h"

namespace vexil {
namespace {

using Bytes = std::vector<std::uint8_t>;

// The driver, with a look at what it takes and a say in who is on the network.
class WatchedService : public DriverService {
  public:
    using DriverService::DriverService;

    int SetOption(std::uint32_t option, std::span<const std::uint8_t> payload) override {
        const int error = DriverService::SetOption(option, payload);
        const std::lock_guard lock(mutex);
        if (error == 0) {
            accepted.emplace_back(static_cast<int>(option), Bytes(payload.begin(), payload.end()));
        }
        return error;
    }
    int GetOption(std::uint32_t option, Bytes& data) override {
        const int error = DriverService::GetOption(option, data);
        const std::lock_guard lock(mutex);
        if (error == 0 && !hostInfos.empty()) {
            data = hostInfos;
        }
        return error;
    }
    void SetHostInfos(Bytes bytes) {
        const std::lock_guard lock(mutex);
        hostInfos = std::move(bytes);
    }
    std::vector<AcceptedOption> Accepted() {
        const std::lock_guard lock(mutex);
        return accepted;
    }

  private:
    std::mutex mutex;  // the service's thread and the test's
    Bytes hostInfos;
    std::vector<AcceptedOption> accepted;
};

class ServiceSubject {
  public:
    ServiceSubject() {
        paths.control = folder / "vexil3";
        std::string problem;
        listener = ControlListener::Open(paths, problem);
        EXPECT_TRUE(listener) << problem;
        service.Start();
        service.StartBackend();
        // The suite plays on port 63, for which a driver needs an open test output.
        service.DriverService::SetOption(kOptionOpenTestOutput, Bytes{0, 63, 0, 0, 0, 0, 0});
        service.DriverService::SetOption(kOptionActivateTestOutput, MakeUint32(63));
        thread = std::thread([this] { Run(); });
    }
    ~ServiceSubject() { Stop(); }

    KernelControl& Control() { return control; }
    void SetHostInfos(Bytes bytes) { service.SetHostInfos(std::move(bytes)); }
    void RemoveDriver() {
        Stop();
        listener.reset();
    }
    std::vector<AcceptedOption> Accepted() { return service.Accepted(); }

  private:
    void Run() {
        ControlServer server(listener->Socket(), listener->Group(), service);
        for (;;) {
            pollfd waiting[] = {{server.EventDescriptor(), POLLIN, 0}, {stop.Number(), POLLIN, 0}};
            poll(waiting, 2, -1);
            if (waiting[1].revents != 0) {
                return;
            }
            server.Serve();
            service.Settle();
        }
    }
    void Stop() {
        if (thread.joinable()) {
            eventfd_write(stop.Number(), 1);
            thread.join();
        }
    }

    test::TemporaryFolder folder;
    Paths paths;
    MemoryPreferenceDomains preferences;
    Engine engine{std::size_t{1} << 20};
    const SteadyEngineClock clock;
    TimedDriver driver{engine, clock};
    NoneBackend backend;
    WatchedService service{{preferences, engine, backend, driver, [] { return std::vector(1, HostRecord{}); },
                            DriverService::Clock::now}};
    std::unique_ptr<ControlListener> listener;
    ControlSocket control{folder / "vexil3", false};
    const Descriptor stop{eventfd(0, EFD_CLOEXEC)};
    std::thread thread;
};

INSTANTIATE_TYPED_TEST_SUITE_P(Service, KernelControlContract, ::testing::Types<ServiceSubject>);

}  // namespace
}  // namespace vexil
