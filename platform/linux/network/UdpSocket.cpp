#include "platform/linux/network/UdpSocket.h"

#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <string_view>
#include <system_error>
#include <utility>

namespace vexil {

namespace {

constexpr std::size_t kBatch = 16;
// One byte more than any link of ours carries tells a datagram that is longer.
constexpr std::size_t kBufferSize = 2048;
constexpr int kReceiveBuffer = 1 << 20;
constexpr int kExpeditedForwarding = 46 << 2;  // DSCP EF, RFC 3246, as the byte of the header
constexpr const char* kLoopbackName = "lo";
constexpr std::uint64_t kSecond = 1'000'000'000;
constexpr std::uint64_t kVerdictLife = kSecond;
// A kernel's time stamp that is older, or of the future, comes from a clock that was set meanwhile.
constexpr std::int64_t kOldestStamp = 60 * static_cast<std::int64_t>(kSecond);

std::int64_t ClockNow(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<std::int64_t>(now.tv_sec) * static_cast<std::int64_t>(kSecond) + now.tv_nsec;
}

std::array<std::uint8_t, 16> MappedBytes(const NetworkAddress& address) {
    std::array<std::uint8_t, 16> bytes = address.bytes;
    if (address.family == AddressFamily::V4) {
        bytes = {};
        bytes[10] = 0xFF;
        bytes[11] = 0xFF;
        std::copy_n(address.bytes.begin(), 4, bytes.begin() + 12);
    } else if (address.family == AddressFamily::None) {
        bytes = {};
    }
    return bytes;
}

sockaddr_in SystemV4(const NetworkAddress& address) {
    sockaddr_in system{};
    system.sin_family = AF_INET;
    system.sin_port = htons(address.port);
    std::memcpy(&system.sin_addr, address.bytes.data(), sizeof system.sin_addr);
    return system;
}

sockaddr_in6 SystemV6(const NetworkAddress& address) {
    sockaddr_in6 system{};
    system.sin6_family = AF_INET6;
    system.sin6_port = htons(address.port);
    const std::array<std::uint8_t, 16> bytes = MappedBytes(address);
    std::memcpy(&system.sin6_addr, bytes.data(), bytes.size());
    const bool needsScope = address.IsLinkLocal() || address.IsForMany();
    if (address.family == AddressFamily::V6 && needsScope) {
        system.sin6_scope_id = address.interface;
    }
    return system;
}

NetworkAddress FromV4(const in_addr& address, std::uint16_t port, std::uint32_t interface) {
    std::array<std::uint8_t, 4> bytes{};
    std::memcpy(bytes.data(), &address, bytes.size());
    return NetworkAddress::V4(bytes, port, interface);
}

NetworkAddress FromV6(const in6_addr& address, std::uint16_t port, std::uint32_t interface) {
    std::array<std::uint8_t, 16> bytes{};
    std::memcpy(bytes.data(), &address, bytes.size());
    return NetworkAddress::V6(bytes, port, interface);
}

NetworkAddress FromSystem(const sockaddr_storage& system, std::uint32_t interface) {
    if (system.ss_family == AF_INET) {
        sockaddr_in v4{};
        std::memcpy(&v4, &system, sizeof v4);
        return FromV4(v4.sin_addr, ntohs(v4.sin_port), interface);
    }
    if (system.ss_family == AF_INET6) {
        sockaddr_in6 v6{};
        std::memcpy(&v6, &system, sizeof v6);
        return FromV6(v6.sin6_addr, ntohs(v6.sin6_port), interface);
    }
    return {};
}

// The control message by which a datagram names the interface it leaves by and the address it leaves from.
struct Leaving {
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(in6_pktinfo))> bytes{};
    std::size_t size = 0;

