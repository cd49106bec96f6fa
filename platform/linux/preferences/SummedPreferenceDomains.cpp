#include "platform/linux/preferences/SummedPreferenceDomains.h"

#include <algorithm>
#include <string_view>

namespace vexil {
namespace {

constexpr const char* kCacheKey = "Cache";
constexpr std::string_view kTask = "Cannot write preferences: ";
// The log cuts a line at 258 characters, its prefix and line end included.
constexpr std::size_t kLongestLine = 220;

std::string ReasonOf(const std::string& line) {
    return line.rfind(kTask, 0) == 0 ? line.substr(kTask.size()) : line;
}

// The list of computers that is kept for the next start is not a person's.
bool IsOfPerson(const std::vector<std::string>& keys) {
    return std::any_of(keys.begin(), keys.end(), [](const std::string& key) { return key != kCacheKey; });
}

}  // namespace

SummedPreferenceDomains::SummedPreferenceDomains(const Paths& folders, const DurabilityCalls& durabilityCalls)
    : domains(folders, durabilityCalls) {
    domains.SetTakeLine([this](const std::string& line) {
        if (holdsLines) {
            lines.push_back(line);
        }
        return holdsLines;
    });
}

PropertyRef SummedPreferenceDomains::CopyValue(const std::string& key, const std::string& application,
                                               UserScope user, HostScope host) {
    return domains.CopyValue(key, application, user, host);
}

void SummedPreferenceDomains::SetValue(const std::string& key, PropertyRef value,
                                       const std::string& application, UserScope user, HostScope host) {
    changed[{application, user}].push_back(key);
    domains.SetValue(key, std::move(value), application, user, host);
}

bool SummedPreferenceDomains::Synchronize(const std::string& application, UserScope user, HostScope host) {
    const auto keys = std::exchange(changed[{application, user}], {});
    holdsLines = true;
    const bool done = domains.Synchronize(application, user, host);
    holdsLines = false;
    std::string reason = std::string(kTask) + "what is in their place cannot be used: " + application;
    if (!done && !keys.empty() && !lines.empty()) {
        reason = lines.back();
        lines.pop_back();
    }
    for (const std::string& line : std::exchange(lines, {})) {
        domains.WriteLine(line);
    }
    if (!done && !keys.empty()) {
        Add(reason, keys);
    } else if (done) {
        NoteStored(keys);
    }
    return done;
}

void SummedPreferenceDomains::Add(const std::string& line, const std::vector<std::string>& keys) {
    const bool isFirst = failures.empty();
    auto failure = std::find_if(failures.begin(), failures.end(),
                                [&](const Failure& other) { return other.line == line; });
    if (failure == failures.end()) {
        failure = failures.insert(failure, {line});
    }
    failure->values += keys.size();
    failure->isOfPerson |= IsOfPerson(keys);
    if (isFirst && failureCame) {
        failureCame();
    }
}

void SummedPreferenceDomains::NoteStored(const std::vector<std::string>& keys) {
    if (isUnstored && IsOfPerson(keys)) {
        isUnstored = false;
        if (storedAgain) {
            storedAgain();
        }
    }
}

std::string SummedPreferenceDomains::EndSum() {
    std::string reason;
    for (const Failure& failure : std::exchange(failures, {})) {
        const std::string sum =
            failure.values == 1 ? " (1 value)" : " (" + std::to_string(failure.values) + " values)";
        domains.WriteLine(failure.line.substr(0, kLongestLine) + sum);
        if (failure.isOfPerson && reason.empty()) {
            reason = ReasonOf(failure.line);
        }
    }
    isUnstored |= !reason.empty();
    return reason;
}

}  // namespace vexil
