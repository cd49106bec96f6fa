// The driver's control with a note of what became of each "read the configuration again" (option 190): the
// panel itself only logs it.
//
// One thread.
#pragma once

#include <cerrno>
#include <functional>
#include <utility>

#include "driver/DriverOptions.h"
#include "driver/KernelControl.h"

namespace vexil {

class NotedKernelControl : public KernelControl {
  public:
    // Calls `noteReload` with 0 or the errno value of every such option. `control` must outlive this object.
    NotedKernelControl(KernelControl& control, std::function<void(int error)> noteReload)
        : driver(control), note(std::move(noteReload)) {}

    int Socket(int domain, int type, int protocol) override { return driver.Socket(domain, type, protocol); }
    int Ioctl(int descriptor, std::uint32_t request, void* controlInfo) override {
        return driver.Ioctl(descriptor, request, controlInfo);
    }
    int Connect(int descriptor, const void* address, std::uint32_t length) override {
        return driver.Connect(descriptor, address, length);
    }
    int SetOption(int descriptor, int level, int option, const void* payload, std::uint32_t length) override {
        const int result = driver.SetOption(descriptor, level, option, payload, length);
        const int error = errno;
        if (option == kOptionReloadConfiguration) {
            note(result == 0 ? 0 : error);
        }
        errno = error;
        return result;
    }
    int GetOption(int descriptor, int level, int option, void* buffer, std::uint32_t* length) override {
        return driver.GetOption(descriptor, level, option, buffer, length);
    }
    int Close(int descriptor) override { return driver.Close(descriptor); }

  private:
    KernelControl& driver;
    const std::function<void(int error)> note;
};

}  // namespace vexil
