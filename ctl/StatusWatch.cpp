#include "ctl/StatusWatch.h"

#include <chrono>
#include <cstring>
#include <optional>

#include "client/StatusSubscription.h"
#include "ctl/AskedStatus.h"
#include "shared/System/PrintableText.h"

namespace vexil {

namespace {

// What is always a little different counts as no change.
StatusReport WithoutMoments(StatusReport report) {
    for (SessionReport& session : report.sessions) {
        session.seconds = 0;
        session.roundTrip.reset();
    }
    return report;
}

// The text over whatever the terminal shows: nothing blinks, as only what is left of it is wiped out.
std::string Redrawn(const std::string& text) {
    std::string drawn = "\x1b[H";
    for (const char letter : text) {
        drawn += letter == '\n' ? "\x1b[K\n" : std::string(1, letter);
    }
    return drawn + "\x1b[J";
}

// As it is some time after it came.
StatusReport Later(StatusReport report, std::chrono::seconds time) {
    for (SessionReport& session : report.sessions) {
        session.seconds += static_cast<std::uint64_t>(time.count());
    }
    return report;
}

class Watch {
  public:
    Watch(Console& statusConsole, const std::function<std::string(const StatusReport&)>& statusText)
        : console(statusConsole), textOf(statusText), redraws(console.CanRedraw()) {}

    void Take(const StatusNews& news) {
        came = console.Now();
        if (news.service == StatusNews::Service::Running) {
            asked = ReadAskedStatus(news.status);
        } else {
            asked = {};
            asked.problem = news.problem;
        }
    }

    // How things stand now. 0 or an errno value.
    int Show() {
        if (!asked.report) {
            const std::string text = "There is no status: " + asked.problem + ". The watch goes on.\n";
            return ShowText(text, text);
        }
        const auto age = std::chrono::duration_cast<std::chrono::seconds>(console.Now() - came);
        const std::string text = textOf(redraws ? Later(*asked.report, age) : *asked.report);
        return ShowText(text, redraws ? text : textOf(WithoutMoments(*asked.report)));
    }

    // When what is shown becomes another by itself; null: never.
    std::optional<std::chrono::milliseconds> Lasts() const {
        if (!redraws || !asked.report || asked.report->sessions.empty()) {
            return std::nullopt;
        }
        return std::chrono::seconds(1);
    }

  private:
    // `sameAs`: a text that is shown already when this one was the last.
    int ShowText(const std::string& text, const std::string& sameAs) {
        if (last == sameAs) {
            return 0;
        }
        const bool isFirst = last.empty();
        last = sameAs;
        const std::string printable = PrintableLines(text);
        return console.Show(redraws ? Redrawn(printable) : (isFirst ? "" : "\n") + printable);
    }

    Console& console;
    const std::function<std::string(const StatusReport&)>& textOf;
    const bool redraws;
    AskedStatus asked;
    Console::Clock::time_point came;
    std::string last;
};

}  // namespace

CtlResult WatchStatus(const Paths& paths, Console& console,
                      const std::function<std::string(const StatusReport&)>& textOf) {
    console.HoldInterrupts();
    StatusSubscription subscription(paths);
    Watch watch(console, textOf);
    bool isShown = false;
    Console::Woken woken = Console::Woken::Ready;
    while (woken != Console::Woken::Interrupt) {
        if (woken == Console::Woken::Ready && subscription.Serve()) {
            watch.Take(subscription.News());
            isShown = true;
        }
        const int error = isShown ? watch.Show() : 0;
        if (error != 0) {
            return Fail(kCtlFailed, "standard output: " + std::string(std::strerror(error)));
        }
        woken = console.WaitFor(subscription.EventDescriptor(), watch.Lasts());
    }
    return {};
}

}  // namespace vexil
