#include "platform/qt/FocusKeeper.h"

#include <QApplication>
#include <QGuiApplication>
#include <QWindow>

namespace vexil {

FocusKeeper::FocusKeeper(QWidget* questionsWindow)
    : window(questionsWindow), focused(window == nullptr ? nullptr : window->focusWidget()) {}

FocusKeeper::~FocusKeeper() {
    if (!window || !window->isVisible()) {
        return;
    }
    // Behind keys that an input method has held back the toolkit may know that the display has given the
    // keyboard to this window, and still not make it the active one: nothing in it shows that or tells
    // assistive technology of it.
    if (QGuiApplication::focusWindow() == window->windowHandle()) {
        QApplication::setActiveWindow(window);
    } else {
        window->activateWindow();
    }
    if (focused) {
        focused->setFocus(Qt::ActiveWindowFocusReason);
    }
}

}  // namespace vexil
