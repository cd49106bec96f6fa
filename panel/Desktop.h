// Seam: the display, the event loop and the window as a whole.
#pragma once

namespace vexil {

class Desktop {
  public:
    virtual ~Desktop() = default;

    // Main display, pixels.
    virtual int DisplayWidth() const = 0;
    virtual int DisplayHeight() const = 0;

    // Runs the event loop until EndEventLoop; can be run again after it ended.
    virtual void RunEventLoop() = 0;
    // Ends the innermost run of the application's event loop. Raises no close request.
    virtual void EndEventLoop() = 0;
    // Discards what the person did before now.
    virtual void FlushEvents() = 0;

    // Gives the window the look of a dialog.
    virtual void SetDialogBackground() = 0;
    virtual void ShowWindow() = 0;
    virtual void HideWindow() = 0;
    virtual void ActivateWindow(bool active) = 0;
};

}  // namespace vexil
