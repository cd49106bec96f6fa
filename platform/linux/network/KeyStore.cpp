#include "platform/linux/network/KeyStore.h"

#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <system_error>
#include <utility>

#include "platform/linux/preferences/FileReading.h"
#include "shared/System/Descriptor.h"

namespace vexil {

namespace {

constexpr std::size_t kLongestFile = 2U << 20;
constexpr std::chrono::milliseconds kLockPatience{2000};
constexpr int kReadings = 10;  // at a file that is replaced while it is read

std::string Sentence(const FileFailure& failure) {
    return std::string(failure.operation) + ": " +
           std::error_code(failure.error, std::generic_category()).message();
}

}  // namespace

KeyStore::KeyStore(KeyPlace where, Report told, const DurabilityCalls& with)
    : place(std::move(where)), report(std::move(told)), calls(with) {
    LoadSettings();
}

const std::optional<LinkKey>& KeyStore::Key() {
    if (!std::exchange(keyWasRead, true)) {
        LoadKey();
    }
    return key;
}

KeyStore::Read KeyStore::ReadText(const std::string& name, std::string& text) {
    if (place.folder.empty()) {
        return Read::Missing;
    }
    const std::string path = place.folder + "/" + name;
    for (int attempt = 0; attempt < kReadings; ++attempt) {
        struct stat status {};
        if (lstat(path.c_str(), &status) != 0) {
            if (errno == ENOENT || errno == ENOTDIR) {
                return Read::Missing;
            }
            report("Cannot read " + path + ": " + Sentence({"lstat", errno}));
            return Read::Failed;
        }
        FileReading reading = ReadFile(path, status, kLongestFile);
        switch (reading.result) {
            case FileReading::Result::Read:
                if ((status.st_mode & 077U) != 0 && fchmod(reading.file.Number(), 0600) == 0) {
                    report("Others could read " + path + ": it is this user's alone again");
                }
                text = std::move(reading.bytes);
                return Read::Whole;
            case FileReading::Result::Changing:
                continue;
            case FileReading::Result::Bad:
                SetFileAside(name, reading.problem);
                return Read::Missing;
            case FileReading::Result::Failed:
                report("Cannot read " + path + ": " + Sentence(reading.failure));
                return Read::Failed;
        }
    }
    report("Cannot read " + path + ": it changes all the time");
    return Read::Failed;
}

void KeyStore::SetFileAside(const std::string& name, const std::string& why) {
    Descriptor folder;
    Descriptor lock;
    std::string newName;
    FileResult failure = OpenFolder(place.folder, false, calls, folder);
    if (!failure) {
        failure = TakeLock(folder, place.hostId + ".lock", FileAccess(), kLockPatience, lock);
    }
    if (!failure) {
        failure = SetAside(folder, name, newName);
    }
    const std::string path = place.folder + "/" + name;
    report(failure ? "Cannot set " + path + " aside (" + why + "): " + Sentence(*failure)
                   : "Set aside " + path + " as " + newName + ": " + why);
}

bool KeyStore::Write(const std::string& name, std::string_view text) {
    const std::string path = place.folder + "/" + name;
    if (place.folder.empty()) {
        report("Cannot store " + name + ": this user has no home");
        return false;
    }
    Descriptor folder;
    Descriptor lock;
    Descriptor file;
    FileResult failure = OpenFolder(place.folder, true, calls, folder);
    if (!failure) {
        failure = TakeLock(folder, place.hostId + ".lock", FileAccess(), kLockPatience, lock);
    }
    if (!failure) {
        failure = ReplaceFile(folder, name, text, FileAccess(), calls, file);
    }
    if (failure) {
        report("Cannot store " + path + ": " + Sentence(*failure));
    }
    return !failure;
}

void KeyStore::LoadKey() {
    std::string text;
    const Read read = ReadText(KeyName(), text);
    if (read == Read::Failed) {
        return;
    }
    if (read == Read::Whole) {
        const std::optional<KeyFile> file = ReadKeyFile(text);
        std::optional<LinkKey> stored = file ? LinkKey::FromPem(file->pem) : std::nullopt;
        if (stored && file->machine == place.machineId) {
            key = std::move(stored);
            return;
        }
        SetFileAside(KeyName(), stored ? "the key was made for another computer" : "the key is damaged");
    }
    key = LinkKey::Make();
    if (!key) {
        report("Cannot make a key for the network: the system has no randomness to give");
        return;
    }
    if (Write(KeyName(), WriteKeyFile({place.machineId, key->Pem()}))) {
        report("Made a new key for the network: " + ShortKeyText(key->Hash()));
    } else {
        report("The new key for the network counts until this program ends: " + ShortKeyText(key->Hash()));
    }
}

void KeyStore::LoadSettings() {
    std::string text;
    const Read read = ReadText(SettingsName(), text);
    settingsUnread = read == Read::Failed;
    if (read != Read::Whole) {
        return;
    }
    if (std::optional<NetworkSettings> stored = ReadNetworkSettings(text)) {
        settings = std::move(*stored);
    } else {
        SetFileAside(SettingsName(), "it is damaged; the network is off and nobody is known");
    }
}

bool KeyStore::MakeNewKey() {
    std::optional<LinkKey> made = LinkKey::Make();
    if (!made) {
        report("Cannot make a key for the network: the system has no randomness to give");
        return false;
    }
    if (!Write(KeyName(), WriteKeyFile({place.machineId, made->Pem()}))) {
        return false;
    }
    key = std::move(made);
    keyWasRead = true;
    report("Made a new key for the network: " + ShortKeyText(key->Hash()));
    return true;
}

bool KeyStore::Save(const NetworkSettings& changed) {
    if (changed == settings && !settingsUnread) {
        return true;
    }
    if (settingsUnread) {
        report("Cannot store " + place.folder + "/" + SettingsName() + ": what is there cannot be read");
        return false;
    }
    if (!Write(SettingsName(), WriteNetworkSettings(changed))) {
        return false;
    }
    settings = changed;
    return true;
}

}  // namespace vexil
