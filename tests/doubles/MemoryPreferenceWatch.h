// A watch in memory: Happen stands for a change by another program.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <array>

#include "platform/linux/preferences/PreferenceWatch.h"
#include "shared/System/Descriptor.h"

namespace vexil {

class MemoryPreferenceWatch : public PreferenceWatch {
  public:
    MemoryPreferenceWatch() {
        std::array<int, 2> ends{-1, -1};
        if (pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) == 0) {
            reading = Descriptor(ends[0]);
            writing = Descriptor(ends[1]);
        }
    }

    // A full pipe has been told of already.
    void Happen() const { static_cast<void>(!write(writing.Number(), "x", 1)); }

    int EventDescriptor() const override { return reading.Number(); }
    bool Take() override {
        std::array<char, 64> buffer{};
        bool any = false;
        while (read(reading.Number(), buffer.data(), buffer.size()) > 0) {
            any = true;
        }
        return any;
    }

  private:
    Descriptor reading;
    Descriptor writing;
};

}  // namespace vexil
