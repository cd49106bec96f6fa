// The assertion of the text type's two source files. Private to them. Stays on in every build type.
#pragma once

#include "shared/System/svLog.h"

namespace vexil {

// Stops the program with `conditionText` and the line of the call unless `holds`.
inline void CheckString(bool holds, const char* conditionText, unsigned line = __builtin_LINE()) {
    if (!holds) {
        [[unlikely]] AssertionFailed(kAssertionFormat, "shared/System/svString", line, conditionText);
    }
}

}  // namespace vexil
