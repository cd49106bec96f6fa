// What every implementation of Resolver must do. A subject type supplies, default-constructed:
//
//   static std::string Obstacle();   why the machine does not allow it, and the tests are skipped; else empty
//   Resolver& Seam();                knows "localhost" as loopback, and not "nobody.invalid"
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "service/network/Resolver.h"
#include "tests/doubles/ContractFixture.h"

namespace vexil {

template <class Subject>
class ResolverContract : public ContractFixture<Subject> {
  protected:
    using ContractFixture<Subject>::subject;
    using ContractFixture<Subject>::Seam;

    bool IsTold(int milliseconds) {
        pollfd watched{Seam().EventDescriptor(), POLLIN, 0};
        return poll(&watched, 1, milliseconds) == 1;
    }
    // The next answer; a look-up of the system may take long.
    std::optional<ResolverAnswer> Next() {
        std::optional<ResolverAnswer> answer = Seam().Take();
        while (!answer && IsTold(60000)) {
            answer = Seam().Take();
        }
        return answer;
    }
};

TYPED_TEST_SUITE_P(ResolverContract);

TYPED_TEST_P(ResolverContract, WithoutAQuestionThereIsNoAnswer) {
    EXPECT_FALSE(this->IsTold(0));
    EXPECT_FALSE(this->Seam().Take());
}

TYPED_TEST_P(ResolverContract, AKnownNameHasAddressesWithoutPorts) {
    ASSERT_TRUE(this->Seam().Begin(7, "localhost"));
    const auto answer = this->Next();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->ticket, 7U);
    ASSERT_FALSE(answer->addresses.empty());
    EXPECT_LE(answer->addresses.size(), kMostResolvedAddresses);
    for (const NetworkAddress& address : answer->addresses) {
        EXPECT_TRUE(address.IsLoopback());
        EXPECT_EQ(address.port, 0);
    }
}

TYPED_TEST_P(ResolverContract, AnUnknownNameHasNone) {
    ASSERT_TRUE(this->Seam().Begin(1, "nobody.invalid"));
    const auto answer = this->Next();
    ASSERT_TRUE(answer);
    EXPECT_TRUE(answer->addresses.empty());
}

TYPED_TEST_P(ResolverContract, EachQuestionIsAnsweredOnce) {
    for (std::uint64_t ticket = 1; ticket <= 8; ++ticket) {
        ASSERT_TRUE(this->Seam().Begin(ticket, "localhost"));
    }
    std::map<std::uint64_t, int> answers;
    for (int count = 0; count < 8; ++count) {
        const auto answer = this->Next();
        ASSERT_TRUE(answer);
        ++answers[answer->ticket];
    }
    EXPECT_EQ(answers.size(), 8U);
    EXPECT_FALSE(this->Seam().Take());
    EXPECT_FALSE(this->IsTold(0));
}

REGISTER_TYPED_TEST_SUITE_P(ResolverContract, WithoutAQuestionThereIsNoAnswer,
                            AKnownNameHasAddressesWithoutPorts, AnUnknownNameHasNone,
                            EachQuestionIsAnsweredOnce);

}  // namespace vexil
