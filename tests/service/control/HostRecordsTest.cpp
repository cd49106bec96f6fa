// The list of computers byte for byte, and this computer in it.
#include "service/control/HostRecords.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <array>

#include "driver/DriverOptions.h"
#include "driver/HostInfos.h"

namespace vexil {
namespace {

using Bytes = std::vector<std::uint8_t>;
using ::testing::ElementsAre;
using ::testing::StrEq;

HostRecord Example() {
    HostRecord host;
    host.name = "ab";
    host.address = {0xC0, 0xA8, 1, 5};
    host.port = 5004;
    host.hardware = {0, 0x11, 0x22, 0x33, 0x44, 0x55};
    return host;
}

TEST(HostRecords, AreBuiltByteForByte) {
    EXPECT_EQ((Bytes{'N', 'a', 'b',  0,    'A',  0xC0, 0xA8, 1,   5, 0x13, 0x8C,
                     'L', 0,   0x11, 0x22, 0x33, 0x44, 0x55, 'E', 1, 0,    0}),
              MakeHostRecords({Example()}));
}

TEST(HostRecords, OfAComputerThatIsNotEnabledSaySo) {
    HostRecord host = Example();
    host.enabled = false;
    const Bytes list = MakeHostRecords({host});
    EXPECT_EQ(0, list[19]);
    EXPECT_EQ(0, list[20]);
}

TEST(HostRecords, OfNobodyAreOneZero) {
    EXPECT_EQ(Bytes{0}, MakeHostRecords({}));
}

TEST(HostRecords, AreReadByThePanelsParser) {
    HostRecord other = Example();
    other.name = "stage";
    const Bytes list = MakeHostRecords({Example(), other});
    const HostInfos infos = ParseHostInfos(list.data(), list.size());
    EXPECT_THAT(infos.names, ElementsAre(StrEq("ab"), StrEq("stage")));
    EXPECT_EQ(list.size(), infos.cachedLength);
}

TEST(HostRecords, OfNamesWithControlCharactersAreLeftOut) {
    for (const char* name : {"stage\nleft", "\x01", "a\x1F", "a\x7F", "a\xC2\x80", "a\xC2\x9F", "tab\t"}) {
        HostRecord host = Example();
        host.name = name;
        const Bytes list = MakeHostRecords({host, Example()});
        EXPECT_THAT(ParseHostInfos(list.data(), list.size()).names, ElementsAre(StrEq("ab")));
    }
}

TEST(HostRecords, OfNamesInAnyScriptAreListed) {
    for (const char* name : {"B\xC3\xBChne", "a b", "\xC2\xA0", "\xE8\x88\x9E\xE5\x8F\xB0"}) {
        HostRecord host = Example();
        host.name = name;
        const Bytes list = MakeHostRecords({host});
        EXPECT_THAT(ParseHostInfos(list.data(), list.size()).names, ElementsAre(StrEq(name)));
    }
}

TEST(HostRecords, ThatDoNotFitAreLeftOutWhole) {
    const std::vector<HostRecord> hosts(1000, Example());
    const Bytes list = MakeHostRecords(hosts);
    EXPECT_EQ(8191U / 21 * 21 + 1, list.size());
    EXPECT_EQ(0, list.back());
    EXPECT_EQ(8191U / 21, ParseHostInfos(list.data(), list.size()).names.size());
}

TEST(HostRecords, FillTheBufferToItsLastByte) {
    HostRecord host = Example();
    host.name = std::string(kHostInfosSize - 1 - 19, 'x');
    EXPECT_EQ(kHostInfosSize, MakeHostRecords({host}).size());
    host.name += 'x';
    EXPECT_EQ(1U, MakeHostRecords({host}).size());
}

TEST(HostRecords, ShowAddresses) {
    EXPECT_EQ("192.168.1.5", AddressText(Example()));
    EXPECT_EQ("00:11:22:33:44:55", HardwareText(Example()));
}

TEST(HostRecords, ShowNothingForUnknownAddresses) {
    EXPECT_EQ("", AddressText({}));
    EXPECT_EQ("", HardwareText({}));
}

TEST(ThisComputer, HasItsHostNameAndTakesNoMidiFromTheNetwork) {
    std::array<char, 256> name{};
    ASSERT_EQ(0, gethostname(name.data(), name.size()));
    const HostRecord host = LookUpThisComputer();
    EXPECT_EQ(name.data(), host.name);
    EXPECT_EQ(0, host.port);
    EXPECT_TRUE(host.enabled);
}

TEST(ThisComputer, IsNotAtALoopbackAddress) {
    EXPECT_NE(127, LookUpThisComputer().address[0]);
}

}  // namespace
}  // namespace vexil
