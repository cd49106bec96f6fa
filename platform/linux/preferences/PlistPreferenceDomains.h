// Preferences in property-list files, one for each domain, user scope and host: DOMAIN.HOSTID.plist, in XML;
// files in the binary form are read as well. Any property-list tool may change them while the program runs.
//
// A write takes up what the file holds by then, changes the keys that were set here and no other, and is
// permanent when Synchronize returns true. A file that is damaged, too large or too deep, or no regular file,
// is renamed beside its place, never overwritten, and the domain is empty from then on; one of the older
// driver domain stays as it is. Damaged is a file that cannot be parsed now and 250 ms later: another program
// may be writing it in place. Every failure is one line in the log; a line that comes before the log is open
// waits for it.
//
// One thread.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "config/PreferenceDomains.h"
#include "platform/linux/Paths.h"
#include "platform/linux/preferences/DomainFile.h"
#include "platform/linux/preferences/DurableFile.h"

namespace vexil {

// Where the file of a domain is.
DomainPlace PlaceOfDomain(const Paths& paths, const std::string& application, UserScope user);

class PlistPreferenceDomains : public PreferenceDomains {
  public:
    explicit PlistPreferenceDomains(const Paths& folders,
                                    const DurabilityCalls& durabilityCalls = SystemDurabilityCalls(),
                                    Unparsable whileUnparsable = Unparsable::Wait);

    // The time until a domain is to be synchronised again because its file could not be parsed the last time;
    // none: all could. Only with Unparsable::GoOnWith, where nothing waits.
    std::optional<std::chrono::milliseconds> LookAgainIn() const;

    PropertyRef CopyValue(const std::string& key, const std::string& application, UserScope user,
                          HostScope host) override;
    void SetValue(const std::string& key, PropertyRef value, const std::string& application, UserScope user,
                  HostScope host) override;
    bool Synchronize(const std::string& application, UserScope user, HostScope host) override;

    // `take` may take a line, without line end, that would go to the log; true when it has.
    void SetTakeLine(std::function<bool(const std::string& line)> take) { takeLine = std::move(take); }
    // A line for the log; it waits until the log is open.
    void WriteLine(const std::string& text);

  private:
    DomainFile& File(const std::string& application, UserScope user);
    void WriteWaitingLines();

    Paths paths;
    DurabilityCalls calls;
    Unparsable unparsable;
    std::function<bool(const std::string& line)> takeLine;
    std::map<std::pair<std::string, UserScope>, DomainFile> files;
    std::vector<std::string> waitingLines;
};

}  // namespace vexil
