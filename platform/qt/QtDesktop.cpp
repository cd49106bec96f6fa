#include "platform/qt/QtDesktop.h"

#include <utility>

#include <QAccessible>
#include <QApplication>
#include <QDialog>
#include <QEventLoop>
#include <QScreen>
#include <QSessionManager>
#include <QWidget>

#include "platform/qt/ComeToFront.h"
#include "platform/qt/QtWidgets.h"

namespace vexil {

namespace {

// Drops what a person did, and lets everything else pass.
class InputSink : public QObject {
  protected:
    bool eventFilter(QObject* /*watched*/, QEvent* event) override {
        switch (event->type()) {
            case QEvent::MouseButtonPress:
            case QEvent::MouseButtonRelease:
            case QEvent::MouseButtonDblClick:
            case QEvent::Wheel:
            case QEvent::KeyPress:
            case QEvent::KeyRelease:
            case QEvent::Shortcut:
            case QEvent::ShortcutOverride:
            case QEvent::InputMethod:
            case QEvent::ContextMenu:
            case QEvent::TouchBegin:
            case QEvent::TouchUpdate:
            case QEvent::TouchEnd:
            case QEvent::TabletPress:
            case QEvent::TabletRelease:
                return true;
            default:
                return false;
        }
    }
};

QSize DisplaySize() {
    const QScreen* const screen = QGuiApplication::primaryScreen();
    return screen == nullptr ? QSize() : screen->size();
}

}  // namespace

QtDesktop::QtDesktop(QtWidgets& qtWidgets) : widgets(qtWidgets) {
#if QT_CONFIG(accessibility)
    // The application's own event loop, which is not used, would do this.
    QAccessible::setRootObject(qApp);
#endif
#if QT_CONFIG(sessionmanager)
    QObject::connect(
        qApp, &QGuiApplication::commitDataRequest, &sessionEnd,
        [this](QSessionManager& manager) { EndSession(manager); }, Qt::DirectConnection);
#endif
}

int QtDesktop::DisplayWidth() const {
    return DisplaySize().width();
}

int QtDesktop::DisplayHeight() const {
    return DisplaySize().height();
}

void QtDesktop::RunEventLoop() {
    loopEnded = false;
    QEventLoop running;
    QEventLoop* const outer = std::exchange(loop, &running);
    running.exec();
    loop = outer;
}

void QtDesktop::EndEventLoop() {
    if (mayEnd && !mayEnd()) {
        return;
    }
    widgets.EndPresses();
    loopEnded = true;
    if (loop != nullptr) {
        loop->exit();
    }
}

void QtDesktop::FlushEvents() {
    InputSink sink;
    qApp->installEventFilter(&sink);
    QApplication::processEvents();
    qApp->removeEventFilter(&sink);
}

void QtDesktop::SetDialogBackground() {
    if (QWidget* window = widgets.Window()) {
        window->setBackgroundRole(QPalette::Window);
        window->update();
    }
}

void QtDesktop::ShowWindow() {
    if (QWidget* window = widgets.Window()) {
        if (windowShown) {
            windowShown();
        }
        window->show();
    }
}

void QtDesktop::HideWindow() {
    if (QWidget* window = widgets.Window()) {
        window->hide();
    }
}

// Deactivation needs nothing: it goes with the question that is about to be shown.
void QtDesktop::ActivateWindow(bool active) {
    QWidget* window = widgets.Window();
    if (window == nullptr || !active) {
        return;
    }
    window->raise();
    window->activateWindow();
}

void QtDesktop::RequestClose() {
    QWidget* window = widgets.Window();
    if (window == nullptr) {
        return;
    }
    auto* question = qobject_cast<QDialog*>(QApplication::activeModalWidget());
    if (question == nullptr) {
        window->close();
        return;
    }
    if (widgets.IsClosing() || loopEnded) {
        return;  // answered by that question
    }
    if (std::exchange(closePending, true)) {
        return;  // comes with the one before
    }
    QObject::connect(
        question, &QDialog::finished, window,
        [this] {
            closePending = false;
            RequestClose();
        },
        Qt::QueuedConnection);
}

// Whether there is something to apply is what the button shows. A question that is open already has its
// answer only later, so the session goes on until then too.
void QtDesktop::EndSession([[maybe_unused]] QSessionManager& manager) {
#if QT_CONFIG(sessionmanager)
    if (!widgets.IsEnabled(kApply) || !manager.allowsInteraction()) {
        return;
    }
    loopEnded = false;
    RequestClose();
    if (loopEnded) {
        manager.release();
    } else {
        manager.cancel();
    }
#endif
}

bool QtDesktop::BringToFront(const std::string& startupId, const std::string& activationToken) {
    QWidget* window = widgets.Window();
    if (window == nullptr || !window->isVisible()) {
        return false;
    }
    // A question is always above its window and has the keyboard while it is open. The desktop's own file
    // chooser is no window of this program, and is above this one nevertheless.
    QWidget* question = QApplication::activeModalWidget();
    if (question != nullptr && !question->testAttribute(Qt::WA_DontShowOnScreen)) {
        window = question;
    }
    ComeToFront(*window, startupId, activationToken);
    return true;
}

}  // namespace vexil
