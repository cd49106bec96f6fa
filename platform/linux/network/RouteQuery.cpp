#include "platform/linux/network/RouteQuery.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace vexil {

namespace {

constexpr std::size_t kReplySize = 4096;

struct Question {
    nlmsghdr header;
    rtmsg route;
    rtattr attribute;
    std::array<std::uint8_t, 16> address;
};

}  // namespace

RouteQuery::RouteQuery()
    : netlink(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE)) {}

std::uint32_t RouteQuery::InterfaceToward(const NetworkAddress& address) {
    if (!netlink.IsOpen() || !address.IsThere()) {
        return 0;
    }
    const std::size_t size = address.family == AddressFamily::V4 ? 4 : 16;
    Question question{};
    question.header.nlmsg_len = static_cast<std::uint32_t>(offsetof(Question, address) + size);
    question.header.nlmsg_type = RTM_GETROUTE;
    question.header.nlmsg_flags = NLM_F_REQUEST;
    question.header.nlmsg_seq = ++sequence;
    question.route.rtm_family = address.family == AddressFamily::V4 ? AF_INET : AF_INET6;
    question.route.rtm_dst_len = static_cast<unsigned char>(8 * size);
    question.attribute.rta_type = RTA_DST;
    question.attribute.rta_len = static_cast<unsigned short>(RTA_LENGTH(size));
    std::copy_n(address.bytes.begin(), size, question.address.begin());
    if (send(netlink.Number(), &question, question.header.nlmsg_len, 0) < 0) {
        return 0;
    }
    // The kernel has answered when send returns.
    alignas(nlmsghdr) std::array<char, kReplySize> reply{};
    for (;;) {
        const ssize_t count = recv(netlink.Number(), reply.data(), reply.size(), 0);
        if (count <= 0) {
            return 0;
        }
        auto left = static_cast<unsigned>(count);
        const auto* message = reinterpret_cast<const nlmsghdr*>(reply.data());
        if (!NLMSG_OK(message, left) || message->nlmsg_seq != sequence) {
            continue;
        }
        if (message->nlmsg_type != RTM_NEWROUTE) {
            return 0;
        }
        const auto* route = static_cast<const rtmsg*>(NLMSG_DATA(message));
        auto length = static_cast<unsigned>(RTM_PAYLOAD(message));
        for (const rtattr* part = RTM_RTA(route); RTA_OK(part, length); part = RTA_NEXT(part, length)) {
            if (part->rta_type == RTA_OIF && RTA_PAYLOAD(part) == sizeof(std::uint32_t)) {
                std::uint32_t interface = 0;
                std::memcpy(&interface, RTA_DATA(part), sizeof interface);
                return interface;
            }
        }
        return 0;
    }
}

}  // namespace vexil
