// The wireless mode and the send quantization time that a panel has last asked for, so that a driver that was
// restarted can be told of them again: it keeps neither.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "driver/DriverSetting.h"

namespace vexil {

class LastSettings {
  public:
    // Takes note of an option that the driver has carried out or could not be asked for. Options that set
    // neither are of no interest.
    void Asked(std::uint32_t option, std::span<const std::uint8_t> payload);

    // The options by which a fresh driver gets them, in order.
    std::vector<DriverSetting> Settings() const;

  private:
    std::optional<DriverSetting> wireless;
    std::optional<DriverSetting> granularity;
};

}  // namespace vexil
