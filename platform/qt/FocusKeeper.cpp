#include "platform/qt/FocusKeeper.h"

namespace vexil {

FocusKeeper::FocusKeeper(QWidget* questionsWindow)
    : window(questionsWindow), focused(window == nullptr ? nullptr : window->focusWidget()) {}

FocusKeeper::~FocusKeeper() {
    if (!window || !window->isVisible())
        return;
    window->activateWindow();
    if (focused)
        focused->setFocus(Qt::ActiveWindowFocusReason);
}

}  // namespace vexil
