// What one service leaves to the next until the computer is switched off: a folder, and whether its last
// service ended as it should. A service that was killed has released nothing: its readers' notes sound on.
//
// The mark of a running service is a file; it is made when the service starts and removed at its clean end.
#pragma once

#include <string>

namespace vexil {

class RuntimeState {
  public:
    // Remembers nothing.
    RuntimeState() = default;
    // Marks the service as running in `stateFolder`, which is there. A mark that cannot be made is told of in
    // the log.
    explicit RuntimeState(std::string stateFolder);

    // The last service has left its mark.
    bool LastEndWasUnclean() const { return wasUnclean; }
    // The path of a file of that name; empty where nothing is remembered.
    std::string PathOf(const std::string& name) const;
    // Everything that sounded has been released.
    void EndCleanly() const;

  private:
    std::string folder;
    bool wasUnclean = false;
};

}  // namespace vexil
