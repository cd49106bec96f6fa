#include "service/backends/jack/JackControlThread.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>

#include "service/backends/ConnectionMemory.h"
#include "service/backends/jack/JackSession.h"
#include "shared/System/Deadline.h"
#include "shared/System/Descriptor.h"

namespace vexil {

namespace {

using Clock = JackPulse::Clock;
using std::chrono::milliseconds;

// An answer that takes longer is told of. Healthy servers were seen to take 300 ms on a busy computer.
constexpr milliseconds kLongestAnswer{1000};
// The longest cycle is 8192 frames at 8000 Hz, a second.
constexpr milliseconds kLongestCycle{2000};
// Whether cycles that stand still go on is looked at so often; whether they stand still only after something
// was asked.
constexpr milliseconds kStandstillLook{5000};
// The realtime priority of the process thread is known a little after its beginning.
constexpr milliseconds kFirstCycles{20};
constexpr int kMostLooksAtPriority = 50;
constexpr const char* kConnectionsFile = "connections-jack";

void Raise(int descriptor) {
    static_cast<void>(::eventfd_write(descriptor, 1));  // a counter that is full is readable already
}

bool IsAlike(const PublishedEndpoint& a, const PublishedEndpoint& b) {
    return a.port == b.port && a.output == b.output && a.address == b.address && a.problem == b.problem;
}

}  // namespace

// What the two threads share. Nobody holds the mutex while he waits for JACK.
struct JackControlThread::Mailbox {
    Mailbox(Engine& served, const RuntimeState& runtimeState,
            std::vector<JackServerWatch::Place> serverPlaces, int eventDescriptor)
        : engine(served),
          state(runtimeState),
          places(std::move(serverPlaces)),
          event(::fcntl(eventDescriptor, F_DUPFD_CLOEXEC, 0)),
          wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

    Engine& engine;
    const RuntimeState state;
    const std::vector<JackServerWatch::Place> places;
    const Descriptor event;  // the control thread's, which may close its own first
    const Descriptor wake;   // raised when the thread has something to do
    JackPulse pulse;

    mutable std::mutex mutex;
    std::condition_variable hasEnded;
    // Wishes.
    std::vector<Endpoint> wanted;
    unsigned wishes = 0;  // calls of Publish
    unsigned mayActivate = 0;
    bool mustStop = false;
    // Results.
    Results results;
    bool ended = false;
};

// The thread's own side.
class JackControlThread::Work {
  public:
    explicit Work(Mailbox& shared)
        : mailbox(shared),
          watch(shared.places),
          memory(shared.state.PathOf(kConnectionsFile)),
          unreleased(shared.state.LastEndWasUnclean() ? ~std::uint64_t{0} : 0) {}

    void Run() {
        watch.Begin(Clock::now());
        while (Round()) {
            mailbox.pulse.Rest();
            Wait();
            mailbox.pulse.Await();
        }
        if (session) {
            session->WaitUntilRead();
            session.reset();
        }
        mailbox.pulse.Rest();
        const std::lock_guard lock(mailbox.mutex);
        mailbox.ended = true;
        mailbox.hasEnded.notify_all();
    }

  private:
    // Does what there is to do. False when the thread is to end.
    bool Round() {
        eventfd_t count = 0;
        static_cast<void>(::eventfd_read(mailbox.wake.Number(), &count));  // nothing to read is fine
        const auto begin = Clock::now();
        watch.TakeEvents(begin);
        if (session && session->HasGone()) {
            session.reset();
            TellClosed("The JACK server has gone.");
            watch.Begin(Clock::now());
        }
        if (!session && watch.NextTry() && *watch.NextTry() <= begin) {
            TryToOpen();
        }
        if (!TakeUpWishes()) {
            return false;
        }
        if (session) {
            session->Continue();
            LookAtPriority();
        }
        const bool isOtherwise = LookAtCycles();
        Tell(isOtherwise || Clock::now() - begin > kLongestAnswer);
        return true;
    }

    void Wait() {
        std::array<pollfd, 2> sources{
            {{mailbox.wake.Number(), POLLIN, 0}, {watch.EventDescriptor(), POLLIN, 0}}};
        // An interrupted wait is one that is over.
        static_cast<void>(::poll(sources.data(), sources.size(), Timeout()));
    }

