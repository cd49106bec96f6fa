// What every kernel control must do, as one suite over all of them. A subject type supplies,
// default-constructed:
//
//   KernelControl& Control();
//   void SetHostInfos(std::vector<std::uint8_t> bytes);   what the driver answers to option 202 from now on
//   void RemoveDriver();                                  no control can be found from now on
//   std::vector<AcceptedOption> Accepted();               the set options that the driver took, in order
//
// The driver behind it knows the options of driver/DriverOptions.h and checks their lengths.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <utility>
#include <vector>

#include "driver/DriverOptions.h"
#include "driver/KernelControl.h"

namespace vexil {

// Option number and payload.
using AcceptedOption = std::pair<int, std::vector<std::uint8_t>>;

template <class Subject>
class KernelControlContract : public ::testing::Test {
  protected:
    KernelControl& Control() { return subject.Control(); }

    int OpenSocket() { return Control().Socket(kPfSystem, kSockDgram, kSysProtoControl); }

    // Looks the driver's control up and attaches to its unit; what the failing call returned, with its errno.
    int Attach(int descriptor) {
        auto info = MakeCtlInfo(kControlName);
        const int found = Control().Ioctl(descriptor, kCtlIocGInfo, info.data());
        if (found != 0) {
            return found;
        }
        const auto address = MakeSockaddrCtl(CtlInfoId(info), kControlUnit);
        return Control().Connect(descriptor, address.data(), kSockaddrCtlSize);
    }

    int OpenAttachedSocket() {
        const int descriptor = OpenSocket();
        EXPECT_EQ(0, Attach(descriptor)) << "errno " << errno;
        return descriptor;
    }

    int Set(int descriptor, int option, const std::vector<std::uint8_t>& payload) {
        return Control().SetOption(descriptor, kSysProtoControl, option,
                                   payload.empty() ? nullptr : payload.data(),
                                   static_cast<std::uint32_t>(payload.size()));
    }

    // Expects the call's result to be -1 with this errno.
    static void ExpectFailure(int error, int result) {
        const int found = errno;
        EXPECT_EQ(-1, result);
        EXPECT_EQ(error, found);
    }

