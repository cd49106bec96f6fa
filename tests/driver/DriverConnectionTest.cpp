#include "driver/DriverConnection.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "driver/DriverOptions.h"
#include "tests/doubles/FaultyKernelControl.h"
#include "tests/doubles/LogCapture.h"
#include "tests/doubles/MemoryKernelControl.h"

namespace vexil {
namespace {

using Bytes = std::vector<std::uint8_t>;

class DriverConnectionTest : public ::testing::Test {
  protected:
    MemoryKernelControl control;
    DriverConnection connection{control};
    LogCapture log;
};

TEST_F(DriverConnectionTest, StartsWithoutSocketPortOrTestOutput) {
    EXPECT_EQ(-1, connection.driverSocket);
    EXPECT_FALSE(connection.driverConnected);
    EXPECT_FALSE(connection.wirelessAtStart);
    EXPECT_EQ(0U, connection.testOutActive);
    EXPECT_EQ(0, connection.currentPort);
    EXPECT_EQ(0U, connection.chordIndex);
}

TEST_F(DriverConnectionTest, OpenMakesThreeCallsInOrder) {
    connection.Open();
    ASSERT_EQ(3U, control.calls.size());
    EXPECT_EQ(KernelOperation::Socket, control.calls[0].operation);
    EXPECT_EQ(KernelOperation::Ioctl, control.calls[1].operation);
    EXPECT_EQ(KernelOperation::Connect, control.calls[2].operation);
    EXPECT_EQ(connection.driverSocket, control.calls[1].descriptor);
    EXPECT_EQ(connection.driverSocket, control.calls[2].descriptor);
    EXPECT_TRUE(connection.IsConnected());
    EXPECT_EQ("", log.Text());
}

TEST_F(DriverConnectionTest, OpenAsksForAControlSocket) {
    connection.Open();
    EXPECT_EQ(32, control.calls[0].domain);
    EXPECT_EQ(2, control.calls[0].type);
    EXPECT_EQ(2, control.calls[0].protocol);
}

TEST_F(DriverConnectionTest, LookUpCarriesTheZeroPaddedNameAndNoId) {
    connection.Open();
    Bytes expected(100, 0);
    std::memcpy(expected.data() + 4, "com.sonavert.driver.vexil3", 26);
    EXPECT_EQ(0xc0644e03U, control.calls[1].request);
    EXPECT_EQ(expected, control.calls[1].bytes);
}

TEST_F(DriverConnectionTest, AddressCarriesTheFoundIdAndUnit175) {
    connection.Open();
    Bytes expected(32, 0);
    const std::uint8_t head[] = {32, 32, 2, 0, 9, 0, 0, 0, 175, 0, 0, 0};
    std::memcpy(expected.data(), head, sizeof head);
    EXPECT_EQ(32U, control.calls[2].length);
    EXPECT_EQ(expected, control.calls[2].bytes);
}

TEST_F(DriverConnectionTest, RefusedSocketIsLoggedAndEndsTheOpening) {
    control.socketError = EAFNOSUPPORT;
    connection.Open();
    EXPECT_EQ("Cannot get socket; error 97.\n", log.Text());
    EXPECT_EQ(1U, control.calls.size());
    EXPECT_EQ(-1, connection.driverSocket);
    EXPECT_FALSE(connection.IsConnected());
}

TEST_F(DriverConnectionTest, MissingDriverIsLoggedAndLeavesTheSocketOpen) {
    control.driverPresent = false;
    connection.Open();
    EXPECT_EQ("Cannot find service id; error 2.\n", log.Text());
    EXPECT_EQ(2U, control.calls.size());
    EXPECT_NE(-1, connection.driverSocket);
    EXPECT_FALSE(connection.IsConnected());
    EXPECT_EQ(1U, control.OpenDescriptors());
}

TEST_F(DriverConnectionTest, FailedConnectIsLoggedWithItsResultInsteadOfErrno) {
    control.connectError = EBUSY;
    connection.Open();
    EXPECT_EQ("Cannot connect to service; error -1.\n", log.Text());
    EXPECT_NE(-1, connection.driverSocket);
    EXPECT_FALSE(connection.IsConnected());
}

TEST_F(DriverConnectionTest, CloseClosesTheSocketOnce) {
    connection.Open();
    const int descriptor = connection.driverSocket;
    connection.Close();
    connection.Close();
    ASSERT_EQ(4U, control.calls.size());
    EXPECT_EQ(KernelOperation::Close, control.calls[3].operation);
    EXPECT_EQ(descriptor, control.calls[3].descriptor);
    EXPECT_EQ(-1, connection.driverSocket);
    EXPECT_FALSE(connection.IsConnected());
}

TEST_F(DriverConnectionTest, CloseOfASocketThatWasNotConnectedClosesIt) {
    control.connectError = EBUSY;
    connection.Open();
    connection.Close();
    EXPECT_EQ(0U, control.OpenDescriptors());
}

TEST_F(DriverConnectionTest, CloseWithoutASocketCallsNothing) {
    connection.Close();
    EXPECT_TRUE(control.calls.empty());
}

TEST_F(DriverConnectionTest, FailedCloseGivesTheSocketUpWithoutAWord) {
    connection.Open();
    control.closeError = EIO;
    connection.Close();
    EXPECT_EQ(-1, connection.driverSocket);
    EXPECT_EQ("", log.Text());
}

TEST_F(DriverConnectionTest, CommandsWithoutPayloadCarryANullPointerAndLengthZero) {
    connection.Open();
    for (const int option : {190, 195, 196}) {
        EXPECT_EQ(0, connection.SendCommand(option, nullptr, 0));
        const KernelCall& call = control.calls.back();
        EXPECT_EQ(KernelOperation::SetOption, call.operation);
        EXPECT_EQ(2, call.level);
        EXPECT_EQ(option, call.option);
        EXPECT_TRUE(call.nullPayload);
        EXPECT_EQ(0U, call.length);
    }
}

TEST_F(DriverConnectionTest, FailedCommandHandsBackErrnoAndStaysConnected) {
    connection.Open();
    control.optionErrors[190] = EIO;
    EXPECT_EQ(-1, connection.SendCommand(190, nullptr, 0));
    EXPECT_EQ(EIO, errno);
    EXPECT_TRUE(connection.IsConnected());
    EXPECT_EQ("", log.Text());
}

TEST_F(DriverConnectionTest, HostInfosAreReadAtLevel2WithOption202) {
    connection.Open();
    control.hostInfos = {1, 2, 3};
    std::uint8_t buffer[8192];
    std::uint32_t length = 8192;
    EXPECT_EQ(0, connection.ReadHostInfos(buffer, &length));
    EXPECT_EQ(3U, length);
    EXPECT_EQ(2, control.calls.back().level);
    EXPECT_EQ(202, control.calls.back().option);
    EXPECT_EQ(8192U, control.calls.back().length);
}

TEST_F(DriverConnectionTest, QuantizationIsSentAsFourLittleEndianBytes) {
    connection.Open();
    connection.SendQuantization(0x01020304);
    EXPECT_EQ(191, control.calls.back().option);
    EXPECT_EQ((Bytes{4, 3, 2, 1}), control.calls.back().bytes);
    EXPECT_EQ("", log.Text());
}

TEST_F(DriverConnectionTest, QuantizationIsNotSentWithoutADriver) {
    control.driverPresent = false;
    connection.Open();
    log.Clear();
    connection.SendQuantization(2);
    EXPECT_TRUE(control.OptionCalls().empty());
    EXPECT_EQ("", log.Text());
}

TEST_F(DriverConnectionTest, RefusedQuantizationIsLoggedWithErrno) {
    connection.Open();
    control.optionErrors[191] = EINVAL;
    connection.SendQuantization(2);
    EXPECT_EQ("Set_TstSndGrn error 22.\n", log.Text());
    EXPECT_TRUE(connection.IsConnected());
}

TEST_F(DriverConnectionTest, QuantizationThatFailsOnceIsSentAgainTheNextTime) {
    FaultyKernelControl faulty(control);
    DriverConnection overFaulty(faulty);
    overFaulty.Open();
    faulty.Fail(KernelOperation::SetOption, ETIMEDOUT, 0, 1);
    overFaulty.SendQuantization(2);
    overFaulty.SendQuantization(3);
    EXPECT_EQ("Set_TstSndGrn error 110.\n", log.Text());
    ASSERT_EQ(1U, control.OptionCalls().size());
    EXPECT_EQ((Bytes{3, 0, 0, 0}), control.OptionCalls()[0].bytes);
}

}  // namespace
}  // namespace vexil
