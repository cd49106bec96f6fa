#include "service/ServiceArguments.h"

#include <cstddef>
#include <string_view>

#include "shared/System/PrintableText.h"

namespace vexil {

std::optional<ServiceArguments> ReadServiceArguments(const std::vector<std::string>& texts,
                                                     std::string& problem) {
    constexpr std::string_view kMidi = "--midi";
    constexpr std::string_view kNetwork = "--network";
    ServiceArguments arguments;
    for (std::size_t index = 0; index < texts.size(); ++index) {
        const std::string& text = texts[index];
        if (text == "--help" || text == "--version") {
            arguments.task =
                text == "--help" ? ServiceArguments::Task::Help : ServiceArguments::Task::Version;
            return arguments;
        }
        const std::string_view name = std::string_view(text).substr(0, text.find('='));
        if (name != kMidi && name != kNetwork) {
            problem = "There is no option \"" + Printable(text) + "\".";
            return std::nullopt;
        }
        std::string value;
        if (name.size() != text.size()) {
            value = text.substr(name.size() + 1);
        } else {
            ++index;
            value = index < texts.size() ? texts[index] : "";
        }
        if (name == kNetwork) {
            arguments.network = InterfaceChoice::FromText(value);
            if (!arguments.network) {
                problem = "--network takes on, off, lo, or names of interfaces with commas between them.";
                return std::nullopt;
            }
            continue;
        }
        arguments.midi = value;
        if (value != "alsa" && value != "jack" && value != "none") {
            problem = "--midi takes alsa, jack or none.";
            return std::nullopt;
        }
    }
    return arguments;
}

}  // namespace vexil
