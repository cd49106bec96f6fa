#include "service/backends/EndpointNames.h"

#include <algorithm>
#include <numeric>
#include <optional>
#include <set>
#include <string_view>

#include "config/DriverConfiguration.h"
#include "shared/System/Utf8.h"

namespace vexil {

namespace {

bool IsControl(char32_t character) {
    return character < 0x20 || (character >= 0x7F && character < 0xA0);
}

std::string Clean(std::string_view name, std::string_view separators) {
    std::string clean;
    while (!name.empty()) {
        const std::string_view before = name;
        const std::optional<char32_t> character = TakeUtf8(name);
        const std::string_view bytes = before.substr(0, before.size() - name.size());
        if (!character) {
            clean += '?';
            name.remove_prefix(1);
        } else if (IsControl(*character)) {
            clean += ' ';
        } else if (separators.find(bytes) != std::string_view::npos) {
            clean += '-';
        } else {
            clean += bytes;
        }
    }
    const std::size_t begin = clean.find_first_not_of(' ');
    return begin == std::string::npos ? "" : clean.substr(begin, clean.find_last_not_of(' ') - begin + 1);
}

// At most `longest` bytes of a valid name, no character cut; no space at the end of a name that was cut.
std::string Cut(const std::string& name, std::size_t longest) {
    std::string_view cut = WholeCharacters(name, longest);
    while (cut.size() < name.size() && cut.ends_with(' ')) {
        cut.remove_suffix(1);
    }
    return std::string(cut);
}

}  // namespace

std::array<std::string, kMaxPorts> MakePortNames(const DriverConfiguration& configuration, bool outputs) {
    std::array<std::string, kMaxPorts> names;
    std::set<std::string> taken;
    for (int port = 0; port < kMaxPorts; ++port) {
        const PortNames& custom = configuration.CustomNames[port];
        const svString& own = outputs ? custom.Out_CustomName : custom.In_CustomName;
        const std::string number = std::to_string(ShownPortNumber(port));
        std::string& name = names[static_cast<std::size_t>(port)];
        name = Clean(own.c_str(), "");
        if (name.empty()) {
            name = "Port " + number;
        }
        while (!taken.insert(name).second) {
            name += " " + number;
        }
    }
    return names;
}

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
        const Endpoint& endpoint = endpoints[index];
        const bool isFormer = !rules.directions && !endpoint.formerName.empty();
        std::string clean = Clean(isFormer ? endpoint.formerName : endpoint.name, rules.separators);
        if (clean.empty()) {
            clean = "Port " + std::to_string(ShownPortNumber(endpoints[index].port));
        }
        const std::string direction = !rules.directions ? "" : endpoints[index].output ? " out" : " in";
        std::string name = Cut(clean, rules.longest - direction.size()) + direction;
        for (int number = 2; !taken.insert(name).second; ++number) {
            const std::string suffix = " (" + std::to_string(number) + ")" + direction;
            name = Cut(clean, rules.longest - suffix.size()) + suffix;
        }
        names[index] = name;
    }
    return names;
}

}  // namespace vexil
