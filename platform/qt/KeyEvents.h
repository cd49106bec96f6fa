// Qt's key presses as the panel's key events.
#pragma once

#include <QKeyEvent>

#include "panel/PanelEvent.h"

namespace vexil {

// Whether a key press is an event of the panel. Modifier keys alone and the keys that move the keyboard focus
// are the toolkit's own.
bool IsPanelKey(const QKeyEvent& key);

// Whether a key press is a letter, digit or sign with Alt or Meta: the key of a command, never text, also
// while the command cannot be used and nothing takes the key. With Control, or with AltGr, it is the third
// level of a keyboard and text.
bool IsCommandKey(const QKeyEvent& key);

// The key press as RawKeyDown, or RawKeyRepeat while the key is held.
PanelEvent KeyPanelEvent(const QKeyEvent& key);

}  // namespace vexil