    template <class Content>
    void Set(int level, int type, const Content& content) {
        cmsghdr header{};
        header.cmsg_level = level;
        header.cmsg_type = type;
        header.cmsg_len = CMSG_LEN(sizeof content);
        std::memcpy(bytes.data(), &header, sizeof header);
        std::memcpy(bytes.data() + CMSG_LEN(0), &content, sizeof content);
        size = CMSG_SPACE(sizeof content);
    }
};

Leaving MakeLeaving(const NetworkAddress& to, const NetworkAddress& own, bool inV6) {
    Leaving leaving;
    if (to.interface == 0 && !own.IsThere()) {
        return leaving;
    }
    if (inV6) {
        in6_pktinfo info{};
        NetworkAddress from = own;
        if (to.family == AddressFamily::V4 && !own.IsThere()) {
            from = NetworkAddress::V4({});
        }
        const std::array<std::uint8_t, 16> bytes = MappedBytes(from);
        std::memcpy(&info.ipi6_addr, bytes.data(), bytes.size());
        info.ipi6_ifindex = to.interface;
        leaving.Set(IPPROTO_IPV6, IPV6_PKTINFO, info);
    } else {
        in_pktinfo info{};
        std::memcpy(&info.ipi_spec_dst, own.bytes.data(), sizeof info.ipi_spec_dst);
        info.ipi_ifindex = static_cast<int>(to.interface);
        leaving.Set(IPPROTO_IP, IP_PKTINFO, info);
    }
    return leaving;
}

SendResult ResultOf(int error) {
    switch (error) {
        case EAGAIN:
        case ENOBUFS:
        case ENOMEM:
            return SendResult::Full;
        case EMSGSIZE:
            return SendResult::TooLong;
        case ENETUNREACH:
        case EHOSTUNREACH:
        case ENETDOWN:
        case EHOSTDOWN:
        case ENODEV:
        case ENXIO:
        case EADDRNOTAVAIL:
        case EAFNOSUPPORT:
            return SendResult::Unreachable;
        case EPERM:
        case EACCES:
            return SendResult::NotAllowed;
        default:
            return SendResult::Failed;
    }
}

std::string ErrorText(int error) {
    return std::error_code(error, std::generic_category()).message();
}

UdpFailure FailureOf(const char* operation, std::uint16_t port, int error) {
    UdpFailure failure;
    failure.error = error;
    failure.portTaken = error == EADDRINUSE;
    failure.sentence =
        failure.portTaken ? "UDP port " + std::to_string(port) + " is used by another program"
                          : std::string("the network cannot be used: ") + operation + ": " + ErrorText(error);
    return failure;
}

struct Setting {
    int level;
    int name;
    int value;
    const char* text;
};

bool Set(const Descriptor& socket, const Setting& setting) {
    return setsockopt(socket.Number(), setting.level, setting.name, &setting.value, sizeof setting.value) ==
           0;
}

// What has to hold; the text of the first that does not, or null.
const char* SetUp(const Descriptor& socket, bool inV6) {
    constexpr std::array<Setting, 2> kBoth = {{
        {SOL_SOCKET, SO_BROADCAST, 1, "SO_BROADCAST"},
        {IPPROTO_IP, IP_MTU_DISCOVER, IP_PMTUDISC_DO, "IP_MTU_DISCOVER"},
    }};
    constexpr std::array<Setting, 3> kV6 = {{
        {IPPROTO_IPV6, IPV6_V6ONLY, 0, "IPV6_V6ONLY"},
        {IPPROTO_IPV6, IPV6_RECVPKTINFO, 1, "IPV6_RECVPKTINFO"},
        {IPPROTO_IPV6, IPV6_MTU_DISCOVER, IPV6_PMTUDISC_DO, "IPV6_MTU_DISCOVER"},
    }};
    constexpr Setting kV4 = {IPPROTO_IP, IP_PKTINFO, 1, "IP_PKTINFO"};
    for (const Setting& setting : kBoth) {
        if (!Set(socket, setting)) {
            return setting.text;
        }
    }
    if (!inV6) {
        return Set(socket, kV4) ? nullptr : kV4.text;
    }
    for (const Setting& setting : kV6) {
        if (!Set(socket, setting)) {
            return setting.text;
        }
    }
    return nullptr;
}

// What makes it better. Where the system refuses, it goes without.
void Improve(const Descriptor& socket, bool inV6) {
    static_cast<void>(Set(socket, {SOL_SOCKET, SO_RCVBUF, kReceiveBuffer, ""}));
    static_cast<void>(Set(socket, {SOL_SOCKET, SO_TIMESTAMPNS, 1, ""}));
    static_cast<void>(Set(socket, {IPPROTO_IP, IP_TOS, kExpeditedForwarding, ""}));
    if (inV6) {
        static_cast<void>(Set(socket, {IPPROTO_IPV6, IPV6_TCLASS, kExpeditedForwarding, ""}));
    }
}

int Bind(const Descriptor& socket, bool inV6, std::uint16_t port) {
    if (inV6) {
        sockaddr_in6 any{};
        any.sin6_family = AF_INET6;
        any.sin6_port = htons(port);
        return bind(socket.Number(), reinterpret_cast<const sockaddr*>(&any), sizeof any);
    }
    sockaddr_in any{};
    any.sin_family = AF_INET;
    any.sin_port = htons(port);
    return bind(socket.Number(), reinterpret_cast<const sockaddr*>(&any), sizeof any);
}

}  // namespace

