// One panel in a session, on a bus of the test's own.
#include "platform/linux/desktop/SessionInstance.h"

#include <poll.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/platform_linux/PrivateSystemBus.h"

namespace vexil {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using Start = SessionInstance::Start;

constexpr milliseconds kPatience{5000};
constexpr milliseconds kShortPatience{100};

class SessionInstanceTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!PrivateSystemBus::IsPossible()) {
            GTEST_SKIP() << "missing: dbus-daemon";
        }
        bus = std::make_unique<PrivateSystemBus>();
        setenv("DBUS_SESSION_BUS_ADDRESS", getenv("DBUS_SYSTEM_BUS_ADDRESS"), 1);
    }

    // Lets `running` answer while `other` does something in another thread, and returns what it was asked.
    // `answers` are what its window has to say, the last one again and again.
    static std::vector<LaunchTokens> AnswerWhile(SessionInstance& running, std::vector<bool> answers,
                                                 const std::function<void()>& other) {
        std::vector<LaunchTokens> asked;
        std::atomic<bool> done = false;
        std::thread thread([&] {
            other();
            done = true;
        });
        while (!done) {
            pollfd ready{running.Descriptor(), POLLIN, 0};
            poll(&ready, 1, 10);
            running.Dispatch([&](const LaunchTokens& tokens) {
                asked.push_back(tokens);
                return answers[std::min(asked.size(), answers.size()) - 1];
            });
        }
        thread.join();
        return asked;
    }

    std::unique_ptr<PrivateSystemBus> bus;
};

TEST_F(SessionInstanceTest, FirstStartGoesOn) {
    SessionInstance first;
    EXPECT_EQ(first.Enter({}, kPatience), Start::Alone);
    EXPECT_GE(first.Descriptor(), 0);
}

TEST_F(SessionInstanceTest, SecondStartHandsItsTokensOnAndEnds) {
    SessionInstance first;
    first.Enter({}, kPatience);
    Start second = Start::Alone;
    const auto asked = AnswerWhile(first, {true}, [&] {
        second = SessionInstance().Enter({"launcher_TIME5", "a token"}, kPatience);
    });
    EXPECT_EQ(second, Start::Second);
    ASSERT_EQ(asked.size(), 1U);
    EXPECT_EQ(asked[0].startupId, "launcher_TIME5");
    EXPECT_EQ(asked[0].activation, "a token");
}

TEST_F(SessionInstanceTest, PanelWithoutAWindowIsAskedAgain) {
    SessionInstance first;
    first.Enter({}, kPatience);
    Start second = Start::Alone;
    const auto asked =
        AnswerWhile(first, {false, false, true}, [&] { second = SessionInstance().Enter({}, kPatience); });
    EXPECT_EQ(second, Start::Second);
    EXPECT_EQ(asked.size(), 3U);
}

TEST_F(SessionInstanceTest, PanelThatDoesNotAnswerLosesTheName) {
    SessionInstance first;
    SessionInstance second;
    first.Enter({}, kPatience);
    const auto began = steady_clock::now();
    EXPECT_EQ(second.Enter({}, kShortPatience), Start::Alone);
    EXPECT_GE(steady_clock::now() - began, kShortPatience);
    Start third = Start::Alone;
    const auto asked = AnswerWhile(second, {true}, [&] { third = SessionInstance().Enter({}, kPatience); });
    EXPECT_EQ(third, Start::Second);
    EXPECT_EQ(asked.size(), 1U);
}

TEST_F(SessionInstanceTest, PanelThatHasEndedIsNotAsked) {
    {
        SessionInstance first;
        first.Enter({}, kPatience);
    }
    EXPECT_EQ(SessionInstance().Enter({}, kPatience), Start::Alone);
}

TEST_F(SessionInstanceTest, StartWithoutABusGoesOn) {
    setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
    SessionInstance first;
    EXPECT_EQ(first.Enter({}, kPatience), Start::Alone);
    EXPECT_EQ(first.Descriptor(), -1);
    EXPECT_FALSE(first.BusIsSilent());
    EXPECT_FALSE(first.Dispatch([](const LaunchTokens&) { return true; }));
}

TEST_F(SessionInstanceTest, BusThatListensAndDoesNotAnswerIsSilent) {
    const int deaf = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_GE(deaf, 0);
    // The system gives it an abstract address: a zero and five characters.
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    auto* plain = reinterpret_cast<sockaddr*>(&address);
    socklen_t length = sizeof(sa_family_t);
    ASSERT_EQ(bind(deaf, plain, length), 0);
    ASSERT_EQ(listen(deaf, 1), 0);
    length = sizeof(address);
    ASSERT_EQ(getsockname(deaf, plain, &length), 0);
    const std::string name(address.sun_path + 1, length - sizeof(sa_family_t) - 1);
    setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:abstract=" + name).c_str(), 1);
    SessionInstance first;
    EXPECT_EQ(first.Enter({}, kShortPatience), Start::Alone);
    EXPECT_TRUE(first.BusIsSilent());
    EXPECT_EQ(first.Descriptor(), -1);
    close(deaf);
}

TEST_F(SessionInstanceTest, BusThatGoesEndsTheQuestions) {
    SessionInstance first;
    first.Enter({}, kPatience);
    bus.reset();
    pollfd ready{first.Descriptor(), POLLIN, 0};
    ASSERT_EQ(poll(&ready, 1, static_cast<int>(kPatience.count())), 1);
    EXPECT_FALSE(first.Dispatch([](const LaunchTokens&) { return true; }));
}

TEST_F(SessionInstanceTest, WhatIsNoTokenIsLeftOut) {
    SessionInstance first;
    first.Enter({}, kPatience);
    const auto asked = AnswerWhile(first, {true}, [] {
        sd_bus* caller = nullptr;
        ASSERT_GE(sd_bus_open_user(&caller), 0);
        EXPECT_GE(sd_bus_call_method(caller, "com.sonavert.vexil3", "/com/sonavert/vexil3",
                                     "org.freedesktop.Application", "Activate", nullptr, nullptr, "a{sv}", 3,
                                     "activation-token", "i", 5, "more", "as", 2, "one", "two",
                                     "desktop-startup-id", "s", "the id"),
                  0);
        sd_bus_close_unref(caller);
    });
    ASSERT_EQ(asked.size(), 1U);
    EXPECT_EQ(asked[0].startupId, "the id");
    EXPECT_EQ(asked[0].activation, "");
}

}  // namespace
}  // namespace vexil
