// The panel's one window: a fixed content that is closed only when the panel says so, and takes dropped
// settings files.
#pragma once

#include <QWidget>

#include "panel/PanelEvent.h"

namespace vexil {

class PanelWindow : public QWidget {
  public:
    PanelWindow(int width, int height);

    // Window events go to `newHandlers` from now on; until then nobody hears of them. They must outlive the
    // window. A close request that came before goes to them from the event loop: nobody asks a second time to
    // end a program that was starting.
    void SetHandlers(PanelHandlers& newHandlers);
    // Whether the panel is just dealing with a close request: what it asks meanwhile is about that one.
    bool IsClosing() const { return closing; }
    // Draws a frame of one pixel around a child that has no frame.
    void FrameChild(QWidget& child);

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

  private:
    QRect ChildFrame() const;

    PanelHandlers* handlers = nullptr;
    bool closing = false;
    bool closeRequested = false;  // while there were no handlers
    QWidget* framedChild = nullptr;
};

}  // namespace vexil
