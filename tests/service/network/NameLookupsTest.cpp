#include "service/network/NameLookups.h"

#include <gmock/gmock.h>

#include "tests/doubles/FaultyResolver.h"
#include "tests/doubles/MemoryResolver.h"

namespace vexil {
namespace {

constexpr std::uint64_t kSecond = 1'000'000;
const NetworkAddress kStudio = NetworkAddress::V4({10, 0, 0, 2});

class NameLookupsTest : public testing::Test {
  protected:
    NameLookupsTest() { resolver.Know("studio", {kStudio}); }

    // Lets the time come that it asks for, or as much as is given.
    void Pass(std::uint64_t span) {
        for (const std::uint64_t end = now + span;;) {
            const auto due = lookups.PollTimeout();
            if (!due || *due > end) {
                now = end;
                return;
            }
            ASSERT_GT(*due, now) << "it asks to be served without an end";
            now = *due;
            lookups.HandleTimeout(now);
            lookups.HandleAnswers(now);
        }
    }
    void Want(const std::string& name) { lookups.Want(now, name); }

    MemoryResolver resolver;
    FaultyResolver faulty{resolver};
    NameLookups lookups{faulty};
    std::uint64_t now = 100 * kSecond;
};

TEST_F(NameLookupsTest, AnAnswerIsKnown) {
    Want("studio");
    EXPECT_EQ(lookups.Find("studio"), nullptr);
    EXPECT_TRUE(lookups.HandleAnswers(now));
    ASSERT_NE(lookups.Find("studio"), nullptr);
    EXPECT_THAT(*lookups.Find("studio"), testing::ElementsAre(kStudio));
    EXPECT_FALSE(lookups.HandleAnswers(now));
    EXPECT_EQ(lookups.Find("barn"), nullptr);
}

TEST_F(NameLookupsTest, AKnownNameIsAskedAgainAfterAMinuteAnUnknownOneAfterFiveSeconds) {
    Want("studio");
    Want("barn");
    lookups.HandleAnswers(now);
    EXPECT_TRUE(lookups.Find("barn")->empty());
    Pass(59 * kSecond);
    EXPECT_EQ(std::count(resolver.Asked().begin(), resolver.Asked().end(), "studio"), 1);
    EXPECT_EQ(std::count(resolver.Asked().begin(), resolver.Asked().end(), "barn"), 12);
    Pass(kSecond);
    EXPECT_EQ(std::count(resolver.Asked().begin(), resolver.Asked().end(), "studio"), 2);
}

TEST_F(NameLookupsTest, WhatNobodyWantsIsNotAskedAgain) {
    Want("studio");
    lookups.HandleAnswers(now);
    lookups.Drop(now, "studio");
    EXPECT_EQ(lookups.Find("studio"), nullptr);
    EXPECT_FALSE(lookups.PollTimeout());
}

TEST_F(NameLookupsTest, FourAreUnderWayAndTheNewestGoesFirst) {
    resolver.Hold(true);
    for (const char* name : {"a", "b", "c", "d", "e", "f", "g"}) {
        Want(name);
    }
    EXPECT_THAT(resolver.Asked(), testing::ElementsAre("a", "b", "c", "d"));
    resolver.Hold(false);
    resolver.Hold(true);
    lookups.HandleAnswers(now);
    EXPECT_THAT(resolver.Asked(), testing::ElementsAre("a", "b", "c", "d", "g", "f", "e"));
}

TEST_F(NameLookupsTest, ASupersededNameIsNeverAsked) {
    resolver.Hold(true);
    for (const char* name : {"a", "b", "c", "d"}) {
        Want(name);
    }
    for (const std::string name : {"s", "st", "stu", "stud", "studi"}) {
        Want(name);
        lookups.Drop(now, name);
    }
    Want("studio");
    lookups.Drop(now, "a");
    resolver.Hold(false);
    lookups.HandleAnswers(now);
    EXPECT_THAT(resolver.Asked(), testing::ElementsAre("a", "b", "c", "d", "studio"));
    lookups.HandleAnswers(now);
    EXPECT_NE(lookups.Find("studio"), nullptr);
    EXPECT_EQ(lookups.Find("a"), nullptr);
}

TEST_F(NameLookupsTest, LookUpsThatHangKeepNoPlace) {
    resolver.Hold(true);
    for (const char* name : {"a", "b", "c", "d", "studio"}) {
        Want(name);
    }
    Pass(NameLookups::kPatience - 1);
    EXPECT_EQ(resolver.Asked().size(), 4U);
    Pass(1);
    EXPECT_EQ(resolver.Asked().size(), 5U);
    resolver.Hold(false);
    lookups.HandleAnswers(now);
    EXPECT_NE(lookups.Find("a"), nullptr);
}

TEST_F(NameLookupsTest, WhenInterfacesChangeEveryNameIsAskedAnew) {
    Want("studio");
    lookups.HandleAnswers(now);
    resolver.Know("studio", {});
    lookups.Renew(now);
    EXPECT_THAT(*lookups.Find("studio"), testing::ElementsAre(kStudio));
    EXPECT_TRUE(lookups.HandleAnswers(now));
    EXPECT_TRUE(lookups.Find("studio")->empty());
}

TEST_F(NameLookupsTest, AnAnswerFromBeforeTheChangeDoesNotCount) {
    resolver.Hold(true);
    Want("studio");
    lookups.Renew(now);
    ASSERT_EQ(resolver.Asked().size(), 2U);
    resolver.Hold(false);
    EXPECT_TRUE(lookups.HandleAnswers(now));
    EXPECT_THAT(*lookups.Find("studio"), testing::ElementsAre(kStudio));
    EXPECT_EQ(resolver.Asked().size(), 2U);
}

TEST_F(NameLookupsTest, WithoutRoomItTriesAgain) {
    faulty.Fail(true);
    Want("studio");
    EXPECT_TRUE(resolver.Asked().empty());
    Pass(10 * kSecond);
    EXPECT_TRUE(resolver.Asked().empty());
    faulty.Fail(false);
    Pass(kSecond);
    EXPECT_NE(lookups.Find("studio"), nullptr);
}

TEST_F(NameLookupsTest, NoMoreNamesThanThereIsRoomFor) {
    for (std::size_t count = 0; count < NameLookups::kMostNames + 10; ++count) {
        Want("name" + std::to_string(count));
        lookups.HandleAnswers(now);
    }
    EXPECT_EQ(resolver.Asked().size(), NameLookups::kMostNames);
}

}  // namespace
}  // namespace vexil
