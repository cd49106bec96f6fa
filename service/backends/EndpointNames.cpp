#include "service/backends/EndpointNames.h"

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <set>

#include "config/DriverConfiguration.h"

namespace vexil {

namespace {

// Length of the character at the front of `text`; 0 when it is no UTF-8.
std::size_t CharacterLength(std::string_view text) {
    const auto first = static_cast<std::uint8_t>(text[0]);
    if (first < 0x80) {
        return 1;
    }
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < length) {
        return 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if ((static_cast<std::uint8_t>(text[i]) & 0xC0) != 0x80) {
            return 0;
        }
    }
    // Not the shortest form, a surrogate, or beyond the last character.
    const auto second = static_cast<std::uint8_t>(text[1]);
    const bool isWrong = (first == 0xE0 && second < 0xA0) || (first == 0xED && second >= 0xA0) ||
                         (first == 0xF0 && second < 0x90) || (first == 0xF4 && second >= 0x90);
    return isWrong ? 0 : length;
}

bool IsControl(std::string_view character) {
    const auto first = static_cast<std::uint8_t>(character[0]);
    return first < 0x20 || first == 0x7F || (first == 0xC2 && static_cast<std::uint8_t>(character[1]) < 0xA0);
}

std::string Clean(std::string_view name, std::string_view separators) {
    std::string clean;
    while (!name.empty()) {
        const std::size_t length = CharacterLength(name);
        const std::string_view character = name.substr(0, std::max<std::size_t>(length, 1));
        if (length == 0) {
            clean += '?';
        } else if (IsControl(character)) {
            clean += ' ';
        } else if (separators.find(character) != std::string_view::npos) {
            clean += '-';
        } else {
            clean += character;
        }
        name.remove_prefix(character.size());
    }
    const std::size_t begin = clean.find_first_not_of(' ');
    return begin == std::string::npos ? "" : clean.substr(begin, clean.find_last_not_of(' ') - begin + 1);
}

// At most `longest` bytes of valid UTF-8, no character cut, no space at the end.
std::string Cut(const std::string& name, std::size_t longest) {
    if (name.size() <= longest) {
        return name;
    }
    std::size_t end = longest;
    while (end > 0 && (static_cast<std::uint8_t>(name[end]) & 0xC0) == 0x80) {
        --end;
    }
    while (end > 0 && name[end - 1] == ' ') {
        --end;
    }
    return name.substr(0, end);
}

}  // namespace

std::vector<std::string> MakeEndpointNames(const std::vector<Endpoint>& endpoints, const NameRules& rules) {
    std::vector<std::size_t> order(endpoints.size());
    std::iota(order.begin(), order.end(), 0U);
    std::stable_sort(order.begin(), order.end(), [&](std::size_t left, std::size_t right) {
        const Endpoint& a = endpoints[left];
        const Endpoint& b = endpoints[right];
        return a.port != b.port ? a.port < b.port : a.output && !b.output;
    });
    std::vector<std::string> names(endpoints.size());
    std::set<std::string> taken;
    for (const std::size_t index : order) {
        std::string clean = Clean(endpoints[index].name, rules.separators);
        if (clean.empty()) {
            clean = "Port " + std::to_string(ShownPortNumber(endpoints[index].port));
        }
        std::string name = Cut(clean, rules.longest);
        for (int number = 2; !taken.insert(name).second; ++number) {
            const std::string suffix = " (" + std::to_string(number) + ")";
            name = Cut(clean, rules.longest - suffix.size()) + suffix;
        }
        names[index] = name;
    }
    return names;
}

}  // namespace vexil
