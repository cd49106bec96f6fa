// Wraps a desktop and misbehaves on demand: event loops that end by themselves, a display of a strange size.
#pragma once

#include <optional>

#include "panel/Desktop.h"

namespace vexil {

class FaultyDesktop : public Desktop {
  public:
    // `wrapped` must outlive this object.
    explicit FaultyDesktop(Desktop& wrapped) : inner(wrapped) {}

    int loopsThatEndAtOnce = 0;
    std::optional<int> displayWidth;
    std::optional<int> displayHeight;

    int DisplayWidth() const override { return displayWidth ? *displayWidth : inner.DisplayWidth(); }
    int DisplayHeight() const override { return displayHeight ? *displayHeight : inner.DisplayHeight(); }
    void RunEventLoop() override {
        if (loopsThatEndAtOnce > 0) {
            --loopsThatEndAtOnce;
        } else {
            inner.RunEventLoop();
        }
    }
    void EndEventLoop() override { inner.EndEventLoop(); }
    void FlushEvents() override { inner.FlushEvents(); }
    void SetDialogBackground() override { inner.SetDialogBackground(); }
    void ShowWindow() override { inner.ShowWindow(); }
    void HideWindow() override { inner.HideWindow(); }
    void ActivateWindow(bool active) override { inner.ActivateWindow(active); }

  private:
    Desktop& inner;
};

}  // namespace vexil
