// Check boxes and push buttons.
#pragma once

#include <QCheckBox>
#include <QPushButton>

#include "platform/qt/QtControl.h"
#include "platform/qt/Reporter.h"

namespace vexil {

class CheckBox : public QCheckBox, public QtControl {
  public:
    CheckBox(const Reporter& reporter, const QString& title, QWidget* parent);

    QWidget& Widget() override { return *this; }
    int Value() const override { return isChecked() ? 1 : 0; }
    void SetValue(int value) override;

  protected:
    void resizeEvent(QResizeEvent* event) override;
};

class PushButton : public QPushButton, public QtControl {
  public:
    PushButton(const Reporter& reporter, const QString& title, QWidget* parent);

    QWidget& Widget() override { return *this; }

  protected:
    bool event(QEvent* event) override;
};

}  // namespace vexil
