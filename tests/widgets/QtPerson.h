// A person at the real window: input events at the places where the controls really are.
#pragma once

#include <QPoint>
#include <QWidget>

#include "platform/qt/QtWidgets.h"
#include "tests/doubles/Person.h"

class QLineEdit;

namespace vexil {

class QtPerson : public Person {
  public:
    // `qtWidgets` must outlive this object.
    explicit QtPerson(QtWidgets& qtWidgets) : widgets(qtWidgets) {}

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

    // Makes the window the active one, as the desktop does with a new one.
    void Activate();
    // Turns the wheel with the pointer over a control; positive: away from the person.
    void TurnWheel(int control, int notches);
    // Lets the toolkit deal with everything that is on its way.
    void Settle();

    QWidget* Window() const { return widgets.Window(); }
    // The control's widget by its object name; null when there is none.
    QWidget* Find(int control) const;
    // A point of the control in window coordinates.
    QPoint Place(int control, const QPoint& point) const;
    QLineEdit* FocusedLine() const;

  private:
    bool CanReach(int control) const;
    QPoint Target(int control) const;
    void EndPress(PressEnd end, const QPoint& inside);
    void KeyOnWindow(int key, Qt::KeyboardModifiers modifiers);

    QtWidgets& widgets;
};

}  // namespace vexil
