#include "platform/linux/network/SpeakerTurn.h"

#include <gmock/gmock.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>

namespace vexil {
namespace {

class SpeakerTurnTest : public testing::Test {
  protected:
    SpeakerTurn Make() const { return SpeakerTurn(name); }
    static bool IsReadable(const SpeakerTurn& turn, int milliseconds) {
        pollfd event{turn.EventDescriptor(), POLLIN, 0};
        return poll(&event, 1, milliseconds) == 1;
    }

    const std::string name = "vexil3/test-" + std::to_string(getpid());
};

TEST_F(SpeakerTurnTest, TheFirstSpeaksAndTheSecondKnowsWhose) {
    SpeakerTurn first = Make();
    SpeakerTurn second = Make();
    EXPECT_TRUE(first.Take());
    EXPECT_TRUE(first.Take()) << "it has it already";
    EXPECT_FALSE(second.Take());
    EXPECT_THAT(second.Holder(), testing::StartsWith("user "));
    EXPECT_FALSE(IsReadable(second, 0));
}

TEST_F(SpeakerTurnTest, TheSecondIsWokenWhenTheFirstLeaves) {
    SpeakerTurn first = Make();
    SpeakerTurn second = Make();
    SpeakerTurn third = Make();
    ASSERT_TRUE(first.Take());
    ASSERT_FALSE(second.Take());
    ASSERT_FALSE(third.Take());
    first.Leave();
    EXPECT_TRUE(IsReadable(second, 30'000));
    EXPECT_TRUE(IsReadable(third, 30'000));
    EXPECT_TRUE(second.Take());
    EXPECT_FALSE(third.Take());
    EXPECT_FALSE(IsReadable(third, 0));
}

TEST_F(SpeakerTurnTest, AProcessThatDiesHasLeft) {
    const pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        SpeakerTurn first(name);
        first.Take();
        pause();
        _exit(0);
    }
    SpeakerTurn second = Make();
    while (second.Take()) {
        second.Leave();
        usleep(1000);
    }
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    EXPECT_TRUE(IsReadable(second, 30'000));
    EXPECT_TRUE(second.Take());
}

TEST_F(SpeakerTurnTest, WhoWaitsNoLongerIsNotWoken) {
    SpeakerTurn first = Make();
    SpeakerTurn second = Make();
    ASSERT_TRUE(first.Take());
    ASSERT_FALSE(second.Take());
    second.Leave();
    EXPECT_EQ(second.EventDescriptor(), -1);
    EXPECT_EQ(second.Holder(), "");
}

}  // namespace
}  // namespace vexil
