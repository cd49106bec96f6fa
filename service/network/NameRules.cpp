#include "service/network/NameRules.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "service/network/DatagramSocket.h"

namespace vexil {

namespace {

constexpr std::size_t kLongestHostName = 253;

template <class Number>
std::optional<Number> ReadNumber(std::string_view text) {
    Number number = 0;
    const char* end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, number);
    return read.ec == std::errc() && read.ptr == end && number != 0 ? std::optional(number) : std::nullopt;
}

// A text taken apart: "host", "host:port", "[host]", "[host]:port", the host with "%scope" or without.
struct Parts {
    std::string_view host;
    std::string_view scope;
    bool hasScope = false;
    bool inBrackets = false;
    std::uint16_t port = 0;  // 0: no port is given
};

std::optional<Parts> TakeApart(std::string_view text) {
    Parts parts;
    parts.host = text;
    std::string_view port;
    bool hasPort = false;
    if (!text.empty() && text.front() == '[') {
        const std::size_t end = text.find(']');
        if (end == std::string_view::npos) {
            return std::nullopt;
        }
        parts.host = text.substr(1, end - 1);
        parts.inBrackets = true;
        const std::string_view rest = text.substr(end + 1);
        hasPort = !rest.empty();
        if (hasPort && rest.front() != ':') {
            return std::nullopt;
        }
        port = hasPort ? rest.substr(1) : rest;
    } else if (std::count(text.begin(), text.end(), ':') == 1) {
        // With more colons it is an IPv6 address.
        const std::size_t colon = text.find(':');
        parts.host = text.substr(0, colon);
        port = text.substr(colon + 1);
        hasPort = true;
    }
    if (hasPort) {
        const auto number = ReadNumber<std::uint16_t>(port);
        if (!number) {
            return std::nullopt;
        }
        parts.port = *number;
    }
    const std::size_t percent = parts.host.find('%');
    if (percent != std::string_view::npos) {
        parts.hasScope = true;
        parts.scope = parts.host.substr(percent + 1);
        parts.host = parts.host.substr(0, percent);
    }
    return parts;
}

const NetworkInterface* FindScope(std::string_view scope, const std::vector<NetworkInterface>& interfaces) {
    if (const NetworkInterface* named = FindInterface(interfaces, std::string(scope))) {
        return named;
    }
    const auto index = ReadNumber<std::uint32_t>(scope);
    return index ? FindInterface(interfaces, *index) : nullptr;
}

std::vector<NetworkAddress> AddressesOf(const NetworkAddress& address, const Parts& parts,
                                        const std::vector<NetworkInterface>& interfaces) {
    if (parts.hasScope) {
        const NetworkInterface* interface = FindScope(parts.scope, interfaces);
        return interface == nullptr ? std::vector<NetworkAddress>()
                                    : std::vector<NetworkAddress>{address.WithInterface(interface->index)};
    }
    if (address.family == AddressFamily::V4 || !address.IsLinkLocal()) {
        return {address};
    }
    std::vector<NetworkAddress> everywhere;
    for (const NetworkInterface& interface : interfaces) {
        if (!interface.loopback) {
            everywhere.push_back(address.WithInterface(interface.index));
        }
    }
    return everywhere;
}

// Whether the last part of a name is a number: what the system would read as an IPv4 address that is cut off
// or written in an old form.
bool EndsInNumber(std::string_view name) {
    if (name.back() == '.') {
        name.remove_suffix(1);
    }
    std::string_view last = name.substr(name.rfind('.') + 1);  // rfind gives npos, and npos + 1 is 0
    const bool isHexadecimal = last.size() >= 2 && last[0] == '0' && (last[1] == 'x' || last[1] == 'X');
    return isHexadecimal || std::all_of(last.begin(), last.end(),
                                        [](char character) { return character >= '0' && character <= '9'; });
}

bool MeansSession(const Parts& parts, const NameSurroundings& surroundings) {
    return surroundings.hasSessions && parts.port >= kRtpPort && parts.port <= kLastRtpPort;
}

const AnnouncedSession* FindSession(std::string_view text, const NameSurroundings& surroundings) {
    if (surroundings.sessions == nullptr) {
        return nullptr;
    }
    const std::string folded = FoldHostName(text);
    const auto place = std::find_if(
        surroundings.sessions->begin(), surroundings.sessions->end(),
        [&folded](const AnnouncedSession& session) { return FoldHostName(session.name) == folded; });
    return place == surroundings.sessions->end() ? nullptr : &*place;
}

NamedTarget LiteralTarget(const NetworkAddress& address, const Parts& parts,
                          const NameSurroundings& surroundings) {
    NamedTarget target;
    const bool isNowhere = address.bytes == std::array<std::uint8_t, 16>{};
    const bool hasFormOfV6 = parts.hasScope || parts.inBrackets;
    const bool isWrong = hasFormOfV6 && address.family == AddressFamily::V4;
    if (isNowhere || isWrong || address.IsForMany()) {
        target.kind = TargetKind::Impossible;
        return target;
    }
    target.kind = TargetKind::Literal;
    target.port = parts.port == 0 ? kLinkPort : parts.port;
    target.isSession = MeansSession(parts, surroundings);
    target.addresses = AddressesOf(address.WithPort(target.port), parts, surroundings.interfaces);
    return target;
}

NamedTarget ResolvableTarget(const Parts& parts, const NameSurroundings& surroundings) {
    NamedTarget target;
    target.kind = TargetKind::Impossible;
    if (!parts.hasScope && !parts.inBrackets && IsHostName(parts.host)) {
        target.kind = TargetKind::Resolvable;
        target.port = parts.port == 0 ? kLinkPort : parts.port;
        target.isSession = MeansSession(parts, surroundings);
        target.hostNames.emplace_back(parts.host);
        if (parts.host.find('.') == std::string_view::npos) {
            target.hostNames.push_back(std::string(parts.host) + ".local");
        }
    }
    return target;
}

}  // namespace

