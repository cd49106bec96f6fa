#include "shared/System/Version.h"

namespace vexil {

const char* const kVersion = VEXIL_VERSION;
const int kVersionMajor = VEXIL_VERSION_MAJOR;
const int kVersionMinor = VEXIL_VERSION_MINOR;
const int kVersionBuild = VEXIL_VERSION_BUILD;

}  // namespace vexil
