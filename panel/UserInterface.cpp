// One run of the user interface, and its exit status.
#include <memory>
#include <new>

#include "panel/CtrlPanel.h"
#include "panel/StartUp.h"
#include "shared/System/svLog.h"

namespace vexil {

namespace {

constexpr int kNoPanel = -1;

}  // namespace

int RunUserInterface(const PanelPlatform& platform) {
    const std::unique_ptr<CtrlPanel> panel(new (std::nothrow) CtrlPanel(platform));
    if (!panel) {
        LogPrintf("Cannot create user interface.\n");
        return kNoPanel;
    }
    const std::int32_t status = panel->UiStatus();
    if (status != kNoErr) {
        LogPrintf("Cannot initialize user interface; error %d.\n", status);
        return status;
    }
    panel->Run();
    return 0;
}

}  // namespace vexil
