// The key of this computer, and what is stored beside it (NetworkSettings), in files that this user alone
// reads (mode 0600): "HOST-ID.key" and "HOST-ID.network". A home that several computers share holds a key for
// each.
//
// A key names the machine id that it was made for; on a computer with another one a new key is made. A file
// that is damaged is set aside under another name (DurableFile.h says which), and what it held begins anew;
// the network is then off. Each is told in a line.
//
// Files are replaced whole: what could not be written leaves the old file, and the old values, as they were.
// One thread. One program at a time writes; it waits at most 2 s for another.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "platform/linux/preferences/DurableFile.h"
#include "service/network/NetworkSettings.h"

namespace vexil {

struct KeyPlace {
    std::string folder;     // Paths::network; empty: nowhere, so nothing is stored
    std::string hostId;     // Paths::hostId
    std::string machineId;  // Paths::machineId; empty: the computer has none
};

class KeyStore {
  public:
    // Each line is for the log.
    using Report = std::function<void(const std::string& line)>;

    // Reads the settings.
    KeyStore(KeyPlace where, Report told, const DurabilityCalls& with = SystemDurabilityCalls());

    // Null when the key cannot be read, though it is there, or the system has no randomness to make one:
    // then there is no network. A key that could not be stored counts until this program ends.
    // Read when it is first asked for, and made then where the store has no key: a driver that does not speak
    // to the network writes nothing.
    const std::optional<LinkKey>& Key();
    // Replaces the key by a new one. False when it could not be stored: the old one stays.
    bool MakeNewKey();

    const NetworkSettings& Settings() const { return settings; }
    // False when they could not be stored: the old ones stay, also here.
    bool Save(const NetworkSettings& changed);

  private:
    enum class Read : std::uint8_t { Whole, Missing, Failed };

    std::string KeyName() const { return place.hostId + ".key"; }
    std::string SettingsName() const { return place.hostId + ".network"; }
    Read ReadText(const std::string& name, std::string& text);
    void SetFileAside(const std::string& name, const std::string& why);
    bool Write(const std::string& name, std::string_view text);
    void LoadKey();
    void LoadSettings();

    KeyPlace place;
    Report report;
    DurabilityCalls calls;
    std::optional<LinkKey> key;
    bool keyWasRead = false;
    NetworkSettings settings;
    bool settingsUnread = false;  // they are there and cannot be read
};

}  // namespace vexil
