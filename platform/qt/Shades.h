// Colours that the hand-drawn controls share, chosen to be seen on light and dark palettes alike.
#pragma once

#include <QColor>
#include <QPalette>

namespace vexil {

// Lines: a third of the text's colour over the background.
inline QColor FrameColour(const QPalette& palette) {
    const QColor text = palette.color(QPalette::WindowText);
    const QColor ground = palette.color(QPalette::Window);
    const auto mix = [](int line, int back) { return (line + 2 * back) / 3; };
    return QColor(mix(text.red(), ground.red()), mix(text.green(), ground.green()),
                  mix(text.blue(), ground.blue()));
}

inline QColor PressedColour(const QPalette& palette) {
    return palette.color(QPalette::Button).darker(125);
}

}  // namespace vexil
