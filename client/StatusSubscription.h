// The service's status whenever it has changed: a connection of its own that watches
// (docs/control-channel.md), for an event loop. Nothing is asked again and again: while there is no service,
// the folder of its socket is watched; while nothing changes, nobody wakes up.
//
// One thread. Nothing here waits.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "client/WholeAnswer.h"
#include "platform/linux/Paths.h"
#include "platform/linux/control/ControlConnection.h"
#include "shared/System/Descriptor.h"

namespace vexil {

struct StatusNews {
    enum class Service {
        Absent,    // none is running
        Silent,    // it does not answer; the status is an old one
        Unusable,  // it may not be asked, or is another user's, or says what makes no sense
        Running,
    };
    Service service = Service::Absent;
    std::string problem;  // unless it is running: why, without an end
    std::string status;   // JSON text, not yet checked; empty unless one has come from this service
};

class StatusSubscription {
  public:
    // How long an answer may take that the service owes at once.
    static constexpr std::chrono::milliseconds kPatience{3000};

    explicit StatusSubscription(const Paths& paths, std::chrono::milliseconds patience = kPatience);

    // Readable when Serve is to be called.
    int EventDescriptor() const { return events.Number(); }
    // Takes what has come; the first call connects. True when the news are others.
    bool Serve();
    const StatusNews& News() const { return news; }
    // Asks anew, over a connection anew: for when the service may no longer answer.
    void Refresh();

  private:
    enum class Step {
        Unconnected,
        AwaitsFirstNumber,
        AwaitsStatus,
        AwaitsChange,  // for as long as it takes
        AwaitsEnd,     // of an earlier service, which cannot be watched
    };

    void Connect();
    // 0 or an errno value.
    int TryToConnect();
    void ConnectLater();
    void Absent(const std::string& problem);
    void Leave();
    void Ended();
    void TakePackets();
    void Take(const ControlReply& reply);
    void AskNumber();
    void AskStatus(std::uint32_t first);
    void Ask(std::uint32_t kind, std::uint32_t number, Step next);
    void Tell(StatusNews::Service service, const std::string& problem);
    // True when something is watched that was not before.
    bool WatchFolder();
    void SetTimer(std::chrono::milliseconds time) const;
    void Listen(int descriptor) const;

    const std::string folder;
    const std::string path;
    const bool systemWide;
    const std::chrono::milliseconds patience;
    const Descriptor events;  // epoll
    const Descriptor timer;
    Descriptor changes;  // inotify; closed while connected
    int watchedFolder = -1;
    ControlConnection connection;
    Step step = Step::Unconnected;
    std::chrono::steady_clock::time_point connected;
    int quickEnds = 0;  // in a row: connections that ended as soon as they were made
    int refusals = 0;   // in a row, by a socket that nobody listens at
    std::uint32_t sequence = 0;
    std::uint32_t number = 0;  // of the status
    std::optional<WholeAnswer> answer;
    StatusNews news;
    bool hasNews = false;
};

}  // namespace vexil
