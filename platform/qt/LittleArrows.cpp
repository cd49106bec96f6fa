#include "platform/qt/LittleArrows.h"

#include <cstdlib>

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QStyle>
#include <QWheelEvent>

#include "platform/qt/Shades.h"

namespace vexil {

namespace {

// Until the first repeated step, and from each to the next.
constexpr int kRepeatDelayMs = 400;
constexpr int kRepeatIntervalMs = 80;
constexpr int kWheelNotch = 120;

}  // namespace

LittleArrows::LittleArrows(const Reporter& arrowsReporter, int value, int minimum, int maximum,
                           Shown shownNumber, QWidget* parent)
    : QAbstractSlider(parent), reporter(arrowsReporter), shown(shownNumber), knownValue(value) {
    setRange(minimum, maximum);
    LittleArrows::SetValue(value);
    setOrientation(Qt::Vertical);
    setFocusPolicy(Qt::StrongFocus);
    // A move without a button tells of a release that went elsewhere.
    setMouseTracking(true);
}

void LittleArrows::SetValue(int newValue) {
    ++programChange;
    setValue(newValue);
    knownValue = value();
    --programChange;
}

LittleArrows::Half LittleArrows::HalfAt(const QPoint& point) const {
    if (!rect().contains(point)) {
        return Half::None;
    }
    return point.y() < height() / 2 ? Half::Up : Half::Down;
}

void LittleArrows::Step(Half half) {
    reporter.Handlers().ArrowsAction(reporter.Control(), half == Half::Up ? kUpPart : kDownPart);
    reporter.Hit();
}

void LittleArrows::StepTo(int target) {
    while (value() != target) {
        const int before = value();
        Step(target > before ? Half::Up : Half::Down);
        // Only ever nearer, so that this ends whatever the panel makes of a step.
        if (std::abs(target - value()) >= std::abs(target - before)) {
            return;
        }
    }
}

void LittleArrows::Release() {
    repeat.stop();
    pressed = Half::None;
    update();
}

void LittleArrows::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton || pressed != Half::None) {
        return;
    }
    pressed = HalfAt(event->position().toPoint());
    if (pressed == Half::None) {
        return;
    }
    pointerInside = true;
    update();
    // Before the step, which may take the arrows' press away.
    repeat.start(kRepeatDelayMs, this);
    Step(pressed);
}

void LittleArrows::mouseMoveEvent(QMouseEvent* event) {
    if (pressed == Half::None) {
        return;
    }
    if ((event->buttons() & Qt::LeftButton) == 0) {
        Release();  // the release went elsewhere
        return;
    }
    const bool inside = HalfAt(event->position().toPoint()) == pressed;
    if (inside != pointerInside) {
        pointerInside = inside;
        update();
    }
}

void LittleArrows::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton) {
        Release();
    }
}

void LittleArrows::timerEvent(QTimerEvent* event) {
    if (event->timerId() != repeat.timerId()) {
        QAbstractSlider::timerEvent(event);
        return;
    }
    repeat.start(kRepeatIntervalMs, this);
    if (pointerInside) {
        Step(pressed);
    }
}

void LittleArrows::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Up) {
        Step(Half::Up);
    } else if (event->key() == Qt::Key_Down) {
        Step(Half::Down);
    } else {
        event->ignore();
    }
}

void LittleArrows::wheelEvent(QWheelEvent* event) {
    if (!hasFocus()) {
        event->ignore();
        return;
    }
    event->accept();
    const int turn = event->angleDelta().y();
    if ((turn > 0) != (wheelRest > 0)) {
        wheelRest = 0;
    }
    wheelRest += turn;
    while (std::abs(wheelRest) >= kWheelNotch) {
        const bool up = wheelRest > 0;
        wheelRest += up ? -kWheelNotch : kWheelNotch;
        Step(up ? Half::Up : Half::Down);
    }
}

bool LittleArrows::event(QEvent* event) {
    switch (event->type()) {
        case QEvent::UngrabMouse:
        case QEvent::WindowDeactivate:
        case QEvent::WindowBlocked:
        case QEvent::Hide:
            Release();
            break;
        default:
            break;
    }
    return QAbstractSlider::event(event);
}

void LittleArrows::changeEvent(QEvent* event) {
    if (event->type() == QEvent::EnabledChange && !isEnabled()) {
        Release();
    }
    QAbstractSlider::changeEvent(event);
}

void LittleArrows::sliderChange(SliderChange change) {
    QAbstractSlider::sliderChange(change);
    if (change != SliderValueChange || programChange > 0 || value() == knownValue) {
        return;
    }
    const int target = value();
    SetValue(knownValue);
    if (isEnabled()) {
        StepTo(target);
    }
}

void LittleArrows::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QPainterPath outline;
    outline.addRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), 3, 3);
    painter.setClipPath(outline);
    DrawHalf(painter, Half::Up);
    DrawHalf(painter, Half::Down);
    painter.setClipping(false);
    painter.setPen(hasFocus() ? palette().color(QPalette::Highlight) : FrameColour(palette()));
    painter.drawPath(outline);
    painter.drawLine(QPointF(0.5, height() / 2.0), QPointF(width() - 0.5, height() / 2.0));
}

void LittleArrows::DrawHalf(QPainter& painter, Half half) const {
    const bool up = half == Half::Up;
    const double top = up ? 0 : height() / 2.0;
    const QRectF area(0, top, width(), height() / 2.0);
    const bool down = half == pressed && pointerInside;
    painter.fillRect(area, down ? PressedColour(palette()) : palette().color(QPalette::Button));

    constexpr double kHalfBase = 3;
    constexpr double kArrowHeight = 3.5;
    const double direction = up ? -1 : 1;
    const QPointF centre = area.center() + QPointF(0, up ? 0.5 : -0.5);
    QPainterPath arrow;
    arrow.moveTo(centre + QPointF(0, direction * kArrowHeight / 2));
    arrow.lineTo(centre + QPointF(-kHalfBase, -direction * kArrowHeight / 2));
    arrow.lineTo(centre + QPointF(kHalfBase, -direction * kArrowHeight / 2));
    arrow.closeSubpath();
    painter.fillPath(arrow, palette().color(QPalette::ButtonText));
}

}  // namespace vexil
