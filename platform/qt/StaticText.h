// A label, or a number that the panel shows.
#pragma once

#include <QLabel>

#include "platform/qt/QtControl.h"

namespace vexil {

// Draws its text from the top, at the same height in every place, so that the texts of a row stand on one
// line. A text that is too long for its place, as a number out of the usual range is, is drawn narrower.
class StaticText : public QLabel, public QtControl {
  public:
    // `ownTitle`: what the place was measured for; empty where a number will stand.
    StaticText(const QString& ownTitle, QWidget* parent);

    QWidget& Widget() override { return *this; }
    bool ReadText(QString& read) const override;
    void WriteText(const QString& newText) override { setText(newText); }

  protected:
    void resizeEvent(QResizeEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

  private:
    QString title;
};

}  // namespace vexil
