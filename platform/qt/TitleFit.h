// Titles in places that were measured for another font.
#pragma once

#include <QString>
#include <QWidget>

namespace vexil {

// Sets the letters of a title closer, just as much as it takes to draw it within `available` pixels.
void FitTitle(QWidget& widget, const QString& title, int available);

}  // namespace vexil
