#include "panel/PanelEvent.h"

#include "panel/ControlTable.h"

namespace vexil {

namespace {

bool IsKey(EventKind kind) {
    return kind == EventKind::RawKeyDown || kind == EventKind::RawKeyRepeat;
}

// The event kinds that a control's own handler is attached for.
bool IsForControl(EventKind kind) {
    return kind == EventKind::ControlHit || kind == EventKind::ListItemSelected || IsKey(kind);
}

std::int32_t DeliverToControl(PanelHandlers& handlers, const PanelEvent& event, const NextHandler& next) {
    switch (event.control) {
        case kPortList:
            return handlers.PortListKeyHandler(event, next);
        case kInputName:
        case kOutputName:
            return handlers.EditTextHandler(event, next);
        case kSourceComputer:
        case kTargetComputer:
            return handlers.ComboBoxHandler(event, next);
        default:
            return kEventNotHandledErr;
    }
}

}  // namespace

std::int32_t DeliverEvent(PanelHandlers& handlers, const PanelEvent& event, const NextHandler& next) {
    bool nextRan = false;
    std::int32_t nextStatus = kNoErr;
    const NextHandler nextOnce = [&] {
        if (!nextRan) {
            nextRan = true;
            nextStatus = next();
        }
        return nextStatus;
    };

    std::int32_t status = kEventNotHandledErr;
    if (IsForControl(event.kind)) {
        status = DeliverToControl(handlers, event, nextOnce);
    }
    const bool isForWindow = !IsKey(event.kind) && event.kind != EventKind::ListItemSelected;
    if (status == kEventNotHandledErr && isForWindow) {
        status = handlers.WindowEventHandler(event, nextOnce);
    }
    return status == kEventNotHandledErr ? nextOnce() : status;
}

}  // namespace vexil
