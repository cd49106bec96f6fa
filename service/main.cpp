// vexil3d: the driver as a service of this computer.
#include <fcntl.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>

#include "platform/linux/PlistPreferenceDomains.h"
#include "service/ControlListener.h"
#include "service/ControlServer.h"
#include "service/DriverService.h"
#include "service/MemoryLock.h"
#include "service/NoneBackend.h"
#include "service/PollLoop.h"
#include "service/ServiceNotifier.h"
#include "service/Status.h"
#include "shared/System/svLog.h"

namespace {

using namespace vexil;

constexpr int kFailure = 1;
constexpr int kMisuse = 2;

constexpr const char* kHelp =
    "Usage: vexil3d [--midi alsa|jack|none]\n"
    "Gives music programs the 64 ports of Vexil III and serves the control panel. It runs until it is\n"
    "ended; the service manager starts it as vexil3d.service.\n"
    "\n"
    "  --midi SYSTEM  through which MIDI system the ports are there: alsa, jack (also PipeWire's), or none.\n"
    "                 Without it ALSA where the computer has its sequencer, else JACK.\n"
    "  --help         print this text\n"
    "  --version      print the version\n"
    "\n"
    "SIGHUP reads the configuration again, SIGTERM and SIGINT end the service.\n";

struct Arguments {
    std::string midi;
    int exitStatus = -1;  // not -1: there is nothing more to do
};

Arguments ReadArguments(int count, char** texts) {
    Arguments arguments;
    for (int index = 1; index < count; ++index) {
        const std::string text = texts[index];
        if (text == "--help") {
            std::fputs(kHelp, stdout);
            arguments.exitStatus = 0;
            return arguments;
        }
        if (text == "--version") {
            std::printf("vexil3d %s\n", kServiceVersion);
            arguments.exitStatus = 0;
            return arguments;
        }
        const bool isMidi = text == "--midi" && index + 1 < count;
        const std::string value = isMidi                           ? texts[++index]
                                  : text.substr(0, 7) == "--midi=" ? text.substr(7)
                                                                   : "";
        if (value != "alsa" && value != "jack" && value != "none") {
            std::fprintf(stderr, "vexil3d: cannot make sense of \"%s\".\n%s", texts[index], kHelp);
            arguments.exitStatus = kMisuse;
            return arguments;
        }
        arguments.midi = value;
    }
    return arguments;
}

// A descriptor from which SIGTERM, SIGINT and SIGHUP are read. Before any thread is made: all have them
// blocked.
Descriptor OpenSignals() {
    sigset_t wanted;
    sigemptyset(&wanted);
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        sigaddset(&wanted, number);
    }
    pthread_sigmask(SIG_BLOCK, &wanted, nullptr);
    signal(SIGPIPE, SIG_IGN);
    return Descriptor(signalfd(-1, &wanted, SFD_CLOEXEC | SFD_NONBLOCK));
}

// The log writes to standard output where it is given no file; here that is standard error, which the journal
// keeps as well.
void OpenServiceLog() {
    std::fflush(stdout);
    dup2(STDERR_FILENO, STDOUT_FILENO);
    OpenLog("", kServiceVersion, kLogAppend, "");
}

int Run() {
    const Descriptor signals = OpenSignals();
    OpenServiceLog();
    const Paths paths = FindPaths(CurrentSurroundings());
    std::string problem;
    const std::unique_ptr<ControlListener> listener = ControlListener::Open(paths, problem);
    if (!listener) {
        LogPrintf("%s\n", problem.c_str());
        return kFailure;
    }

    PlistPreferenceDomains preferences(paths);
    Engine engine;
    NoneBackend backend;
    DriverService service({preferences, engine, backend, LookUpThisComputer, DriverService::Clock::now});
    service.SetControlPath(listener->Path());
    service.Start();
    auto server = std::make_unique<ControlServer>(listener->Socket(), listener->Group(), service);
    service.SetMemory(LockMemory());

    ServiceNotifier notifier;
    bool isEnding = false;
    const auto takeSignals = [&] {
        signalfd_siginfo taken{};
        while (read(signals.Number(), &taken, sizeof taken) == sizeof taken) {
            if (taken.ssi_signo == SIGHUP) {
                notifier.Reloading();
                service.Reload();
                notifier.Ready(service.Summary());
            } else if (!isEnding) {
                isEnding = true;
                notifier.Stopping();
                server.reset();
                service.BeginStop();
            }
        }
    };
    PollLoop loop;
    loop.Add({signals.Number(), {}, takeSignals});
    loop.Add({server->EventDescriptor(), [&] { return server ? server->Timeout() : -1; },
              [&] {
                  if (server) {
                      server->Serve();
                  }
              }});
    loop.Add({backend.EventDescriptor(), [&] { return backend.ServiceTimeout(); },
              [&] { service.ServeBackend(); }});
    loop.Add({-1, [&] { return service.Timeout(); }, [] {}});
    notifier.Ready(service.Summary());
    while (!service.MayStop()) {
        loop.Round();
        service.Settle();
    }
    service.Stop();
    return 0;
}

}  // namespace

int main(int argumentCount, char** argumentTexts) {
    const Arguments arguments = ReadArguments(argumentCount, argumentTexts);
    return arguments.exitStatus != -1 ? arguments.exitStatus : Run();
}
