// One question to the service, over its control channel. A question needs no attachment, which would take the
// service from the panel: each is a connection of its own that ends with the answer.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "driver/ControlChannel.h"
#include "platform/linux/Paths.h"
#include "platform/linux/control/ControlConnection.h"

namespace vexil {

struct ServiceAnswer {
    enum class Outcome {
        Answered,
        Absent,  // no service is running
        Failed   // it does not answer, or not as it should, or refuses
    };
    Outcome outcome = Outcome::Failed;
    std::string problem;  // unless answered: why, without an end
    std::string data;     // when answered
};

class ServiceClient {
  public:
    // A service that is started by the connection itself has to be ready within that time as well.
    static constexpr std::chrono::milliseconds kPatience{3000};
    // Of every request: a connection carries one.
    static constexpr std::uint32_t kSequence = 1;

    // `replyTime`: no question takes longer, whatever the service does.
    explicit ServiceClient(const Paths& paths, std::chrono::milliseconds replyTime = kPatience);

    // Path of the service's socket.
    const std::string& SocketPath() const { return path; }

    // JSON text; not yet checked. From an entry of its lists on: see docs/control-channel.md.
    ServiceAnswer AskStatus(std::uint32_t first = 0) const;
    // Tells the service to read its configuration again.
    ServiceAnswer AskReload() const;
    // Has the service end every note: JSON text, not yet checked.
    ServiceAnswer AskPanic() const;
    // A network command: JSON text, not yet checked. See docs/control-channel.md.
    ServiceAnswer AskNetwork(const std::vector<std::string>& words) const;

    // Monitors the ports of a mask: what passes them comes through `stream`, in replies to kSequence, as
    // driver/MonitorPackets.h has it. `stream` becomes null unless that was answered.
    ServiceAnswer Monitor(std::uint64_t ports, std::unique_ptr<ControlConnection>& stream) const;

  private:
    // `longest`: the most bytes of an answer.
    ServiceAnswer Ask(const ControlRequest& request, std::size_t longest) const;
    // On a connection that is made for it.
    ServiceAnswer AskOn(ControlConnection& connection, const ControlRequest& request,
                        std::size_t longest) const;

    std::string path;
    std::optional<std::uint32_t> serviceUser;  // may serve here besides root and this process's own
    std::chrono::milliseconds patience;
};

}  // namespace vexil
