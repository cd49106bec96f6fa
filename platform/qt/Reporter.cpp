#include "platform/qt/Reporter.h"

#include <utility>

#include <QGuiApplication>

namespace vexil {

Reporter::Reporter(int controlNumber, PanelHandlers& panelHandlers)
    : control(controlNumber), handlers(&panelHandlers) {}

std::int32_t Reporter::Deliver(PanelEvent event, const NextHandler& next) const {
    event.control = control;
    return DeliverEvent(*handlers, event, next);
}

void Reporter::Hit() const {
    PanelEvent event{EventKind::ControlHit};
    event.modifiers = PanelModifiers(QGuiApplication::keyboardModifiers());
    Deliver(event, NothingNext);
}

std::int32_t NothingNext() {
    return kNoErr;
}

std::uint32_t PanelModifiers(Qt::KeyboardModifiers modifiers) {
    return modifiers & (Qt::ControlModifier | Qt::MetaModifier) ? kCommandKey : 0;
}

}  // namespace vexil
