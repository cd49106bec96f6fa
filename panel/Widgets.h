// Seam: the window's controls, by number. No widget handle crosses it. Setters raise no event.
#pragma once

#include <cstdint>

#include "panel/ControlTable.h"
#include "panel/PanelEvent.h"
#include "shared/System/svString.h"

namespace vexil {

class Widgets {
  public:
    virtual ~Widgets() = default;

    // Makes the window of the given content rectangle (pixels of the main display), hidden. 0, or the
    // toolkit's status of the failure.
    virtual std::int32_t CreateWindow(const ControlRect& content) = 0;
    virtual void SetWindowTitle(const char* title) = 0;
    // Disposes of the window and its controls. Harmless without a window.
    virtual void DisposeWindow() = 0;

    // Makes one control in the window, outside any group, and lets its events go to `handlers` (which must
    // outlive the window). 0, or the toolkit's status of the failure.
    virtual std::int32_t CreateControl(const ControlSpec& spec, PanelHandlers& handlers) = 0;
    // Puts a control into a group; its place in the window stays.
    virtual void Embed(int container, int control) = 0;
    // From now on the window's own events (close, mouse, hits) go to `handlers`.
    virtual void InstallWindowHandler(PanelHandlers& handlers) = 0;

    // Check boxes and groups: 0 or 1. Arrows and slider: the number. A value beyond the control's range is
    // shown as, and read back as, the nearest one within it.
    virtual int Value(int control) const = 0;
    virtual void SetValue(int control, int value) = 0;

    // Text of fields, combo boxes (not their lists) and static texts. False, with `text` as it was, when it
    // cannot be read.
    virtual bool GetText(int control, svString& text) const = 0;
    virtual void SetText(int control, const char* text) = 0;

    // Enabling or disabling a group leaves the own state of what is in it; a person can use a control when it
    // and its group are enabled.
    virtual bool IsEnabled(int control) const = 0;
    virtual void SetEnabled(int control, bool enabled) = 0;

    // Port list: rows of text, exactly one selected; -1 while the list is empty.
    virtual void SetRowText(int row, const char* text) = 0;
    virtual int RowCount() const = 0;
    virtual int SelectedRow() const = 0;
    virtual void SelectRow(int row) = 0;

    // Lists of the combo boxes. Changing a list leaves the typed text.
    virtual int ItemCount(int control) const = 0;
    // False, with the list as it was, when the text has no form in the window.
    virtual bool AppendItem(int control, const char* text) = 0;
    virtual void RemoveItem(int control, int index) = 0;
    // False when there is no such item or its text cannot be read.
    virtual bool ItemText(int control, int index, svString& text) const = 0;

    virtual void Redraw(int control) = 0;

    // Height of the title bar in structure coordinates, pixels; 0 where mouse locations come in content
    // coordinates.
    virtual int TitleBarHeight() const = 0;
};

}  // namespace vexil
