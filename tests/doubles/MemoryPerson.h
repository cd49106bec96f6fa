// A person at the window in memory.
#pragma once

#include <string>

#include "tests/doubles/MemoryDesktop.h"
#include "tests/doubles/MemoryDialogs.h"
#include "tests/doubles/MemoryWidgets.h"
#include "tests/doubles/Person.h"

namespace vexil {

class MemoryPerson : public Person {
  public:
    // All must outlive this object.
    MemoryPerson(MemoryWidgets& memoryWidgets, const MemoryDesktop& memoryDesktop,
                 const MemoryDialogs& memoryDialogs)
        : widgets(memoryWidgets), desktop(memoryDesktop), dialogs(memoryDialogs) {}

    void ClickRow(int row, bool command) override;
    void Click(int control, bool command) override;
    void PickItem(int combo, int index) override;
    void StepArrows(int arrows, bool up, StepBy by) override;
    void HoldArrows(int arrows, bool up, int steps) override;
    void MoveSlider(int value) override;
    void PressTestButton(ButtonPoint point, PressEnd end, const Script& meanwhile) override;
    void DropFile(const char* path) override;
    void CloseWindow() override;

    void TabTo(int control) override;
    void Press(Key key) override;
    void Type(const char* text) override;
    void HoldLetter(char letter, int count) override;
    void CommitText(const char* text) override;
    void Paste(const char* text) override;
    void SelectAll() override;
    void Undo() override;

  private:
    bool CanReach(int control) const;
    bool Takes(int control) const;  // can have the keyboard focus
    void Focus(int control);
    void Hit(int control, bool command);
    void MouseDown(int control, double x, double y, const NextHandler& next);
    void Step(int arrows, bool up);
    // A key event for what has the focus; `act` is what its widget does with it.
    void KeyEvent(EventKind kind, unsigned char character, const Script& act);
    void TypeCharacter(EventKind kind, const std::string& character);
    void Insert(const std::string& text);
    bool IsField(int control) const;

    MemoryWidgets& widgets;
    const MemoryDesktop& desktop;
    const MemoryDialogs& dialogs;
    bool allSelected = false;
    std::string textBefore;  // what Undo brings back
};

}  // namespace vexil
