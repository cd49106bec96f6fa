// A control socket and its service in a folder of their own.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <string>
#include <vector>

#include "driver/DriverOptions.h"
#include "platform/linux/control/ControlSocket.h"
#include "tests/platform_linux/ControlSocketService.h"

namespace vexil {

// A fresh folder, removed when empty again.
class ControlFolder {
  public:
    ControlFolder() {
        char name[] = "/tmp/vexil3-control-XXXXXX";
        path = mkdtemp(name);
    }
    ~ControlFolder() { rmdir(path.c_str()); }
    ControlFolder(const ControlFolder&) = delete;
    ControlFolder& operator=(const ControlFolder&) = delete;

    std::string SocketPath() const { return path + "/" + kControlName; }

    std::string path;
};

class ControlSocketFixture : public ::testing::Test {
  protected:
    using Bytes = std::vector<std::uint8_t>;
    using Seen = ControlSocketService::Seen;

    // The result of a call and how long it took.
    struct Outcome {
        int error;  // errno, 0 when it succeeded
        std::chrono::milliseconds time;
    };

    template <class Call>
    static Outcome Timed(Call call) {
        const auto start = std::chrono::steady_clock::now();
        const int result = call();
        const int error = result == 0 ? 0 : errno;
        return {error, std::chrono::duration_cast<std::chrono::milliseconds>(
                           std::chrono::steady_clock::now() - start)};
    }

    // One pause of 250 ms, with slack for a busy machine.
    static void ExpectOnePause(const Outcome& outcome) {
        EXPECT_GE(outcome.time.count(), 245);
        EXPECT_LT(outcome.time.count(), 480);
    }
    static void ExpectAtOnce(const Outcome& outcome) { EXPECT_LT(outcome.time.count(), 120); }

    void OpenSocket() {
        descriptor = control.Socket(kPfSystem, kSockDgram, kSysProtoControl);
        ASSERT_NE(-1, descriptor);
    }
    Outcome LookUp(const char* name = kControlName) {
        info = MakeCtlInfo(name);
        return Timed([&] { return control.Ioctl(descriptor, kCtlIocGInfo, info.data()); });
    }
    Outcome Connect() {
        const auto address = MakeSockaddrCtl(CtlInfoId(info), kControlUnit);
        return Timed([&] { return control.Connect(descriptor, address.data(), kSockaddrCtlSize); });
    }
    // Everything up to the attachment, over a running service.
    void OpenAttached() {
        service.Start();
        OpenSocket();
        ASSERT_EQ(0, LookUp().error);
        ASSERT_EQ(0, Connect().error);
    }
    Outcome Set(int option, const Bytes& payload = {}) {
        return Timed([&] {
            return control.SetOption(descriptor, kSysProtoControl, option,
                                     payload.empty() ? nullptr : payload.data(),
                                     static_cast<std::uint32_t>(payload.size()));
        });
    }
    // Reads into a buffer of `size` bytes with guard bytes behind it, which must survive.
    Outcome Get(std::uint32_t size, Bytes* data = nullptr) {
        Bytes buffer(size + 16, 0xEE);
        std::uint32_t length = size;
        const Outcome outcome = Timed([&] {
            return control.GetOption(descriptor, kSysProtoControl, kOptionReadHostInfos, buffer.data(),
                                     &length);
        });
        EXPECT_LE(length, size);
        EXPECT_EQ(Bytes(16, 0xEE), Bytes(buffer.begin() + size, buffer.end()));
        if (data != nullptr) {
            data->assign(buffer.begin(), buffer.begin() + length);
        }
        return outcome;
    }
    // The option numbers that the service saw; an attachment counts as -1.
    std::vector<int> SeenNumbers() const {
        std::vector<int> numbers;
        for (const Seen& request : service.Requests()) {
            numbers.push_back(request.kind == kControlAttach ? -1 : static_cast<int>(request.number));
        }
        return numbers;
    }

    ControlFolder folder;
    ControlSocketService service{folder.SocketPath()};
    ControlSocket control{folder.path, false};
    int descriptor = -1;
    std::array<std::uint8_t, kCtlInfoSize> info{};
};

}  // namespace vexil