    int Timeout() const {
        if (!session) {
            return Until(watch.NextTry());
        }
        int shortest = -1;
        for (const int one : {session->Timeout(), Until(cycleLook),
                              looksAtPriority > 0 ? static_cast<int>(kFirstCycles.count()) : -1}) {
            shortest = shortest < 0 || one < 0 ? std::max(shortest, one) : std::min(shortest, one);
        }
        return shortest;
    }

    static int Until(const std::optional<Clock::time_point>& moment) {
        return moment ? MillisecondsUntil(*moment) : -1;
    }

    // Whether cycles have begun to stand still, or to go on, since the last look.
    bool LookAtCycles() {
        const auto now = Clock::now();
        if (!cycleLook || now < *cycleLook) {
            return false;
        }
        const auto last = mailbox.pulse.LastCycle();
        const bool areStill = last && now - *last > kLongestCycle;
        cycleLook = areStill ? std::optional(now + kStandstillLook) : std::nullopt;
        return std::exchange(cyclesAreStill, areStill) != areStill;
    }

    void TryToOpen() {
        std::string problem;
        session = JackSession::Open(
            {mailbox.engine, mailbox.wake.Number(), mailbox.pulse, memory, unreleased}, problem);
        if (!session) {
            watch.TryFailed(Clock::now());
            const std::lock_guard lock(mailbox.mutex);
            mailbox.results.problem = WithWatchProblem(problem);
            return;
        }
        watch.End();
        ++opened;
        takenUp = 0;
    }

    // False when the thread is to end.
    bool TakeUpWishes() {
        std::unique_lock lock(mailbox.mutex);
        if (mailbox.mustStop) {
            return false;
        }
        if (!session) {
            return true;
        }
        const bool activate = mailbox.mayActivate == opened && !session->IsActive();
        const bool publish = takenUp != mailbox.wishes;
        takenUp = mailbox.wishes;
        const std::vector<Endpoint> wanted = publish ? mailbox.wanted : std::vector<Endpoint>();
        lock.unlock();
        if (publish || activate) {
            cycleLook = Clock::now() + kLongestCycle + milliseconds(1);
        }
        if (publish) {
            session->Publish(wanted);
        }
        if (activate && !session->Activate()) {
            session.reset();
            TellClosed("The JACK server does not let the service take part.");
            watch.Begin(Clock::now());
            watch.TryFailed(Clock::now());
        } else if (activate) {
            looksAtPriority = kMostLooksAtPriority;
        }
        return true;
    }

    void TellClosed(const std::string& problem) {
        const std::lock_guard lock(mailbox.mutex);
        mailbox.results.closed = opened;
        mailbox.results.problem = WithWatchProblem(problem);
        mailbox.results.realtimeProblem.clear();
        mailbox.results.published.clear();
    }

    void LookAtPriority() {
        if (looksAtPriority > 0 && session->IsActive()) {
            realtimeProblem = session->RealtimeProblem();
            looksAtPriority = realtimeProblem.empty() ? 0 : looksAtPriority - 1;
        }
    }

    // The control thread is woken only when there is something new for it.
    void Tell(bool wasSlow) {
        std::vector<PublishedEndpoint> published;
        std::uint64_t lost = 0;
        if (session) {
            published = session->Published();
            lost = session->TakeLost();
        }
        const std::lock_guard lock(mailbox.mutex);
        Results& results = mailbox.results;
        if (std::exchange(results.opened, opened) != opened) {
            results.problem.clear();
        }
        const bool isNew = wasSlow || lost != 0 || results.opened != toldOpened ||
                           results.closed != toldClosed || results.problem != toldProblem ||
                           (looksAtPriority == 0 && results.realtimeProblem != realtimeProblem) ||
                           !std::equal(published.begin(), published.end(), results.published.begin(),
                                       results.published.end(), IsAlike);
        if (session && looksAtPriority == 0) {
            results.realtimeProblem = realtimeProblem;
        }
        results.published = std::move(published);
        results.lost += lost;
        results.takenUp = takenUp;
        results.settled = session && session->IsSettled() ? takenUp : results.settled;
        toldOpened = results.opened;
        toldClosed = results.closed;
        toldProblem = results.problem;
        if (isNew) {
            Raise(mailbox.event.Number());
        }
    }

