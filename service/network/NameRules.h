// Which computer a text means that somebody set as a target or source. What knows it first wins: this
// computer's own names, the directory, an address, and only then the names of the network.
//
// Pure functions. Any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "service/network/ComputerDirectory.h"
#include "service/network/Interfaces.h"
#include "service/network/NetworkAddress.h"
#include "service/network/ServiceDiscovery.h"
#include "service/routes/HostNames.h"

namespace vexil {

enum class TargetKind : std::uint8_t {
    None,        // no computer is set
    Local,       // this computer
    Directory,   // a computer that is known
    Session,     // an RTP-MIDI session that is announced
    Literal,     // an address
    Resolvable,  // a name that the resolver may know
    Impossible,  // nothing that anybody could know
};

struct NamedTarget {
    TargetKind kind = TargetKind::None;
    ComputerId id{};          // Directory
    std::string sessionName;  // Session: as it is announced
    // Directory, Session, Literal: where it may be, each with its port. A link-local address without an
    // interface is here once for each interface that is up; empty when its interface is not.
    std::vector<NetworkAddress> addresses;
    // Resolvable: what to look up, in this order, and the port with which each address is called.
    std::vector<std::string> hostNames;
    std::uint16_t port = 0;
    bool isSession = false;  // Session; Literal, Resolvable: an RTP-MIDI session is meant, by its port
};

// An RTP-MIDI session that is announced, and where it may be: at most ComputerEntry::kMostAddresses count.
struct AnnouncedSession {
    std::string name;
    std::vector<NetworkAddress> addresses;  // IPv4 first
    bool isThere = true;                    // false: it was announced, and is needed
    bool operator==(const AnnouncedSession&) const = default;
};
// One for each name, in the order of names; those whose name cannot be listed are left out.
std::vector<AnnouncedSession> SessionsOf(const std::vector<FoundService>& found);

struct NameSurroundings {
    const LocalNames& local;
    const std::vector<NetworkInterface>& interfaces;  // that are up
    const ComputerDirectory& directory;
    std::uint16_t ownPort = 0;  // on which this computer hears; 0: on none
    bool hasSessions = false;   // this computer speaks RTP-MIDI: its UDP ports mean sessions
    const std::vector<AnnouncedSession>* sessions = nullptr;  // null: nobody looks for any
};

// Whether a text means this computer: one of its names, or an address of its own without a port or with
// `ownPort`.
bool MeansThisComputer(std::string_view text, const LocalNames& local,
                       const std::vector<NetworkInterface>& interfaces, std::uint16_t ownPort);

NamedTarget FindTarget(std::string_view text, const NameSurroundings& surroundings);

// Whether a text may be looked up: 1 to 253 bytes, no blanks, no control characters, none of "%/:[]", and not
// the beginning of an IPv4 address.
bool IsHostName(std::string_view text);

}  // namespace vexil
