#include "platform/linux/network/SystemResolver.h"

#include <netdb.h>
#include <netinet/in.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstring>
#include <deque>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "shared/System/Descriptor.h"

namespace vexil {

namespace {

struct FreeAddresses {
    void operator()(addrinfo* first) const { freeaddrinfo(first); }
};

NetworkAddress FromSystem(const addrinfo& found) {
    if (found.ai_family == AF_INET && found.ai_addrlen >= sizeof(sockaddr_in)) {
        sockaddr_in system{};
        std::memcpy(&system, found.ai_addr, sizeof system);
        std::array<std::uint8_t, 4> bytes{};
        std::memcpy(bytes.data(), &system.sin_addr, bytes.size());
        return NetworkAddress::V4(bytes);
    }
    if (found.ai_family == AF_INET6 && found.ai_addrlen >= sizeof(sockaddr_in6)) {
        sockaddr_in6 system{};
        std::memcpy(&system, found.ai_addr, sizeof system);
        std::array<std::uint8_t, 16> bytes{};
        std::memcpy(bytes.data(), &system.sin6_addr, bytes.size());
        return NetworkAddress::V6(bytes, 0, system.sin6_scope_id);
    }
    return {};
}

std::vector<NetworkAddress> AskSystem(const std::string& name) {
    addrinfo wanted{};
    wanted.ai_family = AF_UNSPEC;
    wanted.ai_socktype = SOCK_DGRAM;
    addrinfo* first = nullptr;
    if (getaddrinfo(name.c_str(), nullptr, &wanted, &first) != 0) {
        return {};  // whatever the reason, the name is not known now
    }
    const std::unique_ptr<addrinfo, FreeAddresses> list(first);
    std::vector<NetworkAddress> addresses;
    for (const addrinfo* found = first; found != nullptr; found = found->ai_next) {
        const NetworkAddress address = FromSystem(*found);
        const bool isNew = std::find(addresses.begin(), addresses.end(), address) == addresses.end();
        if (address.IsThere() && isNew && addresses.size() < kMostResolvedAddresses) {
            addresses.push_back(address);
        }
    }
    return addresses;
}

}  // namespace

struct SystemResolver::Answers {
    std::mutex lock;
    std::deque<ResolverAnswer> waiting;
    int threads = 0;
    Descriptor event{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};

    void Put(ResolverAnswer answer) {
        const std::lock_guard<std::mutex> guard(lock);
        --threads;
        waiting.push_back(std::move(answer));
        // A full counter is readable already.
        static_cast<void>(!eventfd_write(event.Number(), 1));
    }
};

SystemResolver::SystemResolver() : SystemResolver(AskSystem) {}

SystemResolver::SystemResolver(LookUp how) : answers(std::make_shared<Answers>()), lookUp(std::move(how)) {}

SystemResolver::~SystemResolver() = default;

int SystemResolver::EventDescriptor() const {
    return answers->event.Number();
}

bool SystemResolver::Begin(std::uint64_t ticket, const std::string& name) {
    {
        const std::lock_guard<std::mutex> guard(answers->lock);
        if (answers->threads == kMostThreads) {
            return false;
        }
        ++answers->threads;
    }
    // Signals are for the thread that waits for them.
    sigset_t all{};
    sigset_t before{};
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    bool hasBegun = true;
    try {
        std::thread([shared = answers, how = lookUp, ticket, name] {
            shared->Put({ticket, how(name)});
        }).detach();
    } catch (const std::system_error&) {
        hasBegun = false;  // the system has no thread to give
        const std::lock_guard<std::mutex> guard(answers->lock);
        --answers->threads;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return hasBegun;
}

std::optional<ResolverAnswer> SystemResolver::Take() {
    const std::lock_guard<std::mutex> guard(answers->lock);
    if (answers->waiting.empty()) {
        eventfd_t ignored = 0;
        static_cast<void>(!eventfd_read(answers->event.Number(), &ignored));
        return std::nullopt;
    }
    ResolverAnswer answer = std::move(answers->waiting.front());
    answers->waiting.pop_front();
    return answer;
}

}  // namespace vexil
