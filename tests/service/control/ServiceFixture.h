// The driver behind the channel with everything around it in memory: preferences, MIDI system, clock and name
// of the computer.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "config/DriverPreferences.h"
#include "driver/DriverOptions.h"
#include "driver/MidiPacketList.h"
#include "service/control/DriverService.h"
#include "service/engine/TimedDriver.h"
#include "tests/doubles/LogCapture.h"
#include "tests/doubles/ManualEngineClock.h"
#include "tests/doubles/MemoryMidiBackend.h"
#include "tests/doubles/MemoryPreferenceDomains.h"
#include "tests/doubles/MemoryRemoteNetwork.h"

namespace vexil {

using Bytes = std::vector<std::uint8_t>;

inline Bytes TestRecord(int port, const char* target, int targetPort, std::uint8_t flags = 0xC0) {
    const PortHosts hosts{"", target};
    Bytes record(TestOutputRecordLength(hosts));
    PutTestOutputRecord(record.data(), port, {flags, 0, 0, static_cast<std::uint8_t>(targetPort)}, hosts);
    return record;
}

// A packet list of one packet.
inline Bytes PacketList(const Bytes& data) {
    Bytes list(kPacketListHeaderSize + kPacketHeaderSize + data.size());
    std::uint8_t* packet = MidiPacketListInit(list.data(), list.size());
    MidiPacketListAdd(list.data(), list.size(), packet, 0, data.size(), data.data());
    return list;
}

inline Bytes PortNumber(int port) {
    const auto bytes = MakeUint32(static_cast<std::uint32_t>(port));
    return {bytes.begin(), bytes.end()};
}

class ServiceFixture : public ::testing::Test {
  protected:
    static constexpr std::uint64_t Bit(int port) { return std::uint64_t{1} << port; }

    ServiceFixture() {
        stored.OutputPorts = 0;
        computer.name = "studio";
    }

    std::vector<HostRecord> Computers() const {
        std::vector<HostRecord> all = {computer};
        all.insert(all.end(), others.begin(), others.end());
        return all;
    }
    // Stores `stored` as a panel does.
    void Store() { DriverPreferences(preferences).SaveConfiguration(kPortCount, stored); }
    void Start() {
        Store();
        service.Start();
        service.StartBackend();
        Turn();
    }
    // Stores and has it taken up.
    void Apply() {
        Store();
        EXPECT_EQ(0, Set(kOptionReloadConfiguration));
        Turn();
    }
    // Cycles of the MIDI system, until nothing is left to do.
    void Turn() {
        for (int round = 0; round < 4; ++round) {
            backend.Cycle();
            service.Settle();
        }
    }
    // So many messages to an output in one second of the MIDI system's time.
    void Play(int port, std::uint64_t messages) {
        constexpr std::uint64_t kSecond = 1'000'000'000;
        for (std::uint64_t message = 0; message < messages; ++message) {
            engine.Write(port, backend.now + message * kSecond / messages, Bytes{0xF8});
        }
        backend.now += kSecond;
    }
    int Set(int option, const Bytes& payload = {}) {
        return service.SetOption(static_cast<std::uint32_t>(option), payload);
    }
    void OpenTest(int port, const char* target, int targetPort) {
        ASSERT_EQ(0, Set(kOptionOpenTestOutput, TestRecord(port, target, targetPort)));
        ASSERT_EQ(0, Set(kOptionActivateTestOutput, PortNumber(port)));
        Turn();
    }
    // An output of a port to another port of this computer, which is an input for everybody.
    void Patch(int from, int to) {
        stored.OutputPorts |= Bit(from);
        stored.InputPorts |= Bit(to);
        stored.Hosts[from].DstHost = "studio";
        stored.PortFlags[from].targetPort = static_cast<std::uint8_t>(to);
    }
    std::vector<std::string> Addresses() const {
        std::vector<std::string> addresses;
        for (const PublishedEndpoint& endpoint : backend.Published()) {
            addresses.push_back((endpoint.output ? "> " : "< ") + endpoint.address);
        }
        return addresses;
    }

    std::shared_ptr<MemoryPreferenceStorage> storage = std::make_shared<MemoryPreferenceStorage>();
    MemoryPreferenceDomains preferences{storage};         // the panel's view
    MemoryPreferenceDomains servicePreferences{storage};  // the service's
    DriverConfiguration stored;
    HostRecord computer;
    std::vector<HostRecord> others;  // computers that can be seen
    MemoryRemoteNetwork network;
    DriverService::Clock::time_point now{std::chrono::hours(1)};
    Engine engine{std::size_t{1} << 20};
    MemoryMidiBackend backend;
    ManualEngineClock clock{backend.now};
    TimedDriver driver{engine, clock};
    LogCapture log;
    DriverService service{{servicePreferences, engine, backend, driver, [this] { return Computers(); },
                           [this] { return now; }, &network}};
};

}  // namespace vexil
