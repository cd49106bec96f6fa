// A sink in memory and an engine with routes, for the tests of the engine.
#pragma once

#include <gmock/gmock.h>

#include <array>
#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

#include "service/engine/Engine.h"

namespace vexil {

using Bytes = std::vector<std::uint8_t>;

struct Delivery {
    std::uint64_t time;
    Bytes bytes;
    bool operator==(const Delivery&) const = default;
};

// Keeps what every input hears. Room is limited per input until Refill.
class MemorySink : public EngineSink {
  public:
    std::size_t Room(const Destination& to) const override { return room[to.port]; }
    void Deliver(const Destination& to, std::uint64_t time, std::span<const std::uint8_t> bytes) override {
        const std::size_t port = to.port;
        EXPECT_FALSE(bytes.empty());
        EXPECT_LE(bytes.size(), room[port]);
        EXPECT_GE(time, lastTime[port]) << "time of input " << port;
        lastTime[port] = time;
        room[port] -= bytes.size();
        heard[port].push_back({time, Bytes(bytes.begin(), bytes.end())});
    }

    void Refill(std::size_t bytes) { room.fill(bytes); }
    void Refill(int port, std::size_t bytes) { room[static_cast<std::size_t>(port)] = bytes; }
    // All that an input has heard, as one stream.
    Bytes StreamOf(int port) const {
        Bytes stream;
        for (const Delivery& delivery : heard[static_cast<std::size_t>(port)]) {
            stream.insert(stream.end(), delivery.bytes.begin(), delivery.bytes.end());
        }
        return stream;
    }
    std::vector<Bytes> MessagesOf(int port) const {
        std::vector<Bytes> messages;
        for (const Delivery& delivery : heard[static_cast<std::size_t>(port)]) {
            messages.push_back(delivery.bytes);
        }
        return messages;
    }

    std::array<std::vector<Delivery>, kMaxPorts> heard;

  private:
    static constexpr std::array<std::size_t, kMaxPorts> Unlimited() {
        std::array<std::size_t, kMaxPorts> all{};
        all.fill(std::numeric_limits<std::size_t>::max() / 2);
        return all;
    }
    std::array<std::size_t, kMaxPorts> room = Unlimited();
    std::array<std::uint64_t, kMaxPorts> lastTime{};
};

inline Way To(int inputPort, bool immediate = false) {
    return {Destination::Input(inputPort), immediate};
}

inline constexpr std::uint64_t kForever = std::numeric_limits<std::uint64_t>::max() / 2;

}  // namespace vexil
