// A label, or a number that the panel shows.
#pragma once

#include <QLabel>

#include "platform/qt/QtControl.h"

namespace vexil {

class StaticText : public QLabel, public QtControl {
  public:
    StaticText(const QString& title, QWidget* parent);

    QWidget& Widget() override { return *this; }
    bool ReadText(QString& read) const override;
    void WriteText(const QString& newText) override { setText(newText); }

  protected:
    void resizeEvent(QResizeEvent* event) override;
};

}  // namespace vexil
