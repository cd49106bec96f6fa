// What the log tells of programs that read too slowly; no sequencer is needed.
#include <gmock/gmock.h>

#include "service/backends/alsa/AlsaSlowReaders.h"
#include "tests/doubles/LogCapture.h"

namespace vexil {
namespace {

using std::chrono::seconds;
using ::testing::IsEmpty;

class AlsaSlowReadersTest : public ::testing::Test {
  protected:
    std::string Look(seconds time = seconds(0)) {
        slow.Look(
            lateness, [](int client) { return "synth " + std::to_string(client); }, start + time);
        const std::string told = log.Text().substr(read);
        read += told.size();
        return told;
    }
    void Miss(int messages) {
        lateness.Leave(130);
        for (int i = 0; i < messages; ++i) {
            lateness.Miss(130);
        }
    }

    LogCapture log;
    std::size_t read = 0;
    const AlsaSlowReaders::Clock::time_point start{seconds(1000)};
    AlsaLateness lateness;
    AlsaSlowReaders slow;
};

TEST_F(AlsaSlowReadersTest, NothingIsToldOfReadersThatKeepUp) {
    EXPECT_THAT(Look(), IsEmpty());
    EXPECT_EQ(slow.DueAt(), std::nullopt);
}

TEST_F(AlsaSlowReadersTest, OneThatIsLeftBehindIsToldOfOnce) {
    Miss(1);
    EXPECT_EQ(Look(), "The program \"synth 130\" reads too slowly and is left behind.\n");
    EXPECT_THAT(Look(), IsEmpty());
    EXPECT_EQ(slow.DueAt(), std::nullopt);
}

TEST_F(AlsaSlowReadersTest, WhatItHasMissedIsToldWhenItHearsAgain) {
    Miss(3);
    Look();
    lateness.TakeUp(130);
    EXPECT_EQ(Look(), "The program \"synth 130\" has read too slowly and has missed 3 messages.\n");
    EXPECT_THAT(Look(), IsEmpty());
}

TEST_F(AlsaSlowReadersTest, OneThatFallsBehindAgainAndAgainIsToldOfOnceInTenSeconds) {
    Miss(3);
    Look();
    lateness.TakeUp(130);
    Look();
    for (int times = 0; times < 5; ++times) {
        Miss(2);
        EXPECT_THAT(Look(seconds(1)), IsEmpty());
        lateness.TakeUp(130);
        EXPECT_THAT(Look(seconds(2)), IsEmpty());
    }
    EXPECT_EQ(slow.DueAt(), start + seconds(10));
    EXPECT_EQ(Look(seconds(10)),
              "The program \"synth 130\" reads too slowly and is left behind.\n"
              "The program \"synth 130\" has read too slowly and has missed 10 messages.\n");
    EXPECT_EQ(slow.DueAt(), std::nullopt);
}

}  // namespace
}  // namespace vexil
