// The console of standard input and standard output.
#pragma once

#include <string_view>

#include "ctl/Console.h"
#include "shared/System/Descriptor.h"

namespace vexil {

class StandardConsole : public Console {
  public:
    // The descriptors stay the caller's.
    StandardConsole(int inputDescriptor, int outputDescriptor)
        : input(inputDescriptor), output(outputDescriptor) {}

    bool CanRedraw() const override;
    int Show(const std::string& text) override;
    Clock::time_point Now() const override { return Clock::now(); }
    void HoldInterrupts() override;
    bool Wait(std::chrono::milliseconds time) override;
    Woken WaitFor(int descriptor, std::optional<std::chrono::milliseconds> time) override;
    bool IsTyped() const override;
    std::optional<std::string> ReadAll(std::size_t most) override;
    // Signals that come meanwhile take effect when the terminal shows again what is typed.
    std::optional<std::string> ReadHiddenLine(const std::string& prompt) override;

  private:
    std::optional<std::string> ReadLine();

    const int input;
    const int output;
    Descriptor interrupts;  // readable once Ctrl-C was pressed; open while interrupts are held
};

// Writes all of a text. 0 or an errno value.
int WriteAll(int descriptor, std::string_view text);

}  // namespace vexil
