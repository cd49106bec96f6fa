// A driver's kernel control in memory: it records every call with its bytes, keeps the rules of the seam (a
// socket must be open and attached, a unit is attached once, options have their lengths) and fails where a
// test says so.
#pragma once

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <map>
#include <vector>

#include "driver/DriverOptions.h"
#include "driver/KernelControl.h"

namespace vexil {

enum class KernelOperation { Socket, Ioctl, Connect, SetOption, GetOption, Close };

// One call as it came in, failed or not. Fields that the operation does not have keep their defaults.
struct KernelCall {
    KernelOperation operation = KernelOperation::Socket;
    int descriptor = -1;

    int domain = 0;
    int type = 0;
    int protocol = 0;

    std::uint32_t request = 0;  // Ioctl
    int level = 0;
    int option = -1;
    bool nullPayload = false;  // SetOption was given no payload
    std::uint32_t length = 0;  // as passed; GetOption: the buffer's size
    std::vector<std::uint8_t>
        bytes;  // Ioctl: the ctl_info as passed; Connect: the address; SetOption: the payload
};

class MemoryKernelControl : public KernelControl {
  public:
    // --- the script, changed by the test at any time ---

    bool driverPresent = true;  // false: the look-up fails with ENOENT
    int socketError = 0;        // not 0: the operation fails with this errno
    int ioctlError = 0;
    int connectError = 0;
    int closeError = 0;
    std::map<int, int> optionErrors;      // option number to the errno with which it fails
    std::vector<std::uint8_t> hostInfos;  // what option 202 reads; cut to the caller's buffer

    // --- the record ---

    std::vector<KernelCall> calls;

    // Only the set and get calls, in order.
    std::vector<KernelCall> OptionCalls() const {
        std::vector<KernelCall> found;
        for (const KernelCall& call : calls) {
            if (call.operation == KernelOperation::SetOption ||
                call.operation == KernelOperation::GetOption) {
                found.push_back(call);
            }
        }
        return found;
    }
    // The option numbers of the set and get calls, in order.
    std::vector<int> OptionNumbers() const {
        std::vector<int> numbers;
        for (const KernelCall& call : OptionCalls()) {
            numbers.push_back(call.option);
        }
        return numbers;
    }
    // How many descriptors are open now.
    std::size_t OpenDescriptors() const { return descriptors.size(); }

    // --- the seam ---

    int Socket(int domain, int type, int protocol) override {
        KernelCall call = Call(KernelOperation::Socket, -1);
        call.domain = domain;
        call.type = type;
        call.protocol = protocol;
        calls.push_back(call);
        if (socketError != 0) {
            return Failure(socketError);
        }
        if (domain != kPfSystem) {
            return Failure(EAFNOSUPPORT);
        }
        if (type != kSockDgram) {
            return Failure(EPROTOTYPE);
        }
        if (protocol != kSysProtoControl) {
            return Failure(EPROTONOSUPPORT);
        }
        const int descriptor = nextDescriptor++;
        descriptors[descriptor] = 0;
        return descriptor;
    }

    int Ioctl(int descriptor, std::uint32_t request, void* controlInfo) override {
        KernelCall call = Call(KernelOperation::Ioctl, descriptor);
        call.request = request;
        call.length = kCtlInfoSize;
        call.bytes = Copy(controlInfo, kCtlInfoSize);
        calls.push_back(call);
        if (ioctlError != 0) {
            return Failure(ioctlError);
        }
        if (descriptors.count(descriptor) == 0) {
            return Failure(EBADF);
        }
        if (request != kCtlIocGInfo) {
            return Failure(ENOTTY);
        }
        const char* name = reinterpret_cast<const char*>(call.bytes.data()) + 4;
        if (strnlen(name, kCtlNameSize) == kCtlNameSize) {
            return Failure(EINVAL);
        }
        if (!driverPresent || std::strcmp(name, kControlName) != 0) {
            return Failure(ENOENT);
        }
        const std::uint8_t id[4] = {kControlId, 0, 0, 0};
        std::memcpy(controlInfo, id, sizeof id);
        return 0;
    }

