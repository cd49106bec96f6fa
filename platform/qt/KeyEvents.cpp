#include "platform/qt/KeyEvents.h"

#include <string>

#include "platform/qt/FieldText.h"
#include "platform/qt/Reporter.h"

namespace vexil {

namespace {

// Character codes that the panel's own toolkit gave to keys without a character.
constexpr unsigned char kCharHome = 1;
constexpr unsigned char kCharEnd = 4;
constexpr unsigned char kCharBackspace = 8;
constexpr unsigned char kCharPageUp = 11;
constexpr unsigned char kCharPageDown = 12;
constexpr unsigned char kCharEscape = 27;
constexpr unsigned char kCharLeftArrow = 28;
constexpr unsigned char kCharRightArrow = 29;
constexpr unsigned char kCharDelete = 127;

unsigned char CharacterOf(const QKeyEvent& key) {
    switch (key.key()) {
        case Qt::Key_Up:
            return kCharUpArrow;
        case Qt::Key_Down:
            return kCharDownArrow;
        case Qt::Key_Left:
            return kCharLeftArrow;
        case Qt::Key_Right:
            return kCharRightArrow;
        case Qt::Key_Home:
            return kCharHome;
        case Qt::Key_End:
            return kCharEnd;
        case Qt::Key_PageUp:
            return kCharPageUp;
        case Qt::Key_PageDown:
            return kCharPageDown;
        case Qt::Key_Backspace:
            return kCharBackspace;
        case Qt::Key_Delete:
            return kCharDelete;
        case Qt::Key_Escape:
            return kCharEscape;
        // The keypad's Enter is a line end to a field as much as Return is.
        case Qt::Key_Return:
        case Qt::Key_Enter:
            return kCharReturn;
        default:
            break;
    }
    const std::string bytes = EncodeText(key.text());
    return bytes.empty() ? 0 : static_cast<unsigned char>(bytes.front());
}

}  // namespace

bool IsPanelKey(const QKeyEvent& key) {
    switch (key.key()) {
        case Qt::Key_Tab:
        case Qt::Key_Backtab:
        case Qt::Key_Shift:
        case Qt::Key_Control:
        case Qt::Key_Meta:
        case Qt::Key_Alt:
        case Qt::Key_AltGr:
        case Qt::Key_CapsLock:
        case Qt::Key_NumLock:
        case Qt::Key_ScrollLock:
        case Qt::Key_Super_L:
        case Qt::Key_Super_R:
        case Qt::Key_Hyper_L:
        case Qt::Key_Hyper_R:
            return false;
        default:
            return true;
    }
}

bool IsCommandKey(const QKeyEvent& key) {
    const QString text = key.text();
    const Qt::KeyboardModifiers modifiers = key.modifiers();
    return !text.isEmpty() && text.front().isPrint() && (modifiers & (Qt::AltModifier | Qt::MetaModifier)) &&
           !(modifiers & (Qt::ControlModifier | Qt::GroupSwitchModifier));
}

PanelEvent KeyPanelEvent(const QKeyEvent& key) {
    PanelEvent event{key.isAutoRepeat() ? EventKind::RawKeyRepeat : EventKind::RawKeyDown};
    event.hasCharacter = true;
    event.character = CharacterOf(key);
    event.modifiers = PanelModifiers(key.modifiers());
    return event;
}

}  // namespace vexil