// What one call of the kernel has given.
struct UdpSocket::Batch {
    using Control = std::array<char, CMSG_SPACE(sizeof(in6_pktinfo)) + CMSG_SPACE(sizeof(timespec)) + 64>;

    struct Slot {
        std::array<std::uint8_t, kBufferSize> bytes;
        alignas(cmsghdr) Control control;
        sockaddr_storage from;
    };
    struct Origin {
        std::uint32_t interface = 0;
        NetworkAddress own;
        std::int64_t stamp = 0;  // CLOCK_REALTIME; 0: the kernel gave no time
    };

    Batch() {
        for (std::size_t place = 0; place < kBatch; ++place) {
            Slot& slot = slots[place];
            vectors[place] = {slot.bytes.data(), slot.bytes.size()};
            msghdr& header = messages[place].msg_hdr;
            header.msg_name = &slot.from;
            header.msg_iov = &vectors[place];
            header.msg_iovlen = 1;
            header.msg_control = slot.control.data();
            Prepare(place);
        }
    }

    // What the kernel changes where it has put a datagram.
    void Prepare(std::size_t place) {
        msghdr& header = messages[place].msg_hdr;
        header.msg_namelen = sizeof(sockaddr_storage);
        header.msg_controllen = sizeof(Control);
        header.msg_flags = 0;
    }

    Origin OriginOf(std::size_t place) {
        Origin origin;
        msghdr& header = messages[place].msg_hdr;
        for (cmsghdr* part = CMSG_FIRSTHDR(&header); part != nullptr; part = CMSG_NXTHDR(&header, part)) {
            if (part->cmsg_level == IPPROTO_IPV6 && part->cmsg_type == IPV6_PKTINFO) {
                in6_pktinfo info{};
                std::memcpy(&info, CMSG_DATA(part), sizeof info);
                origin.interface = info.ipi6_ifindex;
                origin.own = FromV6(info.ipi6_addr, 0, origin.interface);
            } else if (part->cmsg_level == IPPROTO_IP && part->cmsg_type == IP_PKTINFO) {
                in_pktinfo info{};
                std::memcpy(&info, CMSG_DATA(part), sizeof info);
                origin.interface = static_cast<std::uint32_t>(info.ipi_ifindex);
                origin.own = FromV4(info.ipi_addr, 0, origin.interface);
            } else if (part->cmsg_level == SOL_SOCKET && part->cmsg_type == SCM_TIMESTAMPNS) {
                timespec stamp{};
                std::memcpy(&stamp, CMSG_DATA(part), sizeof stamp);
                origin.stamp = static_cast<std::int64_t>(stamp.tv_sec) * static_cast<std::int64_t>(kSecond) +
                               stamp.tv_nsec;
            }
        }
        if (origin.own.IsForMany()) {
            origin.own = {};
        }
        return origin;
    }

