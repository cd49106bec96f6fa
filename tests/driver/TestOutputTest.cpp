// Opening, closing and re-targeting a test output.
#include <cerrno>
#include <cstring>

#include "driver/DriverOptions.h"
#include "tests/driver/FailingAllocation.h"
#include "tests/driver/TestOutputFixture.h"

namespace vexil {
namespace {

using TestOutputTest = TestOutputFixture;

TEST_F(TestOutputTest, OpenSendsTheRecordThenActivatesThePort) {
    connection.currentPort = 9;
    panel.configuration.PortFlags[9] = {.flags = 0xC1, .reserved = 0, .sourcePort = 3, .targetPort = 17};
    panel.configuration.Hosts[9].DstHost = "alpha";
    panel.configuration.Hosts[9].SrcHost = "b";
    output.Open();
    ASSERT_EQ((std::vector<int>{192, 193}), control.OptionNumbers());
    EXPECT_EQ((Bytes{0xC1, 9, 3, 17, 'a', 'l', 'p', 'h', 'a', 0, 'b', 0, 0}), control.calls[0].bytes);
    EXPECT_EQ((Bytes{9, 0, 0, 0}), control.calls[1].bytes);
    EXPECT_EQ(std::uint64_t{1} << 9, connection.testOutActive);
    EXPECT_EQ("", log.Text());
}

TEST_F(TestOutputTest, OpenWithTwoEmptyNamesSendsSevenBytes) {
    connection.currentPort = 2;
    panel.configuration.PortFlags[2] = {.flags = 0xC0, .reserved = 0, .sourcePort = 2, .targetPort = 2};
    output.Open();
    EXPECT_EQ(7U, control.calls[0].length);
    EXPECT_EQ((Bytes{0xC0, 2, 2, 2, 0, 0, 0}), control.calls[0].bytes);
}

TEST_F(TestOutputTest, EveryPortHasABitOfItsOwn) {
    for (const int port : {0, 31, 32, 63}) {
        connection.testOutActive = 0;
        connection.currentPort = port;
        output.Open();
        EXPECT_EQ(std::uint64_t{1} << port, connection.testOutActive);
    }
}

TEST_F(TestOutputTest, OpenOfAnOpenPortSendsNothing) {
    OpenOn(5);
    output.Open();
    EXPECT_TRUE(control.calls.empty());
}

TEST_F(TestOutputTest, RefusedOpenIsLoggedAndIsNotActivated) {
    connection.currentPort = 5;
    control.optionErrors[192] = ENOMEM;
    output.Open();
    EXPECT_EQ((std::vector<int>{192}), control.OptionNumbers());
    EXPECT_EQ("Service access error 12 openng testout 5\n", log.Text());
    EXPECT_EQ(0U, connection.testOutActive);
}

TEST_F(TestOutputTest, RefusedActivationIsLoggedAndLeavesThePortClosed) {
    connection.currentPort = 5;
    control.optionErrors[193] = EBUSY;
    output.Open();
    EXPECT_EQ((std::vector<int>{192, 193}), control.OptionNumbers());
    EXPECT_EQ("Cannot activate testout 5; error 16\n", log.Text());
    EXPECT_EQ(0U, connection.testOutActive);
}

TEST_F(TestOutputTest, OpenWithoutMemoryIsLoggedAndSendsNothing) {
    connection.currentPort = 63;
    {
        const FailingAllocation failing;
        output.Open();
    }
    EXPECT_EQ("Out of memory opening testout 63\n", log.Text());
    EXPECT_TRUE(control.calls.empty());
    EXPECT_EQ(0U, connection.testOutActive);
}

TEST_F(TestOutputTest, OpenWithoutADriverIsTriedAndLogged) {
    connection.Close();
    control.calls.clear();
    output.Open();
    EXPECT_EQ((std::vector<int>{192}), control.OptionNumbers());
    EXPECT_EQ(-1, control.calls[0].descriptor);
    EXPECT_EQ("Service access error 9 openng testout 0\n", log.Text());
}

TEST_F(TestOutputTest, CloseSendsThePortAndClearsItsBitAlone) {
    OpenOn(40);
    OpenOn(7);
    output.Close();
    ASSERT_EQ((std::vector<int>{194}), control.OptionNumbers());
    EXPECT_EQ((Bytes{7, 0, 0, 0}), control.calls[0].bytes);
    EXPECT_EQ(std::uint64_t{1} << 40, connection.testOutActive);
    EXPECT_EQ("", log.Text());
}

TEST_F(TestOutputTest, CloseOfAClosedPortSendsNothing) {
    OpenOn(7);
    connection.currentPort = 8;
    output.Close();
    EXPECT_TRUE(control.calls.empty());
}

TEST_F(TestOutputTest, RefusedCloseIsLoggedAndThePortStaysOpen) {
    OpenOn(7);
    control.optionErrors[194] = EIO;
    output.Close();
    EXPECT_EQ("Cannot deactivate testout 7; error 5\n", log.Text());
    EXPECT_TRUE(connection.IsTestOutputOpen(7));
}

TEST_F(TestOutputTest, CloseDoesNotAskForAConnection) {
    OpenOn(7);
    connection.Close();
    control.calls.clear();
    output.Close();
    EXPECT_EQ((std::vector<int>{194}), control.OptionNumbers());
    EXPECT_EQ("Cannot deactivate testout 7; error 9\n", log.Text());
    EXPECT_TRUE(connection.IsTestOutputOpen(7));
}

TEST_F(TestOutputTest, RetargetClosesAndReopensWithWhatTheWindowShows) {
    OpenOn(1);
    panel.configuration.Hosts[1].DstHost = "new";
    output.Retarget();
    ASSERT_EQ((std::vector<int>{194, 192, 193}), control.OptionNumbers());
    EXPECT_EQ((Bytes{1, 0, 0, 0}), control.calls[0].bytes);
    EXPECT_EQ((Bytes{0xC0, 1, 1, 1, 'n', 'e', 'w', 0, 0, 0}), control.calls[1].bytes);
    EXPECT_EQ((Bytes{1, 0, 0, 0}), control.calls[2].bytes);
    EXPECT_TRUE(connection.IsTestOutputOpen(1));
    EXPECT_EQ("", log.Text());
}

TEST_F(TestOutputTest, RetargetOfAClosedPortSendsNothing) {
    output.Retarget();
    EXPECT_TRUE(control.calls.empty());
}

TEST_F(TestOutputTest, RetargetWithoutADriverSendsNothing) {
    OpenOn(1);
    connection.Close();
    control.calls.clear();
    output.Retarget();
    EXPECT_TRUE(control.calls.empty());
    EXPECT_EQ("", log.Text());
    EXPECT_TRUE(connection.IsTestOutputOpen(1));
}

TEST_F(TestOutputTest, RetargetWhoseCloseIsRefusedKeepsTheOldTarget) {
    OpenOn(1);
    control.optionErrors[194] = EIO;
    output.Retarget();
    EXPECT_EQ((std::vector<int>{194}), control.OptionNumbers());
    EXPECT_EQ("Cannot deactivate testout 1; error 5\n", log.Text());
    EXPECT_TRUE(connection.IsTestOutputOpen(1));
}

TEST_F(TestOutputTest, RetargetWhoseReopeningIsRefusedLeavesThePortClosed) {
    OpenOn(1);
    control.optionErrors[192] = EIO;
    output.Retarget();
    EXPECT_EQ("Service access error 5 openng testout 1\n", log.Text());
    EXPECT_FALSE(connection.IsTestOutputOpen(1));
}

using TestOutputDeathTest = TestOutputFixture;

TEST_F(TestOutputDeathTest, OpenOfANullNameIsAnAssertion) {
    const auto openWithout = [this](svString& name) {
        std::memset(static_cast<void*>(&name), 0, sizeof name);
        output.Open();
    };
    const char* assertion = "^shared/System/svString:[0-9]+: failed assertion `m_pchData != 0'\n$";
    EXPECT_DEATH(openWithout(panel.configuration.Hosts[0].DstHost), assertion);
    EXPECT_DEATH(openWithout(panel.configuration.Hosts[0].SrcHost), assertion);
}

}  // namespace
}  // namespace vexil
