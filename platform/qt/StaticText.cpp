#include "platform/qt/StaticText.h"

#include <QPainter>
#include <QStyleOption>

#include "platform/qt/TitleFit.h"

namespace vexil {

namespace {

// Kept clear between a label and the field that stands next to it.
constexpr int kGap = 3;
// Of a row of text; some places are a little lower.
constexpr int kRowHeight = 16;

}  // namespace

StaticText::StaticText(const QString& ownTitle, QWidget* parent) : QLabel(parent), title(ownTitle) {
    setTextFormat(Qt::PlainText);
    setText(title);
}

void StaticText::resizeEvent(QResizeEvent* event) {
    FitTitle(*this, title, width() - kGap);
    QLabel::resizeEvent(event);
}

void StaticText::paintEvent(QPaintEvent* /*event*/) {
    QStyleOption option;
    option.initFrom(this);
    QPainter painter(this);
    painter.setPen(option.palette.color(foregroundRole()));
    painter.translate(0, BaselineIn(fontMetrics(), kRowHeight));
    const TextScale scale = ScaleToFit(QFontMetricsF(font()).horizontalAdvance(text()), width() - 1);
    painter.scale(scale.x, scale.y);
    painter.drawText(QPointF(0, 0), text());
}

bool StaticText::ReadText(QString& read) const {
    read = text();
    return true;
}

}  // namespace vexil
