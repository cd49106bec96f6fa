// What every implementation of ServiceDiscovery must do. A subject type supplies, default-constructed:
//
//   static std::string Obstacle();   why the machine does not allow it, and the tests are skipped; else empty
//   ServiceDiscovery& Seam();
//   void Work();                     lets what is behind it do what there is to do
//   std::optional<ServiceWish> Published();    what others see of this computer
//   void Offer(const std::string& name, const NetworkAddress& address);   another computer is there
//   void Withdraw(const std::string& name);                               it is no longer
//   void Go(), Come();               the system's part of it ends, begins
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <chrono>
#include <optional>
#include <string>

#include "service/network/ServiceDiscovery.h"
#include "tests/doubles/ContractFixture.h"

namespace vexil {

template <class Subject>
class ServiceDiscoveryContract : public ContractFixture<Subject> {
  protected:
    using ContractFixture<Subject>::subject;
    using ContractFixture<Subject>::Seam;

    static inline const ServiceWish kWish{"studio", 11188, {}};
    static inline const NetworkAddress kAttic = NetworkAddress::V4({10, 0, 0, 7}, 11188, 2);
    static inline const NetworkAddress kBarn = NetworkAddress::V4({10, 1, 0, 8}, 5000, 3);

    // Serves it when its descriptor says so, until something holds.
    template <class Holds>
    bool Becomes(Holds holds) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!holds()) {
            if (std::chrono::steady_clock::now() > end) {
                return false;
            }
            subject->Work();
            pollfd watched{Seam().EventDescriptor(), POLLIN, 0};
            if (poll(&watched, 1, 2) == 1) {
                hasTold = Seam().Serve() || hasTold;
            }
        }
        return true;
    }
    void Begin(const ServiceWish& wish) {
        Seam().Set(wish);
        EXPECT_TRUE(Becomes([this] { return Seam().CurrentState() == ServiceDiscovery::State::On; }));
        EXPECT_TRUE(Becomes([&] { return subject->Published() == wish; }));
    }

    bool hasTold = false;
};

TYPED_TEST_SUITE_P(ServiceDiscoveryContract);

TYPED_TEST_P(ServiceDiscoveryContract, NothingHappensBeforeItIsWished) {
    this->subject->Offer("attic", this->kAttic);
    this->subject->Work();
    this->Seam().Serve();
    EXPECT_EQ(this->Seam().CurrentState(), ServiceDiscovery::State::Off);
    EXPECT_TRUE(this->Seam().Hints().empty());
    EXPECT_FALSE(this->subject->Published());
    EXPECT_EQ(this->Seam().Problem(), "");
}

TYPED_TEST_P(ServiceDiscoveryContract, ThisComputerIsPublishedAndNoHint) {
    this->Begin(this->kWish);
    EXPECT_TRUE(this->Becomes([this] { return this->hasTold; }));
    EXPECT_TRUE(this->Seam().Hints().empty());
    EXPECT_EQ(this->Seam().Problem(), "");
}

TYPED_TEST_P(ServiceDiscoveryContract, WhereOthersAreIsToldAndThatTheyAreNoLonger) {
    this->subject->Offer("attic", this->kAttic);
    this->Begin(this->kWish);
    EXPECT_TRUE(this->Becomes([this] { return this->Seam().Hints().size() == 1; }));
    this->hasTold = false;
    this->subject->Offer("barn", this->kBarn);
    EXPECT_TRUE(this->Becomes([this] { return this->Seam().Hints().size() == 2; }));
    EXPECT_TRUE(this->Becomes([this] { return this->hasTold; }));
    EXPECT_THAT(this->Seam().Hints(), testing::UnorderedElementsAre(this->kAttic, this->kBarn));
    EXPECT_THAT(this->Seam().Found(),
                testing::ElementsAre(FoundService{"attic", this->kAttic}, FoundService{"barn", this->kBarn}));
    this->hasTold = false;
    this->subject->Withdraw("attic");
    EXPECT_TRUE(this->Becomes([this] { return this->Seam().Hints().size() == 1; }));
    EXPECT_TRUE(this->Becomes([this] { return this->hasTold; }));
    EXPECT_THAT(this->Seam().Hints(), testing::ElementsAre(this->kBarn));
}

