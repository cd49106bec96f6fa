#include "driver/LastSettings.h"

#include "driver/DriverOptions.h"

namespace vexil {

void LastSettings::Asked(std::uint32_t option, std::span<const std::uint8_t> payload) {
    if (option == kOptionWirelessOn || option == kOptionWirelessOff) {
        wireless = {option, {}};
    } else if (option == kOptionSendGranularity) {
        granularity = {option, {payload.begin(), payload.end()}};
    }
}

std::vector<DriverSetting> LastSettings::Settings() const {
    std::vector<DriverSetting> settings;
    for (const auto& setting : {wireless, granularity}) {
        if (setting) {
            settings.push_back(*setting);
        }
    }
    return settings;
}

}  // namespace vexil
