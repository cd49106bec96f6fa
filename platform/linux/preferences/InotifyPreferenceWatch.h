// Watches the file of one domain by the folder that it is in, for a file that is replaced is another file;
// where a symbolic link stands at its place, also the folders that the link leads through. A folder that is
// missing is awaited in the nearest one that is there.
//
// One thread.
#pragma once

#include <map>
#include <set>
#include <string>

#include "config/PreferenceDomains.h"
#include "platform/linux/Paths.h"
#include "platform/linux/preferences/PreferenceWatch.h"
#include "shared/System/Descriptor.h"

namespace vexil {

class InotifyPreferenceWatch : public PreferenceWatch {
  public:
    // Failures are log lines.
    InotifyPreferenceWatch(const Paths& paths, const std::string& application, UserScope user);

    int EventDescriptor() const override { return inotify.Number(); }
    bool Take() override;

  private:
    // The names that count in each folder.
    using Places = std::map<std::string, std::set<std::string>>;

    Places FindPlaces() const;
    bool Follow();
    bool ReadEvents();
    bool Concerns(int watch, const std::string& name) const;

    std::string path;  // of the file; empty: no file is watched
    bool followsLinks = false;
    Descriptor inotify;
    Places places;                       // as they are watched
    std::map<int, std::string> folders;  // by watch
    bool hasFailed = false;
};

}  // namespace vexil
