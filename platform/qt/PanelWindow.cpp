#include "platform/qt/PanelWindow.h"

#include <utility>

#include <QApplication>
#include <QCloseEvent>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFile>
#include <QFont>
#include <QInputMethod>
#include <QMimeData>
#include <QPainter>
#include <QShortcut>

#include "platform/qt/Reporter.h"
#include "platform/qt/SettingsFileDrop.h"
#include "platform/qt/Shades.h"

namespace vexil {

namespace {

constexpr int kTextPixels = 13;

}  // namespace

PanelWindow::PanelWindow(int width, int height) {
    setFixedSize(width, height);
    // Its texts are English and its places fixed, also where the toolkit speaks a language that is written
    // from right to left.
    setLayoutDirection(Qt::LeftToRight);
    QFont text = font();
    text.setPixelSize(kTextPixels);
    setFont(text);
    setAcceptDrops(true);
    auto* quit = new QShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q), this);
    connect(quit, &QShortcut::activated, this, [this] { close(); });
}

void PanelWindow::SetHandlers(PanelHandlers& newHandlers) {
    handlers = &newHandlers;
    if (std::exchange(closeRequested, false)) {
        QMetaObject::invokeMethod(
            this, [this] { close(); }, Qt::QueuedConnection);
    }
}

void PanelWindow::FrameChild(QWidget& child) {
    framedChild = &child;
    child.installEventFilter(this);
}

QRect PanelWindow::ChildFrame() const {
    return framedChild->geometry().adjusted(-1, -1, 1, 1);
}

// The frame shows whether the child has the keyboard focus.
bool PanelWindow::eventFilter(QObject* watched, QEvent* event) {
    if (watched == framedChild && (event->type() == QEvent::FocusIn || event->type() == QEvent::FocusOut)) {
        update(ChildFrame());
    }
    return QWidget::eventFilter(watched, event);
}

// The panel decides and ends the event loop itself; the window stays until it is hidden.
void PanelWindow::closeEvent(QCloseEvent* event) {
    event->ignore();
    // What an input method is still composing is an edit like any other.
    QGuiApplication::inputMethod()->commit();
    if (handlers == nullptr) {
        closeRequested = true;
        return;
    }
    const bool wasClosing = std::exchange(closing, true);
    DeliverEvent(*handlers, PanelEvent{EventKind::WindowClose}, NothingNext);
    closing = wasClosing;
}

void PanelWindow::dragEnterEvent(QDragEnterEvent* event) {
    // While a question is open the file would change what is being asked about.
    if (QApplication::activeModalWidget() == nullptr && IsSettingsFileDrag(*event)) {
        event->acceptProposedAction();
    }
}

void PanelWindow::dropEvent(QDropEvent* event) {
    const QString path = DraggedSettingsFile(*event->mimeData());
    if (path.isEmpty() || handlers == nullptr) {
        return;
    }
    // The file is only read, whatever the other side proposes.
    event->setDropAction(Qt::CopyAction);
    event->accept();
    // Not before the drag is over: loading may ask something, and the other side would hang until it is
    // answered.
    QMetaObject::invokeMethod(
        this,
        [this, path] {
            PanelEvent dropped{EventKind::SettingsDropped};
            dropped.path = QFile::encodeName(path).toStdString();
            DeliverEvent(*handlers, dropped, NothingNext);
        },
        Qt::QueuedConnection);
}

void PanelWindow::paintEvent(QPaintEvent* /*event*/) {
    if (framedChild == nullptr) {
        return;
    }
    QPainter painter(this);
    painter.setPen(framedChild->hasFocus() ? palette().color(QPalette::Highlight) : FrameColour(palette()));
    painter.drawRect(ChildFrame().adjusted(0, 0, -1, -1));
}

}  // namespace vexil
