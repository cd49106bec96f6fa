// Wraps a kernel control and fails on demand. A failing call never reaches the wrapped control.
#pragma once

#include <cerrno>
#include <cstdint>
#include <map>

#include "driver/KernelControl.h"
#include "tests/doubles/MemoryKernelControl.h"

namespace vexil {

class FaultyKernelControl : public KernelControl {
  public:
    static constexpr int kForever = -1;

    // `wrapped` must outlive this object.
    explicit FaultyKernelControl(KernelControl& wrapped) : inner(wrapped) {}

    // After `skip` more calls of the operation, the next `times` calls (at least 1) fail with `error`.
    void Fail(KernelOperation operation, int error, int skip = 0, int times = kForever) {
        faults[operation] = {error, skip, times};
    }
    // Ends a fault that is still under way.
    void Restore(KernelOperation operation) { faults.erase(operation); }

    int Socket(int domain, int type, int protocol) override {
        return Fails(KernelOperation::Socket) ? -1 : inner.Socket(domain, type, protocol);
    }
    int Ioctl(int descriptor, std::uint32_t request, void* controlInfo) override {
        return Fails(KernelOperation::Ioctl) ? -1 : inner.Ioctl(descriptor, request, controlInfo);
    }
    int Connect(int descriptor, const void* address, std::uint32_t length) override {
        return Fails(KernelOperation::Connect) ? -1 : inner.Connect(descriptor, address, length);
    }
    int SetOption(int descriptor, int level, int option, const void* payload, std::uint32_t length) override {
        return Fails(KernelOperation::SetOption)
                   ? -1
                   : inner.SetOption(descriptor, level, option, payload, length);
    }
    int GetOption(int descriptor, int level, int option, void* buffer, std::uint32_t* length) override {
        return Fails(KernelOperation::GetOption) ? -1
                                                 : inner.GetOption(descriptor, level, option, buffer, length);
    }
    int Close(int descriptor) override {
        return Fails(KernelOperation::Close) ? -1 : inner.Close(descriptor);
    }

  private:
    struct Fault {
        int error;
        int skip;
        int times;  // kForever, or how many calls are still to fail
    };

    bool Fails(KernelOperation operation) {
        const auto found = faults.find(operation);
        if (found == faults.end()) {
            return false;
        }
        Fault& fault = found->second;
        if (fault.skip > 0) {
            --fault.skip;
            return false;
        }
        errno = fault.error;
        if (fault.times != kForever && --fault.times == 0) {
            faults.erase(found);
        }
        return true;
    }

    KernelControl& inner;
    std::map<KernelOperation, Fault> faults;
};

}  // namespace vexil
