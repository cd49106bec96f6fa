#include "service/control/TestOutputs.h"

#include <gmock/gmock.h>

#include <cerrno>

#include "driver/DriverOptions.h"
#include "service/engine/Engine.h"

namespace vexil {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes Record(int port, const char* target, std::uint8_t targetPort) {
    const PortHosts hosts{"", target};
    Bytes record(TestOutputRecordLength(hosts));
    PutTestOutputRecord(record.data(), port, {0xC0, 0, 0, targetPort}, hosts);
    return record;
}

// A packet list of one packet of so many bytes.
Bytes List(std::size_t length) {
    Bytes list = {1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    list.push_back(static_cast<std::uint8_t>(length));
    list.push_back(static_cast<std::uint8_t>(length >> 8));
    list.resize(list.size() + length, 0x90);
    return list;
}

class TestOutputsTest : public ::testing::Test {
  protected:
    int Open(const Bytes& record) { return tests.Open(record, port); }
    int Activate(std::uint32_t index) { return tests.Activate(MakeUint32(index), port); }
    int Close(std::uint32_t index) { return tests.Close(MakeUint32(index), port); }
    int Play(int index, const Bytes& list) { return tests.Play(index, list, data); }

    TestOutputs tests;
    int port = -1;
    Bytes data;
};

TEST_F(TestOutputsTest, OpensOnThePortOfItsRecord) {
    EXPECT_EQ(0, Open(Record(9, "studio", 17)));
    EXPECT_EQ(9, port);
    ASSERT_NE(nullptr, tests.Find(9));
    EXPECT_EQ("studio", tests.Find(9)->record.targetComputer);
    EXPECT_FALSE(tests.Find(9)->active);
}

TEST_F(TestOutputsTest, OpeningWithABrokenRecordChangesNothing) {
    ASSERT_EQ(0, Open(Record(9, "studio", 17)));
    EXPECT_EQ(EINVAL, Open({0, 9, 0, 0, 'x'}));
    EXPECT_EQ("studio", tests.Find(9)->record.targetComputer);
}

TEST_F(TestOutputsTest, OpeningAgainReplacesAndIsNotActive) {
    ASSERT_EQ(0, Open(Record(9, "studio", 17)));
    ASSERT_EQ(0, Activate(9));
    EXPECT_EQ(0, Open(Record(9, "stage", 17)));
    EXPECT_EQ("stage", tests.Find(9)->record.targetComputer);
    EXPECT_FALSE(tests.Find(9)->active);
}

TEST_F(TestOutputsTest, ActivatingWhereNoneIsOpenFails) {
    EXPECT_EQ(ENXIO, Activate(9));
    EXPECT_EQ(ENXIO, Activate(64));
    EXPECT_EQ(ENXIO, Activate(0xFFFFFFFF));
}

TEST_F(TestOutputsTest, ActivatingTwiceIsOnce) {
    ASSERT_EQ(0, Open(Record(9, "studio", 17)));
    EXPECT_EQ(0, Activate(9));
    EXPECT_EQ(0, Activate(9));
    EXPECT_TRUE(tests.Find(9)->active);
}

TEST_F(TestOutputsTest, ClosingWhereNoneIsOpenFails) {
    EXPECT_EQ(ENXIO, Close(9));
    ASSERT_EQ(0, Open(Record(9, "studio", 17)));
    EXPECT_EQ(0, Close(9));
    EXPECT_EQ(ENXIO, Close(9));
}

TEST_F(TestOutputsTest, PortNumbersAreFourBytes) {
    ASSERT_EQ(0, Open(Record(9, "studio", 17)));
    EXPECT_EQ(EINVAL, tests.Activate(Bytes{9}, port));
    EXPECT_EQ(EINVAL, tests.Close(Bytes{9, 0, 0, 0, 0}, port));
}

TEST_F(TestOutputsTest, PlaysWhereOneIsOpenAndActive) {
    EXPECT_EQ(ENXIO, Play(9, List(3)));
    ASSERT_EQ(0, Open(Record(9, "studio", 17)));
    EXPECT_EQ(ENXIO, Play(9, List(3)));
    ASSERT_EQ(0, Activate(9));
    EXPECT_EQ(0, Play(9, List(3)));
    EXPECT_EQ(Bytes(3, 0x90), data);
    EXPECT_EQ(ENXIO, Play(8, List(3)));
}

TEST_F(TestOutputsTest, BrokenPacketListsAreRefusedEverywhere) {
    EXPECT_EQ(EINVAL, Play(9, {1, 0, 0, 0}));
    ASSERT_EQ(0, Open(Record(9, "studio", 17)));
    ASSERT_EQ(0, Activate(9));
    EXPECT_EQ(EINVAL, Play(9, {1, 0, 0, 0}));
}

TEST_F(TestOutputsTest, MoreThanTheEngineTakesAtOnceIsRefused) {
    ASSERT_EQ(0, Open(Record(9, "studio", 17)));
    ASSERT_EQ(0, Activate(9));
    EXPECT_EQ(0, Play(9, List(kLongestTestBytes)));
    EXPECT_EQ(EMSGSIZE, Play(9, List(kLongestTestBytes + 1)));
}

TEST_F(TestOutputsTest, RouteFollowsTheRecordOnceActive) {
    DriverConfiguration configuration;
    configuration.InputPorts = std::uint64_t{1} << 17;
    const LocalNames names({"studio"});
    ASSERT_EQ(0, Open(Record(9, "studio", 17)));
    EXPECT_EQ(Destination::Kind::Nowhere, tests.RouteOf(9, configuration, names).destination.kind);
    ASSERT_EQ(0, Activate(9));
    EXPECT_TRUE(GetsThrough(tests.RouteOf(9, configuration, names)));
    EXPECT_EQ(17, tests.RouteOf(9, configuration, names).destination.port);
    ASSERT_EQ(0, Close(9));
    EXPECT_EQ(Destination::Kind::Nowhere, tests.RouteOf(9, configuration, names).destination.kind);
}

}  // namespace
}  // namespace vexil
