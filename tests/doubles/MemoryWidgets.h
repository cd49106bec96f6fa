// The window's controls in memory. MemoryPerson is the person who uses them.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "panel/Widgets.h"

namespace vexil {

struct MemoryControl {
    bool exists = false;
    ControlSpec spec{};
    PanelHandlers* handlers = nullptr;
    int container = kNoContainer;
    bool enabled = true;  // its own state
    int value = 0;
    std::string text;
    std::vector<std::string> items;  // of a combo box's list
    int redraws = 0;
};

class MemoryWidgets : public Widgets {
  public:
    static constexpr std::int32_t kNoWindow = -5600;
    static constexpr int kRows = 64;

    int titleBarHeight = 22;  // pixels

    // --- what was made ---
    bool hasWindow = false;
    ControlRect windowContent{};
    std::string windowTitle;
    std::array<MemoryControl, kControlCount> controls;
    std::array<std::string, kRows> rows;
    int selectedRow = -1;
    std::vector<int> creationOrder;
    std::vector<Embedding> embeddings;
    std::vector<int> redrawOrder;
    PanelHandlers* windowHandlers = nullptr;  // null: not installed
    int focus = -1;                           // control with the keyboard focus

    const MemoryControl& Of(int control) const { return controls.at(static_cast<std::size_t>(control)); }
    MemoryControl& Of(int control) { return controls.at(static_cast<std::size_t>(control)); }

    // Whether a person can use the control: it and its group are enabled.
    bool IsUsable(int control) const {
        const MemoryControl& own = Of(control);
        if (!hasWindow || !own.exists || !own.enabled) {
            return false;
        }
        return own.container == kNoContainer || Of(own.container).enabled;
    }

    // --- the seam ---

    std::int32_t CreateWindow(const ControlRect& content) override {
        hasWindow = true;
        windowContent = content;
        return kNoErr;
    }
    void SetWindowTitle(const char* title) override { windowTitle = title; }
    void DisposeWindow() override {
        hasWindow = false;
        windowHandlers = nullptr;
        controls = {};
        selectedRow = -1;
        focus = -1;
    }

    std::int32_t CreateControl(const ControlSpec& spec, PanelHandlers& handlers) override {
        if (!hasWindow) {
            return kNoWindow;
        }
        MemoryControl control;
        control.exists = true;
        control.spec = spec;
        control.handlers = &handlers;
        control.value = spec.value;
        control.text = spec.title == nullptr ? "" : spec.title;
        Of(spec.number) = control;
        creationOrder.push_back(spec.number);
        if (spec.number == kPortList) {
            selectedRow = 0;
        }
        return kNoErr;
    }
    void Embed(int container, int control) override {
        embeddings.push_back({container, control});
        Of(control).container = container;
    }
    void InstallWindowHandler(PanelHandlers& handlers) override { windowHandlers = &handlers; }

    int Value(int control) const override { return Of(control).value; }
    void SetValue(int control, int value) override {
        const ControlSpec& spec = Of(control).spec;
        Of(control).value = std::clamp(value, spec.minimum, spec.maximum);
    }

    bool GetText(int control, svString& text) const override {
        text = Of(control).text.c_str();
        return true;
    }
    void SetText(int control, const char* text) override { Of(control).text = text; }

    bool IsEnabled(int control) const override { return Of(control).enabled; }
    void SetEnabled(int control, bool enabled) override { Of(control).enabled = enabled; }

    void SetRowText(int row, const char* text) override { rows.at(static_cast<std::size_t>(row)) = text; }
    int RowCount() const override { return Of(kPortList).exists ? kRows : 0; }
    int SelectedRow() const override { return selectedRow; }
    void SelectRow(int row) override { selectedRow = row; }

    int ItemCount(int control) const override { return static_cast<int>(Of(control).items.size()); }
    bool AppendItem(int control, const char* text) override {
        Of(control).items.emplace_back(text);
        return true;
    }
    void RemoveItem(int control, int index) override {
        std::vector<std::string>& items = Of(control).items;
        if (index >= 0 && index < ItemCount(control)) {
            items.erase(items.begin() + index);
        }
    }
    bool ItemText(int control, int index, svString& text) const override {
        if (index < 0 || index >= ItemCount(control)) {
            return false;
        }
        text = Of(control).items[static_cast<std::size_t>(index)].c_str();
        return true;
    }

    void Redraw(int control) override {
        ++Of(control).redraws;
        redrawOrder.push_back(control);
    }
    int TitleBarHeight() const override { return titleBarHeight; }
};

}  // namespace vexil
