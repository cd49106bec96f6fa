// What an edit costs: from a key in a field to the record and the Apply button, with the comparison of all 64
// ports. The panel is the real one; its window is in memory, so that the toolkit's own time is not counted.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "config/DriverPreferences.h"
#include "panel/StartUp.h"
#include "tests/doubles/MemoryDesktop.h"
#include "tests/doubles/MemoryDialogs.h"
#include "tests/doubles/MemoryHostClock.h"
#include "tests/doubles/MemoryKernelControl.h"
#include "tests/doubles/MemoryPreferenceDomains.h"
#include "tests/doubles/MemoryRestarter.h"
#include "tests/doubles/MemoryWidgets.h"

namespace {

using vexil::PanelEvent;

constexpr int kEdits = 20000;
constexpr double kMostMicroseconds = 50;
constexpr int kLastRow = 63;

double Microseconds(std::chrono::steady_clock::duration duration) {
    return std::chrono::duration<double, std::micro>(duration).count();
}

struct Spread {
    double median;
    double worst;  // of 100, the second worst
};

Spread SpreadOf(std::vector<double> times) {
    std::sort(times.begin(), times.end());
    return {times[times.size() / 2], times[times.size() * 99 / 100]};
}

// Every port in use and every name set.
void FillConfiguration(vexil::DriverConfiguration& configuration) {
    configuration.InputPorts = ~std::uint64_t{0};
    configuration.OutputPorts = ~std::uint64_t{0};
    for (int port = 0; port < vexil::kMaxPorts; ++port) {
        const std::string number = std::to_string(port);
        configuration.Hosts[port] = {vexil::svString(("stage-" + number).c_str()),
                                     vexil::svString(("studio-" + number).c_str())};
        configuration.CustomNames[port] = {vexil::svString(("Keyboard " + number).c_str()),
                                           vexil::svString(("Sound module " + number).c_str())};
    }
}

// Types into the output's name of the last port: one key that changes it and one that takes the change back,
// by turns. After the second, the comparison has to go through everything.
class Typist {
  public:
    explicit Typist(vexil::MemoryWidgets& memoryWidgets) : widgets(memoryWidgets) {}

    // True when the Apply button followed every key.
    bool Run() {
        auto& field = widgets.Of(vexil::kOutputName);
        const std::string name = field.text;
        vexil::DeliverEvent(*field.handlers, {vexil::EventKind::ControlHit, vexil::kOutputName},
                            [] { return 0; });
        for (int edit = 0; edit < kEdits; ++edit) {
            if (!Key(name + "x", changing) || !widgets.Of(vexil::kApply).enabled) {
                return false;
            }
            if (!Key(name, revoking) || widgets.Of(vexil::kApply).enabled) {
                return false;
            }
        }
        return true;
    }

    std::vector<double> changing;
    std::vector<double> revoking;

  private:
    bool Key(const std::string& textAfter, std::vector<double>& times) {
        auto& field = widgets.Of(vexil::kOutputName);
        PanelEvent event{vexil::EventKind::RawKeyDown, vexil::kOutputName};
        event.hasCharacter = true;
        event.character = 'x';
        bool reached = false;
        const auto start = std::chrono::steady_clock::now();
        vexil::DeliverEvent(*field.handlers, event, [&] {
            field.text = textAfter;
            reached = true;
            return 0;
        });
        times.push_back(Microseconds(std::chrono::steady_clock::now() - start));
        return reached;
    }

    vexil::MemoryWidgets& widgets;
};

double TimeOfComparison(const vexil::DriverConfiguration& left, const vexil::DriverConfiguration& right) {
    std::vector<double> times;
    for (int i = 0; i < kEdits; ++i) {
        const auto start = std::chrono::steady_clock::now();
        const bool differs = vexil::Differs(left, right);
        times.push_back(Microseconds(std::chrono::steady_clock::now() - start));
        if (differs) {
            return -1;
        }
    }
    return SpreadOf(times).median;
}

}  // namespace

int main() {
    vexil::MemoryWidgets widgets;
    vexil::MemoryDialogs dialogs;
    vexil::MemoryDesktop desktop;
    vexil::MemoryRestarter restarter;
    vexil::MemoryHostClock clock;
    vexil::MemoryKernelControl driver;
    vexil::MemoryPreferenceDomains preferences;

    vexil::DriverConfiguration configuration;
    FillConfiguration(configuration);
    vexil::DriverPreferences(preferences).SaveConfiguration(vexil::kPortCount, configuration);
    vexil::DriverConfiguration copy;
    vexil::DriverPreferences(preferences).LoadConfiguration(vexil::kPortCount, copy);

    Typist typist(widgets);
    bool followed = false;
    desktop.Post([&] {
        widgets.selectedRow = kLastRow;
        auto& list = widgets.Of(vexil::kPortList);
        vexil::DeliverEvent(*list.handlers, {vexil::EventKind::ControlHit, vexil::kPortList},
                            [] { return 0; });
        followed = typist.Run();
        desktop.EndEventLoop();
    });
    const int status =
        vexil::RunUserInterface({widgets, dialogs, desktop, restarter, clock, driver, preferences});
    if (status != 0 || !followed) {
        std::fprintf(stderr, "edit_latency: the Apply button did not follow the keys\n");
        return 1;
    }

    const Spread changing = SpreadOf(typist.changing);
    const Spread revoking = SpreadOf(typist.revoking);
    std::printf("%-52s%10s%14s\n", "key to record and Apply button, microseconds", "median", "1 of 100");
    std::printf("%-52s%10.2f%14.2f\n", "  a key that changes the last port's name", changing.median,
                changing.worst);
    std::printf("%-52s%10.2f%14.2f\n", "  a key that takes the change back", revoking.median, revoking.worst);
    std::printf("%-52s%10.2f\n", "  of which the comparison of 64 equal ports",
                TimeOfComparison(configuration, copy));
    std::printf("at most %.0f\n", kMostMicroseconds);
    return std::max(changing.worst, revoking.worst) <= kMostMicroseconds ? 0 : 1;
}
