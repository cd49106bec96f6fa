// What a person does, as the panel's handlers see it, and the rules by which a toolkit delivers it.
//
// The contract that every implementation of Widgets keeps:
//  a. Setters raise no event. Only what a person does raises one.
//  b. An event that is not swallowed reaches its widget exactly once, whether the handler called `next`
//     or not. A key or mouse event whose handler returns kNoErr without having called `next` is swallowed:
//     the widget never sees it. For a control hit, a drop and a close request `next` has nothing left to
//     do.
//  c. For the test button, `next` returns when the press has ended, however it ends: release inside or
//     outside, grab lost, window deactivated or closed. What happens meanwhile is delivered as ever; the
//     panel ends the sounding chord first, so that it is switched off on the port and channel on which it
//     was switched on.
//  d. Alerts and file choosers run the event loop inside. A close request may come in meanwhile; the
//     panel lets it pass without a second alert.
//  e. Every way in which a person changes a field's text (keys, input method, paste, drop, undo)
//     reaches the field's handler as a key does. Line breaks never get into a field.
//  f. A field that gets the keyboard focus in any way reports a control hit first.
//  g. Little arrows: one ArrowsAction call for each step and one control hit after each step. Up and
//     Down keys and the wheel over a focused arrow do the same.
//  h. A key that only moves the keyboard focus (Tab, Shift+Tab) or that a window or desktop shortcut
//     takes is the toolkit's own and is no event, so the port list, which swallows every key but the
//     arrows, can be left by keyboard.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace vexil {

inline constexpr std::int32_t kNoErr = 0;
inline constexpr std::int32_t kEventNotHandledErr = -9874;

// Character codes and modifiers of key events; values of the toolkit that the panel was conceived for.
inline constexpr unsigned char kCharLineFeed = 10;
inline constexpr unsigned char kCharReturn = 13;
inline constexpr unsigned char kCharUpArrow = 30;
inline constexpr unsigned char kCharDownArrow = 31;
inline constexpr std::uint32_t kCommandKey = 0x100;

// Parts of little arrows.
inline constexpr int kUpPart = 20;
inline constexpr int kDownPart = 21;

enum class EventKind {
    WindowClose,
    CommandProcess,
    MouseDown,
    MouseUp,
    ControlHit,
    TextInput,
    ListItemSelected,  // an item of a combo box's list was picked
    RawKeyDown,
    RawKeyRepeat,
    SettingsDropped,  // a settings file was dropped on the window
};

struct PanelEvent {
    EventKind kind;
    int control = -1;  // the control hit, or the control with the keyboard focus; -1: no control
    // Key events: the character code (the first byte of the character's UTF-8 form; 0 for a change of text
    // that has no single character, such as a paste). Not set when the key cannot be read.
    bool hasCharacter = false;
    unsigned char character = 0;
    std::uint32_t modifiers = 0;  // bit set, kCommandKey
    // Mouse location in window structure coordinates (title bar included), pixels.
    double x = 0;
    double y = 0;
    int itemIndex = -1;  // ListItemSelected: the picked item
    std::string path{};  // SettingsDropped: the file's absolute path
};

// Lets the toolkit act on the event and returns its status, 0 for success.
using NextHandler = std::function<std::int32_t()>;

// The panel's side: what a toolkit calls. Every handler may be entered again from within a `next` that it
// called.
class PanelHandlers {
  public:
    virtual ~PanelHandlers() = default;
    virtual std::int32_t WindowEventHandler(const PanelEvent& event, const NextHandler& next) = 0;
    virtual std::int32_t PortListKeyHandler(const PanelEvent& event, const NextHandler& next) = 0;
    virtual std::int32_t EditTextHandler(const PanelEvent& event, const NextHandler& next) = 0;
    virtual std::int32_t ComboBoxHandler(const PanelEvent& event, const NextHandler& next) = 0;
    virtual void ArrowsAction(int control, int part) = 0;
    virtual void SliderAction(int control) = 0;
};

// Delivers one event as the contract says: hits, picks and keys to the handler attached to their control, if
// it has one; what that does not handle, but for picks and keys, to the window's handler, as everything else.
// `next` runs at most once, and exactly once unless a handler took the event. Returns the last status: kNoErr
// when a handler took the event, else what `next` returned.
std::int32_t DeliverEvent(PanelHandlers& handlers, const PanelEvent& event, const NextHandler& next);

}  // namespace vexil
