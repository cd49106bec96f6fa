#pragma once

#include "panel/ControlTable.h"
#include "panel/Desktop.h"

namespace vexil {

// Fills `rect` with a rectangle of that size in the middle of the main display, screen pixels.
void CenterRectOnMainDisplay(const Desktop& desktop, ControlRect& rect, int width, int height);

}  // namespace vexil