    int Connect(int descriptor, const void* address, std::uint32_t length) override {
        KernelCall call = Call(KernelOperation::Connect, descriptor);
        call.length = length;
        call.bytes = Copy(address, length);
        calls.push_back(call);
        if (connectError != 0) {
            return Failure(connectError);
        }
        if (descriptors.count(descriptor) == 0) {
            return Failure(EBADF);
        }
        if (descriptors[descriptor] != 0) {
            return Failure(EISCONN);
        }
        const std::vector<std::uint8_t>& bytes = call.bytes;
        if (address == nullptr || length != kSockaddrCtlSize || bytes[0] != kSockaddrCtlSize ||
            bytes[1] != 32 || bytes[2] != 2 || bytes[3] != 0 || Uint32At(bytes, 4) != kControlId ||
            Uint32At(bytes, 8) == 0) {
            return Failure(EINVAL);
        }
        const std::uint32_t unit = Uint32At(bytes, 8);
        for (const auto& [other, attachedUnit] : descriptors) {
            if (attachedUnit == unit) {
                return Failure(EBUSY);
            }
        }
        descriptors[descriptor] = unit;
        return 0;
    }

    int SetOption(int descriptor, int level, int option, const void* payload, std::uint32_t length) override {
        KernelCall call = Call(KernelOperation::SetOption, descriptor);
        call.level = level;
        call.option = option;
        call.nullPayload = payload == nullptr;
        call.length = length;
        call.bytes = Copy(payload, length);
        calls.push_back(call);
        if (const int error = OptionError(descriptor, level, option)) {
            return Failure(error);
        }
        if (payload == nullptr && length != 0) {
            return Failure(EFAULT);
        }
        if (option < 0 || (option > 63 && option < kOptionReloadConfiguration) ||
            option > kOptionBrowseHosts) {
            return Failure(ENOPROTOOPT);
        }
        return IsLengthOf(option, length) ? 0 : Failure(EINVAL);
    }

    int GetOption(int descriptor, int level, int option, void* buffer, std::uint32_t* length) override {
        KernelCall call = Call(KernelOperation::GetOption, descriptor);
        call.level = level;
        call.option = option;
        call.length = *length;
        calls.push_back(call);
        if (const int error = OptionError(descriptor, level, option)) {
            return Failure(error);
        }
        if (option != kOptionReadHostInfos) {
            return Failure(ENOPROTOOPT);
        }
        if (hostInfos.size() < *length) {
            *length = static_cast<std::uint32_t>(hostInfos.size());
        }
        if (*length != 0) {
            std::memcpy(buffer, hostInfos.data(), *length);
        }
        return 0;
    }

    int Close(int descriptor) override {
        calls.push_back(Call(KernelOperation::Close, descriptor));
        if (descriptors.erase(descriptor) == 0) {
            return Failure(EBADF);
        }
        return closeError != 0 ? Failure(closeError) : 0;
    }

  private:
    static constexpr std::uint8_t kControlId = 9;

    static KernelCall Call(KernelOperation operation, int descriptor) {
        KernelCall call;
        call.operation = operation;
        call.descriptor = descriptor;
        return call;
    }
    static std::vector<std::uint8_t> Copy(const void* bytes, std::size_t length) {
        const auto* first = static_cast<const std::uint8_t*>(bytes);
        return first == nullptr ? std::vector<std::uint8_t>()
                                : std::vector<std::uint8_t>(first, first + length);
    }
    static std::uint32_t Uint32At(const std::vector<std::uint8_t>& bytes, std::size_t offset) {
        std::uint32_t value = 0;
        for (std::size_t i = 4; i-- > 0;) {
            value = value << 8 | bytes[offset + i];
        }
        return value;
    }
    static int Failure(int error) {
        errno = error;
        return -1;
    }
    static bool IsLengthOf(int option, std::uint32_t length) {
        if (option <= 63) {
            return length >= 4;
        }
        if (option == kOptionOpenTestOutput) {
            return length >= 7;
        }
        const bool hasValue = option == kOptionSendGranularity || option == kOptionActivateTestOutput ||
                              option == kOptionDeactivateTestOutput;
        return length == (hasValue ? 4U : 0U);
    }

    int OptionError(int descriptor, int level, int option) const {
        const auto scripted = optionErrors.find(option);
        if (scripted != optionErrors.end()) {
            return scripted->second;
        }
        const auto found = descriptors.find(descriptor);
        if (found == descriptors.end()) {
            return EBADF;
        }
        if (found->second == 0) {
            return ENOTCONN;
        }
        return level == kSysProtoControl ? 0 : ENOPROTOOPT;
    }

    int nextDescriptor = 11;
    std::map<int, std::uint32_t> descriptors;  // open descriptors; the attached unit, 0 when not attached
};

}  // namespace vexil
