// Texts in places that were measured for another font.
#pragma once

#include <QFontMetrics>
#include <QString>
#include <QWidget>

namespace vexil {

// Sets the letters of a title closer, just as much as it takes to draw it within `available` pixels.
void FitTitle(QWidget& widget, const QString& title, int available);

// Where the baseline of a line stands below the top of a place of `height` pixels. A font that is higher than
// the place loses what it keeps clear above its letters, never what hangs below them.
int BaselineIn(const QFontMetrics& metrics, int height);

struct TextScale {
    double x = 1;
    double y = 1;
};

// By what a text of the width `advance` is made smaller to fit into `available` pixels: letters become
// narrower first, and lower where they would be too narrow to be read.
TextScale ScaleToFit(double advance, double available);

}  // namespace vexil
