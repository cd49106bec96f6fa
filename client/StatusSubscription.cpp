#include "client/StatusSubscription.h"

#include <sys/epoll.h>
#include <sys/inotify.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "driver/DriverOptions.h"
#include "driver/LittleEndian.h"

namespace vexil {

namespace {

using namespace std::chrono_literals;

// A connection that lives no longer than that has failed; after a few such, one is made only that often.
constexpr std::chrono::milliseconds kQuickEnd{2000};
constexpr int kMostQuickEnds = 3;
// A socket is there a moment before its service listens; one that stays like that was left behind.
constexpr std::chrono::milliseconds kFirstRefusal{20};
constexpr int kMostRefusals = 6;

void Drain(int descriptor) {
    std::array<char, 4096> bytes{};
    while (read(descriptor, bytes.data(), bytes.size()) > 0) {
    }
}

std::string ParentOf(const std::string& folder) {
    const std::size_t slash = folder.rfind('/');
    return slash == 0 || slash == std::string::npos ? "/" : folder.substr(0, slash);
}

bool IsAbsence(int error) {
    return error == ENOENT || error == ENOTDIR || error == ECONNREFUSED;
}

}  // namespace

StatusSubscription::StatusSubscription(const Paths& paths, std::chrono::milliseconds answerTime)
    : folder(paths.control),
      path(paths.control + "/" + kControlName),
      systemWide(paths.controlIsSystemWide),
      patience(answerTime),
      events(epoll_create1(EPOLL_CLOEXEC)),
      timer(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)),
      connection(ControlConnection::NewSocket()) {
    Listen(timer.Number());
}

bool StatusSubscription::Serve() {
    std::uint64_t runs = 0;
    const bool isLate = read(timer.Number(), &runs, sizeof runs) == sizeof runs;
    if (changes.IsOpen()) {
        Drain(changes.Number());
    }
    if (step == Step::Unconnected) {
        Connect();
    } else {
        TakePackets();
    }
    if (isLate && (step == Step::AwaitsFirstNumber || step == Step::AwaitsStatus)) {
        Tell(StatusNews::Service::Silent, "the service does not answer");
    }
    return std::exchange(hasNews, false);
}

void StatusSubscription::Refresh() {
    if (step != Step::Unconnected) {
        Leave();
        Connect();
    }
}

void StatusSubscription::Connect() {
    int error = TryToConnect();
    // It may have come just before it was watched for.
    while (IsAbsence(error) && WatchFolder()) {
        error = TryToConnect();
    }
    if (error == 0) {
        AskNumber();
    } else if (IsAbsence(error)) {
        Absent("no service is running at " + path);
        if (error == ECONNREFUSED && refusals < kMostRefusals) {
            SetTimer(kFirstRefusal * (1 << refusals++));
        } else {
            refusals = 0;
        }
    } else if (error == ETIMEDOUT) {
        // Its queue of connections is full, and nothing tells when it is not any more.
        Tell(StatusNews::Service::Silent, "the service does not answer");
        SetTimer(kQuickEnd);
    } else {
        WatchFolder();
        Tell(StatusNews::Service::Unusable, error == EACCES
                                                ? "what answers at " + path + " is not for this user"
                                                : path + ": " + std::strerror(error));
    }
}

int StatusSubscription::TryToConnect() {
    if (const int error = connection.Connect(path)) {
        return error;
    }
    if (const int error = connection.CheckPeer(TrustedServiceUser(folder, systemWide))) {
        connection.ShutDown();
        return error;
    }
    changes.Close();
    watchedFolder = -1;
    refusals = 0;
    SetTimer(0ms);
    Listen(connection.Number());
    connected = std::chrono::steady_clock::now();
    return 0;
}

void StatusSubscription::Absent(const std::string& problem) {
    news.status.clear();
    Tell(StatusNews::Service::Absent, problem);
}

void StatusSubscription::Leave() {
    epoll_ctl(events.Number(), EPOLL_CTL_DEL, connection.Number(), nullptr);
    connection.ShutDown();
    step = Step::Unconnected;
    answer.reset();
    SetTimer(0ms);
}

