// The toolkit's own style, by which the places of the controls were measured, with edges that can be seen on
// dark colours, and with titles that keep what hangs below their letters in every font.
#pragma once

#include <QProxyStyle>

namespace vexil {

// For QApplication::setStyle, which owns it.
class PanelStyle : public QProxyStyle {
  public:
    PanelStyle();

    void drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                       const QWidget* widget) const override;
    void drawComplexControl(ComplexControl control, const QStyleOptionComplex* option, QPainter* painter,
                            const QWidget* widget) const override;
    void drawItemText(QPainter* painter, const QRect& rect, int flags, const QPalette& palette, bool enabled,
                      const QString& text, QPalette::ColorRole textRole) const override;
};

}  // namespace vexil
