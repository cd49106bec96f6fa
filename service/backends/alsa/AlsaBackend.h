// The ALSA sequencer: one client, one port for each endpoint, one thread. Hidden endpoints are there, but no
// program lists them or connects to them.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "service/backends/LossSum.h"
#include "service/backends/MidiBackend.h"
#include "service/backends/RuntimeState.h"
#include "service/backends/alsa/AlsaConnections.h"
#include "service/backends/alsa/AlsaDeviceWatch.h"
#include "service/backends/alsa/AlsaSlowReaders.h"
#include "shared/System/Descriptor.h"

namespace vexil {

class AlsaClient;
class AlsaThread;

class AlsaBackend final : public MidiBackend {
  public:
    // `state` is what the service before this one has left.
    explicit AlsaBackend(const RuntimeState& state = {});
    ~AlsaBackend() override;
    AlsaBackend(const AlsaBackend&) = delete;
    AlsaBackend& operator=(const AlsaBackend&) = delete;

    const char* Name() const override { return "alsa"; }
    void Start(Engine& served) override;
    void Stop() override;
    bool IsStuck() const override { return false; }
    bool IsRunning() const override { return thread != nullptr; }
    std::string Problem() const override { return problem; }
    bool CanHide() const override { return true; }
    void Publish(const std::vector<Endpoint>& endpoints) override;
    std::vector<PublishedEndpoint> Published() const override;
    int EventDescriptor() const override { return events.Number(); }
    int EventTimeout() const override;
    void HandleEvents() override;
    std::string RealtimeProblem() const override;

  private:
    using Clock = std::chrono::steady_clock;

    // A port of the client.
    struct Port {
        std::string name;
        bool hidden = false;
        int error = 0;  // why it is not there: a negative errno value
    };

    void Open();
    void Lose(const std::string& reason);
    void Apply();
    std::string SlowReadersOf(int number) const;
    void TellLosses();
    void LookAtConnections();

    AlsaDeviceWatch device;
    const Descriptor changed;  // an event counter that the thread raises
    const Descriptor events;   // an epoll of the two
    Engine* engine = nullptr;
    std::unique_ptr<AlsaClient> client;
    std::unique_ptr<AlsaThread> thread;
    std::string problem;
    std::vector<Endpoint> wanted;
    std::map<int, Port> ports;  // by number
    AlsaConnections connections;
    AlsaSlowReaders slowReaders;
    std::uint64_t toldOverflows = 0;  // of the thread's
    LossSum overflows;
    int retries = 0;  // left, while the device is there and cannot be opened
    Clock::time_point nextRetry;
};

}  // namespace vexil
