// The test outputs that the attached panel has open, by port. A test output is opened with a record of where
// its notes go (option 192), activated (193), played (0 to 63) and closed (194). Results are 0 or an errno
// value, as the options answer.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "service/routes/RouteTable.h"

namespace vexil {

class TestOutputs {
  public:
    struct Output {
        TestOutputRecord record;
        bool active = false;
    };

    // Option 192. One that is open on that port is replaced. `port` becomes the record's when 0 is returned.
    // EINVAL for what is no record.
    int Open(std::span<const std::uint8_t> payload, int& port);
    // Options 193 and 194. EINVAL for another length than 4; ENXIO where no test output is open.
    int Activate(std::span<const std::uint8_t> payload, int& port);
    int Close(std::span<const std::uint8_t> payload, int& port);
    // Options 0 to 63: `data` becomes the bytes of all packets. EINVAL for what is no packet list; ENXIO
    // where no test output is open and active; EMSGSIZE for more than kLongestTestBytes.
    int Play(int port, std::span<const std::uint8_t> payload, std::vector<std::uint8_t>& data) const;

    // Null where the test output is not open.
    const Output* Find(int port) const;
    // Where the notes of a port's test output go now: nowhere while it is not open and active.
    Route RouteOf(int port, const DriverConfiguration& configuration, const LocalNames& names) const;

  private:
    std::optional<Output>& At(int port) { return outputs[static_cast<std::size_t>(port)]; }
    int FindOpen(std::span<const std::uint8_t> payload, int& port) const;

    std::array<std::optional<Output>, kMaxPorts> outputs;
};

}  // namespace vexil
