#include "service/backends/LossSum.h"

#include <gtest/gtest.h>

namespace vexil {
namespace {

using std::chrono::seconds;

const LossSum::Clock::time_point kStart{seconds(1000)};

TEST(LossSum, TheFirstLossIsToldAtOnce) {
    LossSum losses;
    EXPECT_EQ(0U, losses.Take(kStart));
    losses.Add(3);
    EXPECT_EQ(3U, losses.Take(kStart));
    EXPECT_EQ(0U, losses.Take(kStart));
}

TEST(LossSum, FurtherLossesAreToldOnceInTenSecondsWithTheirSum) {
    LossSum losses;
    losses.Add(1);
    losses.Take(kStart);
    for (int cycle = 0; cycle < 1000; ++cycle) {
        losses.Add(2);
        EXPECT_EQ(0U, losses.Take(kStart + seconds(9)));
    }
    EXPECT_EQ(kStart + seconds(10), losses.DueAt());
    EXPECT_EQ(2000U, losses.Take(kStart + seconds(10)));
    EXPECT_EQ(std::nullopt, losses.DueAt());
}

TEST(LossSum, ALossAfterAQuietTimeIsToldAtOnce) {
    LossSum losses;
    losses.Add(1);
    losses.Take(kStart);
    losses.Add(1);
    EXPECT_EQ(1U, losses.Take(kStart + seconds(60)));
}

}  // namespace
}  // namespace vexil
