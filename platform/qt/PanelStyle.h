// The toolkit's own style, by which the places of the controls were measured, with edges that can be seen on
// dark colours.
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
};

}  // namespace vexil
