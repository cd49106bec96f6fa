// The control thread's half of the engine: keeps what the engine is to do until it could be posted, tells
// when it has been done, and has the engine driven while no MIDI system does it.
//
// One thread, the control thread.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <span>

#include "service/backends/MidiBackend.h"
#include "service/engine/Engine.h"
#include "service/engine/EngineDriver.h"
#include "service/routes/RouteTable.h"

namespace vexil {

class EngineControl {
  public:
    // All must outlive this object. `engineDriver` drives while `midiBackend` does not run.
    EngineControl(Engine& controlledEngine, const MidiBackend& midiBackend, EngineDriver& engineDriver);

    // What the engine is to do from now on. Posted at once where that is possible, else by Settle. The same
    // routes or quantization again are nothing to do.
    void SetRoutes(const RouteTable& table);
    void SetQuantization(std::uint32_t sendGranularity);
    // Ends the way of a port's test output, the same route or not.
    void SetTestRoute(int port, const Route& route);
    // False when the engine cannot take the bytes now; nothing is played then.
    bool PlayTest(int port, std::span<const std::uint8_t> bytes);
    void ReleaseAll();
    // As Engine::PostPanic.
    void Panic(std::uint64_t inputs);

    // To be called after everything that happens on the control thread.
    void Settle();
    // To be called before whatever may make the MIDI system run; Settle behind it.
    void LeaveToBackend();
    // How long until Settle is to be called although nothing happens; none: not before something does.
    std::optional<std::chrono::nanoseconds> UntilNextTurn() const;
    // Something could not be posted: Settle is to be called again soon.
    bool HasUnposted() const;
    // Everything has been posted and carried out, and what it released is with the sink.
    bool IsCaughtUp() const;

    const RouteTable& Routes() const { return routes; }

  private:
    void PostAll();

    Engine& engine;
    const MidiBackend& backend;
    EngineDriver& driver;
    RouteTable routes{};  // as posted or to be posted
    std::array<Way, kMaxPorts> testWays{};
    std::uint32_t quantization = 0;
    bool routesUnposted = true;
    bool quantizationUnposted = true;
    bool releaseUnposted = false;
    std::optional<std::uint64_t> panicUnposted;  // the inputs that it is for
    std::uint64_t testWaysUnposted = 0;          // bit p: of the port of index p
};

}  // namespace vexil
