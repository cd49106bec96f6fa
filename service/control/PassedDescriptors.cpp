#include "service/control/PassedDescriptors.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

namespace vexil {

namespace {

#ifdef SO_PASSRIGHTS
constexpr int kPassRights = SO_PASSRIGHTS;
#elif defined(__sparc__) || defined(__hppa__)
constexpr int kPassRights = -1;  // numbers of their own, which the headers here do not have
#else
constexpr int kPassRights = 83;
#endif

constexpr std::size_t kMostPassed = 253;  // with one packet: the kernel's limit

ssize_t Receive(int connection, msghdr& message, int flags) {
    ssize_t size = -1;
    do {
        size = recvmsg(connection, &message, flags);
    } while (size == -1 && errno == EINTR);
    return size;
}

// Reads what nobody is going to answer, up to a packet that carries descriptors. True when there is one.
// Every packet is made to bring its sender's credentials, for which there is room: an empty packet differs
// from the end in them.
bool ReadUpToDescriptors(int connection) {
    const int brings = 1;
    setsockopt(connection, SOL_SOCKET, SO_PASSCRED, &brings, sizeof brings);
    for (;;) {
        std::uint8_t byte = 0;
        alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(ucred))> control{};
        iovec place{&byte, 1};
        msghdr message{};
        message.msg_iov = &place;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        const ssize_t size = Receive(connection, message, MSG_PEEK | MSG_DONTWAIT);
        if ((message.msg_flags & MSG_CTRUNC) != 0) {
            return true;
        }
        if (size == -1 || CMSG_FIRSTHDR(&message) == nullptr) {
            return false;
        }
        static_cast<void>(recv(connection, &byte, 1, MSG_DONTWAIT));
    }
}

}  // namespace

bool RefusePassedDescriptors(int socket) {
    const int passes = 0;
    return setsockopt(socket, SOL_SOCKET, kPassRights, &passes, sizeof passes) == 0;
}

// A look without room for descriptors: the kernel says that there were some, and they stay with the packet.
bool NextCarriesDescriptors(int connection) {
    std::uint8_t byte = 0;
    iovec place{&byte, 1};
    msghdr message{};
    message.msg_iov = &place;
    message.msg_iovlen = 1;
    return Receive(connection, message, MSG_PEEK | MSG_DONTWAIT) >= 0 &&
           (message.msg_flags & MSG_CTRUNC) != 0;
}

ssize_t ReceiveWithoutDescriptors(int connection, std::span<std::uint8_t> packet, DescriptorCloser& closer) {
    alignas(cmsghdr) std::array<char, CMSG_SPACE(kMostPassed * sizeof(int))> control{};
    iovec place{packet.data(), packet.size()};
    msghdr message{};
    message.msg_iov = &place;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    const ssize_t size = Receive(connection, message, MSG_TRUNC | MSG_CMSG_CLOEXEC | MSG_DONTWAIT);
    if (size == -1) {
        return -1;
    }
    for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr; part = CMSG_NXTHDR(&message, part)) {
        if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_RIGHTS) {
            continue;
        }
        const std::size_t count = (part->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (std::size_t index = 0; index < count; ++index) {
            int passed = -1;
            std::memcpy(&passed, CMSG_DATA(part) + index * sizeof passed, sizeof passed);
            closer.Close(Descriptor(passed));
        }
    }
    return size;
}

void CloseConnection(Descriptor connection, DescriptorCloser& closer) {
    // Nothing more gets in from here on.
    shutdown(connection.Number(), SHUT_RDWR);
    if (ReadUpToDescriptors(connection.Number())) {
        closer.Close(std::move(connection));
    }
}

}  // namespace vexil
