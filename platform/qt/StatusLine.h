// The line below the controls: one sentence on how things stand. A click on it opens the list of all. It is
// none of the controls: the panel knows nothing of it.
#pragma once

#include <QPushButton>

#include "client/PanelSentences.h"

namespace vexil {

class StatusLine : public QPushButton {
  public:
    explicit StatusLine(QWidget* window);

    // Assistive technology hears another sentence as another name.
    void Show(const Sentence& sentence);

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    Sentence shown;
};

// The mark in front of a sentence of that weight: a filled triangle, a ring, or nothing.
void DrawWeight(QPainter& painter, Sentence::Weight weight, const QRect& place, const QPalette& palette);

}  // namespace vexil
