// What the start of the service is held against: a program that only binds the control channel's socket, says
// that it is ready, and answers every request with nothing.
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>

namespace {

bool FillPlace(const char* path, sockaddr_un& place) {
    place.sun_family = AF_UNIX;
    const std::size_t length = std::strlen(path);
    if (length >= sizeof place.sun_path) {
        return false;
    }
    std::memcpy(place.sun_path, path, length + 1);
    return true;
}

}  // namespace

// bare_service SOCKET
int main(int argumentCount, char** arguments) {
    sockaddr_un place{};
    sockaddr_un manager{};
    const char* notify = std::getenv("NOTIFY_SOCKET");
    if (argumentCount != 2 || notify == nullptr || !FillPlace(arguments[1], place) ||
        !FillPlace(notify, manager)) {
        return 2;
    }
    const int listening = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (bind(listening, reinterpret_cast<const sockaddr*>(&place), sizeof place) != 0 ||
        listen(listening, 16) != 0) {
        return 1;
    }
    const char ready[] = "READY=1";
    sendto(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0), ready, sizeof ready - 1, 0,
           reinterpret_cast<const sockaddr*>(&manager), sizeof manager);
    for (;;) {
        const int client = accept(listening, nullptr, nullptr);
        std::array<char, 65552> packet{};
        while (recv(client, packet.data(), packet.size(), 0) > 0) {
            std::memset(packet.data() + 4, 0, 8);  // no error, no data
            send(client, packet.data(), 12, MSG_NOSIGNAL);
        }
        close(client);
    }
}
