// The driver behind the control channel: takes up the configuration, keeps the routes, the endpoints and the
// test outputs in step with it, and answers the options. Of the configuration it writes nothing but what
// StoredConfiguration completes.
//
// A change of the configuration goes in this order: the engine gets the new routes and releases what sounds
// on ways that end; when that has been heard, or after kLongestRelease, endpoints come and go. A way, also
// that of a test output, begins when its input is there and ends before it goes: an input on its way out
// would take notes along. What did not change is not touched.
//
// One thread, the control thread. Nothing here waits.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "config/DriverConfiguration.h"
#include "config/PreferenceDomains.h"
#include "service/control/ControlServer.h"
#include "service/control/EngineControl.h"
#include "service/control/EngineEvent.h"
#include "service/control/HostRecords.h"
#include "service/control/MessageMonitor.h"
#include "service/control/RemoteNetwork.h"
#include "service/control/ServiceReport.h"
#include "service/control/Status.h"
#include "service/control/StatusChanges.h"
#include "service/control/StoredConfiguration.h"
#include "service/control/TestOutputs.h"

namespace vexil {

class DriverService : public ControlServer::Mediator {
  public:
    using Clock = std::chrono::steady_clock;

    // What the service works with; all must outlive it.
    struct Parts {
        PreferenceDomains& preferences;
        Engine& engine;
        MidiBackend& backend;
        EngineDriver& driver;                                // drives the engine while the back end does not
        std::function<std::vector<HostRecord>()> computers;  // this one first
        std::function<Clock::time_point()> now;
        RemoteNetwork* network = nullptr;  // null: no MIDI between computers
    };

    // A MIDI system that gets no processor for a while releases what sounds a while later; only one that
    // hangs is given up.
    static constexpr std::chrono::milliseconds kLongestRelease{2000};
    // And before the end: with the end of the MIDI system's back end, 3 s after the signal at the latest.
    static constexpr std::chrono::milliseconds kLongestLastRelease{1500};
    // Endpoints that come into sight between two looks at what clients want.
    static constexpr std::size_t kPublishedAtOnce = 8;

    explicit DriverService(Parts serviceParts);
    // After the MIDI system's end: no thread drives the engine any more.
    ~DriverService() override;
    DriverService(const DriverService&) = delete;
    DriverService& operator=(const DriverService&) = delete;

    // Takes up the configuration: clients can be served from then on. Once.
    void Start();
    // Starts the MIDI system, which may take its time. Once, after Start.
    void StartBackend();
    // What status says of them; set once they are known.
    void SetMemory(const std::string& state) { memory = state; }
    void SetControlPath(const std::string& path) { controlPath = path; }

    // To be called after everything that happens on the control thread, and after Timeout: tells the engine
    // and the MIDI system what they could not be told before.
    void Settle();
    // Milliseconds until Settle is to be called although nothing happens; -1: not before something does.
    int Timeout() const;

    // Begins to end: everything that sounds is released, and nothing is heard any longer.
    void BeginStop();
    // It has been, or kLongestLastRelease is over.
    bool MayStop() const;
    // Ends the MIDI system.
    void Stop();

    // Takes up what has happened to the MIDI system: for when its descriptor is readable or its time is over.
    void ServeBackend();
    // The log tells of loops that the engine has come to suspect: for when this descriptor is readable.
    int LoopDescriptor() const { return suspicion.EventDescriptor(); }
    void ServeLoops();
    // Whoever waits for it hears that messages are carried: for when this descriptor is readable.
    int TrafficDescriptor() const { return traffic.EventDescriptor(); }
    void ServeTraffic();
    // What passes through the engine while somebody watches; null while it is not yet time to look. For when
    // the descriptor is readable or the time is over.
    int MonitorDescriptor() const { return monitor.EventDescriptor(); }
    int MonitorTimeout() const { return monitor.Timeout(); }
    std::optional<MonitorBatch> TakeMonitored() { return monitor.Take(); }
    // Takes up what has happened between this computer and others: for when its descriptor is readable or its
    // time is over.
    void ServeNetwork();
    // The host name may have changed: routes follow it.
    void ComputerChanged();
    // The stored configuration may have changed: takes up the values that differ from the last look at it.
    // What the channel has set since then (options 191, 195, 196) stays where the stored value is the same.
    void StoreChanged();

    // One sentence on how things stand, for the service manager.
    std::string Summary() const;

    // Of the channel.
    void PanelAttached(pid_t process) override;
    void PanelDetached() override;
    int SetOption(std::uint32_t option, std::span<const std::uint8_t> payload) override;
    int GetOption(std::uint32_t option, std::vector<std::uint8_t>& data) override;
    std::string Status(std::size_t first) override;
    int Reload() override;
    std::string Network(const std::vector<std::string>& words) override;
    void StatusWatched(bool watched) override { changes.SetWatched(watched); }
    std::uint32_t StatusNumber() override { return changes.Number(); }
    std::string Panic() override;
    void Monitored(bool on) override { monitor.Set(on); }
    void ClientRefused(pid_t process, uid_t user) override;

  private:
    int SetOptionWithoutPayload(std::uint32_t option);
    int OpenTest(std::span<const std::uint8_t> payload);
    int ActivateTest(std::span<const std::uint8_t> payload);
    int CloseTest(std::span<const std::uint8_t> payload);
    int PlayTest(int port, std::span<const std::uint8_t> payload);
    void SetQuantization(std::uint32_t tenths);
    void SetWireless(bool on);

    // What was read of the store, with its send quantization or without.
    void TakeUp(const DriverConfiguration& read, bool granularity);
    void TakeUp();
    // The names under which this computer is a target or a source; its addresses with them.
    void FindOwnNames();
    void FindOwnAddresses();
    // A test output was opened, activated or closed.
    void TestChanged(int port);
    // Routes follow what the network says of them now.
    void FollowNetwork();
    // Works the routes out anew, and tells the network what is wanted of it.
    void MakeRoutes();
    void TellNetwork();
    // What `make` makes of all that a status is made of.
    std::string Told(const std::function<std::string(const StatusSources&)>& make) const;
    // Grows with every message that the engine carries.
    std::uint64_t Traffic() const;
    Route TestRoute(int port) const;
    std::vector<HostRecord> Computers() const;
    // Bit p: programs hear the input of port p, and are to go on doing so.
    std::uint64_t HeardInputs() const;
    // Tells the engine the ways that lead to inputs which are heard.
    void OpenWays();
    void UpdateTestRoutes();
    void UpdateEndpoints();
    void PublishMore();
    void EndTestNotes();
    // Tells the engine the route of a port's test output; what sounded on its way so far ends.
    void RetargetTest(int port);

    const Parts parts;
    StoredConfiguration store;
    EngineControl engineControl;
    DriverConfiguration configuration;
    RouteTable routes{};  // as the configuration has them
    TestOutputs tests;
    std::array<Route, kMaxPorts> testRoutes{};  // as the engine has them
    std::vector<std::string> names;             // of this computer
    LocalNames localNames{{}};
    std::vector<Endpoint> endpoints;             // as they are to be published
    std::vector<Endpoint> published;             // as they are
    std::optional<Clock::time_point> publishBy;  // the two differ; taken up then at the latest
    std::optional<Clock::time_point> stopBy;
    bool attached = false;
    bool wasAttached = false;  // ever
    bool wireless = false;
    std::uint32_t sendGranularity = 0;
    ServiceReport report;
    EngineEvent suspicion;
    EngineEvent traffic;
    StatusChanges changes;
    MessageMonitor monitor;
    std::string memory;
    std::string controlPath;
};

}  // namespace vexil
