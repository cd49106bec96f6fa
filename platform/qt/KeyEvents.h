// Qt's key presses as the panel's key events.
#pragma once

#include <QKeyEvent>

#include "panel/PanelEvent.h"

namespace vexil {

// Whether a key press is an event of the panel. Modifier keys alone and the keys that move the keyboard focus
// are the toolkit's own.
bool IsPanelKey(const QKeyEvent& key);

// The key press as RawKeyDown, or RawKeyRepeat while the key is held.
PanelEvent KeyPanelEvent(const QKeyEvent& key);

}  // namespace vexil
