#include "tests/scenarios/Scenario.h"

namespace vexil {

std::vector<std::string> Scenario::Items(int combo) const {
    std::vector<std::string> items;
    for (int i = 0; i < Window().ItemCount(combo); ++i) {
        svString text;
        EXPECT_TRUE(Window().ItemText(combo, i, text)) << i;
        items.emplace_back(text.c_str());
    }
    return items;
}

void Scenario::Store(const DriverConfiguration& configuration) {
    DriverPreferences(world->preferences).SaveConfiguration(kPortCount, configuration);
    world->preferences.Forget();
    world->log.Clear();
}

DriverConfiguration Scenario::Stored() {
    DriverConfiguration configuration;
    DriverPreferences(world->preferences).LoadConfiguration(kPortCount, configuration);
    return configuration;
}

std::vector<int> Scenario::Sent() {
    const std::vector<int> all = driver.OptionNumbers();
    const std::vector<int> fresh(all.begin() + static_cast<std::ptrdiff_t>(callsSeen), all.end());
    callsSeen = all.size();
    return fresh;
}

KernelCall Scenario::LastCall(int option) const {
    const std::vector<KernelCall> all = driver.OptionCalls();
    for (std::size_t i = all.size(); i-- > callsSeen;) {
        if (all[i].option == option) {
            return all[i];
        }
    }
    return {};
}

std::vector<std::uint8_t> HostInfos(const std::vector<std::string>& names) {
    std::vector<std::uint8_t> bytes;
    for (const std::string& name : names) {
        bytes.push_back('N');
        bytes.insert(bytes.end(), name.begin(), name.end());
        bytes.push_back(0);
        for (const auto& [tag, length] : {std::pair{'A', 6}, std::pair{'L', 6}, std::pair{'E', 2}}) {
            bytes.push_back(static_cast<std::uint8_t>(tag));
            bytes.insert(bytes.end(), static_cast<std::size_t>(length), std::uint8_t{1});
        }
    }
    bytes.push_back(0);
    return bytes;
}

}  // namespace vexil
