// How each port stands, for the marks beside its row: from one status of the driver after the other. Pure.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "client/StatusReport.h"
#include "config/DriverConfiguration.h"

namespace vexil {

struct PortMark {
    bool in = false;  // enabled, as the driver has it
    bool out = false;
    bool pipe = false;
    bool connected = false;  // a music program, or another computer plays to it or hears it
    bool playing = false;    // messages were counted between the last two looks
    bool trouble = false;
    std::string words;  // the same in words, one line each; empty: the port is not used
    bool operator==(const PortMark&) const = default;
};

class PortMarks {
  public:
    using Marks = std::array<PortMark, kMaxPorts>;

    // The driver's status now.
    void Take(const StatusReport& report);
    // Nothing is known.
    void Clear();
    const Marks& All() const { return marks; }

  private:
    using Counts = std::array<std::uint64_t, kMaxPorts>;

    Marks marks;
    Counts counts{};  // messages, at the last look
    std::optional<std::uint64_t> look;
};

}  // namespace vexil
