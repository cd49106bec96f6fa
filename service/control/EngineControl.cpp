#include "service/control/EngineControl.h"

#include <bit>
#include <limits>
#include <memory>

namespace vexil {

namespace {

class Nobody : public EngineSink {
  public:
    std::size_t Room(const Destination&) const override { return std::numeric_limits<std::size_t>::max(); }
    void Deliver(const Destination&, std::uint64_t, std::span<const std::uint8_t>) override {}
};

}  // namespace

EngineControl::EngineControl(Engine& controlledEngine, const MidiBackend& midiBackend)
    : engine(controlledEngine), backend(midiBackend) {}

void EngineControl::SetRoutes(const RouteTable& table) {
    if (table.routes == routes.routes && table.outputEndpoints == routes.outputEndpoints &&
        table.inputEndpoints == routes.inputEndpoints) {
        return;
    }
    routes = table;
    routesUnposted = true;
    Settle();
}

void EngineControl::SetQuantization(std::uint32_t sendGranularity) {
    if (sendGranularity != quantization) {
        quantization = sendGranularity;
        quantizationUnposted = true;
        Settle();
    }
}

void EngineControl::SetTestRoute(int port, const Route& route) {
    testRoutes[static_cast<std::size_t>(port)] = route;
    testRoutesUnposted |= std::uint64_t{1} << port;
    Settle();
}

bool EngineControl::PlayTest(int port, std::span<const std::uint8_t> bytes) {
    // Never on a way that should have ended.
    PostAll();
    const bool isPosted = !HasUnposted() && engine.PostTestBytes(port, bytes);
    Settle();
    return isPosted;
}

void EngineControl::ReleaseAll() {
    releaseUnposted = true;
    Settle();
}

void EngineControl::Settle() {
    PostAll();
    if (!backend.IsRunning()) {
        DriveWithoutSystem();
        PostAll();
        DriveWithoutSystem();
    }
    engine.Collect();
}

bool EngineControl::HasUnposted() const {
    return routesUnposted || quantizationUnposted || releaseUnposted || testRoutesUnposted != 0;
}

bool EngineControl::IsCaughtUp() const {
    return !HasUnposted() && engine.Done() == engine.Posted();
}

void EngineControl::PostAll() {
    if (routesUnposted) {
        routesUnposted = !engine.PostRoutes(std::make_unique<const RouteTable>(routes));
    }
    if (quantizationUnposted) {
        quantizationUnposted = !engine.PostQuantization(quantization);
    }
    for (std::uint64_t left = testRoutesUnposted; left != 0; left &= left - 1) {
        const int port = std::countr_zero(left);
        if (!engine.PostTestRoute(port, testRoutes[static_cast<std::size_t>(port)])) {
            break;
        }
        testRoutesUnposted &= ~(std::uint64_t{1} << port);
    }
    // Last, for it ends what the others have begun.
    if (releaseUnposted) {
        releaseUnposted = !engine.PostReleaseAll();
    }
}

// The time stands still meanwhile: a MIDI system that comes goes by a clock of its own.
void EngineControl::DriveWithoutSystem() {
    constexpr std::uint64_t kNow = 0;
    Nobody nobody;
    engine.TakeCommands(kNow);
    engine.Run(std::numeric_limits<std::uint64_t>::max(), nobody);
}

}  // namespace vexil
