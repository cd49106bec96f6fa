#include "tests/doubles/MemoryPerson.h"

#include <algorithm>

namespace vexil {

namespace {

// Bytes of the UTF-8 character that starts with this byte.
std::size_t CharacterLength(unsigned char first) {
    if (first < 0xc0) {
        return 1;
    }
    if (first < 0xe0) {
        return 2;
    }
    return first < 0xf0 ? 3 : 4;
}

bool IsBlankRow(int row) {
    return row < 0 || row >= MemoryWidgets::kRows;
}

}  // namespace

bool MemoryPerson::CanReach(int control) const {
    return desktop.visible && !dialogs.IsOpen() && widgets.IsUsable(control);
}

bool MemoryPerson::IsField(int control) const {
    const ControlKind kind = widgets.Of(control).spec.kind;
    return kind == ControlKind::EditText || kind == ControlKind::ComboBox;
}

bool MemoryPerson::Takes(int control) const {
    const ControlKind kind = widgets.Of(control).spec.kind;
    return kind != ControlKind::StaticText && kind != ControlKind::GroupBox &&
           kind != ControlKind::RoundButton;
}

void MemoryPerson::Focus(int control) {
    if (widgets.focus == control) {
        return;
    }
    widgets.focus = control;
    allSelected = false;
    if (IsField(control)) {
        textBefore = widgets.Of(control).text;
        Hit(control, false);
    }
}

void MemoryPerson::Hit(int control, bool command) {
    PanelEvent event{.kind = EventKind::ControlHit, .control = control};
    event.modifiers = command ? kCommandKey : 0;
    DeliverEvent(*widgets.Of(control).handlers, event, [] { return kNoErr; });
}

void MemoryPerson::MouseDown(int control, double x, double y, const NextHandler& next) {
    PanelEvent event{.kind = EventKind::MouseDown, .control = control};
    event.x = x;
    event.y = y;
    if (widgets.windowHandlers == nullptr) {
        next();
    } else {
        DeliverEvent(*widgets.windowHandlers, event, next);
    }
}

void MemoryPerson::ClickRow(int row, bool command) {
    if (!CanReach(kPortList) || IsBlankRow(row)) {
        return;
    }
    MouseDown(kPortList, 30, 30, [&] {
        Focus(kPortList);
        widgets.selectedRow = row;
        Hit(kPortList, command);
        return kNoErr;
    });
}

void MemoryPerson::Click(int control, bool command) {
    if (!CanReach(control)) {
        return;
    }
    MemoryControl& target = widgets.Of(control);
    const ControlRect& rect = target.spec.rect;
    MouseDown(
        control, (rect.left + rect.right) / 2.0, (rect.top + rect.bottom) / 2.0 + widgets.titleBarHeight,
        [&] {
            if (IsField(control)) {
                if (widgets.focus == control) {
                    Hit(control, command);
                } else {
                    Focus(control);
                }
                return kNoErr;
            }
            if (target.spec.kind == ControlKind::CheckBox || target.spec.kind == ControlKind::CheckGroupBox) {
                target.value = target.value == 0 ? 1 : 0;
            }
            Hit(control, command);
            return kNoErr;
        });
}

void MemoryPerson::PickItem(int combo, int index) {
    if (!CanReach(combo) || index < 0 || index >= widgets.ItemCount(combo)) {
        return;
    }
    Focus(combo);
    PanelEvent event{.kind = EventKind::ListItemSelected, .control = combo};
    event.itemIndex = index;
    DeliverEvent(*widgets.Of(combo).handlers, event, [&] {
        MemoryControl& target = widgets.Of(combo);
        target.text = target.items[static_cast<std::size_t>(index)];
        return kNoErr;
    });
}

void MemoryPerson::Step(int arrows, bool up) {
    widgets.Of(arrows).handlers->ArrowsAction(arrows, up ? kUpPart : kDownPart);
    Hit(arrows, false);
}

void MemoryPerson::StepArrows(int arrows, bool up, StepBy by) {
    if (by == StepBy::Mouse) {
        HoldArrows(arrows, up, 1);
        return;
    }
    if (!CanReach(arrows)) {
        return;
    }
    Focus(arrows);
    if (by == StepBy::Key) {
        Press(up ? Key::Up : Key::Down);
    } else {
        Step(arrows, up);
    }
}

void MemoryPerson::HoldArrows(int arrows, bool up, int steps) {
    if (!CanReach(arrows)) {
        return;
    }
    const ControlRect& rect = widgets.Of(arrows).spec.rect;
    MouseDown(arrows, rect.left + 2, rect.top + 2 + widgets.titleBarHeight, [&] {
        for (int i = 0; i < steps; ++i) {
            Step(arrows, up);
        }
        return kNoErr;
    });
}

void MemoryPerson::MoveSlider(int value) {
    if (!CanReach(kQuantizationSlider)) {
        return;
    }
    MemoryControl& slider = widgets.Of(kQuantizationSlider);
    slider.value = std::clamp(value, slider.spec.minimum, slider.spec.maximum);
    slider.handlers->SliderAction(kQuantizationSlider);
}

void MemoryPerson::PressTestButton(ButtonPoint point, PressEnd end, const Script& meanwhile) {
    if (!CanReach(kTestButton)) {
        return;
    }
    const ControlRect& rect = widgets.Of(kTestButton).spec.rect;
    const bool inButton =
        point.x >= 0 && point.x < rect.right - rect.left && point.y >= 0 && point.y < rect.bottom - rect.top;
    MouseDown(inButton ? kTestButton : -1, rect.left + point.x, rect.top + point.y + widgets.titleBarHeight,
              [&] {
                  if (meanwhile) {
                      meanwhile();
                  }
                  if (inButton && end == PressEnd::ReleaseInside) {
                      Hit(kTestButton, false);
                  }
                  return kNoErr;
              });
}

void MemoryPerson::DropFile(const char* path) {
    if (!desktop.visible || dialogs.IsOpen() || widgets.windowHandlers == nullptr) {
        return;
    }
    PanelEvent event{.kind = EventKind::SettingsDropped};
    event.path = path;
    DeliverEvent(*widgets.windowHandlers, event, [] { return kNoErr; });
}

void MemoryPerson::CloseWindow() {
    if (!desktop.visible || widgets.windowHandlers == nullptr) {
        return;
    }
    DeliverEvent(*widgets.windowHandlers, PanelEvent{.kind = EventKind::WindowClose}, [] { return kNoErr; });
}

void MemoryPerson::TabTo(int control) {
    if (CanReach(control) && Takes(control)) {
        Focus(control);
    }
}

void MemoryPerson::KeyEvent(EventKind kind, unsigned char character, const Script& act) {
    if (widgets.focus < 0 || !CanReach(widgets.focus)) {
        return;
    }
    PanelEvent event{.kind = kind, .control = widgets.focus};
    event.hasCharacter = true;
    event.character = character;
    DeliverEvent(*widgets.Of(widgets.focus).handlers, event, [&] {
        act();
        return kNoErr;
    });
}

void MemoryPerson::Press(Key key) {
    const int focus = widgets.focus;
    if (focus < 0 || !CanReach(focus)) {
        return;
    }
    switch (key) {
        case Key::Tab:
        case Key::BackTab: {
            const int step = key == Key::Tab ? 1 : kControlCount - 1;
            int next = focus;
            do {
                next = (next + step) % kControlCount;
            } while (next != focus && !(CanReach(next) && Takes(next)));
            Focus(next);
            return;
        }
        case Key::Up:
        case Key::Down: {
            const bool up = key == Key::Up;
            KeyEvent(EventKind::RawKeyDown, up ? kCharUpArrow : kCharDownArrow, [&] {
                if (focus == kPortList) {
                    widgets.selectedRow =
                        std::clamp(widgets.selectedRow + (up ? -1 : 1), 0, MemoryWidgets::kRows - 1);
                } else if (widgets.Of(focus).spec.kind == ControlKind::LittleArrows) {
                    Step(focus, up);
                }
            });
            return;
        }
        case Key::Return:
            // A field that the panel does not keep it from takes the line break into its text.
            KeyEvent(EventKind::RawKeyDown, kCharReturn, [&] {
                if (widgets.Of(focus).spec.kind == ControlKind::EditText) {
                    widgets.Of(focus).text += '\r';
                }
            });
            return;
        case Key::Backspace:
            KeyEvent(EventKind::RawKeyDown, 8, [&] {
                std::string& text = widgets.Of(focus).text;
                if (!IsField(focus) || text.empty()) {
                    return;
                }
                textBefore = text;
                std::size_t keep = allSelected ? 0 : text.size() - 1;
                while (keep > 0 && (static_cast<unsigned char>(text[keep]) & 0xc0) == 0x80) {
                    --keep;
                }
                text.resize(keep);
                allSelected = false;
            });
            return;
        case Key::Space:
            if (IsField(focus) || focus == kPortList) {
                TypeCharacter(EventKind::RawKeyDown, " ");
            } else if (widgets.Of(focus).spec.kind == ControlKind::CheckBox ||
                       widgets.Of(focus).spec.kind == ControlKind::CheckGroupBox ||
                       widgets.Of(focus).spec.kind == ControlKind::PushButton) {
                Click(focus, false);
            }
            return;
        case Key::Escape:
            KeyEvent(EventKind::RawKeyDown, 27, [] {});
            return;
    }
}

void MemoryPerson::Insert(const std::string& text) {
    MemoryControl& field = widgets.Of(widgets.focus);
    textBefore = field.text;
    std::string plain = text;
    for (char& character : plain) {
        if (character == '\n' || character == '\r') {
            character = ' ';
        }
    }
    field.text = allSelected ? plain : field.text + plain;
    allSelected = false;
}

void MemoryPerson::TypeCharacter(EventKind kind, const std::string& character) {
    KeyEvent(kind, static_cast<unsigned char>(character[0]), [&] {
        if (IsField(widgets.focus)) {
            Insert(character);
        } else if (widgets.focus == kPortList) {  // what a list does with a letter that reaches it
            widgets.selectedRow = MemoryWidgets::kRows - 1;
        }
    });
}

void MemoryPerson::Type(const char* text) {
    const std::string all = text;
    for (std::size_t at = 0; at < all.size();) {
        const std::size_t length = CharacterLength(static_cast<unsigned char>(all[at]));
        TypeCharacter(EventKind::RawKeyDown, all.substr(at, length));
        at += length;
    }
}

void MemoryPerson::HoldLetter(char letter, int count) {
    TypeCharacter(EventKind::RawKeyDown, std::string(1, letter));
    for (int i = 0; i < count; ++i) {
        TypeCharacter(EventKind::RawKeyRepeat, std::string(1, letter));
    }
}

void MemoryPerson::CommitText(const char* text) {
    Paste(text);
}

void MemoryPerson::Paste(const char* text) {
    if (widgets.focus >= 0 && IsField(widgets.focus)) {
        KeyEvent(EventKind::RawKeyDown, 0, [&] { Insert(text); });
    }
}

void MemoryPerson::SelectAll() {
    allSelected = true;
}

void MemoryPerson::Undo() {
    if (widgets.focus >= 0 && IsField(widgets.focus)) {
        KeyEvent(EventKind::RawKeyDown, 0, [&] { std::swap(widgets.Of(widgets.focus).text, textBefore); });
    }
}

}  // namespace vexil
