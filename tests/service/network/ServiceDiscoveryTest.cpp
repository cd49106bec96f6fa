// On a system bus of this process's own, with a stand-in for Avahi on it.
#include <gmock/gmock.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>

#include "platform/linux/network/AvahiDiscovery.h"
#include "tests/doubles/FaultyServiceDiscovery.h"
#include "tests/doubles/MemoryServiceDiscovery.h"
#include "tests/doubles/ServiceDiscoveryContract.h"
#include "tests/platform_linux/PrivateSystemBus.h"
#include "tests/service/network/FakeAvahi.h"

namespace vexil {
namespace {

using State = ServiceDiscovery::State;

std::string BusObstacle() {
    return PrivateSystemBus::IsPossible() ? "" : "dbus-daemon is not installed";
}

struct AvahiSubject {
    static std::string Obstacle() { return BusObstacle(); }
    ServiceDiscovery& Seam() { return discovery; }
    void Work() { avahi.Work(); }
    std::optional<ServiceWish> Published() const { return avahi.Published(); }
    void Offer(const std::string& name, const NetworkAddress& address) { avahi.Offer(name, address); }
    void Withdraw(const std::string& name) { avahi.Withdraw(name); }
    void Go() { avahi.Go(); }
    void Come() { avahi.Come(); }

    PrivateSystemBus bus;
    FakeAvahi avahi;
    AvahiDiscovery discovery;
};

struct MemorySubject {
    static std::string Obstacle() { return ""; }
    virtual ~MemorySubject() = default;
    virtual ServiceDiscovery& Seam() { return discovery; }
    static void Work() {}
    std::optional<ServiceWish> Published() const { return discovery.Published(); }
    void Offer(const std::string& name, const NetworkAddress& address) { discovery.Offer(name, address); }
    void Withdraw(const std::string& name) { discovery.Withdraw(name); }
    void Go() { discovery.Go(); }
    void Come() { discovery.Come(); }

    MemoryServiceDiscovery discovery;
};

struct FaultySubject : MemorySubject {
    ServiceDiscovery& Seam() override { return faulty; }

