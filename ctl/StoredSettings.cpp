#include "ctl/StoredSettings.h"

#include <fcntl.h>

#include <algorithm>
#include <cstring>

#include "config/DriverPreferences.h"
#include "config/IniFile.h"
#include "config/SettingsFile.h"
#include "ctl/WholeFile.h"

namespace vexil {

namespace {

constexpr UserScope kUser = UserScope::kCFPreferencesAnyUser;
constexpr HostScope kHost = HostScope::kCFPreferencesCurrentHost;

std::string AndReason(const std::string& reason) {
    return reason.empty() ? "" : ": " + reason;
}

bool HoldsZeroBytes(const IniFile& file) {
    return std::any_of(file.AllLines().begin(), file.AllLines().end(), [](const svString& line) {
        return std::strlen(line.c_str()) != static_cast<std::size_t>(line.GetLength());
    });
}

bool HoldsKeys(const IniFile& file, const char* section) {
    IniFile::StringList keys;
    return file.GetKeyNames(keys, section) != 0;
}

// Whether there is anything in the file that an import looks for.
bool HoldsSettings(const IniFile& file) {
    bool found = HoldsKeys(file, "Options") || HoldsKeys(file, "General");
    for (int port = 0; !found && port < kPortCount; ++port) {
        svString section;
        section.Format("Port_%02d", port);
        found = HoldsKeys(file, section.c_str());
    }
    return found;
}

}  // namespace

// Preferences that cannot be read count as empty, and damaged ones are set aside: neither is what the person
// wants to see saved, or completed by a settings file.
bool StoredSettings::ReadStored(PreferenceBatch& batch, DriverConfiguration& configuration) {
    batch.Synchronize(kDriverDomain, kUser, kHost);
    // Lines so far are the domain's. What the older domain and the loader say later is worth knowing, no
    // more.
    std::string lines = log.Take();
    if (lines.empty()) {
        DriverPreferences(batch).LoadConfiguration(kPortCount, configuration);
    }
    if (lines.empty() && !batch.HasFailed()) {
        return true;
    }
    problem = "the stored configuration cannot be read\n" + lines + log.Take();
    return false;
}

bool StoredSettings::Fail(const std::string& what) {
    problem = what + "\n" + log.Take();
    return false;
}

StoredSettings::Outcome StoredSettings::Load(const std::string& path, const LoadWishes& wishes) {
    problem.clear();
    remarks.clear();
    log.Take();
    // Asked first, since opening a file for editing makes it where it is absent.
    std::string reason = FileObstacle(path, O_RDWR);
    std::string text;
    IniFile file;
    if (!reason.empty() || !file.Open(path.c_str())) {
        Fail(path + " cannot be opened for reading and writing" + AndReason(reason));
        return Outcome::Failed;
    }
    reason = ReadWholeFile(path, text);
    if (!reason.empty()) {
        Fail(path + " cannot be read: " + reason);
        return Outcome::Failed;
    }
    if (HoldsZeroBytes(file) || !HoldsSettings(file)) {
        Fail(path + " is no settings file");
        return Outcome::Failed;
    }

    remarks = CheckSettings(text).remarks;

    PreferenceBatch batch(domains);
    DriverConfiguration before;
    if (!ReadStored(batch, before)) {
        return Outcome::Failed;
    }
    DriverConfiguration configuration = wishes.fromDefaults ? DriverConfiguration() : before;
    ImportSettings(kPortCount, file, configuration);
    file.Close();  // nothing was edited, so nothing is written
    return Store(batch, before, configuration, wishes);
}

StoredSettings::Outcome StoredSettings::LoadDefaults(const LoadWishes& wishes) {
    problem.clear();
    remarks.clear();
    log.Take();
    PreferenceBatch batch(domains);
    DriverConfiguration before;
    return ReadStored(batch, before) ? Store(batch, before, DriverConfiguration(), wishes) : Outcome::Failed;
}

bool StoredSettings::Read(DriverConfiguration& configuration) {
    problem.clear();
    log.Take();
    PreferenceBatch batch(domains);
    return ReadStored(batch, configuration);
}

StoredSettings::Outcome StoredSettings::Edit(const std::function<bool(DriverConfiguration&)>& edit,
                                             const LoadWishes& wishes) {
    problem.clear();
    remarks.clear();
    log.Take();
    PreferenceBatch batch(domains);
    DriverConfiguration before;
    if (!ReadStored(batch, before)) {
        return Outcome::Failed;
    }
    DriverConfiguration configuration = before;
    return edit(configuration) ? Store(batch, before, configuration, wishes) : Outcome::Failed;
}

StoredSettings::Outcome StoredSettings::Store(PreferenceBatch& batch, const DriverConfiguration& before,
                                              DriverConfiguration configuration, const LoadWishes& wishes) {
    wirelessWish = (configuration.MiscOptions & kUseWireless) != 0;
    wirelessChanged = ((configuration.MiscOptions ^ before.MiscOptions) & kUseWireless) != 0;
    if (wishes.isPanelOpen && wishes.isPanelOpen()) {
        configuration.MiscOptions &= ~kUseWireless;
    }
    const bool admissible = IsAdmissible(configuration);
    if (!admissible) {
        configuration.OutputPorts = 1;
    }

    batch.Begin();
    DriverPreferences(batch).SaveConfiguration(kPortCount, configuration);
    if (!batch.Commit(kDriverDomain, kUser, kHost)) {
        Fail("the configuration cannot be stored");
        return Outcome::Failed;
    }
    problem = log.Take();
    return admissible ? Outcome::Stored : Outcome::Corrected;
}

bool StoredSettings::Save(const std::string& path) {
    problem.clear();
    log.Take();
    PreferenceBatch batch(domains);
    DriverConfiguration configuration;
    if (!ReadStored(batch, configuration)) {
        return false;
    }

    const std::string reason = FileObstacle(path, O_RDWR | O_CREAT);
    IniFile file;
    if (!reason.empty() || !file.Open(path.c_str())) {
        return Fail(path + " cannot be opened for reading and writing" + AndReason(reason));
    }
    ExportSettings(kPortCount, file, configuration);
    if (!file.Close()) {
        return Fail(path + " cannot be written");
    }
    problem = log.Take();
    return true;
}

}  // namespace vexil
