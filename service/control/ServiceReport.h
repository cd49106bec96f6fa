// What the service tells in its log, in words for a musician: which port reaches which, and why not where it
// does not. All but refusals are information, written while it is switched on ("Enable Logging").
//
// One thread.
#pragma once

#include <sys/types.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "service/backends/MidiBackend.h"
#include "service/routes/RouteTable.h"

namespace vexil {

class ServiceReport {
  public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::seconds kLoopLines{60};

    void SetEnabled(bool on) { enabled = on; }

    // A configuration was read: one line if it is another one than before, and one for each output whose way
    // has changed.
    void Configuration(const DriverConfiguration& configuration, const RouteTable& routes);
    void Quantization(std::uint32_t tenths) const;
    void Wireless(bool on) const;
    // What a panic has done, as PanicText has it.
    void Panic(const std::string& done) const { Line("Panic: " + done); }
    void PanelAttached(pid_t process) const;
    void PanelDetached() const;
    // A refusal is told whatever is switched on.
    static void ClientRefused(pid_t process, uid_t user);
    // A test output is told of when it is first played, and when one that was is closed: a panel opens one
    // for each letter of a name that is typed.
    void TestOpened(int port) { testWasPlayed[static_cast<std::size_t>(port)] = false; }
    void TestPlayed(int port, const Route& route, const DriverConfiguration& configuration);
    void TestClosed(int port);
    // What Engine::SuspectedRate says of an output. A suspicion is told of whatever is switched on, of each
    // output once in kLoopLines.
    void Loop(int port, const Route& route, std::uint64_t suspectedRate, Clock::time_point now);
    // When the MIDI system has come or gone, or is away for another reason than before.
    void Backend(const MidiBackend& backend);

  private:
    void Line(const std::string& text) const;

    bool enabled = false;
    std::optional<DriverConfiguration> known;  // the last one
    std::array<std::string, kMaxPorts> ways;   // what was last said of each output
    std::array<bool, kMaxPorts> testWasPlayed{};
    struct SuspectedLoop {
        bool isSuspected = false;
        std::optional<Clock::time_point> told;
    };
    std::array<SuspectedLoop, kMaxPorts> loops{};
    bool backendWasRunning = false;
    std::string backendProblem;
    std::string backendRealtime;
};

}  // namespace vexil
