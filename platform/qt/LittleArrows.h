// Two small arrows, up and down. They hold a number but never change it themselves: each step is an action of
// the panel, followed by a control hit.
#pragma once

#include <QAbstractSlider>
#include <QBasicTimer>

#include "platform/qt/QtControl.h"
#include "platform/qt/Reporter.h"

namespace vexil {

// A step is made when a half is pressed, again and again while it is held with the pointer on it, by the Up
// and Down keys, and by each notch of the wheel while the arrows have the keyboard focus. Assistive
// technology may set a number; the arrows then go there in steps.
class LittleArrows : public QAbstractSlider, public QtControl {
  public:
    // The number by which a value is shown; a larger one for each larger value.
    using Shown = int (*)(int value);

    LittleArrows(const Reporter& arrowsReporter, int value, int minimum, int maximum, Shown shownNumber,
                 QWidget* parent);

    QWidget& Widget() override { return *this; }
    int Value() const override { return value(); }
    void SetValue(int newValue) override;

    int ShownNumber(int ofValue) const { return shown(ofValue); }

  protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void timerEvent(QTimerEvent* event) override;
    void changeEvent(QEvent* event) override;
    bool event(QEvent* event) override;
    void sliderChange(SliderChange change) override;

  private:
    enum class Half { None, Up, Down };

    Half HalfAt(const QPoint& point) const;
    void Step(Half half);
    void StepTo(int target);
    void Release();
    void DrawHalf(QPainter& painter, Half half) const;

    Reporter reporter;
    Shown shown;
    Half pressed = Half::None;
    bool pointerInside = false;
    QBasicTimer repeat;
    int wheelRest = 0;      // turn of the wheel short of a notch
    int programChange = 0;  // inside SetValue
    int knownValue;
};

}  // namespace vexil
