#include "platform/linux/network/NetlinkInterfaces.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

#include "shared/System/svLog.h"

namespace vexil {

namespace {

// As much as the kernel ever puts into one message of a list.
constexpr std::size_t kBufferSize = 65536;
// Lists that change while they are read are read again, this often at most.
constexpr int kDumps = 10;

using Found = std::vector<NetworkInterface>;

void Note(const char* what, int error) {
    LogPrintf("Cannot read the network interfaces: %s: %s\n", what,
              std::error_code(error, std::generic_category()).message().c_str());
}

// The parts of a message by their type.
template <class Each>
void ForEachPart(const rtattr* part, unsigned length, const Each& each) {
    for (; RTA_OK(part, length); part = RTA_NEXT(part, length)) {
        each(part->rta_type, std::string_view(static_cast<const char*>(RTA_DATA(part)), RTA_PAYLOAD(part)));
    }
}

template <std::size_t Size>
std::optional<std::array<std::uint8_t, Size>> BytesOf(std::string_view content) {
    if (content.size() != Size) {
        return std::nullopt;
    }
    std::array<std::uint8_t, Size> bytes{};
    std::memcpy(bytes.data(), content.data(), Size);
    return bytes;
}

NetworkAddress AddressOf(unsigned family, std::string_view content, std::uint32_t interface) {
    if (family == AF_INET) {
        const auto bytes = BytesOf<4>(content);
        return bytes ? NetworkAddress::V4(*bytes, 0, interface) : NetworkAddress();
    }
    const auto bytes = BytesOf<16>(content);
    return bytes ? NetworkAddress::V6(*bytes, 0, interface) : NetworkAddress();
}

void TakeLink(const nlmsghdr* message, const std::string& sysfs, Found& found) {
    const auto* link = static_cast<const ifinfomsg*>(NLMSG_DATA(message));
    constexpr unsigned kWanted = IFF_UP | IFF_RUNNING;
    if ((link->ifi_flags & kWanted) != kWanted || link->ifi_index <= 0) {
        return;
    }
    NetworkInterface interface;
    interface.index = static_cast<std::uint32_t>(link->ifi_index);
    interface.loopback = (link->ifi_flags & IFF_LOOPBACK) != 0;
    interface.broadcasts = interface.loopback || (link->ifi_flags & IFF_BROADCAST) != 0;
    interface.multicasts = (link->ifi_flags & IFF_MULTICAST) != 0;
    const bool isEthernet = link->ifi_type == ARPHRD_ETHER;
    ForEachPart(IFLA_RTA(link), static_cast<unsigned>(IFLA_PAYLOAD(message)),
                [&](int type, std::string_view content) {
                    if (type == IFLA_IFNAME) {
                        interface.name = content.substr(0, content.find('\0'));
                    } else if (type == IFLA_ADDRESS && isEthernet) {
                        interface.hardware = BytesOf<6>(content).value_or(HardwareAddress{});
                    }
                });
    const std::string folder = sysfs + "/" + interface.name;
    interface.wireless = access((folder + "/phy80211").c_str(), F_OK) == 0 ||
                         access((folder + "/wireless").c_str(), F_OK) == 0;
    found.push_back(std::move(interface));
}

void TakeAddress(const nlmsghdr* message, Found& found) {
    const auto* header = static_cast<const ifaddrmsg*>(NLMSG_DATA(message));
    const auto owner = std::find_if(found.begin(), found.end(), [header](const NetworkInterface& interface) {
        return interface.index == header->ifa_index;
    });
    const bool isKnown = header->ifa_family == AF_INET || header->ifa_family == AF_INET6;
    if (owner == found.end() || !isKnown) {
        return;
    }
    std::uint32_t flags = header->ifa_flags;
    NetworkAddress local;
    NetworkAddress other;  // of a point-to-point link this is the other end's
    InterfaceAddress address;
    ForEachPart(IFA_RTA(header), static_cast<unsigned>(IFA_PAYLOAD(message)),
                [&](int type, std::string_view content) {
                    if (type == IFA_LOCAL) {
                        local = AddressOf(header->ifa_family, content, header->ifa_index);
                    } else if (type == IFA_ADDRESS) {
                        other = AddressOf(header->ifa_family, content, header->ifa_index);
                    } else if (type == IFA_BROADCAST) {
                        address.broadcast = AddressOf(header->ifa_family, content, header->ifa_index);
                    } else if (type == IFA_FLAGS && content.size() == sizeof flags) {
                        std::memcpy(&flags, content.data(), sizeof flags);
                    }
                });
    address.address = local.IsThere() ? local : other;
    address.prefix = header->ifa_prefixlen;
    // An address that is still tried, or that another computer has, cannot be used.
    const bool isUsable =
        (flags & (IFA_F_TENTATIVE | IFA_F_DADFAILED)) == 0 || (flags & IFA_F_OPTIMISTIC) != 0;
    if (address.address.IsThere() && isUsable) {
        owner->addresses.push_back(address);
    }
}

struct Question {
    nlmsghdr header;
    rtgenmsg general;
};

// Large, so not on the stack.
struct Buffer {
    alignas(nlmsghdr) std::array<char, kBufferSize> bytes;
};

enum class Answer : std::uint8_t { Whole, Changing, Failed };

// Asks for one list of the kernel and takes its messages.
template <class Take>
Answer Ask(const Descriptor& socket, std::uint16_t type, const Take& take) {
    Question question{};
    question.header.nlmsg_len = NLMSG_LENGTH(sizeof question.general);
    question.header.nlmsg_type = type;
    question.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    question.header.nlmsg_seq = type;
    question.general.rtgen_family = AF_UNSPEC;
    if (send(socket.Number(), &question, question.header.nlmsg_len, 0) < 0) {
        return Answer::Failed;
    }
    // The kernel writes the list as it is read: nothing is waited for.
    const std::unique_ptr<Buffer> buffer = std::make_unique<Buffer>();
    bool hasChanged = false;
    for (;;) {
        const ssize_t count = recv(socket.Number(), buffer->bytes.data(), buffer->bytes.size(), 0);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return Answer::Failed;
        }
        auto left = static_cast<unsigned>(count);
        for (const auto* message = reinterpret_cast<const nlmsghdr*>(buffer->bytes.data());
             NLMSG_OK(message, left); message = NLMSG_NEXT(message, left)) {
            hasChanged = hasChanged || (message->nlmsg_flags & NLM_F_DUMP_INTR) != 0;
            if (message->nlmsg_type == NLMSG_DONE) {
                return hasChanged ? Answer::Changing : Answer::Whole;
            }
            if (message->nlmsg_type == NLMSG_ERROR) {
                errno = EIO;
                return Answer::Failed;
            }
            take(message);
        }
    }
}

}  // namespace

