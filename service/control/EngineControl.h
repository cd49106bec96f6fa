// The control thread's half of the engine: keeps what the engine is to do until it could be posted, tells
// when it has been done, and drives the engine while no MIDI system does. Notes that are played then are
// heard by nobody and their releases count as heard.
//
// One thread, the control thread.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "service/backends/MidiBackend.h"
#include "service/engine/Engine.h"

namespace vexil {

class EngineControl {
  public:
    // Both must outlive this object.
    EngineControl(Engine& controlledEngine, const MidiBackend& midiBackend);

    // What the engine is to do from now on. Posted at once where that is possible, else by Settle. The same
    // routes or quantization again are nothing to do.
    void SetRoutes(const RouteTable& table);
    void SetQuantization(std::uint32_t sendGranularity);
    // Ends the way of a port's test output, the same route or not.
    void SetTestRoute(int port, const Route& route);
    // False when the engine cannot take the bytes now; nothing is played then.
    bool PlayTest(int port, std::span<const std::uint8_t> bytes);
    void ReleaseAll();

    // To be called after everything that happens on the control thread.
    void Settle();
    // Something could not be posted: Settle is to be called again soon.
    bool HasUnposted() const;
    // Everything has been posted and carried out, and what it released is with the sink.
    bool IsCaughtUp() const;

    const RouteTable& Routes() const { return routes; }

  private:
    void PostAll();
    void DriveWithoutSystem();

    Engine& engine;
    const MidiBackend& backend;
    RouteTable routes{};  // as posted or to be posted
    std::array<Route, kMaxPorts> testRoutes{};
    std::uint32_t quantization = 0;
    bool routesUnposted = true;
    bool quantizationUnposted = true;
    bool releaseUnposted = false;
    std::uint64_t testRoutesUnposted = 0;  // bit p: of the port of index p
};

}  // namespace vexil
