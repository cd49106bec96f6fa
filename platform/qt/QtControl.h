// One control of the window behind its number: what the setters and getters of Widgets need of it. Setters
// are silent: nothing that a program changes is reported as if a person had done it.
#pragma once

#include <QString>
#include <QWidget>

namespace vexil {

// The object name by which the control's widget is found: `control-NN`.
inline QString ControlName(int control) {
    return QString::asprintf("control-%02d", control);
}

class QtControl {
  public:
    QtControl() = default;
    QtControl(const QtControl&) = delete;
    QtControl& operator=(const QtControl&) = delete;
    virtual ~QtControl() = default;

    // The control itself; owned by its parent widget.
    virtual QWidget& Widget() = 0;
    // What is moved, embedded, enabled and disabled for it: the control, or the pane that holds it and what
    // is in it.
    virtual QWidget& Outer() { return Widget(); }

    // 0 for controls without a value.
    virtual int Value() const { return 0; }
    virtual void SetValue(int /*value*/) {}

    // False for controls without a text of their own.
    virtual bool ReadText(QString& /*text*/) const { return false; }
    virtual void WriteText(const QString& /*text*/) {}
};

}  // namespace vexil
