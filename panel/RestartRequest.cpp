#include "panel/RestartRequest.h"

#include "shared/System/svLog.h"

namespace vexil {

void RequestSystemRestart(Restarter& restarter, std::uint32_t eventId) {
    std::int32_t status = restarter.MakeAddress();
    if (status != 0) {
        LogPrintf("AECreateDesc error %d\n", status);
        return;
    }
    status = restarter.MakeEvent(eventId);
    if (status != 0) {
        LogPrintf("AECreateAppleEvent error %d\n", status);
        return;
    }
    status = restarter.SendEvent();
    if (status != 0) {
        LogPrintf("AECreateAppleEvent error %d\n", status);  // a failed send has no line of its own
    }
}

}  // namespace vexil
