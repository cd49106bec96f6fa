// A port as a person writes it.
#pragma once

#include <optional>
#include <string>

namespace vexil {

// The index, 0 to 63, of a port's number as the panel shows it, "11" to "88"; null for anything else.
std::optional<int> PortArgument(const std::string& text);
// What is said of a text that is no port.
std::string NoPort(const std::string& text);

}  // namespace vexil
