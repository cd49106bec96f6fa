// Seam: the person at vexil3ctl, for the commands that go on for a while or ask for something.
//
// One thread.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

namespace vexil {

class Console {
  public:
    using Clock = std::chrono::steady_clock;

    virtual ~Console() = default;

    // What is shown can be replaced: it is shown on a terminal.
    virtual bool CanRedraw() const = 0;
    // Shows text at once. 0, or an errno value when it cannot be shown.
    virtual int Show(const std::string& text) = 0;

    virtual Clock::time_point Now() const = 0;
    // From now on Ctrl-C ends the next Wait in place of the program.
    virtual void HoldInterrupts() = 0;
    // Returns after that time; false at once when Ctrl-C was pressed while interrupts are held.
    virtual bool Wait(std::chrono::milliseconds time) = 0;
    enum class Woken { Ready, Time, Interrupt };
    // Waits until the descriptor is readable, the time is over (null: without end), or Ctrl-C is pressed
    // while interrupts are held.
    virtual Woken WaitFor(int descriptor, std::optional<std::chrono::milliseconds> time) = 0;

    // What is read is typed by a person at a terminal.
    virtual bool IsTyped() const = 0;
    // All that comes in up to its end. Null when it cannot be read, and for more than `most` bytes.
    virtual std::optional<std::string> ReadAll(std::size_t most) = 0;
    // The next line that comes in, without its end; a person is asked for it by `prompt`, and does not see
    // what is typed. Null at the end of the input, when it cannot be read, and for a line above 64 KiB.
    virtual std::optional<std::string> ReadHiddenLine(const std::string& prompt) = 0;
};

}  // namespace vexil
