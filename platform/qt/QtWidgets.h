// The window and its controls on Qt 6 Widgets.
#pragma once

#include <array>
#include <memory>

#include "client/PortMarks.h"
#include "panel/Widgets.h"
#include "platform/qt/FieldEvents.h"
#include "platform/qt/QtControl.h"

class QWidget;

namespace vexil {

class ComboBox;
class PanelWindow;
class PortListBox;

// Every control stands at its place in the control table and carries the object name `control-NN`. Needs the
// QApplication.
class QtWidgets : public Widgets {
  public:
    QtWidgets();
    ~QtWidgets() override;

    // The window, owned by this object; null before it is made.
    QWidget* Window() const;

    // Whether the panel is just dealing with a request to close the window.
    bool IsClosing() const;

    // Marks beside the rows of the list of ports.
    void SetMarks(const PortMarks::Marks& marks);

    // Ends the press of the test button, if it is held.
    void EndPresses();

    std::int32_t CreateWindow(const ControlRect& content) override;
    void SetWindowTitle(const char* title) override;
    void DisposeWindow() override;
    std::int32_t CreateControl(const ControlSpec& spec, PanelHandlers& handlers) override;
    void Embed(int container, int control) override;
    void InstallWindowHandler(PanelHandlers& handlers) override;
    int Value(int control) const override;
    void SetValue(int control, int value) override;
    bool GetText(int control, svString& text) const override;
    void SetText(int control, const char* text) override;
    bool IsEnabled(int control) const override;
    void SetEnabled(int control, bool enabled) override;
    void SetRowText(int row, const char* text) override;
    int RowCount() const override;
    int SelectedRow() const override;
    void SelectRow(int row) override;
    int ItemCount(int control) const override;
    bool AppendItem(int control, const char* text) override;
    void RemoveItem(int control, int index) override;
    bool ItemText(int control, int index, svString& text) const override;
    void Redraw(int control) override;
    int TitleBarHeight() const override { return 0; }

  private:
    struct Slot {
        QtControl* control = nullptr;  // owned by the window
        bool enabled = true;           // its own state, whatever its group's
    };

    QtControl* MakeControl(const ControlSpec& spec, PanelHandlers& handlers);
    QtControl* ControlAt(int control) const;
    void DescribeNumber(int control);
    ComboBox* ComboAt(int control) const;
    PortListBox* PortList() const;

    std::unique_ptr<PanelWindow> window;
    std::array<Slot, kControlCount> controls{};
    LastField lastEditText;
    LastField lastComboBox;
};

}  // namespace vexil
