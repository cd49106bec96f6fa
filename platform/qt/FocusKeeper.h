// The keyboard focus around a question.
#pragma once

#include <QPointer>
#include <QWidget>

namespace vexil {

// Made before a question is shown and gone after it: then the window is active again, and what had the
// keyboard focus in it has it again.
class FocusKeeper {
  public:
    // `questionsWindow` may be null.
    explicit FocusKeeper(QWidget* questionsWindow);
    ~FocusKeeper();
    FocusKeeper(const FocusKeeper&) = delete;
    FocusKeeper& operator=(const FocusKeeper&) = delete;

  private:
    QPointer<QWidget> window;
    QPointer<QWidget> focused;
};

}  // namespace vexil
