// Owns one file descriptor and closes it.
#pragma once

#include <unistd.h>

#include <utility>

namespace vexil {

class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int openDescriptor) : number(openDescriptor) {}
    ~Descriptor() { Close(); }
    Descriptor(Descriptor&& other) noexcept : number(std::exchange(other.number, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        if (this != &other) {
            Close();
            number = std::exchange(other.number, -1);
        }
        return *this;
    }

    bool IsOpen() const { return number >= 0; }
    int Number() const { return number; }  // -1: not open
    // Nothing is ever left to be written by closing: whoever writes synchronises first, so its result tells
    // nothing.
    void Close() {
        if (number >= 0) {
            ::close(std::exchange(number, -1));
        }
    }

  private:
    int number = -1;
};

}  // namespace vexil
