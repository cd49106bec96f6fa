// The version of the programs. CMakeLists.txt of the root states it, once for all of them.
#pragma once

namespace vexil {

extern const char* const kVersion;  // "MAJOR.MINOR.BUILD"
extern const int kVersionMajor;
extern const int kVersionMinor;
extern const int kVersionBuild;

}  // namespace vexil