    std::array<Slot, kBatch> slots{};
    std::array<iovec, kBatch> vectors{};
    std::array<mmsghdr, kBatch> messages{};
    std::size_t count = 0;
    std::size_t next = 0;
    bool wasEmptied = false;   // the kernel had no more than this
    std::int64_t bootNow = 0;  // as the batch was read
    std::int64_t clockNow = 0;
};

UdpSocket::UdpSocket(Descriptor opened, InterfaceChoice chosen, bool withV6)
    : socket(std::move(opened)), choice(std::move(chosen)), hasV6(withV6), batch(std::make_unique<Batch>()) {}

UdpSocket::~UdpSocket() = default;

std::variant<std::unique_ptr<UdpSocket>, UdpFailure> UdpSocket::Open(const UdpOptions& options) {
    if (options.interfaces.IsOff()) {
        UdpFailure off;
        off.error = EPERM;
        off.sentence = "the network is switched off";
        return off;
    }
    constexpr int kType = SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK;
    bool inV6 = true;
    Descriptor opened(::socket(AF_INET6, kType, 0));
    if (!opened.IsOpen() && errno == EAFNOSUPPORT) {
        inV6 = false;
        opened = Descriptor(::socket(AF_INET, kType, 0));
    }
    if (!opened.IsOpen()) {
        return FailureOf("socket", options.port, errno);
    }
    if (const char* failed = SetUp(opened, inV6)) {
        return FailureOf(failed, options.port, errno);
    }
    Improve(opened, inV6);
    const bool onLoopback = options.interfaces.Which() == InterfaceChoice::Kind::Loopback;
    if (onLoopback && setsockopt(opened.Number(), SOL_SOCKET, SO_BINDTODEVICE, kLoopbackName,
                                 std::strlen(kLoopbackName) + 1) != 0) {
        return FailureOf("SO_BINDTODEVICE", options.port, errno);
    }
    if (Bind(opened, inV6, options.port) != 0) {
        return FailureOf("bind", options.port, errno);
    }
    sockaddr_storage own{};
    socklen_t size = sizeof own;
    if (getsockname(opened.Number(), reinterpret_cast<sockaddr*>(&own), &size) != 0) {
        return FailureOf("getsockname", options.port, errno);
    }
    std::unique_ptr<UdpSocket> made(new UdpSocket(std::move(opened), options.interfaces, inV6));
    made->port = FromSystem(own, 0).port;
    return made;
}

// Listed interfaces come and go, and are renamed before they are first up: a verdict counts for a second.
bool UdpSocket::Admits(std::uint32_t interface) {
    if (choice.Which() == InterfaceChoice::Kind::All) {
        return true;
    }
    const auto now = static_cast<std::uint64_t>(ClockNow(CLOCK_BOOTTIME));
    Verdict* place = verdicts.data();
    for (Verdict& verdict : verdicts) {
        if (verdict.interface == interface && now < verdict.until) {
            return verdict.admitted;
        }
        place = verdict.until < place->until ? &verdict : place;
    }
    ifreq request{};
    request.ifr_ifindex = static_cast<int>(interface);
    const bool exists = interface != 0 && ioctl(socket.Number(), SIOCGIFNAME, &request) == 0;
    const std::string_view name =
        exists ? std::string_view(request.ifr_name, strnlen(request.ifr_name, sizeof request.ifr_name)) : "";
    *place = {interface, exists && choice.Admits(name, name == kLoopbackName), now + kVerdictLife};
    return place->admitted;
}

SendResult UdpSocket::Refuse() {
    ++counters.refused;
    failure = EPERM;
    return SendResult::NotAllowed;
}