    Subject subject;
};

TYPED_TEST_SUITE_P(KernelControlContract);

TYPED_TEST_P(KernelControlContract, SocketsHaveDescriptorsOfTheirOwn) {
    const int first = this->OpenSocket();
    const int second = this->OpenSocket();
    EXPECT_GE(first, 0);
    EXPECT_GE(second, 0);
    EXPECT_NE(first, second);
    this->Control().Close(first);
    this->Control().Close(second);
}

TYPED_TEST_P(KernelControlContract, SocketOfAnotherDomainIsRefused) {
    this->ExpectFailure(EAFNOSUPPORT, this->Control().Socket(2, kSockDgram, kSysProtoControl));
}

TYPED_TEST_P(KernelControlContract, SocketOfAnotherTypeIsRefused) {
    this->ExpectFailure(EPROTOTYPE, this->Control().Socket(kPfSystem, 1, kSysProtoControl));
}

TYPED_TEST_P(KernelControlContract, SocketOfAnotherProtocolIsRefused) {
    this->ExpectFailure(EPROTONOSUPPORT, this->Control().Socket(kPfSystem, kSockDgram, 1));
}

TYPED_TEST_P(KernelControlContract, LookUpFillsInTheIdAlone) {
    const int descriptor = this->OpenSocket();
    const auto asked = MakeCtlInfo(kControlName);
    auto answered = asked;
    ASSERT_EQ(0, this->Control().Ioctl(descriptor, kCtlIocGInfo, answered.data()));
    EXPECT_NE(0U, CtlInfoId(answered));
    EXPECT_TRUE(std::equal(asked.begin() + 4, asked.end(), answered.begin() + 4));
    this->Control().Close(descriptor);
}

TYPED_TEST_P(KernelControlContract, LookUpOfAnUnknownControlFails) {
    const int descriptor = this->OpenSocket();
    auto info = MakeCtlInfo("com.example.none");
    this->ExpectFailure(ENOENT, this->Control().Ioctl(descriptor, kCtlIocGInfo, info.data()));
    this->Control().Close(descriptor);
}

TYPED_TEST_P(KernelControlContract, LookUpWithoutADriverFails) {
    this->subject.RemoveDriver();
    const int descriptor = this->OpenSocket();
    auto info = MakeCtlInfo(kControlName);
    this->ExpectFailure(ENOENT, this->Control().Ioctl(descriptor, kCtlIocGInfo, info.data()));
    this->Control().Close(descriptor);
}

TYPED_TEST_P(KernelControlContract, LookUpOfANameWithoutEndFails) {
    const int descriptor = this->OpenSocket();
    auto info = MakeCtlInfo(kControlName);
    std::fill(info.begin() + 4, info.end(), std::uint8_t{'x'});
    this->ExpectFailure(EINVAL, this->Control().Ioctl(descriptor, kCtlIocGInfo, info.data()));
    this->Control().Close(descriptor);
}

TYPED_TEST_P(KernelControlContract, AnotherRequestThanTheLookUpFails) {
    const int descriptor = this->OpenSocket();
    auto info = MakeCtlInfo(kControlName);
    this->ExpectFailure(ENOTTY, this->Control().Ioctl(descriptor, kCtlIocGInfo + 1, info.data()));
    this->Control().Close(descriptor);
}

TYPED_TEST_P(KernelControlContract, AddressOfAnotherLengthIsRefused) {
    const int descriptor = this->OpenSocket();
    auto info = MakeCtlInfo(kControlName);
    ASSERT_EQ(0, this->Control().Ioctl(descriptor, kCtlIocGInfo, info.data()));
    const auto address = MakeSockaddrCtl(CtlInfoId(info), kControlUnit);
    this->ExpectFailure(EINVAL, this->Control().Connect(descriptor, address.data(), kSockaddrCtlSize - 1));
    this->Control().Close(descriptor);
}

TYPED_TEST_P(KernelControlContract, AddressWithAWrongHeaderIsRefused) {
    const int descriptor = this->OpenSocket();
    auto info = MakeCtlInfo(kControlName);
    ASSERT_EQ(0, this->Control().Ioctl(descriptor, kCtlIocGInfo, info.data()));
    for (std::size_t offset = 0; offset < 4; ++offset) {
        auto address = MakeSockaddrCtl(CtlInfoId(info), kControlUnit);
        address[offset] ^= 0x40;
        SCOPED_TRACE(offset);
        this->ExpectFailure(EINVAL, this->Control().Connect(descriptor, address.data(), kSockaddrCtlSize));
    }
    this->Control().Close(descriptor);
}

TYPED_TEST_P(KernelControlContract, AddressOfAControlThatWasNotLookedUpIsRefused) {
    const int descriptor = this->OpenSocket();
    auto info = MakeCtlInfo(kControlName);
    ASSERT_EQ(0, this->Control().Ioctl(descriptor, kCtlIocGInfo, info.data()));
    const auto address = MakeSockaddrCtl(CtlInfoId(info) + 1, kControlUnit);
    this->ExpectFailure(EINVAL, this->Control().Connect(descriptor, address.data(), kSockaddrCtlSize));
    this->Control().Close(descriptor);
}

TYPED_TEST_P(KernelControlContract, AUnitIsAttachedOnce) {
    const int first = this->OpenAttachedSocket();
    const int second = this->OpenSocket();
    this->ExpectFailure(EBUSY, this->Attach(second));
    this->Control().Close(first);
    this->Control().Close(second);
}

TYPED_TEST_P(KernelControlContract, ClosingFreesTheUnit) {
    const int first = this->OpenAttachedSocket();
    const int second = this->OpenSocket();
    ASSERT_EQ(-1, this->Attach(second));
    EXPECT_EQ(0, this->Control().Close(first));
    EXPECT_EQ(0, this->Attach(second));
    this->Control().Close(second);
}

TYPED_TEST_P(KernelControlContract, AnAttachedSocketIsNotAttachedAgain) {
    const int descriptor = this->OpenAttachedSocket();
    this->ExpectFailure(EISCONN, this->Attach(descriptor));
    this->Control().Close(descriptor);
}

TYPED_TEST_P(KernelControlContract, OptionsBeforeTheAttachFail) {
    const int descriptor = this->OpenSocket();
    this->ExpectFailure(ENOTCONN, this->Set(descriptor, kOptionReloadConfiguration, {}));
    std::uint8_t buffer[4] = {};
    std::uint32_t length = sizeof buffer;
    this->ExpectFailure(ENOTCONN, this->Control().GetOption(descriptor, kSysProtoControl,
                                                            kOptionReadHostInfos, buffer, &length));
    this->Control().Close(descriptor);
}

TYPED_TEST_P(KernelControlContract, OptionsWithoutASocketFail) {
    this->ExpectFailure(EBADF, this->Set(-1, kOptionReloadConfiguration, {}));
    std::uint8_t buffer[4] = {};
    std::uint32_t length = sizeof buffer;
    this->ExpectFailure(
        EBADF, this->Control().GetOption(-1, kSysProtoControl, kOptionReadHostInfos, buffer, &length));
}

TYPED_TEST_P(KernelControlContract, PayloadsArriveByteForByteAndInOrder) {
    const int descriptor = this->OpenAttachedSocket();
    const std::vector<std::uint8_t> record = {0xC1, 9, 1, 2, 'a', 0, 'b', 0, 0};
    EXPECT_EQ(0, this->Set(descriptor, kOptionOpenTestOutput, record));
    EXPECT_EQ(0, this->Set(descriptor, kOptionActivateTestOutput, {9, 0, 0, 0}));
    EXPECT_EQ(0, this->Set(descriptor, kOptionReloadConfiguration, {}));
    EXPECT_EQ(0, this->Set(descriptor, 63, {0, 0, 0, 0}));
    const std::vector<AcceptedOption> expected = {{kOptionOpenTestOutput, record},
                                                  {kOptionActivateTestOutput, {9, 0, 0, 0}},
                                                  {kOptionReloadConfiguration, {}},
                                                  {63, {0, 0, 0, 0}}};
    EXPECT_EQ(expected, this->subject.Accepted());
    this->Control().Close(descriptor);
}

TYPED_TEST_P(KernelControlContract, UnknownOptionsFail) {
    const int descriptor = this->OpenAttachedSocket();
    this->ExpectFailure(ENOPROTOOPT, this->Set(descriptor, 64, {}));
    this->ExpectFailure(ENOPROTOOPT, this->Set(descriptor, 1000, {}));
    std::uint8_t buffer[4] = {};
    std::uint32_t length = sizeof buffer;
    this->ExpectFailure(ENOPROTOOPT,
                        this->Control().GetOption(descriptor, kSysProtoControl, 203, buffer, &length));
    this->Control().Close(descriptor);
}

TYPED_TEST_P(KernelControlContract, AnotherLevelFails) {
    const int descriptor = this->OpenAttachedSocket();
    this->ExpectFailure(ENOPROTOOPT, this->Control().SetOption(descriptor, kSysProtoControl + 1,
                                                               kOptionReloadConfiguration, nullptr, 0));
    std::uint8_t buffer[4] = {};
    std::uint32_t length = sizeof buffer;
    this->ExpectFailure(ENOPROTOOPT, this->Control().GetOption(descriptor, kSysProtoControl + 1,
                                                               kOptionReadHostInfos, buffer, &length));
    this->Control().Close(descriptor);
}

TYPED_TEST_P(KernelControlContract, APayloadOfTheWrongLengthFails) {
    const int descriptor = this->OpenAttachedSocket();
    this->ExpectFailure(EINVAL, this->Set(descriptor, kOptionSendGranularity, {1, 2, 3}));
    EXPECT_EQ(0, this->Set(descriptor, kOptionSendGranularity, {1, 2, 3, 4})) << "errno " << errno;
    this->Control().Close(descriptor);
}

TYPED_TEST_P(KernelControlContract, ALengthWithoutAPayloadFails) {
    const int descriptor = this->OpenAttachedSocket();
    this->ExpectFailure(
        EFAULT, this->Control().SetOption(descriptor, kSysProtoControl, kOptionSendGranularity, nullptr, 4));
    this->Control().Close(descriptor);
}

TYPED_TEST_P(KernelControlContract, ReadingGivesTheBytesAndTheirNumberAndLeavesTheRestAlone) {
    this->subject.SetHostInfos({'N', 'x', 0, 'A'});
    const int descriptor = this->OpenAttachedSocket();
    std::vector<std::uint8_t> buffer(6, 0xEE);
    std::uint32_t length = 6;
    ASSERT_EQ(0, this->Control().GetOption(descriptor, kSysProtoControl, kOptionReadHostInfos, buffer.data(),
                                           &length));
    EXPECT_EQ(4U, length);
    EXPECT_EQ((std::vector<std::uint8_t>{'N', 'x', 0, 'A', 0xEE, 0xEE}), buffer);
    this->Control().Close(descriptor);
}

TYPED_TEST_P(KernelControlContract, ReadingIntoASmallBufferIsCut) {
    this->subject.SetHostInfos({'N', 'x', 0, 'A'});
    const int descriptor = this->OpenAttachedSocket();
    std::vector<std::uint8_t> buffer(6, 0xEE);
    std::uint32_t length = 2;
    ASSERT_EQ(0, this->Control().GetOption(descriptor, kSysProtoControl, kOptionReadHostInfos, buffer.data(),
                                           &length));
    EXPECT_EQ(2U, length);
    EXPECT_EQ((std::vector<std::uint8_t>{'N', 'x', 0xEE, 0xEE, 0xEE, 0xEE}), buffer);
    this->Control().Close(descriptor);
}

TYPED_TEST_P(KernelControlContract, AFullBufferOfHostsIsReadWhole) {
    std::vector<std::uint8_t> hosts(kHostInfosSize);
    for (std::size_t i = 0; i < hosts.size(); ++i) {
        hosts[i] = static_cast<std::uint8_t>(i * 7 + i / 256);
    }
    this->subject.SetHostInfos(hosts);
    const int descriptor = this->OpenAttachedSocket();
    std::vector<std::uint8_t> buffer(kHostInfosSize);
    std::uint32_t length = kHostInfosSize;
    ASSERT_EQ(0, this->Control().GetOption(descriptor, kSysProtoControl, kOptionReadHostInfos, buffer.data(),
                                           &length));
    EXPECT_EQ(kHostInfosSize, length);
    EXPECT_EQ(hosts, buffer);
    this->Control().Close(descriptor);
}

TYPED_TEST_P(KernelControlContract, ADescriptorIsClosedOnce) {
    const int descriptor = this->OpenSocket();
    EXPECT_EQ(0, this->Control().Close(descriptor));
    this->ExpectFailure(EBADF, this->Control().Close(descriptor));
}

TYPED_TEST_P(KernelControlContract, ClosingNoDescriptorFails) {
    this->ExpectFailure(EBADF, this->Control().Close(-1));
}

REGISTER_TYPED_TEST_SUITE_P(
    KernelControlContract, SocketsHaveDescriptorsOfTheirOwn, SocketOfAnotherDomainIsRefused,
    SocketOfAnotherTypeIsRefused, SocketOfAnotherProtocolIsRefused, LookUpFillsInTheIdAlone,
    LookUpOfAnUnknownControlFails, LookUpWithoutADriverFails, LookUpOfANameWithoutEndFails,
    AnotherRequestThanTheLookUpFails, AddressOfAnotherLengthIsRefused, AddressWithAWrongHeaderIsRefused,
    AddressOfAControlThatWasNotLookedUpIsRefused, AUnitIsAttachedOnce, ClosingFreesTheUnit,
    AnAttachedSocketIsNotAttachedAgain, OptionsBeforeTheAttachFail, OptionsWithoutASocketFail,
    PayloadsArriveByteForByteAndInOrder, UnknownOptionsFail, AnotherLevelFails, APayloadOfTheWrongLengthFails,
    ALengthWithoutAPayloadFails, ReadingGivesTheBytesAndTheirNumberAndLeavesTheRestAlone,
    ReadingIntoASmallBufferIsCut, AFullBufferOfHostsIsReadWhole, ADescriptorIsClosedOnce,
    ClosingNoDescriptorFails);

}  // namespace vexil
