#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <stop_token>
#include <thread>

#include "service/backends/jack/NotificationGate.h"

namespace vexil {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// JACK's thread: is in a callback once for each time that it is told to.
class NotificationThread {
  public:
    explicit NotificationThread(NotificationGate& passed)
        : gate(passed), thread([this](const std::stop_token& stop) {
              while (!stop.stop_requested()) {
                  if (asked.exchange(false)) {
                      isInside = true;
                      gate.Pass();
                      isInside = false;
                      ++passes;
                  }
                  std::this_thread::sleep_for(milliseconds(1));
              }
          }) {}

    void Call() { asked = true; }
    bool IsInside() const { return isInside; }
    int Passes() const { return passes; }

  private:
    NotificationGate& gate;
    std::atomic<bool> asked{false};
    std::atomic<bool> isInside{false};
    std::atomic<int> passes{0};
    std::jthread thread;
};

// Without a sleep.
void Work(milliseconds time) {
    for (const auto end = Clock::now() + time; Clock::now() < end;) {
    }
}

TEST(NotificationGateTest, TheCallIsMadeWhileTheThreadIsInACallback) {
    NotificationGate gate;
    NotificationThread thread(gate);
    const int result = gate.Hold([&] { thread.Call(); },
                                 [&] {
                                     Work(milliseconds(30));
                                     EXPECT_TRUE(thread.IsInside());
                                     return 7;
                                 });
    EXPECT_EQ(result, 7);
    EXPECT_EQ(gate.Missed(), 0);
}

TEST(NotificationGateTest, TheThreadGoesOnWhenTheCallWaits) {
    NotificationGate gate;
    NotificationThread thread(gate);
    const auto begin = Clock::now();
    gate.Hold([&] { thread.Call(); },
              [&] {
                  const int before = thread.Passes();
                  while (thread.Passes() == before && Clock::now() - begin < std::chrono::seconds(10)) {
                      std::this_thread::sleep_for(milliseconds(1));
                  }
                  EXPECT_GT(thread.Passes(), before);
                  return 0;
              });
}

TEST(NotificationGateTest, WhereNoCallbackComesTheCallIsMadeAnyway) {
    NotificationGate gate;
    int calls = 0;
    gate.Hold([] {}, [&] { return ++calls; });
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(gate.Missed(), 1);
}

TEST(NotificationGateTest, ACallbackPassesWhileNobodyHolds) {
    NotificationGate gate;
    NotificationThread thread(gate);
    gate.Hold([&] { thread.Call(); }, [] { return 0; });
    gate.Pass();  // returns
}

}  // namespace
}  // namespace vexil
