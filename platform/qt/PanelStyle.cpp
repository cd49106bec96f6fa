#include "platform/qt/PanelStyle.h"

#include <algorithm>

#include <QComboBox>
#include <QPainter>
#include <QStyleOption>

#include "platform/qt/Shades.h"
#include "platform/qt/TitleFit.h"

namespace vexil {

namespace {

constexpr double kCorner = 2;  // pixels

bool IsDark(const QPalette& palette) {
    return palette.color(QPalette::Window).lightness() < palette.color(QPalette::WindowText).lightness();
}

// The style draws edges darker than the ground: on a dark one an empty check box or field is not to be seen.
void DrawEdgeOnDark(const QStyleOption& option, QPainter& painter) {
    if (!IsDark(option.palette)) {
        return;
    }
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(FrameColour(option.palette));
    painter.setBrush(Qt::NoBrush);
    painter.drawRoundedRect(QRectF(option.rect).adjusted(0.5, 0.5, -0.5, -0.5), kCorner, kCorner);
    painter.restore();
}

}  // namespace

PanelStyle::PanelStyle() : QProxyStyle("fusion") {}

void PanelStyle::drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                               const QWidget* widget) const {
    QProxyStyle::drawPrimitive(element, option, painter, widget);
    // A combo box draws its arrow over this frame.
    const bool isField = element == PE_FrameLineEdit && qobject_cast<const QComboBox*>(widget) == nullptr;
    const bool hasFocusEdge = isField && (option->state & State_HasFocus);
    if ((element == PE_IndicatorCheckBox || isField) && !hasFocusEdge) {
        DrawEdgeOnDark(*option, *painter);
    }
}

void PanelStyle::drawComplexControl(ComplexControl control, const QStyleOptionComplex* option,
                                    QPainter* painter, const QWidget* widget) const {
    QProxyStyle::drawComplexControl(control, option, painter, widget);
    if (control == CC_ComboBox && !(option->state & State_HasFocus)) {
        DrawEdgeOnDark(*option, *painter);
    }
}

// A line that is centred in a place too low for it would be cut above and below.
void PanelStyle::drawItemText(QPainter* painter, const QRect& rect, int flags, const QPalette& palette,
                              bool enabled, const QString& text, QPalette::ColorRole textRole) const {
    const QFontMetrics metrics = painter->fontMetrics();
    QRect place = rect;
    if (metrics.height() > rect.height()) {
        place.setTop(rect.top() + BaselineIn(metrics, rect.height()) - metrics.ascent());
    }
    place.setHeight(std::max(rect.height(), metrics.height()));
    QProxyStyle::drawItemText(painter, place, flags, palette, enabled, text, textRole);
}

}  // namespace vexil
