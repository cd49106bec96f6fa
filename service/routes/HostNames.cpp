#include "service/routes/HostNames.h"

#include <algorithm>
#include <utility>

namespace vexil {

namespace {

constexpr const char* kLocalHost = "localhost";

bool EndsWith(const std::string& text, std::string_view end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

std::vector<std::string> WithLocalHost(std::vector<std::string> names) {
    names.emplace_back(kLocalHost);
    return names;
}

}  // namespace

std::string FoldHostName(std::string_view text) {
    std::string name(text);
    // Letters beyond ASCII are as they are: the names of hosts have no case rules for them.
    std::transform(name.begin(), name.end(), name.begin(), [](char character) {
        return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
    });
    if (EndsWith(name, ".")) {
        name.pop_back();
    }
    constexpr std::string_view kLocalDomain = ".local";
    if (EndsWith(name, kLocalDomain)) {
        name.resize(name.size() - kLocalDomain.size());
    }
    return name;
}

ComputerNames::ComputerNames(const std::vector<std::string>& names) {
    for (const std::string& name : names) {
        std::string fold = FoldHostName(name);
        if (!fold.empty()) {
            folded.push_back(std::move(fold));
        }
    }
}

bool ComputerNames::Contains(const std::string& name) const {
    return std::find(folded.begin(), folded.end(), FoldHostName(name)) != folded.end();
}

LocalNames::LocalNames(const std::vector<std::string>& names)
    : ComputerNames(WithLocalHost(names)), own(names.empty() ? kLocalHost : names.front()) {}

}  // namespace vexil
