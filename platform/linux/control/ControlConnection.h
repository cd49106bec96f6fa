// One connection to the control channel of a driver service: whole requests out, whole replies in. It
// attaches no unit and sends nothing again; the panel's link and the command line's client build on it.
//
// Results are 0 or an errno value. One thread only.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "driver/ControlChannel.h"
#include "shared/System/Deadline.h"
#include "shared/System/Descriptor.h"

namespace vexil {

// The user, besides root and this process's own, whose service may answer in `folder`: in a `systemWide`
// installation the folder's owner, for only root gives such a folder away.
std::optional<std::uint32_t> TrustedServiceUser(const std::string& folder, bool systemWide);

class ControlConnection {
  public:
    // Takes over an unconnected descriptor from NewSocket. The connection keeps its number for its whole
    // life.
    explicit ControlConnection(int ownedDescriptor);

    // An unconnected, non-blocking descriptor, or -1 with errno.
    static int NewSocket();

    // Connects to the service's socket, anew after an earlier connection. ECONNREFUSED for a socket that
    // nobody serves; ETIMEDOUT for a service that takes no connections; ENAMETOOLONG for a path that no
    // socket can have. The peer is not trusted yet.
    int Connect(const std::string& path);

    // EACCES unless the service is root's, this process's own user's, or `serviceUser`'s. To be asked before
    // anything is sent, whoever made the socket file.
    int CheckPeer(std::optional<std::uint32_t> serviceUser) const;

    // ENOBUFS for a request that the socket has no room for, EMSGSIZE for one that is too large; the
    // connection lives on after both. Any other error means that the service has closed it.
    int Send(const ControlRequest& request);

    // The reply to the request `sequence`; its data lasts until the next call. EAGAIN while it has not come;
    // ECONNRESET when the service has closed the connection; EPROTO for a packet that is not that reply.
    int Receive(std::uint32_t sequence, ControlReply* reply);

    // As Receive, but waits for the reply. ETIMEDOUT when it has not come by the deadline.
    int AwaitReply(std::uint32_t sequence, Deadline deadline, ControlReply* reply);

    // Whether the service has closed the connection.
    bool HasEnded() const;

    // For an event loop to wait at.
    int Number() const { return descriptor.Number(); }

    // Ends the connection on the service's side as well.
    void ShutDown();

  private:
    const Descriptor descriptor;
    std::vector<std::uint8_t> packet;  // the last one received
};

}  // namespace vexil