    FaultyServiceDiscovery faulty{discovery};
};

INSTANTIATE_TYPED_TEST_SUITE_P(Avahi, ServiceDiscoveryContract, AvahiSubject);
INSTANTIATE_TYPED_TEST_SUITE_P(Memory, ServiceDiscoveryContract, MemorySubject);
INSTANTIATE_TYPED_TEST_SUITE_P(Faulty, ServiceDiscoveryContract, FaultySubject);

TEST(FaultyServiceDiscovery, FindsNobodyWhileItFails) {
    FaultySubject subject;
    subject.Offer("attic", NetworkAddress::V4({10, 0, 0, 7}, 11188, 2));
    subject.Seam().Set(ServiceWish{"studio", 11188, {}});
    EXPECT_EQ(subject.Seam().Hints().size(), 1U);
    subject.faulty.Fail(true);
    EXPECT_EQ(subject.Seam().CurrentState(), State::Missing);
    EXPECT_NE(subject.Seam().Problem(), "");
    EXPECT_TRUE(subject.Seam().Hints().empty());
    subject.faulty.Fail(false);
    EXPECT_EQ(subject.Seam().Hints().size(), 1U);
}

class AvahiDiscoveryTest : public ServiceDiscoveryContract<AvahiSubject> {};

TEST_F(AvahiDiscoveryTest, WhereTheNameIsTakenAnotherOneIsPublished) {
    subject->avahi.taken = {"studio", "studio #2"};
    Seam().Set(kWish);
    EXPECT_TRUE(Becomes([this] { return subject->Published() == ServiceWish{"studio #3", kWish.port, {}}; }));
    EXPECT_EQ(Seam().Problem(), "");
}

TEST_F(AvahiDiscoveryTest, ANameIsPublishedAsFarAsItIsWholeText) {
    Begin({"stu\xC3\xA4 dio", 1, {}});
    Seam().Set(ServiceWish{"caf\xE9", 1, {}});
    EXPECT_TRUE(Becomes([this] { return subject->Published() == ServiceWish{"caf?", 1, {}}; }));
    // A label of DNS has 63 bytes; the last character would be cut in two.
    const std::string most(62, 'x');
    Seam().Set(ServiceWish{most + "\xC3\xA4", 1, {}});
    EXPECT_TRUE(Becomes([&] { return subject->Published() == ServiceWish{most, 1, {}}; }));
}

TEST_F(AvahiDiscoveryTest, WhatIsPublishedFollowsTheStateOfAvahi) {
    Begin(kWish);
    subject->avahi.ChangeState(3);
    EXPECT_TRUE(Becomes([this] { return !subject->Published(); }));
    subject->avahi.ChangeState(2);
    EXPECT_TRUE(Becomes([this] { return subject->Published() == kWish; }));
}

TEST_F(AvahiDiscoveryTest, ALookFindsTheAddressThatIsTheServicesNow) {
    subject->Offer("attic", kAttic);
    Begin(kWish);
    EXPECT_TRUE(Becomes([this] { return Seam().Hints().size() == 1; }));
    // Avahi's browser says nothing of that.
    subject->avahi.findsNothing = true;
    // One look at a time: what was asked for is answered first.
    const auto looked = [this](std::size_t count) {
        Seam().LookAgain();
        return Seam().Hints().size() == count;
    };
    EXPECT_TRUE(Becomes([&] { return looked(0); }));
    subject->avahi.findsNothing = false;
    EXPECT_TRUE(Becomes([&] { return looked(1); }));
}

TEST_F(AvahiDiscoveryTest, WhatIsOfAnotherKindIsNotLookedUp) {
    Begin(kWish);
    subject->avahi.SayNew("printer", 2, "_ipp._tcp", 0);
    subject->Offer("attic", kAttic);
    EXPECT_TRUE(Becomes([this] { return Seam().Hints().size() == 1; }));
    EXPECT_EQ(subject->avahi.Resolved(), 2) << "this computer itself, and the attic";
}

TEST_F(AvahiDiscoveryTest, AnotherComputerThatTakesOverTheNameOfThisOneIsFoundByALook) {
    Begin(kWish);
    EXPECT_TRUE(Becomes([this] { return subject->avahi.Resolved() == 1; }));
    // Avahi's browser says nothing new: the name is shown already.
    subject->avahi.taken = {"studio"};
    subject->avahi.OfferUntold("studio", kAttic);
    subject->avahi.ChangeState(3);
    subject->avahi.ChangeState(2);
    EXPECT_TRUE(Becomes([this] { return subject->Published() == ServiceWish{"studio #2", kWish.port, {}}; }));
    EXPECT_TRUE(Becomes([this] {
        Seam().LookAgain();
        return Seam().Hints().size() == 1;
    }));
    EXPECT_THAT(Seam().Hints(), testing::ElementsAre(kAttic));
}

TEST_F(AvahiDiscoveryTest, WhatAnotherProgramSaysInAvahisPlaceIsNotHeard) {
    Begin(kWish);
    subject->avahi.SayNewAsAnother("attic", 2);
    subject->Offer("barn", kBarn);
    EXPECT_TRUE(Becomes([this] { return Seam().Hints().size() == 1; }));
    EXPECT_EQ(subject->avahi.Resolved(), 2) << "this computer itself, and the barn";
}

TEST_F(AvahiDiscoveryTest, NoMoreHintsAreKeptThanThereMayBe) {
    Begin(kWish);
    constexpr std::size_t kMost = ServiceDiscovery::kMostHints;
    for (std::size_t i = 0; i < kMost + 50; ++i) {
        const std::array<std::uint8_t, 4> bytes = {10, 9, static_cast<std::uint8_t>(i / 200),
                                                   static_cast<std::uint8_t>(i % 200)};
        subject->Offer("c" + std::to_string(i), NetworkAddress::V4(bytes, 11188, 2));
    }
    // This computer's own service is among what Avahi tells.
    EXPECT_TRUE(Becomes([this] { return Seam().Hints().size() == kMost - 1; }));
    subject->Withdraw("c0");
    EXPECT_TRUE(Becomes([this] { return Seam().Hints().size() == kMost - 2; }));
    EXPECT_LE(subject->avahi.Resolved(), static_cast<int>(kMost));
}

TEST_F(AvahiDiscoveryTest, ABusThatWasNotThereIsTriedAgainByALook) {
    AvahiDiscovery discovery;
    const char* const address = getenv("DBUS_SYSTEM_BUS_ADDRESS");
    ASSERT_NE(address, nullptr);
    const std::string there = address;
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nowhere/bus", 1);
    discovery.Set(kWish);
    EXPECT_EQ(discovery.CurrentState(), State::Missing);
    EXPECT_NE(discovery.Problem(), "");
    setenv("DBUS_SYSTEM_BUS_ADDRESS", there.c_str(), 1);
    discovery.LookAgain();
    EXPECT_TRUE(Becomes([&] {
        discovery.Serve();
        return subject->Published() == kWish;
    }));
    EXPECT_EQ(discovery.CurrentState(), State::On);
}

TEST_F(AvahiDiscoveryTest, ABusThatEndsTakesItAlong) {
    subject->Offer("attic", kAttic);
    Begin(kWish);
    EXPECT_TRUE(Becomes([this] { return Seam().Hints().size() == 1; }));
    subject->bus.End();
    hasTold = false;
    const auto isTold = [this] { return hasTold; };
    // The stand-in has nothing to work with any more.
    pollfd watched{Seam().EventDescriptor(), POLLIN, 0};
    while (!isTold()) {
        ASSERT_EQ(poll(&watched, 1, 60000), 1);
        hasTold = Seam().Serve();
    }
    EXPECT_EQ(Seam().CurrentState(), State::Missing);
    EXPECT_TRUE(Seam().Hints().empty());
    Seam().LookAgain();
    EXPECT_EQ(Seam().CurrentState(), State::Missing);
}

TEST_F(AvahiDiscoveryTest, AnAvahiThatDoesNotAnswerKeepsNobodyWaiting) {
    AvahiDiscovery discovery(std::chrono::milliseconds(0));
    discovery.Set(kWish);
    // The bus answers, Avahi does not.
    pollfd watched{discovery.EventDescriptor(), POLLIN, 0};
    while (poll(&watched, 1, 50) == 1) {
        discovery.Serve();
        discovery.LookAgain();
    }
    EXPECT_EQ(discovery.CurrentState(), State::Waiting);
    EXPECT_THAT(discovery.Problem(), testing::HasSubstr("does not answer"));
    const auto works = [&] {
        discovery.Serve();
        return discovery.CurrentState() == State::On && subject->Published() == kWish;
    };
    EXPECT_TRUE(Becomes(works));
    EXPECT_TRUE(Becomes([&] { return works() && discovery.Problem().empty(); }));
}

}  // namespace
}  // namespace vexil
