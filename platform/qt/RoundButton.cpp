#include "platform/qt/RoundButton.h"

#include <algorithm>

#include <QEventLoop>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPointer>
#include <QTimer>

#include "platform/qt/Shades.h"

namespace vexil {

namespace {

constexpr int kAssistedPressMs = 300;

}  // namespace

RoundButton::RoundButton(const Reporter& buttonReporter, QWidget* parent)
    : QPushButton(parent), reporter(buttonReporter) {
    setAutoDefault(false);
    // A move without a button tells of a release that went elsewhere.
    setMouseTracking(true);
    parent->window()->installEventFilter(this);
    // Mouse and keys are handled here without the base class, so this is assistive technology alone.
    connect(this, &QPushButton::pressed, this,
            [this] { Press(HeldBy::Assistance, QRectF(rect()).center()); });
    connect(qGuiApp, &QGuiApplication::applicationStateChanged, this, [this](Qt::ApplicationState state) {
        if (state != Qt::ApplicationActive) {
            EndPress();
        }
    });
}

void RoundButton::EndPress() {
    ended = true;
    if (loop != nullptr) {
        loop->quit();
    }
}

void RoundButton::Press(HeldBy by, const QPointF& point) {
    if (heldBy != HeldBy::Nothing) {
        return;
    }
    heldBy = by;
    ended = false;
    releasedInside = false;
    const QPointer<RoundButton> self(this);
    const QPointF location = mapTo(window(), point);
    PanelEvent event{EventKind::MouseDown};
    event.x = location.x();
    event.y = location.y();
    event.modifiers = PanelModifiers(QGuiApplication::keyboardModifiers());
    const std::int32_t unused = reporter.Deliver(event, [this] { return WaitForEnd(); });
    static_cast<void>(unused);  // whatever became of it, the press is over
    if (!self) {
        return;
    }
    heldBy = HeldBy::Nothing;
    ended = true;
    update();
}

// The handler may have taken time, or asked something, before it came to this: the press may be over already.
std::int32_t RoundButton::WaitForEnd() {
    if (ended) {
        return kNoErr;
    }
    const QPointer<RoundButton> self(this);
    update();
    QEventLoop waiting;
    loop = &waiting;
    if (heldBy == HeldBy::Assistance) {
        QTimer::singleShot(kAssistedPressMs, &waiting, &QEventLoop::quit);
    }
    // Returns at once while the application is ending.
    waiting.exec();
    if (!self) {
        return kNoErr;
    }
    loop = nullptr;
    if (releasedInside) {
        reporter.Hit();
    }
    return kNoErr;
}

void RoundButton::mousePressEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton) {
        Press(HeldBy::Mouse, event->position());
    }
}

void RoundButton::mouseMoveEvent(QMouseEvent* event) {
    // The release went elsewhere.
    if (heldBy == HeldBy::Mouse && (event->buttons() & Qt::LeftButton) == 0) {
        EndPress();
    }
}

void RoundButton::mouseReleaseEvent(QMouseEvent* event) {
    if (heldBy != HeldBy::Mouse || event->button() != Qt::LeftButton) {
        return;
    }
    releasedInside = rect().contains(event->position().toPoint());
    EndPress();
}

void RoundButton::keyPressEvent(QKeyEvent* event) {
    if (event->key() != Qt::Key_Space && event->key() != Qt::Key_Select) {
        event->ignore();
        return;
    }
    if (event->isAutoRepeat() || keyDown) {
        return;
    }
    keyDown.emplace();
    Press(HeldBy::Key, QRectF(rect()).center());
}

void RoundButton::keyReleaseEvent(QKeyEvent* event) {
    const bool isButtonKey = event->key() == Qt::Key_Space || event->key() == Qt::Key_Select;
    if (!isButtonKey) {
        event->ignore();
        return;
    }
    if (event->isAutoRepeat()) {
        return;
    }
    keyDown.reset();
    if (heldBy == HeldBy::Key) {
        EndPress();
    }
}

void RoundButton::focusOutEvent(QFocusEvent* event) {
    keyDown.reset();  // its release goes elsewhere
    if (heldBy == HeldBy::Key) {
        EndPress();
    }
    QPushButton::focusOutEvent(event);
}

bool RoundButton::event(QEvent* event) {
    switch (event->type()) {
        case QEvent::UngrabMouse:
        case QEvent::WindowDeactivate:
        case QEvent::WindowBlocked:
        case QEvent::Hide:
            EndPress();
            break;
        default:
            break;
    }
    return QPushButton::event(event);
}

// The window: its close box ends the press before the question that may follow.
bool RoundButton::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::Close) {
        EndPress();
    }
    return QPushButton::eventFilter(watched, event);
}

void RoundButton::changeEvent(QEvent* event) {
    if (event->type() == QEvent::EnabledChange && !isEnabled()) {
        EndPress();
    }
    QPushButton::changeEvent(event);
}

void RoundButton::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const double diameter = std::min(width(), height()) - 1;
    const bool down = heldBy != HeldBy::Nothing && !ended;
    QRectF circle(0, 0, diameter, diameter);
    circle.moveCenter(QRectF(rect()).center());
    painter.setPen(hasFocus() ? palette().color(QPalette::Highlight) : FrameColour(palette()));
    painter.setBrush(down ? palette().color(QPalette::Highlight) : palette().color(QPalette::Button));
    painter.drawEllipse(circle);
}

}  // namespace vexil