std::vector<AnnouncedSession> SessionsOf(const std::vector<FoundService>& found) {
    std::vector<AnnouncedSession> sessions;
    for (const FoundService& service : found) {
        if (!ComputerDirectory::IsListedName(service.name)) {
            continue;
        }
        const std::string folded = FoldHostName(service.name);
        const auto same = std::find_if(
            sessions.begin(), sessions.end(),
            [&folded](const AnnouncedSession& session) { return FoldHostName(session.name) == folded; });
        AnnouncedSession& session =
            same == sessions.end() ? sessions.emplace_back(AnnouncedSession{service.name, {}}) : *same;
        session.addresses.push_back(service.address);
    }
    for (AnnouncedSession& session : sessions) {
        std::stable_partition(
            session.addresses.begin(), session.addresses.end(),
            [](const NetworkAddress& address) { return address.family == AddressFamily::V4; });
        if (session.addresses.size() > ComputerEntry::kMostAddresses) {
            session.addresses.resize(ComputerEntry::kMostAddresses);
        }
    }
    return sessions;
}

bool IsHostName(std::string_view text) {
    return !text.empty() && text.size() <= kLongestHostName && text.front() != '.' && !EndsInNumber(text) &&
           std::none_of(text.begin(), text.end(), [](char character) {
               const auto byte = static_cast<unsigned char>(character);
               return byte <= ' ' || byte == 0x7F || character == '%' || character == '/' ||
                      character == ':' || character == '[' || character == ']';
           });
}

bool MeansThisComputer(std::string_view text, const LocalNames& local,
                       const std::vector<NetworkInterface>& interfaces, std::uint16_t ownPort) {
    const std::optional<Parts> parts = TakeApart(text);
    const std::optional<NetworkAddress> address = parts ? ParseAddress(parts->host) : std::nullopt;
    const bool isOwnPort = parts && (parts->port == 0 || parts->port == ownPort);
    const bool isOwnAddress = address && (address->IsLoopback() || IsOwnAddress(interfaces, *address));
    return local.Contains(std::string(text)) || (isOwnAddress && isOwnPort);
}

NamedTarget FindTarget(std::string_view text, const NameSurroundings& surroundings) {
    NamedTarget target;
    if (text.empty()) {
        return target;
    }
    const std::optional<Parts> parts = TakeApart(text);
    const std::optional<NetworkAddress> address = parts ? ParseAddress(parts->host) : std::nullopt;
    if (MeansThisComputer(text, surroundings.local, surroundings.interfaces, surroundings.ownPort)) {
        target.kind = TargetKind::Local;
        return target;
    }
    if (const ComputerEntry* entry = surroundings.directory.Find(text)) {
        target.kind = TargetKind::Directory;
        target.id = entry->id;
        target.addresses = entry->addresses;
        target.port = entry->port;
        return target;
    }
    if (const AnnouncedSession* session = FindSession(text, surroundings)) {
        target.kind = TargetKind::Session;
        target.isSession = true;
        target.sessionName = session->name;
        target.addresses = session->addresses;
        return target;
    }
    if (!parts) {
        target.kind = TargetKind::Impossible;
        return target;
    }
    return address ? LiteralTarget(*address, *parts, surroundings) : ResolvableTarget(*parts, surroundings);
}

}  // namespace vexil
