#include "service/ServiceRun.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <optional>

#include "service/MemoryLock.h"
#include "service/PollLoop.h"
#include "service/ServiceNotifier.h"
#include "service/control/ControlServer.h"
#include "shared/System/Deadline.h"
#include "shared/System/svLog.h"

namespace vexil {

namespace {

class Run {
  public:
    Run(const ServiceSignals& serviceSignals, const ControlListener& listener, MidiBackend& midiBackend,
        RemoteNetwork& remoteNetwork, DriverService& driverService, StoreWatch& watchOfStore)
        : signals(serviceSignals),
          backend(midiBackend),
          network(remoteNetwork),
          service(driverService),
          storeWatch(watchOfStore),
          server(std::make_unique<ControlServer>(listener.Socket(), listener.Group(), service)),
          hostName(open("/proc/sys/kernel/hostname", O_RDONLY | O_CLOEXEC)) {}

    bool HasEvents() const { return signals.EventDescriptor() != -1 && server->EventDescriptor() != -1; }

    void Serve() {
        service.SetMemory(LockMemory());
        service.Start();
        ServeWhoWaits();
        service.StartBackend();
        AddParticipants();
        notifier.Ready(service.Summary());
        while (!service.MayStop()) {
            loop.Round();
            service.Settle();
            if (server) {
                server->TellWatchers();
            }
            notifier.Status(service.Summary());
        }
        service.Stop();
    }

  private:
    // A panel whose connection has started the service waits for its answer, and not for long; the MIDI
    // system may take longer.
    void ServeWhoWaits() {
        constexpr int kMostRounds = 64;  // a crowd has to wait for the loop
        pollfd clients{server->EventDescriptor(), POLLIN, 0};
        for (int round = 0; round < kMostRounds && poll(&clients, 1, 0) > 0; ++round) {
            server->Serve();
            service.Settle();
        }
    }

    void AddParticipants() {
        loop.Add({signals.EventDescriptor(), [this] { TakeSignals(); }});
        loop.Add({server->EventDescriptor(), [this] { ServeClients(); },
                  [this] { return server ? server->Timeout() : -1; }});
        loop.Add({backend.EventDescriptor(), [this] { service.ServeBackend(); },
                  [this] { return backend.EventTimeout(); }});
        loop.Add({network.EventDescriptor(), [this] { service.ServeNetwork(); },
                  [this] { return network.Timeout(); }});
        loop.Add({service.LoopDescriptor(), [this] { service.ServeLoops(); }});
        loop.Add({service.TrafficDescriptor(), [this] { service.ServeTraffic(); }});
        loop.Add({service.MonitorDescriptor(), [this] { PassMonitored(); },
                  [this] { return service.MonitorTimeout(); }});
        loop.Add({storeWatch.EventDescriptor(), [this] { storeWatch.Serve(); },
                  [this] { return server ? storeWatch.Timeout() : -1; }});
        // The kernel tells a change of the host name as urgent data of this file.
        loop.Add({hostName.Number(), [this] { service.ComputerChanged(); }, {}, POLLPRI});
        // What the service could not do before is done after every round.
        loop.Add({-1, [] {}, [this] { return service.Timeout(); }});
        if (notifier.AliveInterval()) {
            nextAlive = DriverService::Clock::now();
            loop.Add({-1, [this] { TellAlive(); }, [this] { return UntilAlive(); }});
        }
    }

    void TakeSignals() {
        for (int number = signals.Take(); number != 0; number = signals.Take()) {
            if (number != SIGHUP) {
                BeginEnd();
            } else if (server) {
                notifier.Reloading();
                service.Reload();
                notifier.Ready(service.Summary());
            }
        }
    }

    // Clients are let go first, so that nothing new begins.
    void BeginEnd() {
        if (server) {
            notifier.Stopping();
            loop.Forget(server->EventDescriptor());
            loop.Forget(storeWatch.EventDescriptor());
            server.reset();
            service.BeginStop();
        }
    }

    void ServeClients() {
        if (server) {
            server->Serve();
        }
    }

    void PassMonitored() {
        const std::optional<MonitorBatch> batch = service.TakeMonitored();
        if (server && batch) {
            server->Pass(*batch);
        }
    }

    int UntilAlive() const { return MillisecondsUntil(nextAlive); }

    void TellAlive() {
        notifier.Alive();
        nextAlive = DriverService::Clock::now() + *notifier.AliveInterval();
    }

    const ServiceSignals& signals;
    MidiBackend& backend;
    RemoteNetwork& network;
    DriverService& service;
    StoreWatch& storeWatch;
    std::unique_ptr<ControlServer> server;  // null once the service is ending
    const Descriptor hostName;
    ServiceNotifier notifier;
    DriverService::Clock::time_point nextAlive;
    PollLoop loop;
};

}  // namespace

ServiceSignals::ServiceSignals() {
    sigset_t wanted;
    sigemptyset(&wanted);
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        sigaddset(&wanted, number);
    }
    pthread_sigmask(SIG_BLOCK, &wanted, nullptr);
    signal(SIGPIPE, SIG_IGN);  // a client that has gone is seen by the send that fails
    descriptor = Descriptor(signalfd(-1, &wanted, SFD_CLOEXEC | SFD_NONBLOCK));
}

int ServiceSignals::Take() const {
    signalfd_siginfo taken{};
    return read(descriptor.Number(), &taken, sizeof taken) == sizeof taken ? static_cast<int>(taken.ssi_signo)
                                                                           : 0;
}

bool RunService(const ServiceSignals& signals, const ControlListener& listener, MidiBackend& backend,
                RemoteNetwork& network, DriverService& service, StoreWatch& storeWatch) {
    Run run(signals, listener, backend, network, service, storeWatch);
    if (!run.HasEvents()) {
        LogPrintf("The system has no descriptors to give.\n");
        return false;
    }
    run.Serve();
    return true;
}

}  // namespace vexil
