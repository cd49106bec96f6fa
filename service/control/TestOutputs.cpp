#include "service/control/TestOutputs.h"

#include <cerrno>
#include <utility>

#include "service/control/OptionPayloads.h"
#include "service/engine/Engine.h"

namespace vexil {

int TestOutputs::Open(std::span<const std::uint8_t> payload, int& port) {
    std::optional<TestOutputPayload> test = ReadTestOutputPayload(payload);
    if (!test) {
        return EINVAL;
    }
    port = test->port;
    At(port) = Output{std::move(test->record), false};
    return 0;
}

int TestOutputs::Activate(std::span<const std::uint8_t> payload, int& port) {
    const int error = FindOpen(payload, port);
    if (error == 0) {
        At(port)->active = true;
    }
    return error;
}

int TestOutputs::Close(std::span<const std::uint8_t> payload, int& port) {
    const int error = FindOpen(payload, port);
    if (error == 0) {
        At(port).reset();
    }
    return error;
}

int TestOutputs::Play(int port, std::span<const std::uint8_t> payload,
                      std::vector<std::uint8_t>& data) const {
    std::optional<std::vector<std::uint8_t>> listed = ReadPacketListPayload(payload);
    if (!listed) {
        return EINVAL;
    }
    const Output* output = Find(port);
    if (output == nullptr || !output->active) {
        return ENXIO;
    }
    if (listed->size() > kLongestTestBytes) {
        return EMSGSIZE;
    }
    data = std::move(*listed);
    return 0;
}

const TestOutputs::Output* TestOutputs::Find(int port) const {
    const std::optional<Output>& output = outputs[static_cast<std::size_t>(port)];
    return output ? &*output : nullptr;
}

Route TestOutputs::RouteOf(int port, const DriverConfiguration& configuration,
                           const LocalNames& names) const {
    const Output* output = Find(port);
    return output != nullptr && output->active ? MakeTestRoute(output->record, port, configuration, names)
                                               : Route{};
}

int TestOutputs::FindOpen(std::span<const std::uint8_t> payload, int& port) const {
    const std::optional<std::uint32_t> index = ReadUint32Payload(payload);
    if (!index) {
        return EINVAL;
    }
    if (*index >= kMaxPorts || Find(static_cast<int>(*index)) == nullptr) {
        return ENXIO;
    }
    port = static_cast<int>(*index);
    return 0;
}

}  // namespace vexil
