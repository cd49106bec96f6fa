#include "platform/linux/preferences/PlistPreferenceDomains.h"

#include <utility>

#include "config/DriverPreferences.h"
#include "shared/System/svLog.h"

namespace vexil {
namespace {

// With logging switched off the log never opens, so the lines that wait for it must end somewhere.
constexpr std::size_t kMostWaitingLines = 64;

// The log cuts a line at 258 characters, its prefix and line end included; a longer path is cut here, so that
// the line end stays.
constexpr std::size_t kLongestLine = 240;

// A file name for any application id: "/" separates folders, and a leading dot would hide the file.
std::string FileName(const std::string& application, const std::string& hostId) {
    std::string name;
    for (const char character : application) {
        const bool misplacedDot = character == '.' && name.empty();
        if (character == '/' || character == '\0' || character == '%' || misplacedDot) {
            constexpr const char* kDigits = "0123456789ABCDEF";
            const auto byte = static_cast<unsigned char>(character);
            name.append({'%', kDigits[byte >> 4U], kDigits[byte & 0xFU]});
        } else {
            name += character;
        }
    }
    return name + "." + hostId + ".plist";
}

}  // namespace

DomainPlace PlaceOfDomain(const Paths& paths, const std::string& application, UserScope user) {
    const bool anyUser = user == UserScope::kCFPreferencesAnyUser;
    return {anyUser ? paths.anyUserPreferences : paths.currentUserPreferences,
            anyUser && paths.anyUserIsSystemWide, FileName(application, paths.hostId),
            application == kOlderDriverDomain};
}

PlistPreferenceDomains::PlistPreferenceDomains(const Paths& folders, const DurabilityCalls& durabilityCalls,
                                               Unparsable whileUnparsable)
    : paths(folders), calls(durabilityCalls), unparsable(whileUnparsable) {}

std::optional<std::chrono::milliseconds> PlistPreferenceDomains::LookAgainIn() const {
    std::optional<std::chrono::milliseconds> soonest;
    for (const auto& [place, file] : files) {
        const std::optional<std::chrono::milliseconds> time = file.LookAgainIn();
        if (time && (!soonest || *time < *soonest)) {
            soonest = time;
        }
    }
    return soonest;
}

PropertyRef PlistPreferenceDomains::CopyValue(const std::string& key, const std::string& application,
                                              UserScope user, HostScope) {
    WriteWaitingLines();
    return File(application, user).CopyValue(key);
}

void PlistPreferenceDomains::SetValue(const std::string& key, PropertyRef value,
                                      const std::string& application, UserScope user, HostScope) {
    WriteWaitingLines();
    File(application, user).SetValue(key, std::move(value));
}

bool PlistPreferenceDomains::Synchronize(const std::string& application, UserScope user, HostScope) {
    WriteWaitingLines();
    return File(application, user).Synchronize();
}

DomainFile& PlistPreferenceDomains::File(const std::string& application, UserScope user) {
    const auto found = files.find({application, user});
    if (found != files.end()) {
        return found->second;
    }
    return files
        .try_emplace({application, user}, PlaceOfDomain(paths, application, user), calls, unparsable,
                     [this](const std::string& line) {
                         if (!takeLine || !takeLine(line)) {
                             WriteLine(line);
                         }
                     })
        .first->second;
}

void PlistPreferenceDomains::WriteLine(const std::string& text) {
    const std::string line = text.substr(0, kLongestLine);
    if (LogIsOpen()) {
        LogPrintf("%s\n", line.c_str());
    } else if (waitingLines.size() < kMostWaitingLines) {
        waitingLines.push_back(line);
    }
}

void PlistPreferenceDomains::WriteWaitingLines() {
    if (waitingLines.empty() || !LogIsOpen()) {
        return;
    }
    for (const std::string& line : waitingLines) {
        LogPrintf("%s\n", line.c_str());
    }
    waitingLines.clear();
}

}  // namespace vexil
