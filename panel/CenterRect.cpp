#include "panel/CenterRect.h"

namespace vexil {

void CenterRectOnMainDisplay(const Desktop& desktop, ControlRect& rect, int width, int height) {
    rect.left = (desktop.DisplayWidth() - width) / 2;
    rect.top = (desktop.DisplayHeight() - height) / 2;
    rect.right = rect.left + width;
    rect.bottom = rect.top + height;
}

}  // namespace vexil
