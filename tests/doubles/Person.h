// A person at the window: gestures that raise the events a real mouse, keyboard or input method would raise.
// One implementation for each implementation of Widgets. Scenarios and the contract of Widgets are written
// against this.
//
// A gesture returns when the toolkit has dealt with everything it caused, modal questions included. A gesture
// on what a person cannot use (a control that is disabled itself or through its group, or a hidden window)
// does nothing, as it would on the screen. Gestures are made from within the event loop.
#pragma once

#include <functional>

#include "panel/ControlTable.h"

namespace vexil {

using Script = std::function<void()>;

enum class Key { Up, Down, Return, Tab, BackTab, Backspace, Space, Escape };

// How a step of the little arrows is made.
enum class StepBy { Mouse, Key, Wheel };

// How a press of the test button ends.
enum class PressEnd { ReleaseInside, ReleaseOutside, WindowDeactivated, GrabLost };

// Where the test button is pressed, in pixels from its top left corner, as laid down in the control table.
struct ButtonPoint {
    double x;
    double y;
};
inline constexpr ButtonPoint kButtonCentre{7, 9};
inline constexpr ButtonPoint kButtonTopLeftCorner{0, 0};
inline constexpr ButtonPoint kButtonLeftEdge{0, 9};
inline constexpr ButtonPoint kButtonTopEdge{7, 0};
inline constexpr ButtonPoint kButtonRightEdge{14, 9};
inline constexpr ButtonPoint kButtonBottomEdge{7, 18};

class Person {
  public:
    virtual ~Person() = default;

    // --- mouse ---

    // Clicks a row of the port list; with the Command key when asked.
    virtual void ClickRow(int row, bool command = false) = 0;
    // Clicks a check box or the check box of a group (which toggles it), a push button, or a field or combo
    // box's text (which gets the keyboard focus). With the Command key when asked.
    virtual void Click(int control, bool command = false) = 0;
    // Opens the list of a combo box and picks an item.
    virtual void PickItem(int combo, int index) = 0;
    // One step up or down of little arrows.
    virtual void StepArrows(int arrows, bool up, StepBy by) = 0;
    // Holds the mouse button on an arrow until `steps` steps have been made, then releases it.
    virtual void HoldArrows(int arrows, bool up, int steps) = 0;
    // Drags the slider to a value. The slider follows live.
    virtual void MoveSlider(int value) = 0;
    // Presses the mouse button at a point of the test button (outside it is possible too), does `meanwhile`,
    // and ends the press.
    virtual void PressTestButton(ButtonPoint point, PressEnd end, const Script& meanwhile = {}) = 0;
    // Drops a file on the window.
    virtual void DropFile(const char* path) = 0;
    // Clicks the window's close box. Also possible while a question is open: as a session that ends asks for
    // it.
    virtual void CloseWindow() = 0;

    // --- keyboard: what has the focus gets it ---

    // Gives a control the keyboard focus by the keyboard: Tab as often as it takes.
    virtual void TabTo(int control) = 0;
    virtual void Press(Key key) = 0;
    // Types the characters of a UTF-8 text one by one.
    virtual void Type(const char* text) = 0;
    // Keeps a letter's key down until it has repeated `count` times; count + 1 characters in all.
    virtual void HoldLetter(char letter, int count) = 0;
    // An input method commits a text.
    virtual void CommitText(const char* text) = 0;
    // Pastes a text over the selection.
    virtual void Paste(const char* text) = 0;
    // Selects all text of the focused field. No event.
    virtual void SelectAll() = 0;
    // Takes the last change of the focused field's text back.
    virtual void Undo() = 0;
};

}  // namespace vexil
