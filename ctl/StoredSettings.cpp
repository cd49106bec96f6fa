#include "ctl/StoredSettings.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "config/DriverPreferences.h"
#include "config/IniFile.h"
#include "config/SettingsFile.h"
#include "shared/System/Descriptor.h"

namespace vexil {

namespace {

constexpr UserScope kUser = UserScope::kCFPreferencesAnyUser;
constexpr HostScope kHost = HostScope::kCFPreferencesCurrentHost;

// Why a file cannot be opened, or "" where there is no reason that shows; `flags` as for open.
std::string Obstacle(const std::string& path, int flags) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        if (errno != ENOENT || (flags & O_CREAT) == 0)
            return std::strerror(errno);
        const std::size_t slash = path.rfind('/');
        const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
        return faccessat(AT_FDCWD, folder.c_str(), W_OK | X_OK, AT_EACCESS) == 0 ? "" : std::strerror(errno);
    }
    if (S_ISDIR(status.st_mode))
        return std::strerror(EISDIR);
    if (!S_ISREG(status.st_mode))
        return "it is no plain file";
    if (status.st_size > static_cast<off_t>(kMaxRewriteBytes))
        return "it is too large";
    // The file is there, so nothing is made even where the flags allow it.
    const Descriptor file(open(path.c_str(), (flags & ~O_CREAT) | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    return file.IsOpen() ? "" : std::strerror(errno);
}

std::string AndReason(const std::string& reason) {
    return reason.empty() ? "" : ": " + reason;
}

// Why the whole of a file cannot be read, or "". The line editor takes a fault of the disk for the end.
std::string ReadProblem(const std::string& path) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_NOCTTY | O_CLOEXEC));
    if (!file.IsOpen())
        return std::strerror(errno);
    std::array<char, 65536> buffer{};
    for (;;) {
        const ssize_t count = read(file.Number(), buffer.data(), buffer.size());
        if (count == 0)
            return "";
        if (count == -1 && errno != EINTR)
            return std::strerror(errno);
    }
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
    if (lines.empty())
        DriverPreferences(batch).LoadConfiguration(kPortCount, configuration);
    if (lines.empty() && !batch.HasFailed())
        return true;
    problem = "the stored configuration cannot be read\n" + lines + log.Take();
    return false;
}

bool StoredSettings::Fail(const std::string& what) {
    problem = what + "\n" + log.Take();
    return false;
}

StoredSettings::Outcome StoredSettings::Load(const std::string& path) {
    problem.clear();
    log.Take();
    // Asked first, since opening a file for editing makes one where there is none.
    std::string reason = Obstacle(path, O_RDWR);
    IniFile file;
    if (!reason.empty() || !file.Open(path.c_str())) {
        Fail(path + " cannot be opened for reading and writing" + AndReason(reason));
        return Outcome::Failed;
    }
    reason = ReadProblem(path);
    if (!reason.empty()) {
        Fail(path + " cannot be read: " + reason);
        return Outcome::Failed;
    }
    if (HoldsZeroBytes(file) || !HoldsSettings(file)) {
        Fail(path + " is no settings file");
        return Outcome::Failed;
    }

    PreferenceBatch batch(domains);
    DriverConfiguration configuration;
    if (!ReadStored(batch, configuration))
        return Outcome::Failed;
    ImportSettings(kPortCount, file, configuration);
    file.Close();  // nothing was edited, so nothing is written
    const bool admissible = IsAdmissible(configuration);
    if (!admissible)
        configuration.OutputPorts = 1;

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
    if (!ReadStored(batch, configuration))
        return false;

    const std::string reason = Obstacle(path, O_RDWR | O_CREAT);
    IniFile file;
    if (!reason.empty() || !file.Open(path.c_str()))
        return Fail(path + " cannot be opened for reading and writing" + AndReason(reason));
    ExportSettings(kPortCount, file, configuration);
    if (!file.Close())
        return Fail(path + " cannot be written");
    problem = log.Take();
    return true;
}

}  // namespace vexil
