// The test button: sounds while it is held.
#pragma once

#include <QPointF>
#include <QPushButton>

#include <optional>

#include "platform/qt/KeyRepeat.h"
#include "platform/qt/QtControl.h"
#include "platform/qt/Reporter.h"

class QEventLoop;

namespace vexil {

// A press is one mouse down event whose `next` runs the event loop until the press has ended: by the release,
// wherever the pointer is; or because its end can no longer be seen: the grab is lost, the window is
// deactivated, hidden or asked to close, the button is disabled, the application ends. The space bar holds
// the button too, once for as long as it is down, and a press by assistive technology, which has no end of
// its own, lasts a moment.
class RoundButton : public QPushButton, public QtControl {
  public:
    // `parent` lies in the window.
    RoundButton(const Reporter& buttonReporter, QWidget* parent);

    QWidget& Widget() override { return *this; }

    // Ends the press, if there is one.
    void EndPress();

  protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void keyReleaseEvent(QKeyEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;
    void changeEvent(QEvent* event) override;
    bool event(QEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    enum class HeldBy { Nothing, Mouse, Key, Assistance };

    void Press(HeldBy by, const QPointF& point);
    std::int32_t WaitForEnd();

    Reporter reporter;
    HeldBy heldBy = HeldBy::Nothing;
    bool ended = true;
    bool releasedInside = false;
    QEventLoop* loop = nullptr;  // while waiting
    // From the press of a key to its release, also when the button's press has ended before.
    std::optional<HeldKeyWithoutReleases> keyDown;
};

}  // namespace vexil
