#include "service/control/EngineControl.h"

#include <algorithm>
#include <bit>

namespace vexil {

namespace {

Way WayOf(const Route& route) {
    return {GetsThrough(route) ? route.destination : Destination{}, route.immediate};
}

}  // namespace

EngineControl::EngineControl(Engine& controlledEngine, const MidiBackend& midiBackend,
                             EngineDriver& engineDriver)
    : engine(controlledEngine), backend(midiBackend), driver(engineDriver) {}

void EngineControl::SetRoutes(const RouteTable& table) {
    if (table == routes) {
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
    testWays[static_cast<std::size_t>(port)] = WayOf(route);
    testWaysUnposted |= std::uint64_t{1} << port;
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

void EngineControl::Panic(std::uint64_t inputs) {
    panicUnposted = panicUnposted.value_or(0) | inputs;
    Settle();
}

void EngineControl::Settle() {
    PostAll();
    if (!backend.IsRunning()) {
        driver.Turn();
        PostAll();
        driver.Turn();
    }
}

void EngineControl::LeaveToBackend() {
    if (!backend.IsRunning()) {
        driver.Rest();
    }
}

std::optional<std::chrono::nanoseconds> EngineControl::UntilNextTurn() const {
    return backend.IsRunning() ? std::nullopt : driver.UntilNextTurn();
}

bool EngineControl::HasUnposted() const {
    return routesUnposted || quantizationUnposted || releaseUnposted || panicUnposted ||
           testWaysUnposted != 0;
}

bool EngineControl::IsCaughtUp() const {
    return !HasUnposted() && engine.Done() == engine.Posted();
}

void EngineControl::PostAll() {
    if (routesUnposted) {
        WayTable ways;
        std::transform(routes.routes.begin(), routes.routes.end(), ways.begin(), WayOf);
        routesUnposted = !engine.PostWays(ways);
    }
    if (quantizationUnposted) {
        quantizationUnposted = !engine.PostQuantization(quantization);
    }
    for (std::uint64_t left = testWaysUnposted; left != 0; left &= left - 1) {
        const int port = std::countr_zero(left);
        if (!engine.PostWay(kTestSourceBase + port, testWays[static_cast<std::size_t>(port)])) {
            break;
        }
        testWaysUnposted &= ~(std::uint64_t{1} << port);
    }
    // Last, for it ends what the others have begun.
    if (releaseUnposted) {
        releaseUnposted = !engine.PostReleaseAll();
    }
    if (panicUnposted && engine.PostPanic(*panicUnposted)) {
        panicUnposted.reset();
    }
}

}  // namespace vexil
