#include "service/network/InterfaceChoice.h"

#include <algorithm>

namespace vexil {

namespace {

constexpr std::string_view kOff = "off";
constexpr std::string_view kLoopback = "lo";
constexpr std::string_view kAll = "on";

bool IsInterfaceName(std::string_view name) {
    return !name.empty() && name.size() <= InterfaceChoice::kLongestName && name != kOff && name != kAll &&
           name != "." && name != ".." && std::none_of(name.begin(), name.end(), [](char character) {
               const auto byte = static_cast<unsigned char>(character);
               return byte <= ' ' || byte == 0x7F || character == '/' || character == ':';
           });
}

}  // namespace

std::optional<InterfaceChoice> InterfaceChoice::FromText(std::string_view text) {
    if (text == kOff) {
        return InterfaceChoice();
    }
    if (text == kLoopback) {
        return Loopback();
    }
    if (text == kAll) {
        return All();
    }
    std::vector<std::string> listed;
    for (std::size_t begin = 0; begin <= text.size();) {
        const std::size_t end = std::min(text.find(',', begin), text.size());
        const std::string_view name = text.substr(begin, end - begin);
        if (!IsInterfaceName(name) || listed.size() == kMostNames) {
            return std::nullopt;
        }
        listed.emplace_back(name);
        begin = end + 1;
    }
    return InterfaceChoice(Kind::Listed, std::move(listed));
}

std::string InterfaceChoice::Text() const {
    switch (kind) {
        case Kind::Off:
            return std::string(kOff);
        case Kind::Loopback:
            return std::string(kLoopback);
        case Kind::All:
            return std::string(kAll);
        case Kind::Listed:
            break;
    }
    std::string text;
    for (const std::string& name : names) {
        text += (text.empty() ? "" : ",") + name;
    }
    return text;
}

bool InterfaceChoice::Admits(std::string_view name, bool isLoopback) const {
    switch (kind) {
        case Kind::Off:
            return false;
        case Kind::Loopback:
            return isLoopback;
        case Kind::All:
            return true;
        case Kind::Listed:
            break;
    }
    return std::find(names.begin(), names.end(), name) != names.end();
}

}  // namespace vexil
