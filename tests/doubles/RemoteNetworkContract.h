// What every implementation of RemoteNetwork must do. A subject type supplies, default-constructed:
//
//   static std::string Obstacle();   why the machine does not allow it, and the tests are skipped; else empty
//   RemoteNetwork& Seam();           of a computer called "laptop", whose address is 127.0.0.1; it speaks
//   std::string Other();             a computer, as it would be set, whose input kContractInput hears it
//   void Pass();                     lets a moment go by, and serves
//
// No computer is called "nobody.invalid".
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "service/control/RemoteNetwork.h"
#include "tests/doubles/ContractFixture.h"

namespace vexil {

inline constexpr int kContractInput = 7;

template <class Subject>
class RemoteNetworkContract : public ContractFixture<Subject> {
  protected:
    using ContractFixture<Subject>::subject;
    using ContractFixture<Subject>::Seam;

    RemoteWish Lead(const std::string& computer) {
        wishes.ways = {{computer, kContractInput, 0}};
        Seam().SetWishes(wishes);
        return wishes.ways.front();
    }
    template <class Holds>
    bool Becomes(Holds holds) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!holds() && std::chrono::steady_clock::now() < end) {
            subject->Pass();
        }
        return holds();
    }
    bool IsHeard(const RemoteWish& wish) {
        return Becomes([&] { return Seam().Find(wish).problem.empty(); });
    }

    RemoteWishes wishes{{}, {}, 0, {"laptop"}, false};
};

TYPED_TEST_SUITE_P(RemoteNetworkContract);

TYPED_TEST_P(RemoteNetworkContract, AWayThatIsHeardHasANumberAndNoProblem) {
    const RemoteWish wish = this->Lead(this->subject->Other());
    ASSERT_TRUE(this->IsHeard(wish)) << this->Seam().Find(wish).problem;
    EXPECT_GE(this->Seam().Find(wish).computer, 1);
    EXPECT_FALSE(this->Seam().Find(wish).passing);
}

TYPED_TEST_P(RemoteNetworkContract, AWayToNobodyHasAReason) {
    const RemoteWish wish = this->Lead("nobody.invalid");
    for (int count = 0; count < 20; ++count) {
        const std::string problem = this->Seam().Find(wish).problem;
        ASSERT_FALSE(problem.empty());
        EXPECT_EQ(problem.back(), '.') << problem;
        this->subject->Pass();
    }
}

TYPED_TEST_P(RemoteNetworkContract, TheSameWishesAgainChangeNothing) {
    const RemoteWish wish = this->Lead(this->subject->Other());
    ASSERT_TRUE(this->IsHeard(wish));
    const RemoteAnswer before = this->Seam().Find(wish);
    this->Seam().SetWishes(this->wishes);
    EXPECT_EQ(this->Seam().Find(wish), before);
}

TYPED_TEST_P(RemoteNetworkContract, AWayThatIsWantedAgainIsHeardAgain) {
    const RemoteWish wish = this->Lead(this->subject->Other());
    ASSERT_TRUE(this->IsHeard(wish));
    this->wishes.ways.clear();
    this->Seam().SetWishes(this->wishes);
    this->subject->Pass();
    this->Lead(this->subject->Other());
    EXPECT_TRUE(this->IsHeard(wish));
}

TYPED_TEST_P(RemoteNetworkContract, ItTellsItsOwnAddressFromOthers) {
    this->Seam().SetWishes(this->wishes);
    EXPECT_TRUE(this->Seam().IsThisComputer("127.0.0.1"));
    EXPECT_FALSE(this->Seam().IsThisComputer("192.0.2.1"));
    EXPECT_FALSE(this->Seam().IsThisComputer("nobody.invalid"));
}

TYPED_TEST_P(RemoteNetworkContract, ThePortIsTheOneThatStatusTells) {
    this->Seam().SetWishes(this->wishes);
    EXPECT_NE(this->Seam().Port(), 0);
    EXPECT_EQ(this->Seam().Status().port, this->Seam().Port());
}

TYPED_TEST_P(RemoteNetworkContract, ACommandIsAnsweredByAnObject) {
    this->Seam().SetWishes(this->wishes);
    EXPECT_TRUE(nlohmann::json::parse(this->Seam().Command({"list"})).is_object());
    EXPECT_TRUE(nlohmann::json::parse(this->Seam().Command({"no such command"})).is_object());
}

TYPED_TEST_P(RemoteNetworkContract, AfterTheEndNothingIsHeardAndNoPortIsOpen) {
    const RemoteWish wish = this->Lead(this->subject->Other());
    ASSERT_TRUE(this->IsHeard(wish));
    this->Seam().Stop();
    EXPECT_FALSE(this->Seam().Find(wish).problem.empty());
    EXPECT_EQ(this->Seam().Port(), 0);
    const std::vector<RemoteSession> sessions = this->Seam().Status().sessions;
    EXPECT_TRUE(std::none_of(sessions.begin(), sessions.end(),
                             [](const RemoteSession& session) { return session.up; }));
}

REGISTER_TYPED_TEST_SUITE_P(RemoteNetworkContract, AWayThatIsHeardHasANumberAndNoProblem,
                            AWayToNobodyHasAReason, TheSameWishesAgainChangeNothing,
                            AWayThatIsWantedAgainIsHeardAgain, ItTellsItsOwnAddressFromOthers,
                            ThePortIsTheOneThatStatusTells, ACommandIsAnsweredByAnObject,
                            AfterTheEndNothingIsHeardAndNoPortIsOpen);

}  // namespace vexil
