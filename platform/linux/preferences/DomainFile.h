// One stored domain: a property list in a file, as this program last saw it, and the changes since. Re-read
// only when the file has changed; written only when a value has.
#pragma once

#include <sys/stat.h>

#include <functional>
#include <map>
#include <optional>
#include <string>

#include "config/PropertyValue.h"
#include "platform/linux/preferences/DurableFile.h"
#include "platform/linux/preferences/PropertyList.h"

namespace vexil {

// Where a domain's file is.
struct DomainPlace {
    std::string folder;       // empty: nowhere, so nothing can be stored
    bool systemWide = false;  // an installation's folder: not made here, its files are for the folder's group
    std::string name;         // the file's
};

class DomainFile {
  public:
    using Report = std::function<void(const std::string& line)>;

    // `report` takes the lines for the log, without line end.
    DomainFile(DomainPlace domainPlace, const DurabilityCalls& durabilityCalls, Report reporter);

    // As PreferenceDomains has them.
    PropertyRef CopyValue(const std::string& key);
    void SetValue(const std::string& key, PropertyRef value);
    bool Synchronize();

  private:
    // Tells one state of the file from another. A file that is replaced differs in its inode, because the one
    // that was read is kept open; one that is rewritten in place, in its times.
    struct Identity {
        bool exists = false;
        dev_t device = 0;
        ino_t inode = 0;
        off_t size = 0;
        timespec modified{};
        timespec changed{};
        bool operator==(const Identity& other) const;
    };
    enum class Content { Read, Missing, Bad, Failed };

    static Identity IdentityOf(const struct stat& status);
    bool Refresh();
    Content Read(const struct stat& status, std::string& text, std::string& problem);
    Content Load(const struct stat& status, std::string& problem);
    void Take(PropertyList list, const Identity& identity);
    FileResult Lock(bool makeFolder);
    void Unlock();
    void SetBadFileAside(const std::string& problem, const Identity& identity, FileResult obstacle);
    bool TrySetAside(const std::string& problem, FileResult& failure);
    void DropUnchanged();
    bool Write();
    bool Store(const PropertyList::Change& change);
    FileAccess AccessOfNewFile(bool keepExisting) const;
    bool Fail(const char* task, const FileFailure& failure);

    DomainPlace place;
    std::string path;
    const DurabilityCalls& calls;
    Report report;

    PropertyList stored;
    std::map<std::string, PropertyRef> pending;  // none: to be removed
    std::optional<Identity> seen;                // the state that `stored` was read from; none: not trusted
    Descriptor seenFile;                         // keeps the inode of `seen` from being used again
    bool readOnce = false;
    // What is at the file's place is bad and cannot be set aside: reads as empty and cannot be written.
    bool blocked = false;
    std::string blockedProblem;
    bool lockTimedOut = false;  // so the next attempts do not wait again
    Descriptor folder;          // these two only within one operation
    Descriptor lock;
};

}  // namespace vexil
