#include "ctl/StatusWatch.h"

#include <cstring>

#include "ctl/AskedStatus.h"
#include "ctl/StatusText.h"
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

class Watch {
  public:
    explicit Watch(Console& statusConsole) : console(statusConsole), redraws(console.CanRedraw()) {}

    // 0 or an errno value.
    int Show(const AskedStatus& asked) {
        if (!asked.report) {
            const std::string text = "There is no status: " + asked.problem + ". The watch goes on.\n";
            return ShowText(text, text);
        }
        const std::string text = StatusText(*asked.report);
        return ShowText(text, redraws ? text : StatusText(WithoutMoments(*asked.report)));
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
    const bool redraws;
    std::string last;
};

}  // namespace

CtlResult WatchStatus(const ServiceClient& client, Console& console) {
    console.HoldInterrupts();
    Watch watch(console);
    do {
        if (const int error = watch.Show(AskForStatus(client))) {
            return Fail(kCtlFailed, "standard output: " + std::string(std::strerror(error)));
        }
    } while (console.Wait(kWatchInterval));
    return {};
}

}  // namespace vexil
