// The lines that the rooms below write to the log, kept in memory: a command tells the reasons of its failure
// itself, whole and behind its own message. The log is one for a process, so this is made once, before
// anything else.
#pragma once

#include <sys/types.h>

#include <string>

namespace vexil {

class CollectedLog {
  public:
    // Without memory for it the lines go to standard output, as the log has it.
    CollectedLog();
    // Leaves the descriptor to the log, which has no end of its own before that of the process.
    ~CollectedLog() = default;
    CollectedLog(const CollectedLog&) = delete;
    CollectedLog& operator=(const CollectedLog&) = delete;

    // What was written since the last call; each line ends with a line feed.
    std::string Take();

  private:
    int memory;
    off_t taken = 0;  // bytes
};

}  // namespace vexil
