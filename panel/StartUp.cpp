#include "panel/StartUp.h"

#include "config/DriverPreferences.h"
#include "shared/System/Version.h"
#include "shared/System/svLog.h"
#include "shared/System/svModule.h"

namespace vexil {

namespace {

constexpr const char* kDisplayName = "Vexil III";
constexpr const char* kModuleVersion = "3";
constexpr const char* kLogPrefix = "CtrlPanel: ";
constexpr const char* kLogFile = "/Library/Logs/vexil3.log";

}  // namespace

int RunPanel(const char* executablePath, const PanelPlatform& platform) {
    // A path whose folders cannot be walked is no reason not to run: the names are set either way.
    svModule::Initialise(executablePath, kDisplayName, kModuleVersion);
    const bool logging = DriverPreferences(platform.preferences).GetLoggingOption();
    svString version;
    version.Format("Ver %s", kVersion);
    OpenLog(kLogPrefix, version.c_str(), logging ? kLogAppend : kLogDisabled, kLogFile);
    return RunUserInterface(platform);
}

}  // namespace vexil
