#include "service/control/ControlServer.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "driver/DriverOptions.h"
#include "driver/LittleEndian.h"
#include "service/control/PassedDescriptors.h"
#include "shared/System/Deadline.h"

namespace vexil {

namespace {

constexpr std::uint64_t kListenerKey = 0;
constexpr int kAcceptsPerRound = 64;
constexpr std::chrono::milliseconds kListenPause{100};  // where the system has no descriptor to give

bool HasGone(int connection) {
    pollfd state{connection, POLLRDHUP, 0};
    return poll(&state, 1, 0) > 0 && (state.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0;
}

// The groups of a process are read with the connection, as they were when it connected.
bool IsMember(int connection, const ucred& peer, gid_t group) {
    if (peer.gid == group) {
        return true;
    }
    std::vector<gid_t> groups(64);
    socklen_t size = 0;
    for (;;) {
        size = static_cast<socklen_t>(groups.size() * sizeof(gid_t));
        if (getsockopt(connection, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &size) == 0) {
            break;
        }
        if (errno != ERANGE || size <= groups.size() * sizeof(gid_t)) {
            return false;
        }
        groups.resize(size / sizeof(gid_t));
    }
    groups.resize(size / sizeof(gid_t));
    return std::find(groups.begin(), groups.end(), group) != groups.end();
}

bool IsAllowed(int connection, const ucred& peer, const std::optional<gid_t>& group) {
    return peer.uid == 0 || peer.uid == geteuid() || (group && IsMember(connection, peer, *group));
}

}  // namespace

ControlServer::ControlServer(int listening, std::optional<gid_t> allowedGroup, Mediator& mediator,
                             Passing passing)
    : listeningSocket(listening),
      group(allowedGroup),
      driver(mediator),
      events(epoll_create1(EPOLL_CLOEXEC)),
      packet(kMaxControlRequestSize) {
    if (passing == Passing::Refused) {
        RefusePassedDescriptors(listeningSocket);  // where it cannot be refused, it is dropped
    }
    if (events.IsOpen() && !AddEvents(listeningSocket, kListenerKey)) {
        events.Close();
    }
}

ControlServer::~ControlServer() {
    while (!clients.empty()) {
        Close(clients.begin()->first);
    }
}

int ControlServer::Timeout() const {
    return listenAgain ? MillisecondsUntil(*listenAgain) : -1;
}

void ControlServer::Serve() {
    ++round;
    if (listenAgain && Timeout() == 0 && AddEvents(listeningSocket, kListenerKey)) {
        listenAgain.reset();
    }
    std::array<epoll_event, kMaxClients + 1> happened{};
    const int count = epoll_wait(events.Number(), happened.data(), static_cast<int>(happened.size()), 0);
    const std::span<epoll_event> seen(happened.data(), static_cast<std::size_t>(std::max(count, 0)));
    constexpr std::uint32_t kGone = EPOLLHUP | EPOLLRDHUP | EPOLLERR;

    // Whoever has gone frees the unit before another asks for it.
    for (const epoll_event& event : seen) {
        if (event.data.u64 != kListenerKey && (event.events & kGone) != 0) {
            Finish(event.data.u64);
        }
    }
    for (const epoll_event& event : seen) {
        const std::uint64_t key = event.data.u64;
        const auto client = (event.events & EPOLLOUT) != 0 ? clients.find(key) : clients.end();
        if (client != clients.end()) {
            SendMonitored(key, client->second, MonitorPacket(client->second.leftOut));
        }
    }
    for (const epoll_event& event : seen) {
        // A copy: the system packs its events, so that a reference to the key is not aligned.
        const std::uint64_t key = event.data.u64;
        const auto client = clients.find(key);
        if (client != clients.end() && ServeOne(client->first, client->second) != Outcome::Served) {
            Close(key);
        }
    }
    for (const epoll_event& event : seen) {
        if (event.data.u64 == kListenerKey) {
            Accept();
        }
    }
}

void ControlServer::Accept() {
    for (int count = 0; count < kAcceptsPerRound; ++count) {
        if (!AcceptOne()) {
            return;
        }
    }
}

bool ControlServer::AcceptOne() {
    Descriptor connection(accept4(listeningSocket, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!connection.IsOpen()) {
        const int error = errno;
        const bool isShort = error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
        if (isShort) {
            PauseListening();
        }
        // A connection that went while it waited is nobody's loss.
        return error == ECONNABORTED || error == EINTR;
    }
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(connection.Number(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 ||
        !IsAllowed(connection.Number(), peer, group)) {
        driver.ClientRefused(peer.pid, peer.uid);
        CloseConnection(std::move(connection), closer);
        return true;
    }
    if (clients.size() == kMaxClients) {
        MakeRoom();
    }
    const std::uint64_t key = nextKey++;
    if (AddEvents(connection.Number(), key)) {
        clients[key] = {std::move(connection), peer.pid, round, false, std::nullopt};
    } else {
        CloseConnection(std::move(connection), closer);
    }
    return true;
}

void ControlServer::MakeRoom() {
    auto oldest = clients.end();
    for (auto client = clients.begin(); client != clients.end(); ++client) {
        if (client->first != attached &&
            (oldest == clients.end() || client->second.lastHeard < oldest->second.lastHeard)) {
            oldest = client;
        }
    }
    if (oldest != clients.end()) {
        Close(oldest->first);
    }
}

bool ControlServer::AddEvents(int descriptor, std::uint64_t key) const {
    epoll_event event{};
    event.events = EPOLLIN | EPOLLRDHUP;
    event.data.u64 = key;
    return epoll_ctl(events.Number(), EPOLL_CTL_ADD, descriptor, &event) == 0;
}

void ControlServer::AwaitRoom(std::uint64_t key, Client& client) const {
    const bool isOwed = client.leftOut != 0;
    if (std::exchange(client.awaitsRoom, isOwed) == isOwed) {
        return;
    }
    epoll_event event{};
    event.events = EPOLLIN | EPOLLRDHUP | (isOwed ? EPOLLOUT : 0U);
    event.data.u64 = key;
    epoll_ctl(events.Number(), EPOLL_CTL_MOD, client.socket.Number(), &event);
}

// The connections wait in the listener's queue meanwhile; asking for them at once again would be a busy loop.
void ControlServer::PauseListening() {
    epoll_ctl(events.Number(), EPOLL_CTL_DEL, listeningSocket, nullptr);
    listenAgain = std::chrono::steady_clock::now() + kListenPause;
}

ControlServer::Outcome ControlServer::ServeOne(std::uint64_t key, Client& client) {
    // They would fill the table of descriptors while the ones before them are being closed.
    if (closer.IsBusy() && NextCarriesDescriptors(client.socket.Number())) {
        return Outcome::Over;
    }
    const ssize_t size = ReceiveWithoutDescriptors(client.socket.Number(), packet, closer);
    if (size == -1) {
        return errno == EAGAIN ? Outcome::Served : Outcome::Over;
    }
    client.lastHeard = round;
    const auto length = static_cast<std::size_t>(size);
    if (length < kControlRequestHeaderSize) {
        return Outcome::Over;  // the end of the connection, or nothing that could be answered
    }
    // Replies come in the order of the requests: a further one ends a wait.
    if (!EndWait(client)) {
        return Outcome::Unread;
    }
    std::optional<ControlRequest> request;
    if (length <= packet.size()) {
        request = UnpackControlRequest({packet.data(), length});
    }
    const bool isSent =
        request ? Answer(key, client, *request) : Send(client, Uint32At(packet.data()), EINVAL);
    return isSent ? Outcome::Served : Outcome::Unread;
}

bool ControlServer::Answer(std::uint64_t key, Client& client, const ControlRequest& request) {
    if (request.kind == kControlWatch) {
        return Watch(client, request);
    }
    const bool isAttached = attached == key;
    int error = 0;
    std::vector<std::uint8_t> data;
    switch (request.kind) {
        case kControlAttach:
            error = Attach(key, client, request.number);
            break;
        case kControlSetOption:
            error = isAttached ? driver.SetOption(request.number, request.payload) : ENOTCONN;
            break;
        case kControlGetOption:
            error = isAttached ? driver.GetOption(request.number, data) : ENOTCONN;
            data.resize(error == 0 ? std::min<std::size_t>(data.size(), request.length) : 0);
            break;
        case kControlStatus: {
            const std::string status = driver.Status(request.number);
            if (status.size() > request.length) {
                error = EMSGSIZE;
            } else {
                data.assign(status.begin(), status.end());
            }
            break;
        }
        case kControlNetwork:
            error = AnswerNetwork(request, data);
            break;
        case kControlMonitor:
            error = Monitor(client, request);
            break;
        case kControlPanic: {
            const std::string done = driver.Panic();
            data.assign(done.begin(), done.end());
            break;
        }
        default:  // kControlReload: there is no other kind
            error = driver.Reload();
            break;
    }
    const bool isSent = Send(client, request.sequence, error, data);
    // The reply comes before what is monitored.
    TellWhetherMonitored();
    return isSent;
}

bool ControlServer::Watch(Client& client, const ControlRequest& request) {
    const bool isFirst = !IsWatched();
    client.watches = true;
    if (isFirst) {
        driver.StatusWatched(true);
    }
    client.wait = {request.sequence, request.number};
    return request.number == driver.StatusNumber() || EndWait(client);
}

bool ControlServer::EndWait(Client& client) {
    if (!client.wait) {
        return true;
    }
    std::vector<std::uint8_t> number(4);
    PutLittleEndian(number.data(), driver.StatusNumber(), number.size());
    const std::uint32_t sequence = client.wait->sequence;
    client.wait.reset();
    return Send(client, sequence, 0, number);
}

void ControlServer::TellWatchers() {
    const std::uint32_t number = driver.StatusNumber();
    std::vector<std::uint64_t> unread;
    for (auto& [key, client] : clients) {
        if (client.wait && client.wait->known != number && !EndWait(client)) {
            unread.push_back(key);
        }
    }
    for (const std::uint64_t key : unread) {
        Close(key);
    }
}

bool ControlServer::IsWatched() const {
    return std::any_of(clients.begin(), clients.end(), [](const auto& each) { return each.second.watches; });
}

int ControlServer::AnswerNetwork(const ControlRequest& request, std::vector<std::uint8_t>& data) {
    const auto words = UnpackControlWords(request.payload);
    if (!words || request.number != 0) {
        return EINVAL;
    }
    const std::string answer = driver.Network(*words);
    if (answer.size() > kMaxControlData) {
        return EMSGSIZE;
    }
    data.assign(answer.begin(), answer.end());
    return 0;
}

int ControlServer::Monitor(Client& client, const ControlRequest& request) {
    if (request.payload.size() != sizeof client.monitored || request.number != 0) {
        return EINVAL;
    }
    client.monitored = Uint32At(request.payload.data()) | std::uint64_t{Uint32At(&request.payload[4])} << 32;
    client.monitorSequence = request.sequence;
    return 0;
}

void ControlServer::TellWhetherMonitored() {
    const bool isAny = std::any_of(clients.begin(), clients.end(),
                                   [](const auto& client) { return client.second.monitored != 0; });
    if (std::exchange(isMonitored, isAny) != isAny) {
        driver.Monitored(isAny);
    }
}

void ControlServer::Pass(const MonitorBatch& batch) {
    for (auto& [key, client] : clients) {
        if (client.monitored != 0) {
            PassTo(key, client, batch);
        }
    }
}

void ControlServer::PassTo(std::uint64_t key, Client& client, const MonitorBatch& batch) {
    client.leftOut += static_cast<std::uint32_t>(batch.leftOut);
    MonitorPacket monitored(client.leftOut);
    for (const MonitoredPiece& piece : batch.pieces) {
        if ((client.monitored >> piece.port & 1) != 0 && !monitored.Add(piece)) {
            SendMonitored(key, client, monitored);
            monitored = MonitorPacket(client.leftOut);
            monitored.Add(piece);
        }
    }
    if (monitored.Count() != 0 || client.leftOut != 0) {
        SendMonitored(key, client, monitored);
    }
}

void ControlServer::SendMonitored(std::uint64_t key, Client& client, const MonitorPacket& monitored) {
    if (Send(client, client.monitorSequence, 0, monitored.Data())) {
        client.leftOut = 0;
    } else {
        client.leftOut += monitored.Count();
    }
    AwaitRoom(key, client);
}

int ControlServer::Attach(std::uint64_t key, const Client& client, std::uint32_t unit) {
    if (unit != kControlUnit) {
        return EINVAL;
    }
    if (attached == key) {
        return EISCONN;
    }
    // The other panel may have gone since this round began.
    if (attached && HasGone(clients.at(*attached).socket.Number())) {
        Finish(*attached);
    }
    if (attached) {
        return EBUSY;
    }
    attached = key;
    driver.PanelAttached(client.process);
    return 0;
}

bool ControlServer::Send(const Client& client, std::uint32_t sequence, int error,
                         std::span<const std::uint8_t> data) {
    const std::vector<std::uint8_t> bytes =
        PackControlReply({.sequence = sequence, .error = static_cast<std::uint32_t>(error), .data = data});
    ssize_t sent = -1;
    do {
        sent = send(client.socket.Number(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    } while (sent == -1 && errno == EINTR);
    return sent != -1;
}

void ControlServer::Finish(std::uint64_t key) {
    const auto client = clients.find(key);
    if (client == clients.end()) {
        return;
    }
    const int connection = client->second.socket.Number();
    bool waiting = false;
    do {
        pollfd state{connection, POLLIN, 0};
        waiting = poll(&state, 1, 0) > 0 && (state.revents & POLLIN) != 0;
    } while (waiting && ServeOne(key, client->second) != Outcome::Over);
    Close(key);
}

void ControlServer::Close(std::uint64_t key) {
    const auto client = clients.find(key);
    if (client == clients.end()) {
        return;
    }
    const bool hasWatched = client->second.watches;
    CloseConnection(std::move(client->second.socket), closer);
    clients.erase(client);
    TellWhetherMonitored();
    if (hasWatched && !IsWatched()) {
        driver.StatusWatched(false);
    }
    if (attached == key) {
        attached.reset();
        driver.PanelDetached();
    }
}

}  // namespace vexil
