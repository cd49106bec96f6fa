#include "service/backends/alsa/AlsaConnections.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <set>
#include <string>

#include "service/backends/FirstReaders.h"
#include "shared/System/svLog.h"

namespace vexil {

namespace {

constexpr const char* kConnectionsFile = "connections-alsa";
constexpr std::chrono::milliseconds kFirstReaders{kFirstReadersMilliseconds};

bool IsOutput(int number) {
    return number < kFirstInputPort;
}

int PortOf(int number) {
    return IsOutput(number) ? number : number - kFirstInputPort;
}

}  // namespace

AlsaConnections::AlsaConnections(const RuntimeState& state)
    : memory(state.PathOf(kConnectionsFile)), unreleased(state.LastEndWasUnclean() ? ~std::uint64_t{0} : 0) {}

void AlsaConnections::Renew(int number) {
    memory.Renew(PortOf(number), IsOutput(number));
}

void AlsaConnections::RenewAll() {
    silenceAt.clear();
    for (int port = 0; port < kMaxPorts; ++port) {
        memory.Renew(port, true);
        memory.Renew(port, false);
    }
}

void AlsaConnections::Look(AlsaClient& client, const std::vector<int>& numbers, Clock::time_point now) {
    const std::array<std::map<std::string, AlsaAddress>, 2> ports = {client.Ports(false), client.Ports(true)};
    for (const int number : numbers) {
        const bool output = IsOutput(number);
        const int port = PortOf(number);
        const std::map<std::string, AlsaAddress>& others = ports[output ? 1 : 0];
        std::vector<AlsaAddress> connections;
        client.ForEachConnection(number, [&](AlsaAddress address) { connections.push_back(address); });
        std::set<std::string> connected;
        for (const auto& [name, address] : others) {
            if (std::find(connections.begin(), connections.end(), address) != connections.end()) {
                connected.insert(name);
            }
        }
        const auto isThere = [&](const std::string& name) { return others.contains(name); };
        for (const std::string& name : memory.Look(port, output, connected, isThere, now)) {
            const int result = client.Connect(number, others.at(name));
            if (result < 0 && result != -EBUSY && !memory.Failed(port, output, name, now)) {
                LogPrintf("The ALSA sequencer does not connect the %s of port %d with \"%s\" again: %s.\n",
                          output ? "output" : "input", ShownPortNumber(port), name.c_str(),
                          std::strerror(-result));
            }
        }
        if (!output && !connections.empty() && (unreleased >> port & 1) != 0) {
            silenceAt.emplace(port, now + kFirstReaders);
        }
    }
    memory.Save();
}

std::uint64_t AlsaConnections::TakeUnsilenced(Clock::time_point now) {
    std::uint64_t inputs = 0;
    std::erase_if(silenceAt, [&](const auto& one) {
        const bool isDue = one.second <= now;
        inputs |= isDue ? std::uint64_t{1} << one.first : 0;
        return isDue;
    });
    unreleased &= ~inputs;
    return inputs;
}

std::optional<AlsaConnections::Clock::time_point> AlsaConnections::DueAt() const {
    std::optional<Clock::time_point> due = memory.NextLook();
    for (const auto& [port, time] : silenceAt) {
        due = std::min(due.value_or(time), time);
    }
    return due;
}

}  // namespace vexil
