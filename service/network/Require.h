// The assertion of this room: for bugs, on in every build.
#pragma once

#include <source_location>

#include "shared/System/svLog.h"

namespace vexil {

// Ends the process when it does not hold. `what` is the text of what ought to.
inline void Require(bool holds, const char* what,
                    const std::source_location where = std::source_location::current()) {
    if (!holds) {
        AssertionFailed(kAssertionFormat, where.file_name(), where.line(), what);
    }
}

}  // namespace vexil
