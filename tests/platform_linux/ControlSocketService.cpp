#include "tests/platform_linux/ControlSocketService.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "driver/DriverOptions.h"

namespace vexil {

ControlSocketService::ControlSocketService(std::string socketPath) : path(std::move(socketPath)) {}

ControlSocketService::~ControlSocketService() {
    Stop();
    RemoveFile();
}

void ControlSocketService::Start() {
    RemoveFile();
    listening = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    sockaddr_un place{};
    place.sun_family = AF_UNIX;
    ASSERT_LT(path.size(), sizeof place.sun_path);
    std::memcpy(place.sun_path, path.c_str(), path.size() + 1);
    ASSERT_EQ(0, bind(listening, reinterpret_cast<const sockaddr*>(&place), sizeof place));
    ASSERT_EQ(0, listen(listening, 8));
    stopEvent = eventfd(0, EFD_CLOEXEC);
    thread = std::thread([this] { Run(); });
}

void ControlSocketService::Stop() {
    if (!thread.joinable()) {
        return;
    }
    eventfd_write(stopEvent, 1);
    thread.join();
    close(stopEvent);
    close(listening);
    const std::lock_guard lock(mutex);
    for (const auto& [client, unit] : clients) {
        close(client);
    }
    clients.clear();
}

void ControlSocketService::RemoveFile() const {
    unlink(path.c_str());
}

void ControlSocketService::SetHook(Hook newHook) {
    const std::lock_guard lock(mutex);
    hook = newHook ? std::make_shared<Hook>(std::move(newHook)) : nullptr;
}

void ControlSocketService::SetHostInfos(std::vector<std::uint8_t> bytes) {
    const std::lock_guard lock(mutex);
    hostInfos = std::move(bytes);
}

std::vector<ControlSocketService::Seen> ControlSocketService::Requests() const {
    const std::lock_guard lock(mutex);
    return requests;
}

void ControlSocketService::AwaitClients(std::size_t count) const {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    for (;;) {
        {
            const std::lock_guard lock(mutex);
            if (clients.size() == count) {
                return;
            }
        }
        if (std::chrono::steady_clock::now() > end) {
            FAIL() << "never were there " << count << " clients";
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

std::vector<std::pair<int, std::vector<std::uint8_t>>> ControlSocketService::Accepted() const {
    const std::lock_guard lock(mutex);
    return accepted;
}

void ControlSocketService::Reply(const Seen& request, std::uint32_t error,
                                 const std::vector<std::uint8_t>& data) {
    SendPacket(request.client,
               PackControlReply({.sequence = request.sequence, .error = error, .data = data}));
}

void ControlSocketService::SendPacket(int client, const std::vector<std::uint8_t>& packet) {
    // A client that has gone meanwhile is no fault of the service.
    send(client, packet.data(), packet.size(), MSG_NOSIGNAL);
}

void ControlSocketService::CutOff(int client) {
    shutdown(client, SHUT_RDWR);
}

void ControlSocketService::Run() {
    // Signals of a test are for the test's own thread.
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
    for (;;) {
        std::vector<pollfd> waiting = {{stopEvent, POLLIN, 0}, {listening, POLLIN, 0}};
        {
            const std::lock_guard lock(mutex);
            for (const auto& [client, unit] : clients) {
                waiting.push_back({client, POLLIN, 0});
            }
        }
        poll(waiting.data(), waiting.size(), -1);
        if (waiting[0].revents != 0) {
            return;
        }
        // Clients first: one that has gone frees its unit before the next one asks for it.
        for (std::size_t i = 2; i < waiting.size(); ++i) {
            if (waiting[i].revents != 0) {
                TakePacket(waiting[i].fd);
            }
        }
        if (waiting[1].revents != 0) {
            const int client = accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
            const std::lock_guard lock(mutex);
            if (client != -1) {
                clients[client] = 0;
            }
        }
    }
}

void ControlSocketService::TakePacket(int client) {
    std::vector<std::uint8_t> packet(kMaxControlRequestSize);
    const ssize_t size = recv(client, packet.data(), packet.size(), 0);
    if (size <= 0) {
        const std::lock_guard lock(mutex);
        clients.erase(client);
        close(client);
        return;
    }
    const auto request = UnpackControlRequest({packet.data(), static_cast<std::size_t>(size)});
    ASSERT_TRUE(request) << "a packet that is no request";
    const Seen seen{client,          request->sequence, request->kind,
                    request->number, request->length,   {request->payload.begin(), request->payload.end()}};
    std::shared_ptr<Hook> current;
    {
        const std::lock_guard lock(mutex);
        requests.push_back(seen);
        current = hook;
    }
    if (!current || !(*current)(seen)) {
        Answer(seen);
    }
}

void ControlSocketService::Answer(const Seen& request) {
    std::vector<std::uint8_t> data;
    std::uint32_t error = 0;
    {
        const std::lock_guard lock(mutex);
        if (request.kind == kControlAttach) {
            error = Attach(request);
        } else if (clients[request.client] == 0) {
            error = ENOTCONN;
        } else if (request.kind == kControlSetOption) {
            error = SetOption(request);
        } else if (request.number != static_cast<std::uint32_t>(kOptionReadHostInfos)) {
            error = ENOPROTOOPT;
        } else {
            data = hostInfos;
            data.resize(std::min<std::size_t>(data.size(), request.length));
        }
    }
    Reply(request, error, data);
}

std::uint32_t ControlSocketService::Attach(const Seen& request) {
    for (const auto& [client, unit] : clients) {
        if (unit == request.number) {
            return EBUSY;
        }
    }
    clients[request.client] = request.number;
    return 0;
}

std::uint32_t ControlSocketService::SetOption(const Seen& request) {
    const int option = static_cast<int>(request.number);
    if (option < 0 || (option > 63 && option < kOptionReloadConfiguration) || option > kOptionBrowseHosts) {
        return ENOPROTOOPT;
    }
    if (option == kOptionSendGranularity && request.length != 4) {
        return EINVAL;
    }
    accepted.emplace_back(option, request.payload);
    return 0;
}

}  // namespace vexil
