// An open file descriptor and its owner.
#pragma once

#include <unistd.h>

#include <utility>

namespace vexil {

class FileDescriptor {
  public:
    FileDescriptor() = default;
    explicit FileDescriptor(int open) : descriptor(open) {}
    FileDescriptor(FileDescriptor&& other) noexcept : descriptor(std::exchange(other.descriptor, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(descriptor, other.descriptor);
        return *this;
    }
    ~FileDescriptor() {
        if (descriptor >= 0) {
            close(descriptor);
        }
    }

    explicit operator bool() const { return descriptor >= 0; }
    int Get() const { return descriptor; }

  private:
    int descriptor = -1;
};

}  // namespace vexil
