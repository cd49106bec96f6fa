#include "platform/linux/network/SpeakerTurn.h"

#include <pwd.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <utility>

namespace vexil {

namespace {

constexpr int kMostWaiting = 64;
constexpr int kAttempts = 10;  // the holder may end between two calls

struct Address {
    sockaddr_un address{};
    socklen_t size = 0;
};

Address AbstractAddress(const std::string& name) {
    Address made;
    made.address.sun_family = AF_UNIX;
    // The first byte stays zero: the name is not one of a file.
    std::memcpy(made.address.sun_path + 1, name.data(), name.size());
    made.size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    return made;
}

Descriptor MakeSocket() {
    return Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

std::string UserText(uid_t user) {
    std::array<char, 4096> buffer{};
    passwd entry{};
    passwd* found = nullptr;
    const bool isKnown =
        getpwuid_r(user, &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr;
    return "user " + (isKnown ? std::string(entry.pw_name) : std::to_string(user));
}

}  // namespace

bool SpeakerTurn::Take() {
    if (held.Number() != -1) {
        return true;
    }
    Leave();
    const Address at = AbstractAddress(address);
    const auto* generic = reinterpret_cast<const sockaddr*>(&at.address);
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        Descriptor mine = MakeSocket();
        if (bind(mine.Number(), generic, at.size) == 0) {
            static_cast<void>(listen(mine.Number(), kMostWaiting));
            held = std::move(mine);
            return true;
        }
        if (errno != EADDRINUSE) {
            return true;
        }
        Descriptor other = MakeSocket();
        if (connect(other.Number(), generic, at.size) == 0) {
            ucred who{};
            socklen_t size = sizeof who;
            const bool isKnown = getsockopt(other.Number(), SOL_SOCKET, SO_PEERCRED, &who, &size) == 0;
            holder = isKnown ? UserText(who.uid) : "another user";
            waiting = std::move(other);
            return false;
        }
    }
    // It is there and nobody can wait for it any more.
    holder = "another user";
    return false;
}

void SpeakerTurn::Leave() {
    held = Descriptor();
    waiting = Descriptor();
    holder.clear();
}

}  // namespace vexil
