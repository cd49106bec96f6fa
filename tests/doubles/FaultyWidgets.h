// Wraps a window's controls and fails on demand. A failing creation never reaches the wrapped object.
#pragma once

#include <set>
#include <string>

#include "panel/Widgets.h"

namespace vexil {

class FaultyWidgets : public Widgets {
  public:
    // `wrapped` must outlive this object.
    explicit FaultyWidgets(Widgets& wrapped) : inner(wrapped) {}

    std::int32_t windowStatus = 0;  // not 0: the window cannot be made
    int failingControl = -1;        // the control that cannot be made
    std::int32_t controlStatus = -108;
    std::set<int> unreadableTexts;           // controls whose text cannot be read
    std::set<int> unreadableItems;           // combo boxes whose items cannot be read
    std::set<std::string> namesWithoutForm;  // texts that no list takes

    std::int32_t CreateWindow(const ControlRect& content) override {
        return windowStatus != 0 ? windowStatus : inner.CreateWindow(content);
    }
    void SetWindowTitle(const char* title) override { inner.SetWindowTitle(title); }
    void DisposeWindow() override { inner.DisposeWindow(); }

    std::int32_t CreateControl(const ControlSpec& spec, PanelHandlers& handlers) override {
        return spec.number == failingControl ? controlStatus : inner.CreateControl(spec, handlers);
    }
    void Embed(int container, int control) override { inner.Embed(container, control); }
    void InstallWindowHandler(PanelHandlers& handlers) override { inner.InstallWindowHandler(handlers); }

    int Value(int control) const override { return inner.Value(control); }
    void SetValue(int control, int value) override { inner.SetValue(control, value); }

    bool GetText(int control, svString& text) const override {
        return unreadableTexts.count(control) == 0 && inner.GetText(control, text);
    }
    void SetText(int control, const char* text) override { inner.SetText(control, text); }

    bool IsEnabled(int control) const override { return inner.IsEnabled(control); }
    void SetEnabled(int control, bool enabled) override { inner.SetEnabled(control, enabled); }

    void SetRowText(int row, const char* text) override { inner.SetRowText(row, text); }
    int RowCount() const override { return inner.RowCount(); }
    int SelectedRow() const override { return inner.SelectedRow(); }
    void SelectRow(int row) override { inner.SelectRow(row); }

    int ItemCount(int control) const override { return inner.ItemCount(control); }
    bool AppendItem(int control, const char* text) override {
        return namesWithoutForm.count(text) == 0 && inner.AppendItem(control, text);
    }
    void RemoveItem(int control, int index) override { inner.RemoveItem(control, index); }
    bool ItemText(int control, int index, svString& text) const override {
        return unreadableItems.count(control) == 0 && inner.ItemText(control, index, text);
    }

    void Redraw(int control) override { inner.Redraw(control); }
    int TitleBarHeight() const override { return inner.TitleBarHeight(); }

  private:
    Widgets& inner;
};

}  // namespace vexil
