// vexil3d: the driver as a service of this computer.
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "config/DriverPreferences.h"
#include "platform/linux/network/AvahiDiscovery.h"
#include "platform/linux/network/KeyStore.h"
#include "platform/linux/network/NetlinkInterfaces.h"
#include "platform/linux/network/SystemResolver.h"
#include "platform/linux/preferences/InotifyPreferenceWatch.h"
#include "platform/linux/preferences/PlistPreferenceDomains.h"
#include "service/NetworkService.h"
#include "service/ServiceArguments.h"
#include "service/ServiceRun.h"
#include "service/SteadyEngineClock.h"
#include "service/backends/BackendChoice.h"
#include "service/control/ControlListener.h"
#include "service/control/DriverService.h"
#include "service/network/NetworkDriver.h"
#include "shared/System/PrintableText.h"
#include "shared/System/StandardStreams.h"
#include "shared/System/Version.h"
#include "shared/System/svLog.h"
#include "shared/System/svLogFilter.h"

namespace {

using namespace vexil;

constexpr int kFailure = 1;
constexpr int kMisuse = 2;

// The log writes to standard output where it is given no file; here that is standard error, which the journal
// keeps as well.
void OpenServiceLog() {
    std::fflush(stdout);
    dup2(STDERR_FILENO, STDOUT_FILENO);
    // Its lines name what music programs, other computers and files are called.
    SetLogFilter(PrintableLines);
    OpenLog("", kVersion, kLogAppend, "");
}

int Serve(const ServiceArguments& arguments) {
    const ServiceSignals signals;
    OpenServiceLog();
    const Paths paths = FindPaths(CurrentSurroundings());
    if (!paths.standInRuntime.empty()) {
        LogPrintf(
            "XDG_RUNTIME_DIR is not set, and the system has made no such folder: %s stands in for it.\n",
            paths.standInRuntime.c_str());
    }
    std::string problem;
    std::unique_ptr<ControlListener> listener = ControlListener::Open(paths, problem);
    if (!listener) {
        LogPrintf("%s\n", problem.c_str());
        return kFailure;
    }
    Engine engine;
    const std::string& control = listener->Path();
    const RuntimeState state(control.substr(0, control.rfind('/')));
    const std::unique_ptr<MidiBackend> backend = MakeBackend(ChooseBackend(arguments.midi), problem, state);
    if (!backend) {
        state.EndCleanly();
        LogPrintf("%s\n", problem.c_str());
        return kFailure;
    }
    // From before the first reading on, so that no change is missed.
    InotifyPreferenceWatch watch(paths, kDriverDomain, UserScope::kCFPreferencesAnyUser);
    PlistPreferenceDomains preferences(paths, SystemDurabilityCalls(), Unparsable::GoOnWith);
    const SteadyEngineClock clock;
    NetworkDriver driver(engine, clock);
    KeyStore keys({paths.network, paths.hostId, paths.machineId},
                  [](const std::string& line) { LogPrintf("%s.\n", line.c_str()); });
    SystemResolver resolver;
    SpeakerTurn turn;
    NetworkService network(
        {engine, driver, keys, resolver, [] { return std::make_unique<NetlinkInterfaces>(); }, kLinkPort,
         &turn, [] { return std::make_unique<AvahiDiscovery>(); }},
        arguments.network);
    const auto computers = [] { return std::vector{LookUpThisComputer()}; };
    DriverService service(
        {preferences, engine, *backend, driver, computers, DriverService::Clock::now, &network});
    service.SetControlPath(listener->Path());
    StoreWatch storeWatch({watch, [&preferences] { return preferences.LookAgainIn(); },
                           [&service] { service.StoreChanged(); }, StoreWatch::Clock::now});
    const int result = RunService(signals, *listener, *backend, network, service, storeWatch) ? 0 : kFailure;
    if (backend->IsStuck()) {
        listener.reset();
        LogPrintf("The MIDI system does not answer; the service ends without its leave.\n");
        // A thread that may touch all of this is still there.
        _exit(result);
    }
    state.EndCleanly();
    return result;
}

}  // namespace

int main(int argumentCount, char** argumentTexts) {
    HoldStandardStreams();
    std::string problem;
    const auto arguments = ReadServiceArguments(
        std::vector<std::string>(argumentTexts + 1, argumentTexts + argumentCount), problem);
    if (!arguments) {
        std::fprintf(stderr, "vexil3d: %s See vexil3d --help.\n", problem.c_str());
        return kMisuse;
    }
    switch (arguments->task) {
        case ServiceArguments::Task::Help:
            std::fputs(kServiceHelp, stdout);
            return 0;
        case ServiceArguments::Task::Version:
            std::printf("vexil3d %s\n", kVersion);
            return 0;
        default:
            return Serve(*arguments);
    }
}
