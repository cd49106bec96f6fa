// One option as a driver is given it.
#pragma once

#include <cstdint>
#include <vector>

namespace vexil {

struct DriverSetting {
    std::uint32_t option = 0;
    std::vector<std::uint8_t> payload;
};

}  // namespace vexil
