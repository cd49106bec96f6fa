#include "platform/qt/TickedSlider.h"

#include <QPainter>
#include <QSignalBlocker>
#include <QStyle>
#include <QStyleOptionSlider>
#include <QWheelEvent>

#include "platform/qt/Shades.h"

namespace vexil {

TickedSlider::TickedSlider(const Reporter& reporter, int minimum, int maximum, int marks, int unitValues,
                           QWidget* parent)
    : QSlider(Qt::Horizontal, parent), tickMarks(marks), valuesPerUnit(unitValues) {
    setRange(minimum, maximum);
    setFocusPolicy(Qt::StrongFocus);
    connect(this, &QSlider::valueChanged, this,
            [reporter] { reporter.Handlers().SliderAction(reporter.Control()); });
}

void TickedSlider::SetValue(int newValue) {
    const QSignalBlocker blocker(this);  // the clamped value would overwrite the record
    setValue(newValue);
}

// The style spaces its tick marks by whole values, which cannot give 50 of them on a range of 100.
void TickedSlider::paintEvent(QPaintEvent* event) {
    QStyleOptionSlider option;
    initStyleOption(&option);
    const QRect handle = style()->subControlRect(QStyle::CC_Slider, &option, QStyle::SC_SliderHandle, this);
    QPainter painter(this);
    painter.setPen(FrameColour(palette()));
    const double first = handle.width() / 2.0;
    const double gap = (width() - 1 - 2 * first) / (tickMarks - 1);
    for (int mark = 0; mark < tickMarks; ++mark) {
        const double x = first + mark * gap;
        painter.drawLine(QPointF(x, height() - 4), QPointF(x, height() - 1));
    }
    painter.end();
    QSlider::paintEvent(event);
}

void TickedSlider::wheelEvent(QWheelEvent* event) {
    if (hasFocus()) {
        QSlider::wheelEvent(event);
    } else {
        event->ignore();
    }
}

}  // namespace vexil
