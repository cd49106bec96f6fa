// Seam: finding other computers by DNS-SD, as a service of this computer's system does it for all programs.
// It makes this computer known and tells where others are said to be. What it says is a hint and proves
// nothing: it may be old or a lie.
//
// One thread, the control thread. Nothing here waits, and idle it does not wake anybody.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "service/network/NetworkAddress.h"

namespace vexil {

// The service that a driver is to others.
inline constexpr const char* kServiceType = "_vexil3._udp";
// Those that RTP-MIDI sessions are.
inline constexpr const char* kSessionType = "_apple-midi._udp";

// A service that this computer offers.
struct OfferedService {
    std::string name;        // where it is taken, another one is published
    std::uint16_t port = 0;  // UDP
    bool operator==(const OfferedService&) const = default;
};

// How this computer is to be known, and where others are looked for.
struct ServiceWish {
    std::string name;        // of this computer; empty: nothing is published, others are looked for alone
    std::uint16_t port = 0;  // UDP
    std::vector<std::uint32_t> interfaces = {};  // by index; empty: all
    std::string type = kServiceType;             // of all services that are published and looked for
    std::vector<OfferedService> further = {};    // beside the first
    bool operator==(const ServiceWish&) const = default;
};

// A service of another computer.
struct FoundService {
    std::string name;  // any text
    NetworkAddress address;
    auto operator<=>(const FoundService&) const = default;
};

class ServiceDiscovery {
  public:
    enum class State : std::uint8_t {
        Off,      // nothing is wished
        Waiting,  // the system has not answered yet
        On,       // it looks for others
        Missing,  // the system has no such service now; it is noticed when it comes
    };
    static constexpr std::size_t kMostHints = 512;

    virtual ~ServiceDiscovery() = default;

    // Readable when Serve is to be called; the same one for as long as this object lives.
    virtual int EventDescriptor() const = 0;
    // From now on this computer is published so, and others are looked for. Null: neither; what was published
    // is withdrawn. The same again changes nothing.
    virtual void Set(const std::optional<ServiceWish>& wish) = 0;
    // Somebody wants to know now: each address is looked up again, and a system that was not there is tried
    // again.
    virtual void LookAgain() = 0;
    // Does what there is to do. True when State, Hints or Problem may have changed since the last call.
    virtual bool Serve() = 0;

    virtual State CurrentState() const = 0;
    // Where others are said to be, each once, with their ports and the interface by which they are; at most
    // kMostHints. This computer is not among them. Empty unless On.
    virtual std::vector<NetworkAddress> Hints() const = 0;
    // The same with the names of the services, in the order of their names.
    virtual std::vector<FoundService> Found() const = 0;
    // Why it does not work, or does not wholly, as one sentence; empty when it does, and while it is Off or
    // has not been waiting for long.
    virtual std::string Problem() const = 0;
};

}  // namespace vexil
