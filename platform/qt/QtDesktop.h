// The display, the event loop and the window as a whole on Qt.
#pragma once

#include <functional>
#include <string>
#include <utility>

#include <QObject>

#include "panel/Desktop.h"

class QEventLoop;
class QSessionManager;

namespace vexil {

class QtWidgets;

// The event loop is one of this object's own, not the application's: ending that one would also end the
// questions that are open at the time, unanswered.
//
// A session that ends, where it asks its programs first (X11), is a request to close as below if there is
// something to apply. It goes on when the window does.
class QtDesktop : public Desktop {
  public:
    // `qtWidgets` holds the window and must outlive this object.
    explicit QtDesktop(QtWidgets& qtWidgets);

    int DisplayWidth() const override;
    int DisplayHeight() const override;
    void RunEventLoop() override;
    void EndEventLoop() override;
    void FlushEvents() override;
    void SetDialogBackground() override;
    void ShowWindow() override;
    void HideWindow() override;
    void ActivateWindow(bool active) override;

    // A request to end that comes from outside the window (a session that ends, a signal): the same as the
    // close box, and put off while a question is open, until that has been answered. Several that were put
    // off come as one. While the question is the one about an end that was asked for before, its answer
    // counts for this request too.
    void RequestClose();

    // `call` may have the end of the event loop put off by false, and run a question meanwhile.
    void SetMayEnd(std::function<bool()> call) { mayEnd = std::move(call); }
    // `call` hears that the window is about to be seen.
    void SetWindowShown(std::function<void()> call) { windowShown = std::move(call); }
    bool RunsEventLoop() const { return loop != nullptr; }

    // Brings the window to the front, and the question that is open in it. False while there is no window to
    // be seen. The arguments are those of ComeToFront.
    bool BringToFront(const std::string& startupId, const std::string& activationToken);

  private:
    void EndSession(QSessionManager& manager);

    QtWidgets& widgets;
    std::function<bool()> mayEnd;
    std::function<void()> windowShown;
    QEventLoop* loop = nullptr;  // the innermost run
    bool closePending = false;   // a request that was put off
    bool loopEnded = false;      // since it last began, or was last set
    QObject sessionEnd;          // for whose life the end of the session is heard of
};

}  // namespace vexil