    std::string WithWatchProblem(const std::string& problem) const {
        return watch.Problem().empty() ? problem : problem + " " + watch.Problem();
    }

    Mailbox& mailbox;
    JackServerWatch watch;
    ConnectionMemory memory;
    std::uint64_t unreleased;  // bit p: what sounds at the readers of input p, nobody has released
    std::unique_ptr<JackSession> session;
    unsigned opened = 0;   // clients so far
    unsigned takenUp = 0;  // of the calls of Publish, the last that the session has
    std::optional<Clock::time_point> cycleLook;
    bool cyclesAreStill = false;
    int looksAtPriority = 0;
    std::string realtimeProblem;
    unsigned toldOpened = 0;
    unsigned toldClosed = 0;
    std::string toldProblem;
};

JackControlThread::JackControlThread(Engine& engine, const RuntimeState& state,
                                     std::vector<JackServerWatch::Place> serverPlaces, int eventDescriptor)
    : mailbox(std::make_shared<Mailbox>(engine, state, std::move(serverPlaces), eventDescriptor)) {
    mailbox->pulse.Await();
    thread = std::thread([shared = mailbox] { Work(*shared).Run(); });
}

JackControlThread::~JackControlThread() {
    Stop(milliseconds(0));
}

void JackControlThread::Publish(const std::vector<Endpoint>& endpoints) {
    {
        const std::lock_guard lock(mailbox->mutex);
        mailbox->wanted = endpoints;
        ++mailbox->wishes;
    }
    mailbox->pulse.Await();
    Raise(mailbox->wake.Number());
}

void JackControlThread::Activate(unsigned opened) {
    {
        const std::lock_guard lock(mailbox->mutex);
        mailbox->mayActivate = opened;
    }
    mailbox->pulse.Await();
    Raise(mailbox->wake.Number());
}

bool JackControlThread::Stop(milliseconds longest) {
    if (!thread.joinable()) {
        return true;
    }
    std::unique_lock lock(mailbox->mutex);
    mailbox->mustStop = true;
    Raise(mailbox->wake.Number());
    const bool ended = mailbox->hasEnded.wait_for(lock, longest, [this] { return mailbox->ended; });
    lock.unlock();
    if (ended) {
        thread.join();
    } else {
        thread.detach();
    }
    return ended;
}

JackControlThread::Results JackControlThread::TakeResults() {
    const std::lock_guard lock(mailbox->mutex);
    Results results = mailbox->results;
    mailbox->results.lost = 0;
    return results;
}

std::vector<PublishedEndpoint> JackControlThread::Published() const {
    const std::lock_guard lock(mailbox->mutex);
    return mailbox->results.published;
}

std::string JackControlThread::RealtimeProblem() const {
    const std::lock_guard lock(mailbox->mutex);
    return mailbox->results.realtimeProblem;
}

bool JackControlThread::IsSettled() const {
    const std::lock_guard lock(mailbox->mutex);
    return mailbox->results.settled == mailbox->wishes;
}

bool JackControlThread::IsTakenUp() const {
    const std::lock_guard lock(mailbox->mutex);
    return mailbox->results.takenUp == mailbox->wishes;
}

std::optional<Clock::time_point> JackControlThread::SilentSince() const {
    const auto now = Clock::now();
    if (const auto since = mailbox->pulse.AwaitedSince(); since && now - *since > kLongestAnswer) {
        return since;
    }
    const auto cycle = mailbox->pulse.LastCycle();
    return cycle && now - *cycle > kLongestCycle ? cycle : std::nullopt;
}

std::optional<Clock::time_point> JackControlThread::OverdueAt() const {
    const auto since = mailbox->pulse.AwaitedSince();
    if (!since || Clock::now() - *since > kLongestAnswer) {
        return std::nullopt;
    }
    return *since + kLongestAnswer + milliseconds(1);
}

}  // namespace vexil
