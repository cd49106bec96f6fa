// A group: a titled frame, for some with a check box, and a pane that holds what is embedded in the group.
#pragma once

#include <QGroupBox>
#include <QWidget>

#include "platform/qt/QtControl.h"
#include "platform/qt/Reporter.h"

namespace vexil {

// The embedded controls are children of the pane, beside the group box: a group box with a check box enables
// and disables its own children as it is toggled, and here the panel alone decides what is enabled. Disabling
// the pane disables the group with all that is in it.
class GroupPane : public QWidget, public QtControl {
  public:
    GroupPane(const Reporter& reporter, const QString& title, bool checkable, QWidget* parent);

    QWidget& Widget() override { return *box; }
    QWidget& Outer() override { return *this; }
    int Value() const override;
    void SetValue(int value) override;

  protected:
    void resizeEvent(QResizeEvent* event) override;

  private:
    QGroupBox* box;
};

}  // namespace vexil