TYPED_TEST_P(ServiceDiscoveryContract, NamedInterfacesAreTheOnlyOnes) {
    this->subject->Offer("attic", this->kAttic);
    this->subject->Offer("barn", this->kBarn);
    this->Begin({"studio", 11188, {3}});
    EXPECT_TRUE(this->Becomes([this] { return !this->Seam().Hints().empty(); }));
    EXPECT_THAT(this->Seam().Hints(), testing::ElementsAre(this->kBarn));
}

TYPED_TEST_P(ServiceDiscoveryContract, AnotherWishReplacesTheFirst) {
    this->subject->Offer("attic", this->kAttic);
    this->Begin(this->kWish);
    this->Begin({"stage", 5000, {}});
    EXPECT_TRUE(this->Becomes([this] { return this->Seam().Hints().size() == 1; }));
}

TYPED_TEST_P(ServiceDiscoveryContract, SeveralServicesOfAnotherTypeArePublished) {
    this->subject->Offer("attic", this->kAttic);
    this->Begin({"studio 11", 5004, {}, kSessionType, {{"studio 12", 5006}, {"studio 13", 5008}}});
    EXPECT_TRUE(this->Becomes([this] { return this->Seam().Found().size() == 1; }));
}

TYPED_TEST_P(ServiceDiscoveryContract, WithoutANameOthersAreLookedForAndNothingIsPublished) {
    this->subject->Offer("attic", this->kAttic);
    this->Seam().Set(ServiceWish{"", 0, {}, kSessionType, {}});
    EXPECT_TRUE(this->Becomes([this] { return this->Seam().Found().size() == 1; }));
    EXPECT_EQ(this->subject->Published().value_or(ServiceWish()).name, "");
}

TYPED_TEST_P(ServiceDiscoveryContract, WithoutAWishNothingIsPublishedAndNobodyIsLookedFor) {
    this->subject->Offer("attic", this->kAttic);
    this->Begin(this->kWish);
    this->Seam().Set(std::nullopt);
    EXPECT_EQ(this->Seam().CurrentState(), ServiceDiscovery::State::Off);
    EXPECT_TRUE(this->Seam().Hints().empty());
    EXPECT_TRUE(this->Becomes([this] { return !this->subject->Published(); }));
}

TYPED_TEST_P(ServiceDiscoveryContract, ThatItsSystemGoesAndComesIsNoticed) {
    this->subject->Offer("attic", this->kAttic);
    this->Begin(this->kWish);
    EXPECT_TRUE(this->Becomes([this] { return this->Seam().Hints().size() == 1; }));
    this->hasTold = false;
    this->subject->Go();
    EXPECT_TRUE(
        this->Becomes([this] { return this->Seam().CurrentState() == ServiceDiscovery::State::Missing; }));
    EXPECT_TRUE(this->Becomes([this] { return this->hasTold; }));
    EXPECT_TRUE(this->Seam().Hints().empty());
    EXPECT_NE(this->Seam().Problem(), "");
    this->subject->Come();
    EXPECT_TRUE(this->Becomes([this] { return this->subject->Published() == this->kWish; }));
    EXPECT_TRUE(this->Becomes([this] { return this->Seam().Hints().size() == 1; }));
    EXPECT_EQ(this->Seam().Problem(), "");
}

TYPED_TEST_P(ServiceDiscoveryContract, WithoutItsSystemItIsMissing) {
    this->subject->Go();
    this->Seam().Set(this->kWish);
    EXPECT_TRUE(
        this->Becomes([this] { return this->Seam().CurrentState() == ServiceDiscovery::State::Missing; }));
    EXPECT_NE(this->Seam().Problem(), "");
    this->Seam().LookAgain();
    this->subject->Come();
    EXPECT_TRUE(this->Becomes([this] { return this->subject->Published() == this->kWish; }));
}

REGISTER_TYPED_TEST_SUITE_P(ServiceDiscoveryContract, NothingHappensBeforeItIsWished,
                            ThisComputerIsPublishedAndNoHint, WhereOthersAreIsToldAndThatTheyAreNoLonger,
                            NamedInterfacesAreTheOnlyOnes, AnotherWishReplacesTheFirst,
                            SeveralServicesOfAnotherTypeArePublished,
                            WithoutANameOthersAreLookedForAndNothingIsPublished,
                            WithoutAWishNothingIsPublishedAndNobodyIsLookedFor,
                            ThatItsSystemGoesAndComesIsNoticed, WithoutItsSystemItIsMissing);

}  // namespace vexil
