// A horizontal slider with evenly spaced tick marks below. While a person moves it, each change is reported
// at once.
#pragma once

#include <QSlider>

#include "platform/qt/QtControl.h"
#include "platform/qt/Reporter.h"

namespace vexil {

class TickedSlider : public QSlider, public QtControl {
  public:
    // `unitValues`: by how many values the number that is shown for the slider rises by one.
    TickedSlider(const Reporter& reporter, int minimum, int maximum, int marks, int unitValues,
                 QWidget* parent);

    QWidget& Widget() override { return *this; }
    int Value() const override { return value(); }
    // A value out of the range is shown as the nearest in it; the record it was taken from stays as it is.
    void SetValue(int newValue) override;

    int ValuesPerUnit() const { return valuesPerUnit; }

  protected:
    void paintEvent(QPaintEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;

  private:
    int tickMarks;
    int valuesPerUnit;
};

}  // namespace vexil
