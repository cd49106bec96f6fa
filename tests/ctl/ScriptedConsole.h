// A console whose person a test plays: what is shown is kept, time is virtual, lines are prepared, and what
// is shown fails on demand.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>

#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "ctl/Console.h"

namespace vexil {

class ScriptedConsole : public Console {
  public:
    bool CanRedraw() const override { return isTerminal; }
    int Show(const std::string& text) override {
        if (showError == 0) {
            shown.push_back(text);
        }
        return showError;
    }
    Clock::time_point Now() const override { return now; }
    void HoldInterrupts() override { holdsInterrupts = true; }
    // Does the next thing that happens meanwhile. When nothing is left to happen Ctrl-C is pressed, where it
    // is held.
    bool Wait(std::chrono::milliseconds time) override {
        waits.push_back(time);
        if (meanwhile.empty() && holdsInterrupts) {
            return false;
        }
        if (!meanwhile.empty()) {
            meanwhile.front()();
            meanwhile.pop_front();
        }
        now += time;
        return true;
    }
    // Does the next thing that happens meanwhile once something more was shown. When nothing is left to
    // happen, and as much was shown as is waited for, Ctrl-C is pressed, where it is held.
    Woken WaitFor(int descriptor, std::optional<std::chrono::milliseconds> time) override {
        patience.push_back(time);
        if (shown.size() > shownBefore) {
            shownBefore = shown.size();
            if (!meanwhile.empty()) {
                meanwhile.front()();
                meanwhile.pop_front();
            }
        }
        if (holdsInterrupts && meanwhile.empty() && shown.size() >= shownAtLast) {
            return Woken::Interrupt;
        }
        pollfd state{descriptor, POLLIN, 0};
        constexpr int kLongest = 20'000;
        const auto wait = static_cast<int>(time.value_or(std::chrono::milliseconds(kLongest)).count());
        if (poll(&state, 1, wait) > 0) {
            return Woken::Ready;
        }
        now += time.value_or(std::chrono::milliseconds(0));
        EXPECT_TRUE(time) << "nothing came";
        return time ? Woken::Time : Woken::Interrupt;
    }
    bool IsTyped() const override { return isTyped; }
    std::optional<std::string> ReadAll(std::size_t most) override {
        return input && input->size() <= most ? input : std::nullopt;
    }
    std::optional<std::string> ReadHiddenLine(const std::string& prompt) override {
        if (isTyped) {
            prompts.push_back(prompt);
        }
        if (lines.empty()) {
            return std::nullopt;
        }
        std::string line = lines.front();
        lines.pop_front();
        return line;
    }

    bool isTerminal = false;
    bool isTyped = false;
    int showError = 0;
    std::deque<std::string> lines;
    std::optional<std::string> input;  // all of it; null: it cannot be read
    std::deque<std::function<void()>> meanwhile;

    std::vector<std::string> shown;
    std::vector<std::string> prompts;
    std::vector<std::chrono::milliseconds> waits;
    std::vector<std::optional<std::chrono::milliseconds>> patience;  // of WaitFor
    std::size_t shownAtLast = 0;
    bool holdsInterrupts = false;
    Clock::time_point now{std::chrono::hours(1)};

  private:
    std::size_t shownBefore = 0;
};

}  // namespace vexil
