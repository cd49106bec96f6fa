// In a network of this process's own, so that no question leaves it.
#include <gmock/gmock.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <future>
#include <memory>
#include <thread>

#include "platform/linux/network/SystemResolver.h"
#include "tests/doubles/FaultyResolver.h"
#include "tests/doubles/MemoryResolver.h"
#include "tests/doubles/ResolverContract.h"
#include "tests/service/network/Namespaces.h"

namespace vexil {
namespace {

struct SystemSubject {
    static std::string Obstacle() {
        std::string reason;
        test::EnterOwnNetwork(reason);
        return reason;
    }
    Resolver& Seam() { return resolver; }

    SystemResolver resolver;
};

struct MemorySubject {
    static std::string Obstacle() { return ""; }
    MemorySubject() { resolver.Know("localhost", {NetworkAddress::V4({127, 0, 0, 1})}); }
    Resolver& Seam() { return resolver; }

    MemoryResolver resolver;
};

struct FaultySubject {
    static std::string Obstacle() { return ""; }
    Resolver& Seam() { return resolver; }

    MemorySubject wrapped;
    FaultyResolver resolver{wrapped.Seam()};
};

INSTANTIATE_TYPED_TEST_SUITE_P(System, ResolverContract, SystemSubject);
INSTANTIATE_TYPED_TEST_SUITE_P(Memory, ResolverContract, MemorySubject);
INSTANTIATE_TYPED_TEST_SUITE_P(Faulty, ResolverContract, FaultySubject);

TEST(FaultyResolver, BeginsNothingWhileItFails) {
    FaultySubject subject;
    subject.resolver.Fail(true);
    EXPECT_FALSE(subject.Seam().Begin(1, "localhost"));
    EXPECT_FALSE(subject.Seam().Take());
    subject.resolver.Fail(false);
    EXPECT_TRUE(subject.Seam().Begin(1, "localhost"));
    EXPECT_TRUE(subject.Seam().Take());
}

// Look-ups that hang until they are let go. It is shared with the threads, which may outlive the test.
class Hanging {
  public:
    SystemResolver::LookUp LookUp() const {
        return [wait = gate](const std::string& /*name*/) {
            wait.wait();
            return std::vector<NetworkAddress>{NetworkAddress::V4({10, 0, 0, 1})};
        };
    }
    void LetGo() { opener.set_value(); }

  private:
    std::promise<void> opener;
    std::shared_future<void> gate = opener.get_future().share();
};

TEST(SystemResolver, WhatHangsKeepsNobodyWaiting) {
    Hanging hanging;
    {
        SystemResolver resolver(hanging.LookUp());
        EXPECT_TRUE(resolver.Begin(1, "studio"));
        EXPECT_FALSE(resolver.Take());
    }
    // The resolver is gone, the look-up is not.
    hanging.LetGo();
}

TEST(SystemResolver, OnlySoManyMayHang) {
    Hanging hanging;
    SystemResolver resolver(hanging.LookUp());
    for (std::uint64_t ticket = 1; ticket <= SystemResolver::kMostThreads; ++ticket) {
        ASSERT_TRUE(resolver.Begin(ticket, "studio"));
    }
    EXPECT_FALSE(resolver.Begin(99, "studio"));
    hanging.LetGo();
    int answers = 0;
    while (answers < SystemResolver::kMostThreads) {
        pollfd watched{resolver.EventDescriptor(), POLLIN, 0};
        ASSERT_EQ(poll(&watched, 1, 60000), 1);
        while (resolver.Take()) {
            ++answers;
        }
    }
    EXPECT_TRUE(resolver.Begin(99, "studio"));
}

TEST(SystemResolverDeathTest, TheProcessEndsWhateverHangs) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            Hanging hanging;
            auto* resolver = new SystemResolver(hanging.LookUp());
            resolver->Begin(1, "studio");
            delete resolver;
            std::exit(7);
        },
        testing::ExitedWithCode(7), "");
}

}  // namespace
}  // namespace vexil
