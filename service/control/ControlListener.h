// The socket of the control channel: where panels and the command line connect to. One service serves it; a
// lock file beside it, held for the service's life, tells a living service from one that has died and left
// its socket behind.
#pragma once

#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>

#include "platform/linux/Paths.h"
#include "shared/System/Descriptor.h"

namespace vexil {

class ControlListener {
  public:
    // Takes the socket that the service manager has opened for this process (LISTEN_FDS), else makes one in
    // the folder of `paths`: for a user's own service folder 0700 (made when missing) and socket 0600, for a
    // system-wide one socket 0660 with the folder's group. The socket of a service that has died is replaced.
    // Null, with a sentence for the user in `problem`, when another service serves it or it cannot be had.
    static std::unique_ptr<ControlListener> Open(const Paths& paths, std::string& problem);

    // Removes the socket file, unless the service manager owns it or it is no longer this listener's.
    ~ControlListener();
    ControlListener(const ControlListener&) = delete;
    ControlListener& operator=(const ControlListener&) = delete;

    // Listening, non-blocking.
    int Socket() const { return socket.Number(); }
    const std::string& Path() const { return path; }
    // The group whose members may connect besides root and this process's user; null for a user's own
    // service.
    std::optional<gid_t> Group() const { return group; }

  private:
    ControlListener() = default;

    bool Adopt(int inherited, const Paths& paths, std::string& problem);
    bool Make(const Paths& paths, std::string& problem);
    bool Lock(const std::string& folder, std::string& problem);
    bool RemoveStaleSocket(std::string& problem) const;
    bool Bind(bool systemWide, std::string& problem);

    Descriptor lock;
    Descriptor socket;
    std::string path;
    std::optional<gid_t> group;
    bool ownsFile = false;  // the file with the two numbers below is to be removed at the end
    dev_t fileDevice = 0;
    ino_t fileNumber = 0;
};

}  // namespace vexil