void StatusSubscription::Ended() {
    Leave();
    quickEnds = std::chrono::steady_clock::now() - connected < kQuickEnd ? quickEnds + 1 : 0;
    if (quickEnds <= kMostQuickEnds) {
        Connect();
    } else {
        Absent("the service at " + path + " closes every connection");
        SetTimer(kQuickEnd);
    }
}

void StatusSubscription::TakePackets() {
    while (step != Step::Unconnected && !hasNews) {
        ControlReply reply;
        const int error = connection.Receive(sequence, &reply);
        if (error == EAGAIN) {
            return;
        }
        if (error != 0) {
            Ended();
            return;
        }
        Take(reply);
    }
}

void StatusSubscription::Take(const ControlReply& reply) {
    SetTimer(0ms);
    if (step == Step::AwaitsStatus && reply.error == 0) {
        const std::optional<std::uint32_t> next =
            answer->Add(std::string(reply.data.begin(), reply.data.end()));
        if (next) {
            AskStatus(*next);
            return;
        }
        news.status = answer->Text();
        news.service = StatusNews::Service::Running;
        news.problem.clear();
        hasNews = true;
        answer.reset();
        if (number == 0) {
            step = Step::AwaitsEnd;
        } else {
            AskNumber();
        }
        return;
    }
    if (step == Step::AwaitsStatus) {
        Tell(StatusNews::Service::Unusable,
             std::string("the service refuses: ") + std::strerror(static_cast<int>(reply.error)));
        step = Step::AwaitsEnd;
        return;
    }
    // A service of before has no number, but a status.
    number = reply.error == 0 && reply.data.size() == 4 ? Uint32At(reply.data.data()) : 0;
    answer.emplace(std::vector<std::string>{"hosts", "sessions", "ports"});
    AskStatus(0);
}

void StatusSubscription::AskNumber() {
    if (step == Step::Unconnected) {
        number = 0;
    }
    Ask(kControlWatch, number, number == 0 ? Step::AwaitsFirstNumber : Step::AwaitsChange);
}

void StatusSubscription::AskStatus(std::uint32_t first) {
    Ask(kControlStatus, first, Step::AwaitsStatus);
}

void StatusSubscription::Ask(std::uint32_t kind, std::uint32_t numberAsked, Step next) {
    const std::uint32_t length = kind == kControlStatus ? static_cast<std::uint32_t>(kMaxControlData) : 0;
    step = next;
    ++sequence;
    // A connection that is closed already tells so when it is read.
    static_cast<void>(connection.Send({sequence, kind, numberAsked, length, {}}));
    SetTimer(step == Step::AwaitsChange ? 0ms : patience);
}

void StatusSubscription::Tell(StatusNews::Service service, const std::string& problem) {
    hasNews |= news.service != service || news.problem != problem;
    news.service = service;
    news.problem = problem;
}

// The folder, or the next one above it that is there: one that is made there will be seen.
bool StatusSubscription::WatchFolder() {
    constexpr std::uint32_t kComes = IN_CREATE | IN_MOVED_TO | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF;
    if (!changes.IsOpen()) {
        changes = Descriptor(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
        Listen(changes.Number());
    }
    int watched = -1;
    for (std::string each = folder;; each = ParentOf(each)) {
        watched = inotify_add_watch(changes.Number(), each.c_str(), kComes | IN_ONLYDIR);
        if (watched != -1 || each == "/") {
            break;
        }
    }
    const int before = std::exchange(watchedFolder, watched);
    if (before != -1 && before != watched) {
        inotify_rm_watch(changes.Number(), before);
    }
    return watched != -1 && before != watched;
}

// 0 stops it. Setting it also forgets that it has run out.
void StatusSubscription::SetTimer(std::chrono::milliseconds time) const {
    itimerspec spec{};
    spec.it_value.tv_sec = static_cast<time_t>(time.count() / 1000);
    spec.it_value.tv_nsec = static_cast<long>(time.count() % 1000 * 1'000'000);
    timerfd_settime(timer.Number(), 0, &spec, nullptr);
}

void StatusSubscription::Listen(int descriptor) const {
    epoll_event event{};
    event.events = EPOLLIN | EPOLLRDHUP;
    epoll_ctl(events.Number(), EPOLL_CTL_ADD, descriptor, &event);
}

}  // namespace vexil
