// A display and an event loop in memory. The loop runs the scripts that were posted, one after the other, and
// ends when it is told to. A loop that nobody ends would wait for ever; this one returns and says so.
#pragma once

#include <deque>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "panel/Desktop.h"

namespace vexil {

class MemoryDesktop : public Desktop {
  public:
    int width = 1024;
    int height = 768;

    // --- what the panel did ---
    bool dialogBackground = false;
    bool visible = false;
    bool active = false;
    int flushes = 0;
    int loopRuns = 0;
    bool ranDry = false;  // a run had nothing left to do and nobody had ended it
    std::vector<std::string> calls;

    // Lets `script` run inside the event loop, behind what was posted before.
    void Post(std::function<void()> script) { scripts.push_back(std::move(script)); }
    bool IsRunning() const { return depth > 0; }

    int DisplayWidth() const override { return width; }
    int DisplayHeight() const override { return height; }

    void RunEventLoop() override {
        calls.push_back("run");
        ++loopRuns;
        ++depth;
        ended = false;
        while (!ended && !scripts.empty()) {
            const std::function<void()> script = std::move(scripts.front());
            scripts.pop_front();
            script();
        }
        ranDry = ranDry || !ended;
        ended = false;
        --depth;
    }
    void EndEventLoop() override {
        calls.push_back("end");
        ended = depth > 0;
    }
    void FlushEvents() override {
        calls.push_back("flush");
        ++flushes;
    }
    void SetDialogBackground() override {
        calls.push_back("background");
        dialogBackground = true;
    }
    void ShowWindow() override {
        calls.push_back("show");
        visible = true;
        active = true;
    }
    void HideWindow() override {
        calls.push_back("hide");
        visible = false;
        active = false;
    }
    void ActivateWindow(bool on) override {
        calls.push_back(on ? "activate" : "deactivate");
        active = on;
    }

  private:
    std::deque<std::function<void()>> scripts;
    int depth = 0;
    bool ended = false;
};

}  // namespace vexil
