// Bringing a window to the front for a person who has asked for it in another program, which has the
// keyboard.
#pragma once

#include <string>

class QWidget;

namespace vexil {

// `startupId` (X11) and `activationToken` (Wayland) are what the desktop gave for this, or empty. The window
// manager has the last word.
void ComeToFront(QWidget& window, const std::string& startupId, const std::string& activationToken);

}  // namespace vexil