SendResult UdpSocket::Send(const NetworkAddress& to, const NetworkAddress& own, ByteView datagram) {
    if (!to.IsThere() || (!hasV6 && to.family == AddressFamily::V6)) {
        failure = EAFNOSUPPORT;
        return SendResult::Unreachable;
    }
    NetworkAddress target = to;
    if (choice.Which() == InterfaceChoice::Kind::Loopback && !to.IsLoopback()) {
        return Refuse();
    }
    if (choice.Which() == InterfaceChoice::Kind::Listed && target.interface == 0) {
        target.interface = routes.InterfaceToward(target);
        if (target.interface == 0) {
            failure = ENETUNREACH;
            return SendResult::Unreachable;
        }
    }
    if (target.interface != 0 && !Admits(target.interface)) {
        return Refuse();
    }
    int last = Transmit(target, own, datagram);
    const bool mayBeOwn = last == EINVAL || ResultOf(last) == SendResult::Unreachable;
    if (last != 0 && own.IsThere() && mayBeOwn) {
        // An own address that is gone gives any of these: the system chooses another.
        last = Transmit(target, NetworkAddress(), datagram);
    }
    if (last == 0) {
        return SendResult::Sent;
    }
    failure = last;
    const SendResult result = ResultOf(last);
    counters.refused += result == SendResult::NotAllowed ? 1 : 0;
    return result;
}

// The errno value; 0 when the kernel took it.
int UdpSocket::Transmit(const NetworkAddress& to, const NetworkAddress& own, ByteView datagram) const {
    sockaddr_in6 v6 = SystemV6(to);
    sockaddr_in v4 = SystemV4(to);
    Leaving leaving = MakeLeaving(to, own.family == to.family ? own : NetworkAddress(), hasV6);
    iovec vector{const_cast<std::uint8_t*>(datagram.data()), datagram.size()};
    msghdr message{};
    message.msg_name = hasV6 ? static_cast<void*>(&v6) : static_cast<void*>(&v4);
    message.msg_namelen = hasV6 ? sizeof v6 : sizeof v4;
    message.msg_iov = &vector;
    message.msg_iovlen = 1;
    if (leaving.size > 0) {
        message.msg_control = leaving.bytes.data();
        message.msg_controllen = leaving.size;
    }
    return sendmsg(socket.Number(), &message, MSG_NOSIGNAL) < 0 ? errno : 0;
}

bool UdpSocket::Fill() {
    Batch& read = *batch;
    for (std::size_t place = 0; place < read.count; ++place) {
        read.Prepare(place);
    }
    read.next = 0;
    read.count = 0;
    // An error that the kernel kept for the socket says nothing of the datagrams behind it.
    constexpr int kErrors = 8;
    int count = -1;
    for (int attempt = 0; attempt < kErrors && count < 0; ++attempt) {
        count = recvmmsg(socket.Number(), read.messages.data(), kBatch, MSG_DONTWAIT, nullptr);
        if (count < 0 && errno == EAGAIN) {
            break;
        }
    }
    read.bootNow = ClockNow(CLOCK_BOOTTIME);
    read.clockNow = ClockNow(CLOCK_REALTIME);
    read.count = count > 0 ? static_cast<std::size_t>(count) : 0;
    read.wasEmptied = read.count < kBatch;
    return read.count > 0;
}

std::optional<ReceivedDatagram> UdpSocket::Receive(std::span<std::uint8_t> into) {
    Batch& read = *batch;
    for (;;) {
        if (read.next == read.count) {
            if (std::exchange(read.wasEmptied, false) || !Fill()) {
                read.wasEmptied = false;
                return std::nullopt;
            }
        }
        const std::size_t place = read.next++;
        const std::size_t size = read.messages[place].msg_len;
        const bool isWhole = (read.messages[place].msg_hdr.msg_flags & MSG_TRUNC) == 0;
        if (!isWhole || size == 0 || size > into.size()) {
            ++counters.oversize;
            continue;
        }
        const Batch::Origin origin = read.OriginOf(place);
        if (!Admits(origin.interface)) {
            ++counters.foreign;
            continue;
        }
        ReceivedDatagram received;
        received.size = size;
        received.from = FromSystem(read.slots[place].from, origin.interface);
        received.own = origin.own;
        const std::int64_t age = origin.stamp == 0 ? 0 : read.clockNow - origin.stamp;
        received.time = static_cast<std::uint64_t>(read.bootNow - (age < 0 || age > kOldestStamp ? 0 : age));
        std::copy_n(read.slots[place].bytes.begin(), size, into.begin());
        return received;
    }
}

}  // namespace vexil
