// Blocks shared between threads: copying and destroying is safe, and each thread writes its own strings. Of
// most use under the thread sanitizer.
#include <gtest/gtest.h>

#include <array>
#include <thread>

#include "shared/System/svString.h"

namespace vexil {
namespace {

constexpr int kRounds = 20000;

template <class Body>
void OnTwoThreads(const Body& body) {
    std::array<std::thread, 2> threads;
    for (std::thread& thread : threads) {
        thread = std::thread(body);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(StringThreads, CopyAndDestroyCountsNothingTwice) {
    const svString shared("a text of some length");
    OnTwoThreads([&shared] {
        for (int round = 0; round < kRounds; ++round) {
            const svString copy(shared);
            svString assigned;
            assigned = copy;
        }
    });
    EXPECT_EQ(shared.GetHeader()->nRefs, 1);
}

TEST(StringThreads, WritingACopyLeavesTheOtherThreadsTextAlone) {
    const svString shared("0123456789");
    OnTwoThreads([&shared] {
        for (int round = 0; round < kRounds; ++round) {
            svString copy(shared);
            copy.SetAt(0, 'x');
            copy += "more";
        }
    });
    EXPECT_STREQ(shared.c_str(), "0123456789");
    EXPECT_EQ(shared.GetHeader()->nRefs, 1);
}

TEST(StringThreads, TheLastOwnerOfABlockMayWriteItInPlace) {
    for (int round = 0; round < 500; ++round) {
        svString first("0123456789");
        svString second(first);
        std::thread thread([&second] {
            second.SetAt(0, 'b');
            second.Empty();
        });
        first.SetAt(0, 'a');
        thread.join();
        EXPECT_STREQ(first.c_str(), "a123456789");
    }
}

TEST(StringThreads, EmptyStringsAreSharedByAllThreads) {
    OnTwoThreads([] {
        for (int round = 0; round < kRounds; ++round) {
            svString empty;
            svString copy(empty);
            copy = empty;
            copy.Empty();
            copy.ReleaseBuffer();
            copy.Format("%.0s", "x");
        }
    });
    EXPECT_EQ(svString().GetHeader()->nRefs, -1);
}

}  // namespace
}  // namespace vexil
