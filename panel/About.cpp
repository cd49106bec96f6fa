// The About box, and behind the Command key the removal of the host list cache.
#include "panel/CtrlPanel.h"
#include "panel/RestartRequest.h"
#include "shared/System/Version.h"
#include "shared/System/svLog.h"

namespace vexil {

namespace {

constexpr const char* kCacheName = "Target computer list cache";

}  // namespace

void CtrlPanel::ShowAboutOrRemoveCache(bool remove) {
    if (remove) {
        RemoveCache();
    } else {
        ShowAbout();
    }
}

void CtrlPanel::ShowAbout() {
    desktop.ActivateWindow(false);
    svString text;
    text.Format("TonalBridge CP Version %d.%d build %d\n\n", kVersionMajor, kVersionMinor, kVersionBuild);
    Ask("About Vexil III MIDI Driver:", text.c_str(), nullptr, nullptr, "Ok", kAlertNote);
    desktop.ActivateWindow(true);
}

void CtrlPanel::RemoveCache() {
    svString text;
    text.Format("%s removal     \nrequires immediate reboot!\n\nProceed with cache removal now?", kCacheName);
    if (Ask("Cache Remove", text.c_str(), "Cancel", nullptr, "Ok", kAlertCaution) == kAlertOtherButton) {
        return;
    }
    preferences.RemoveCache();
    LogPrintf("%s has been removed.", kCacheName);  // no line end
    RequestSystemRestart(restarter, kAERestart);
}

}  // namespace vexil
