#include "platform/qt/PanelStyle.h"

#include <QPainter>
#include <QStyleOption>

#include "platform/qt/Shades.h"

namespace vexil {

namespace {

constexpr double kCorner = 2;  // pixels

bool IsDark(const QPalette& palette) {
    return palette.color(QPalette::Window).lightness() < palette.color(QPalette::WindowText).lightness();
}

}  // namespace

PanelStyle::PanelStyle() : QProxyStyle("fusion") {}

// The style draws edges darker than the ground: on a dark one an empty check box or field is not to be seen.
void PanelStyle::drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                               const QWidget* widget) const {
    QProxyStyle::drawPrimitive(element, option, painter, widget);
    const bool hasFocusEdge = element == PE_FrameLineEdit && (option->state & State_HasFocus);
    if ((element != PE_IndicatorCheckBox && element != PE_FrameLineEdit) || hasFocusEdge ||
        !IsDark(option->palette))
        return;
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    painter->setPen(FrameColour(option->palette));
    painter->setBrush(Qt::NoBrush);
    painter->drawRoundedRect(QRectF(option->rect).adjusted(0.5, 0.5, -0.5, -0.5), kCorner, kCorner);
    painter->restore();
}

}  // namespace vexil
