#include "driver/DriverOptions.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace vexil {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes Record(int port, const PortEntry& entry, const PortHosts& hosts) {
    Bytes record(TestOutputRecordLength(hosts), 0xEE);
    PutTestOutputRecord(record.data(), port, entry, hosts);
    return record;
}

PortHosts Hosts(const char* source, const char* target) {
    PortHosts hosts;
    hosts.SrcHost = source;
    hosts.DstHost = target;
    return hosts;
}

TEST(DriverOptions, OptionNumbersAreThoseOfTheDriver) {
    EXPECT_EQ(190, kOptionReloadConfiguration);
    EXPECT_EQ(191, kOptionSendGranularity);
    EXPECT_EQ(192, kOptionOpenTestOutput);
    EXPECT_EQ(193, kOptionActivateTestOutput);
    EXPECT_EQ(194, kOptionDeactivateTestOutput);
    EXPECT_EQ(195, kOptionWirelessOn);
    EXPECT_EQ(196, kOptionWirelessOff);
    EXPECT_EQ(197, kOptionBrowseHosts);
    EXPECT_EQ(202, kOptionReadHostInfos);
}

TEST(DriverOptions, CtlInfoCutsANameAt96Bytes) {
    const auto info = MakeCtlInfo(std::string(200, 'n').c_str());
    EXPECT_EQ(0, std::memcmp(info.data(), "\0\0\0\0", 4));
    EXPECT_EQ(std::string(96, 'n'), std::string(info.begin() + 4, info.end()));
}

TEST(DriverOptions, CtlInfoIdIsReadLittleEndian) {
    auto info = MakeCtlInfo("x");
    info[0] = 0x01;
    info[1] = 0x02;
    info[2] = 0x03;
    info[3] = 0xF4;
    EXPECT_EQ(0xF4030201U, CtlInfoId(info));
}

TEST(DriverOptions, SockaddrCtlHoldsIdAndUnitAndEndsInTwentyZeros) {
    const auto address = MakeSockaddrCtl(0xA1B2C3D4, 0x00010203);
    const Bytes head = {32, 32, 2, 0, 0xD4, 0xC3, 0xB2, 0xA1, 3, 2, 1, 0};
    EXPECT_EQ(head, Bytes(address.begin(), address.begin() + 12));
    EXPECT_EQ(Bytes(20, 0), Bytes(address.begin() + 12, address.end()));
}

TEST(DriverOptions, Uint32IsLittleEndian) {
    const auto bytes = MakeUint32(0x89ABCDEF);
    EXPECT_EQ((Bytes{0xEF, 0xCD, 0xAB, 0x89}), Bytes(bytes.begin(), bytes.end()));
}

TEST(DriverOptions, TestOutputRecordOfTwoEmptyNamesIsSevenBytes) {
    const PortEntry entry{.flags = 0xC0, .reserved = 0, .sourcePort = 5, .targetPort = 6};
    EXPECT_EQ((Bytes{0xC0, 4, 5, 6, 0, 0, 0}), Record(4, entry, Hosts("", "")));
}

TEST(DriverOptions, TestOutputRecordHoldsTheTargetBeforeTheSource) {
    const PortEntry entry{.flags = 0xC1, .reserved = 0, .sourcePort = 3, .targetPort = 17};
    EXPECT_EQ((Bytes{0xC1, 9, 3, 0x11, 'a', 'l', 'p', 'h', 'a', 0, 'b', 0, 0}),
              Record(9, entry, Hosts("b", "alpha")));
}

TEST(DriverOptions, TestOutputRecordReplacesTheReservedByteByThePort) {
    const PortEntry entry{.flags = 1, .reserved = 0x77, .sourcePort = 2, .targetPort = 3};
    EXPECT_EQ(63, Record(63, entry, Hosts("", ""))[1]);
}

TEST(DriverOptions, TestOutputRecordTakesNamesOfAnyLength) {
    const std::string source(1000, 's');
    const std::string target(70000, 't');
    const Bytes record = Record(0, PortEntry{}, Hosts(source.c_str(), target.c_str()));
    ASSERT_EQ(71007U, record.size());
    EXPECT_STREQ(target.c_str(), reinterpret_cast<const char*>(record.data()) + 4);
    EXPECT_STREQ(source.c_str(), reinterpret_cast<const char*>(record.data()) + 4 + 70001);
    EXPECT_EQ(0, record.back());
}

}  // namespace
}  // namespace vexil
