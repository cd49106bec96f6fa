#include "platform/qt/StatusLine.h"

#include <QPainter>

#include "platform/qt/FieldText.h"
#include "platform/qt/Shades.h"
#include "platform/qt/TitleFit.h"

namespace vexil {

namespace {

// The strip below the controls, as wide as they are.
constexpr QRect kPlace(20, 412, 540, 16);
constexpr int kMarkWidth = 14;

}  // namespace

StatusLine::StatusLine(QWidget* window) : QPushButton(window) {
    setObjectName("status-line");
    setGeometry(kPlace);
    // The round of the Tab key is that of the controls.
    setFocusPolicy(Qt::NoFocus);
    setCursor(Qt::PointingHandCursor);
    const QString tip =
        "How things stand. A click, or F1, shows all there is to say, and what to do about it.";
    setToolTip(tip);
    setAccessibleDescription(tip);
}

void StatusLine::Show(const Sentence& sentence) {
    if (sentence == shown) {
        return;
    }
    shown = sentence;
    setAccessibleName(DecodeText(shown.text.c_str()));
    setVisible(!shown.text.empty());
    update();
}

void StatusLine::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    const bool hasMark = shown.weight != Sentence::Weight::Fine;
    if (hasMark) {
        DrawWeight(painter, shown.weight, QRect(0, 0, kMarkWidth, height()), palette());
    }
    const int left = hasMark ? kMarkWidth : 0;
    const QFontMetrics metrics = fontMetrics();
    const QString text =
        metrics.elidedText(DecodeText(shown.text.c_str()), Qt::ElideRight, width() - left - 2);
    painter.setPen(palette().color(isDown() ? QPalette::Link : QPalette::WindowText));
    painter.drawText(left + 1, BaselineIn(metrics, height()), text);
}

void DrawWeight(QPainter& painter, Sentence::Weight weight, const QRect& place, const QPalette& palette) {
    if (weight == Sentence::Weight::Fine) {
        return;
    }
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    const QPointF middle = QRectF(place).center();
    if (weight == Sentence::Weight::Trouble) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(TroubleColour(palette));
        painter.drawPolygon(
            QPolygonF({middle + QPointF(0, -5), middle + QPointF(5.5, 4.5), middle + QPointF(-5.5, 4.5)}));
        painter.setPen(QPen(palette.color(QPalette::Window), 1.3));
        painter.drawLine(middle + QPointF(0, -2), middle + QPointF(0, 1.2));
        painter.drawPoint(middle + QPointF(0, 3.1));
    } else {
        painter.setPen(QPen(palette.color(QPalette::WindowText), 1.3));
        painter.drawEllipse(middle, 3.5, 3.5);
    }
    painter.restore();
}

}  // namespace vexil
