// What every implementation of DatagramSocket must do. A subject type supplies, default-constructed:
//
//   static std::string Obstacle();       why the machine does not allow it, and the tests are skipped; else
//   empty DatagramSocket& First(), Second();   two sockets of one network NetworkAddress AddressOfFirst(),
//   AddressOfSecond();   with interface and port NetworkAddress ManyOfSecond();       that reaches every
//   socket on Second's port void Await(DatagramSocket&);         lets time pass until something may have
//   arrived there
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <optional>
#include <string>
#include <vector>

#include "service/network/DatagramSocket.h"
#include "service/network/LinkCodec.h"
#include "tests/doubles/ContractFixture.h"

namespace vexil {

template <class Subject>
class DatagramSocketContract : public ContractFixture<Subject> {
  protected:
    using ContractFixture<Subject>::subject;

    using Bytes = std::vector<std::uint8_t>;

    struct Arrived {
        ReceivedDatagram told;
        Bytes bytes;
    };
    std::optional<Arrived> Take(DatagramSocket& socket) {
        Bytes buffer(kLongestDatagram);
        const auto told = socket.Receive(buffer);
        if (!told) {
            return std::nullopt;
        }
        buffer.resize(told->size);
        return Arrived{*told, buffer};
    }
    std::optional<Arrived> Next(DatagramSocket& socket) {
        auto arrived = Take(socket);
        if (!arrived) {
            subject->Await(socket);
            arrived = Take(socket);
        }
        // The first call after the last datagram may say that there was no more.
        return arrived ? arrived : Take(socket);
    }
    SendResult ToSecond(const Bytes& bytes) {
        return subject->First().Send(subject->AddressOfSecond(), NetworkAddress(), bytes);
    }
};

TYPED_TEST_SUITE_P(DatagramSocketContract);

TYPED_TEST_P(DatagramSocketContract, WithoutADatagramNothingIsGiven) {
    EXPECT_FALSE(this->Take(this->subject->First()));
    EXPECT_NE(this->subject->First().Port(), 0);
}

TYPED_TEST_P(DatagramSocketContract, ADatagramArrivesWithItsSenderAndItsAddress) {
    ASSERT_EQ(this->ToSecond({1, 2, 3}), SendResult::Sent);
    const auto arrived = this->Next(this->subject->Second());
    ASSERT_TRUE(arrived);
    EXPECT_THAT(arrived->bytes, testing::ElementsAre(1, 2, 3));
    EXPECT_EQ(arrived->told.from, this->subject->AddressOfFirst());
    EXPECT_TRUE(arrived->told.own.IsSameHost(this->subject->AddressOfSecond()));
    EXPECT_GT(arrived->told.time, 0U);
    EXPECT_FALSE(this->Take(this->subject->Second()));
}

TYPED_TEST_P(DatagramSocketContract, AnAnswerReachesTheSender) {
    ASSERT_EQ(this->ToSecond({1}), SendResult::Sent);
    const auto question = this->Next(this->subject->Second());
    ASSERT_TRUE(question);
    const std::vector<std::uint8_t> answer = {2};
    ASSERT_EQ(this->subject->Second().Send(question->told.from, question->told.own, answer),
              SendResult::Sent);
    const auto arrived = this->Next(this->subject->First());
    ASSERT_TRUE(arrived);
    EXPECT_EQ(arrived->bytes, answer);
    EXPECT_EQ(arrived->told.from, this->subject->AddressOfSecond());
}

TYPED_TEST_P(DatagramSocketContract, DatagramsStayApartAndInOrder) {
    constexpr std::uint8_t kCount = 40;
    for (std::uint8_t number = 0; number < kCount; ++number) {
        ASSERT_EQ(this->ToSecond(std::vector<std::uint8_t>(number + 1U, number)), SendResult::Sent);
    }
    for (std::uint8_t number = 0; number < kCount; ++number) {
        const auto arrived = this->Next(this->subject->Second());
        ASSERT_TRUE(arrived);
        EXPECT_EQ(arrived->bytes, std::vector<std::uint8_t>(number + 1U, number));
    }
    EXPECT_FALSE(this->Take(this->subject->Second()));
}

TYPED_TEST_P(DatagramSocketContract, TheLongestDatagramOfTheLinkPasses) {
    const std::vector<std::uint8_t> longest(kLongestDatagram, 7);
    ASSERT_EQ(this->ToSecond(longest), SendResult::Sent);
    const auto arrived = this->Next(this->subject->Second());
    ASSERT_TRUE(arrived);
    EXPECT_EQ(arrived->bytes, longest);
}

TYPED_TEST_P(DatagramSocketContract, OneThatIsTooLongForTheWayIsAnError) {
    EXPECT_EQ(this->ToSecond(std::vector<std::uint8_t>(66000)), SendResult::TooLong);
    EXPECT_EQ(this->subject->First().Failure(), EMSGSIZE);
}

TYPED_TEST_P(DatagramSocketContract, OneThatIsTooLongForTheBufferIsPassedOver) {
    ASSERT_EQ(this->ToSecond(std::vector<std::uint8_t>(kLongestDatagram + 1)), SendResult::Sent);
    ASSERT_EQ(this->ToSecond({5}), SendResult::Sent);
    const auto arrived = this->Next(this->subject->Second());
    ASSERT_TRUE(arrived);
    EXPECT_THAT(arrived->bytes, testing::ElementsAre(5));
    EXPECT_EQ(this->subject->Second().Counters().oversize, 1U);
}

TYPED_TEST_P(DatagramSocketContract, OneWithoutAByteIsPassedOver) {
    ASSERT_EQ(this->ToSecond({}), SendResult::Sent);
    ASSERT_EQ(this->ToSecond({5}), SendResult::Sent);
    const auto arrived = this->Next(this->subject->Second());
    ASSERT_TRUE(arrived);
    EXPECT_THAT(arrived->bytes, testing::ElementsAre(5));
}

TYPED_TEST_P(DatagramSocketContract, WhatIsForManyArrivesWithoutAnAddressOfItsOwn) {
    const std::vector<std::uint8_t> query = {9};
    ASSERT_EQ(this->subject->First().Send(this->subject->ManyOfSecond(), NetworkAddress(), query),
              SendResult::Sent);
    const auto arrived = this->Next(this->subject->Second());
    ASSERT_TRUE(arrived);
    EXPECT_EQ(arrived->bytes, query);
    EXPECT_EQ(arrived->told.from.port, this->subject->AddressOfFirst().port);
    EXPECT_FALSE(arrived->told.own.IsThere());
}

TYPED_TEST_P(DatagramSocketContract, NowhereIsUnreachable) {
    const std::vector<std::uint8_t> bytes = {1};
    EXPECT_EQ(this->subject->First().Send(NetworkAddress(), NetworkAddress(), bytes),
              SendResult::Unreachable);
    EXPECT_NE(this->subject->First().Failure(), 0);
}

REGISTER_TYPED_TEST_SUITE_P(DatagramSocketContract, WithoutADatagramNothingIsGiven,
                            ADatagramArrivesWithItsSenderAndItsAddress, AnAnswerReachesTheSender,
                            DatagramsStayApartAndInOrder, TheLongestDatagramOfTheLinkPasses,
                            OneThatIsTooLongForTheWayIsAnError, OneThatIsTooLongForTheBufferIsPassedOver,
                            OneWithoutAByteIsPassedOver, WhatIsForManyArrivesWithoutAnAddressOfItsOwn,
                            NowhereIsUnreachable);

}  // namespace vexil
