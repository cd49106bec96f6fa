#include "service/backends/RuntimeState.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "shared/System/Descriptor.h"
#include "shared/System/svLog.h"

namespace vexil {

namespace {

constexpr const char* kMark = "vexil3d.running";

}  // namespace

RuntimeState::RuntimeState(std::string stateFolder) : folder(std::move(stateFolder)) {
    const std::string mark = PathOf(kMark);
    const Descriptor made(::open(mark.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!made.IsOpen() && errno == EEXIST) {
        wasUnclean = true;
    } else if (!made.IsOpen()) {
        LogPrintf("Cannot make %s: %s.\n", mark.c_str(), std::strerror(errno));
    }
}

std::string RuntimeState::PathOf(const std::string& name) const {
    return folder.empty() ? "" : folder + "/" + name;
}

void RuntimeState::EndCleanly() const {
    if (!folder.empty()) {
        // A mark that stays makes the next service careful, no more.
        static_cast<void>(::unlink(PathOf(kMark).c_str()));
    }
}

}  // namespace vexil
