#include "ctl/CollectedLog.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>

#include "shared/System/svLog.h"

namespace vexil {

CollectedLog::CollectedLog() : memory(memfd_create("vexil3ctl log", MFD_CLOEXEC)) {
    const std::string path = "/proc/self/fd/" + std::to_string(memory);
    OpenLog(nullptr, nullptr, kLogAppend, path.c_str());
    Take();  // the log's own header
}

std::string CollectedLog::Take() {
    const off_t end = std::max(lseek(memory, 0, SEEK_END), taken);
    std::string text(static_cast<std::size_t>(end - taken), '\0');
    const ssize_t got = pread(memory, text.data(), text.size(), taken);
    text.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
    taken += static_cast<off_t>(text.size());
    // A line that was cut at the log's longest has lost its end.
    if (!text.empty() && text.back() != '\n') {
        text += '\n';
    }
    return text;
}

}  // namespace vexil
