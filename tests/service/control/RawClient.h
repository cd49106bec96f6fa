// A client of the control channel that speaks it as bare packets, well or badly.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "driver/ControlChannel.h"
#include "driver/DriverOptions.h"
#include "shared/System/Descriptor.h"

namespace vexil {

class RawClient {
  public:
    using Bytes = std::vector<std::uint8_t>;

    struct Reply {
        std::uint32_t sequence = 0;
        std::uint32_t error = 0;
        Bytes data;
        bool operator==(const Reply&) const = default;
    };

    explicit RawClient(const std::string& path)
        : socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)) {
        sockaddr_un place{};
        place.sun_family = AF_UNIX;
        std::memcpy(place.sun_path, path.c_str(), path.size() + 1);
        isConnected = connect(socket.Number(), reinterpret_cast<const sockaddr*>(&place), sizeof place) == 0;
    }

    bool IsConnected() const { return isConnected; }
    int Number() const { return socket.Number(); }
    void Close() { socket.Close(); }

    // The result of send: false once the service has closed the connection.
    bool Send(const Bytes& packet) const {
        return send(socket.Number(), packet.data(), packet.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(packet.size());
    }
    bool Send(std::uint32_t sequence, std::uint32_t kind, std::uint32_t number, std::uint32_t length = 0,
              const Bytes& payload = {}) const {
        return Send(PackControlRequest({sequence, kind, number, length, payload}));
    }

    // What has come: a reply; none when nothing has or the connection was closed.
    std::optional<Reply> Receive() const {
        Bytes packet(kMaxControlReplySize);
        const ssize_t size = recv(socket.Number(), packet.data(), packet.size(), MSG_DONTWAIT);
        if (size <= 0) {
            return std::nullopt;
        }
        packet.resize(static_cast<std::size_t>(size));
        const std::optional<ControlReply> reply = UnpackControlReply(packet);
        EXPECT_TRUE(reply);
        return reply ? std::optional<Reply>(
                           {reply->sequence, reply->error, Bytes(reply->data.begin(), reply->data.end())})
                     : std::nullopt;
    }
    bool IsClosed() const {
        std::uint8_t byte = 0;
        const ssize_t size = recv(socket.Number(), &byte, 1, MSG_DONTWAIT | MSG_PEEK);
        return size == 0 || (size == -1 && errno == ECONNRESET);
    }

  private:
    Descriptor socket;
    bool isConnected = false;
};

}  // namespace vexil