NetlinkInterfaces::NetlinkInterfaces(std::string sysClassNet)
    : sysfs(std::move(sysClassNet)),
      changes(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE)) {
    sockaddr_nl groups{};
    groups.nl_family = AF_NETLINK;
    groups.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR;
    if (!changes.IsOpen() ||
        bind(changes.Number(), reinterpret_cast<const sockaddr*>(&groups), sizeof groups) != 0) {
        Note("netlink", errno);
        changes.Close();
    }
    Load();
}

void NetlinkInterfaces::Load() {
    const Descriptor asking(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
    Answer answer = asking.IsOpen() ? Answer::Changing : Answer::Failed;
    Found found;
    for (int attempt = 0; attempt < kDumps && answer == Answer::Changing; ++attempt) {
        found.clear();
        answer = Ask(asking, RTM_GETLINK, [&](const nlmsghdr* message) {
            if (message->nlmsg_type == RTM_NEWLINK) {
                TakeLink(message, sysfs, found);
            }
        });
        if (answer == Answer::Whole) {
            answer = Ask(asking, RTM_GETADDR, [&](const nlmsghdr* message) {
                if (message->nlmsg_type == RTM_NEWADDR) {
                    TakeAddress(message, found);
                }
            });
        }
    }
    if (answer == Answer::Failed) {
        if (!std::exchange(hasFailed, true)) {
            Note("list", errno);
        }
        return;
    }
    // A list that changed each time it was read: its last change is told, and it is read again then.
    hasFailed = false;
    std::sort(found.begin(), found.end(), [](const NetworkInterface& first, const NetworkInterface& second) {
        return first.index < second.index;
    });
    list = std::move(found);
}

bool NetlinkInterfaces::Take() {
    if (!changes.IsOpen()) {
        return false;
    }
    bool hasHappened = false;
    alignas(nlmsghdr) std::array<char, 8192> unread;
    for (;;) {
        // What happened is in the list that is read then. A message that did not fit (ENOBUFS) has happened,
        // too.
        const ssize_t count = recv(changes.Number(), unread.data(), unread.size(), 0);
        if (count > 0 || (count < 0 && errno == ENOBUFS)) {
            hasHappened = true;
        } else if (count == 0 || errno != EINTR) {
            break;
        }
    }
    if (!hasHappened) {
        return false;
    }
    const Found before = list;
    Load();
    return list != before;
}

}  // namespace vexil
