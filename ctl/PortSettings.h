// The settings of one port, as a person types them: "target" "studio:12".
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "config/DriverConfiguration.h"

namespace vexil {

// The keys, in the order in which they are shown:
//
//   in, out, pipe       on or off: MIDI IN, MIDI OUT, local pipe
//   target              COMPUTER:PORT, where the output sends to; empty: nowhere
//   source              COMPUTER:PORT, what the input listens to; "any" stands for any computer or port
//   immediately         on or off: send without quantization
//   in-name, out-name   what music programs call the port; empty: its number
const std::vector<std::string_view>& PortSettingKeys();

// The value of a key of the port of an index; `key` is one of the above.
std::string PortSetting(const DriverConfiguration& configuration, int port, std::string_view key);

// Sets it. What is wrong with key or value, as a phrase; empty when it was set.
std::string SetPortSetting(DriverConfiguration& configuration, int port, std::string_view key,
                           const std::string& value);

}  // namespace vexil
