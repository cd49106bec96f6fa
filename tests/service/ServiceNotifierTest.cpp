// What the service manager hears, on a socket in its place.
#include "service/ServiceNotifier.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "shared/System/Descriptor.h"
#include "tests/config/TemporaryFolder.h"

namespace vexil {
namespace {

using namespace std::chrono_literals;
using ::testing::StartsWith;

class ServiceNotifierTest : public ::testing::Test {
  protected:
    ServiceNotifierTest() {
        const std::string path = folder / "notify";
        sockaddr_un place{};
        place.sun_family = AF_UNIX;
        std::memcpy(place.sun_path, path.c_str(), path.size() + 1);
        EXPECT_EQ(0, bind(manager.Number(), reinterpret_cast<const sockaddr*>(&place), sizeof place));
        setenv("NOTIFY_SOCKET", path.c_str(), 1);
        unsetenv("WATCHDOG_USEC");
        unsetenv("WATCHDOG_PID");
    }
    ~ServiceNotifierTest() override { unsetenv("NOTIFY_SOCKET"); }

    // The next message; empty when nothing came.
    std::string Heard() const {
        std::array<char, 1024> text{};
        const ssize_t size = recv(manager.Number(), text.data(), text.size(), MSG_DONTWAIT);
        return size > 0 ? std::string(text.data(), static_cast<std::size_t>(size)) : "";
    }

    test::TemporaryFolder folder;
    const Descriptor manager{::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
};

TEST_F(ServiceNotifierTest, TellsTheLifeOfTheService) {
    ServiceNotifier notifier;
    notifier.Ready("2 ports");
    EXPECT_EQ("READY=1\nSTATUS=2 ports", Heard());
    notifier.Reloading();
    EXPECT_THAT(Heard(), StartsWith("RELOADING=1\nMONOTONIC_USEC="));
    notifier.Stopping();
    EXPECT_EQ("STOPPING=1", Heard());
    notifier.Alive();
    EXPECT_EQ("WATCHDOG=1", Heard());
}

TEST_F(ServiceNotifierTest, TellsAStatusOnce) {
    ServiceNotifier notifier;
    notifier.Ready("2 ports");
    Heard();
    notifier.Status("2 ports");
    EXPECT_EQ("", Heard());
    notifier.Status("3 ports");
    EXPECT_EQ("STATUS=3 ports", Heard());
    notifier.Status("3 ports");
    EXPECT_EQ("", Heard());
}

TEST_F(ServiceNotifierTest, DoesNotWaitForAManagerThatDoesNotListen) {
    ServiceNotifier notifier;
    int told = 0;
    for (; told < 100000; ++told) {
        notifier.Status(std::to_string(told));
    }
    while (!Heard().empty()) {
    }
    notifier.Status("at last");
    EXPECT_EQ("STATUS=at last", Heard());
}

TEST_F(ServiceNotifierTest, AStatusThatWasNotHeardIsToldAgain) {
    ServiceNotifier notifier;
    for (int told = 0; told < 100000; ++told) {
        notifier.Alive();
    }
    notifier.Status("2 ports");
    while (!Heard().empty()) {
    }
    notifier.Status("2 ports");
    EXPECT_EQ("STATUS=2 ports", Heard());
}

TEST_F(ServiceNotifierTest, FindsAManagerThatIsInNoFolder) {
    const std::string name = "vexil-notifier-test-" + std::to_string(getpid());
    const Descriptor hidden(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_un place{};
    place.sun_family = AF_UNIX;
    std::memcpy(place.sun_path + 1, name.c_str(), name.size());
    ASSERT_EQ(0, bind(hidden.Number(), reinterpret_cast<const sockaddr*>(&place),
                      static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size())));
    setenv("NOTIFY_SOCKET", ("@" + name).c_str(), 1);
    ServiceNotifier().Ready("2 ports");
    std::array<char, 64> text{};
    EXPECT_GT(recv(hidden.Number(), text.data(), text.size(), MSG_DONTWAIT), 0);
    EXPECT_STREQ("READY=1\nSTATUS=2 ports", text.data());
}

TEST_F(ServiceNotifierTest, IsAliveTwiceInTheTimeOfTheWatchdog) {
    setenv("WATCHDOG_USEC", "3000000", 1);
    setenv("WATCHDOG_PID", std::to_string(getpid()).c_str(), 1);
    EXPECT_EQ(1500ms, ServiceNotifier().AliveInterval());
}

TEST_F(ServiceNotifierTest, WithoutAWatchdogNobodyWaits) {
    EXPECT_FALSE(ServiceNotifier().AliveInterval());
    setenv("WATCHDOG_USEC", "3000000", 1);
    setenv("WATCHDOG_PID", "1", 1);
    EXPECT_FALSE(ServiceNotifier().AliveInterval());
}

TEST_F(ServiceNotifierTest, WithoutAManagerDoesNothing) {
    unsetenv("NOTIFY_SOCKET");
    ServiceNotifier notifier;
    notifier.Ready("2 ports");
    notifier.Status("3 ports");
    EXPECT_EQ("", Heard());
}

}  // namespace
}  // namespace vexil
