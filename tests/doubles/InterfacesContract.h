// What every implementation of Interfaces must do. A subject type supplies, default-constructed:
//
//   Interfaces& Seam();
//   static std::string Obstacle();   why the machine does not allow it, and the tests are skipped; else empty
//   void PlugIn();              an interface "wire0" comes up with 10.77.0.1/24
//   void AddAddress();          it gets 10.78.0.1/16 as well
//   void PullOut();             it goes
#pragma once

#include <gtest/gtest.h>
#include <poll.h>

#include <chrono>
#include <optional>
#include <string>

#include "service/network/Interfaces.h"
#include "tests/doubles/ContractFixture.h"

namespace vexil {

template <class Subject>
class InterfacesContract : public ContractFixture<Subject> {
  protected:
    using ContractFixture<Subject>::subject;
    using ContractFixture<Subject>::Seam;

    // Takes changes until one leaves what is asked for.
    template <class Wanted>
    bool Comes(const Wanted& wanted) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (!wanted()) {
            pollfd watched{Seam().EventDescriptor(), POLLIN, 0};
            if (poll(&watched, 1, 10000) != 1 || std::chrono::steady_clock::now() > end) {
                return false;
            }
            Seam().Take();
        }
        return true;
    }
    const NetworkInterface* Wire() { return FindInterface(Seam().List(), std::string("wire0")); }
    bool HasAddress(const char* text, unsigned prefix) {
        const NetworkInterface* wire = Wire();
        for (std::size_t place = 0; wire != nullptr && place < wire->addresses.size(); ++place) {
            const InterfaceAddress& own = wire->addresses[place];
            if (own.address.Text() == text && own.prefix == prefix && own.address.interface == wire->index) {
                return true;
            }
        }
        return false;
    }
};

TYPED_TEST_SUITE_P(InterfacesContract);

TYPED_TEST_P(InterfacesContract, WithoutAChangeNothingIsTaken) {
    EXPECT_FALSE(this->Seam().Take());
    EXPECT_EQ(this->Wire(), nullptr);
}

TYPED_TEST_P(InterfacesContract, AnInterfaceComesWithItsAddress) {
    this->subject->PlugIn();
    EXPECT_EQ(this->Wire(), nullptr);  // the list is as it was taken
    ASSERT_TRUE(this->Comes([this] { return this->HasAddress("10.77.0.1", 24); }));
    EXPECT_NE(this->Wire()->index, 0U);
    EXPECT_FALSE(this->Wire()->loopback);
    EXPECT_NE(this->Wire()->hardware, HardwareAddress{});
    EXPECT_FALSE(this->Wire()->wireless);
}

TYPED_TEST_P(InterfacesContract, AnAddressComes) {
    this->subject->PlugIn();
    ASSERT_TRUE(this->Comes([this] { return this->HasAddress("10.77.0.1", 24); }));
    this->subject->AddAddress();
    EXPECT_TRUE(this->Comes([this] { return this->HasAddress("10.78.0.1", 16); }));
    EXPECT_TRUE(this->HasAddress("10.77.0.1", 24));
}

TYPED_TEST_P(InterfacesContract, AnInterfaceGoes) {
    this->subject->PlugIn();
    ASSERT_TRUE(this->Comes([this] { return this->HasAddress("10.77.0.1", 24); }));
    this->subject->PullOut();
    EXPECT_TRUE(this->Comes([this] { return this->Wire() == nullptr; }));
}

REGISTER_TYPED_TEST_SUITE_P(InterfacesContract, WithoutAChangeNothingIsTaken, AnInterfaceComesWithItsAddress,
                            AnAddressComes, AnInterfaceGoes);

}  // namespace vexil
