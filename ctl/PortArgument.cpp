#include "ctl/PortArgument.h"

namespace vexil {

std::optional<int> PortArgument(const std::string& text) {
    const auto isDigit = [](char each) { return each >= '1' && each <= '8'; };
    return text.size() == 2 && isDigit(text[0]) && isDigit(text[1])
               ? std::optional((text[0] - '1') * 8 + (text[1] - '1'))
               : std::nullopt;
}

std::string NoPort(const std::string& text) {
    return "'" + text + "' is no port: they are 11 to 18, 21 to 28, up to 81 to 88";
}

}  // namespace vexil
