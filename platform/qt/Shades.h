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

// Red and green that are read on the ground of the palette.
inline QColor TroubleColour(const QPalette& palette) {
    return palette.color(QPalette::Window).lightness() < 128 ? QColor(255, 120, 110) : QColor(190, 30, 25);
}

inline QColor PlayingColour(const QPalette& palette) {
    return palette.color(QPalette::Window).lightness() < 128 ? QColor(110, 220, 120) : QColor(20, 130, 40);
}

inline QColor PressedColour(const QPalette& palette) {
    return palette.color(QPalette::Button).darker(125);
}

}  // namespace vexil
