#include "platform/qt/StaticText.h"

#include "platform/qt/TitleFit.h"

namespace vexil {

namespace {

// Kept clear between a label and the field that stands next to it.
constexpr int kGap = 3;

}  // namespace

StaticText::StaticText(const QString& title, QWidget* parent) : QLabel(parent) {
    setTextFormat(Qt::PlainText);
    // From the top, so that texts of different heights stand on one line.
    setAlignment(Qt::AlignLeft | Qt::AlignTop);
    setText(title);
}

void StaticText::resizeEvent(QResizeEvent* event) {
    FitTitle(*this, text(), width() - kGap);
    QLabel::resizeEvent(event);
}

bool StaticText::ReadText(QString& read) const {
    read = text();
    return true;
}

}  // namespace vexil
