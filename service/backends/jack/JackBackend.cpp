#include "service/backends/jack/JackBackend.h"

#include <jack/jack.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <ctime>
#include <utility>

#include "shared/System/Deadline.h"
#include "shared/System/svLog.h"

namespace vexil {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kLongestStop{1000};

// JACK's library writes to standard error what its callers are told by results as well.
void Ignore(const char*) {}

// "14:03:59", local time, of a moment of the steady clock.
std::string TimeOfDay(JackPulse::Clock::time_point moment) {
    const auto ago = JackPulse::Clock::now() - moment;
    const std::time_t time = std::chrono::system_clock::to_time_t(
        std::chrono::system_clock::now() -
        std::chrono::duration_cast<std::chrono::system_clock::duration>(ago));
    std::tm local{};
    char text[16] = "";
    if (::localtime_r(&time, &local) != nullptr) {
        std::strftime(text, sizeof text, "%H:%M:%S", &local);
    }
    return text;
}

void TellLoss(std::uint64_t lost) {
    if (lost != 0) {
        LogPrintf("JACK had no room for %" PRIu64 " messages; they are lost.\n", lost);
    }
}

}  // namespace

JackBackend::JackBackend(RuntimeState runtimeState, std::vector<JackServerWatch::Place> serverPlaces)
    : state(std::move(runtimeState)),
      places(std::move(serverPlaces)),
      event(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

JackBackend::~JackBackend() {
    JackBackend::Stop();
}

void JackBackend::Start(Engine& served) {
    engine = &served;
    jack_set_error_function(Ignore);
    jack_set_info_function(Ignore);
    thread = std::make_unique<JackControlThread>(served, state, places, event.Number());
    thread->Publish(wanted);
}

void JackBackend::Stop() {
    if (engine == nullptr) {
        return;
    }
    isStuck = !thread->Stop(kLongestStop);
    thread.reset();
    TellLoss(losses.TakeAll());
    engine = nullptr;
    client = 0;
    problem = "It is stopped.";
}

std::string JackBackend::Problem() const {
    if (thread) {
        if (const auto since = thread->SilentSince()) {
            return "JACK does not answer since " + TimeOfDay(*since) + ".";
        }
    }
    return IsRunning() ? "" : problem;
}

int JackBackend::EventTimeout() const {
    if (thread && thread->SilentSince().has_value() != wasSilent) {
        return 0;
    }
    auto overdue = thread ? thread->OverdueAt() : std::nullopt;
    if (const auto due = thread ? losses.DueAt() : std::nullopt; due && (!overdue || *due < *overdue)) {
        overdue = due;
    }
    if (!overdue) {
        return -1;
    }
    return MillisecondsUntil(*overdue);
}

void JackBackend::HandleEvents() {
    eventfd_t count = 0;
    static_cast<void>(::eventfd_read(event.Number(), &count));  // nothing to read is fine
    if (!thread) {
        return;
    }
    const JackControlThread::Results results = thread->TakeResults();
    wasSilent = thread->SilentSince().has_value();
    losses.Add(results.lost);
    TellLoss(losses.Take(LossSum::Clock::now()));
    if (client != 0 && results.closed >= client) {
        client = 0;
        engine->Forget();
    }
    if (client == 0 && results.opened > results.closed) {
        client = results.opened;
        // Whoever drove the engine until now sees that it runs, before the next cycle does.
        thread->Activate(client);
    }
    if (!results.problem.empty()) {
        problem = results.problem;
    }
}

std::string JackBackend::RealtimeProblem() const {
    return IsRunning() ? thread->RealtimeProblem() : "";
}

void JackBackend::Publish(const std::vector<Endpoint>& endpoints) {
    wanted = endpoints;
    if (thread) {
        thread->Publish(endpoints);
    }
}

std::string JackBackend::WhyNotThere(const Endpoint& endpoint) const {
    if (!IsRunning()) {
        return Problem();
    }
    if (endpoint.hidden) {
        return "Connectors are not shown, and JACK cannot hide a port.";
    }
    const std::string silence = Problem();
    return silence.empty() ? "JACK is being asked for it." : silence;
}

std::vector<PublishedEndpoint> JackBackend::Published() const {
    const std::vector<PublishedEndpoint> known =
        thread && IsRunning() ? thread->Published() : std::vector<PublishedEndpoint>();
    std::vector<PublishedEndpoint> published;
    for (const Endpoint& endpoint : wanted) {
        const auto found = std::find_if(known.begin(), known.end(), [&](const PublishedEndpoint& one) {
            return one.port == endpoint.port && one.output == endpoint.output;
        });
        const bool isKnown =
            found != known.end() && !endpoint.hidden && (!found->address.empty() || !found->problem.empty());
        published.push_back(
            isKnown ? *found
                    : PublishedEndpoint{endpoint.port, endpoint.output, "", 0, WhyNotThere(endpoint)});
    }
    return published;
}

}  // namespace vexil
