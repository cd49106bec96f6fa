#include "service/MemoryLock.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>

namespace vexil {
namespace {

constexpr std::uint64_t kMebibyte = std::uint64_t{1} << 20;

TEST(MemoryLimit, NoneFitsAll) {
    EXPECT_TRUE(FitsMemoryLimit(~std::uint64_t{0}, std::nullopt));
}

TEST(MemoryLimit, LeavesRoomForWhatIsStillToCome) {
    EXPECT_TRUE(FitsMemoryLimit(100 * kMebibyte, 356 * kMebibyte));
    EXPECT_FALSE(FitsMemoryLimit(100 * kMebibyte, 355 * kMebibyte));
}

TEST(MemoryLimit, OfAnOrdinaryUserFitsNothing) {
    EXPECT_FALSE(FitsMemoryLimit(1, 8 * kMebibyte));
    EXPECT_FALSE(FitsMemoryLimit(1, 0));
}

// As an ordinary user with the limits that are usual for one, the lower of which may be raised.
[[noreturn]] void LockBelowTheLimit() {
    const rlimit limit{kMebibyte, 8 * kMebibyte};
    const bool isOrdinary = setrlimit(RLIMIT_MEMLOCK, &limit) == 0 && setuid(65534) == 0;
    const bool isTold =
        LockMemory() == "The limit of locked memory (RLIMIT_MEMLOCK) is 8 MiB, which is too little.";
    void* const memory = std::malloc(64 * kMebibyte);
    std::_Exit(isOrdinary && isTold && memory != nullptr ? 0 : 1);
}

[[noreturn]] void LockAboveAllLimits() {
    const bool isLocked = LockMemory() == "locked";
    void* const memory = std::malloc(64 * kMebibyte);
    std::_Exit(isLocked && memory != nullptr ? 0 : 1);
}

TEST(MemoryLock, TellsTheHighestLimitThatItMayHaveAndLeavesAllocationsWorking) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root, to become another user";
    }
    EXPECT_EXIT(LockBelowTheLimit(), ::testing::ExitedWithCode(0), "");
}

TEST(MemoryLock, OfAProcessAboveAllLimitsSucceeds) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root, which is above all limits";
    }
    EXPECT_EXIT(LockAboveAllLimits(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace vexil
