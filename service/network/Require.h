// The assertion of this room: for bugs, on in every build.
#pragma once

#include "shared/System/svLog.h"

namespace vexil {

// Ends the process when it does not hold. `what` is the text of what ought to; file and line are the
// caller's.
inline void Require(bool holds, const char* what, const char* file = __builtin_FILE(),
                    unsigned line = __builtin_LINE()) {
    if (!holds) {
        AssertionFailed(kAssertionFormat, file, line, what);
    }
}

}  // namespace vexil
