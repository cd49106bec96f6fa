// One stored domain: a property list in a file, as this program last saw it, and the changes since. Re-read
// only when the file has changed; written only when a value has.
//
// A symbolic link in the user's own folder is followed: the file that it leads to is read, replaced, and set
// aside when it is damaged. The lock is beside the link. A link that must not be followed (LinkedFile.h) is
// left alone; the domain then reads as empty and cannot be written.
#pragma once

#include <sys/stat.h>

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "config/PropertyValue.h"
#include "platform/linux/preferences/DurableFile.h"
#include "platform/linux/preferences/FileReading.h"
#include "platform/linux/preferences/LinkedFile.h"
#include "platform/linux/preferences/PropertyList.h"

namespace vexil {

// Where a domain's file is.
struct DomainPlace {
    std::string folder;       // empty: nowhere, so nothing can be stored
    bool systemWide = false;  // an installation's folder: not made here, its files are for the folder's group
    std::string name;         // the file's
    bool keptAsItIs = false;  // a damaged file is only logged: it is not set aside, and there is no lock
};

// A file that cannot be parsed may be one that another program is writing in place. It is damaged when it
// still cannot kSettleTime later; what happens until then:
enum class Unparsable {
    Wait,     // is waited for
    GoOnWith  // the values that were read before count on; see DomainFile::LookAgainIn
};
inline constexpr std::chrono::milliseconds kSettleTime{250};

class DomainFile {
  public:
    using Report = std::function<void(const std::string& line)>;
    using Clock = std::chrono::steady_clock;

    // `report` takes the lines for the log, without line end.
    DomainFile(DomainPlace domainPlace, const DurabilityCalls& durabilityCalls, Unparsable whileUnparsable,
               Report reporter);

    // As PreferenceDomains has them.
    PropertyRef CopyValue(const std::string& key);
    void SetValue(const std::string& key, PropertyRef value);
    bool Synchronize();

    // Unparsable::GoOnWith: the time until the domain is to be synchronised again, because its file could not
    // be parsed the last time; none when it could. Meanwhile it cannot be written.
    std::optional<std::chrono::milliseconds> LookAgainIn() const;

  private:
    enum class Content { Read, Changing, Unparsable, Bad, Failed };

    bool Refresh();
    bool TakeMissing(const LinkedFile& file);
    bool TakeBad(const struct stat& status, const std::string& problem);
    bool MaySettle();
    Content Load(const struct stat& status, std::string& problem);
    void Take(PropertyList list, const FileIdentity& identity);
    FileResult Lock(bool makeFolder);
    void Unlock();
    FileResult OpenFileFolder();
    void LeaveBadFile(const std::string& problem, const FileIdentity& identity, const std::string& line);
    void SetBadFileAside(const std::string& problem, const FileIdentity& identity, FileResult obstacle);
    bool TrySetAside(const std::string& problem, FileResult& failure);
    void DropUnchanged();
    bool Write();
    bool Store(const PropertyList::Change& change);
    FileAccess AccessOfNewFile(bool keepExisting) const;
    bool Fail(const char* task, const FileFailure& failure);

    DomainPlace place;
    std::string path;  // of the file itself, where links lead
    const DurabilityCalls& calls;
    Unparsable unparsable;
    Report report;

    PropertyList stored;
    std::map<std::string, PropertyRef> pending;  // null: to be removed
    std::optional<FileIdentity> seen;            // the state that `stored` was read from; null: not trusted
    Descriptor seenFile;                         // keeps the inode of `seen` from being used again
    bool readOnce = false;
    // What is at the file's place is bad and cannot be set aside: reads as empty and cannot be written.
    bool blocked = false;
    bool mayBeSetAside = false;  // a blocked one, once the obstacle is gone
    std::string blockedProblem;
    std::optional<Clock::time_point> unparsableSince;
    std::optional<Clock::time_point> lookAgainAt;
    bool lockTimedOut = false;  // so the next attempts do not wait again
    // These three only within one operation.
    Descriptor folder;      // of the lock
    Descriptor fileFolder;  // of the file itself
    Descriptor lock;
};

}  // namespace vexil
