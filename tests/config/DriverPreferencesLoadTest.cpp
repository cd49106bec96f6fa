// Loading the stored configuration: defaults, migration, what counts as absent.
#include <utility>
#include <vector>

#include "tests/config/DriverPreferencesFixture.h"
#include "tests/doubles/FaultyPreferenceDomains.h"

namespace vexil {
namespace {

class LoadTest : public DriverPreferencesTest {};

// A record in which no field has its default.
DriverConfiguration UnusualConfiguration() {
    DriverConfiguration configuration;
    configuration.InputPorts = 0x1234;
    configuration.OutputPorts = 0x5678;
    configuration.LocalPipes = 0x9ABC;
    configuration.MiscOptions = 0;
    configuration.SendGranularity = 77;
    for (int port = 0; port < kMaxPorts; ++port) {
        configuration.PortFlags[port] = {1, 2, 3, 4};
        configuration.Hosts[port] = {"source", "target"};
        configuration.CustomNames[port] = {"in", "out"};
    }
    return configuration;
}

TEST_F(LoadTest, EmptyDomainsGiveTheDefaults) {
    DriverConfiguration configuration = UnusualConfiguration();
    preferences.LoadConfiguration(kPortCount, configuration);
    EXPECT_FALSE(Differs(configuration, DriverConfiguration()));
    EXPECT_EQ(log.Text(), "");
}

TEST_F(LoadTest, TheCurrentDomainAloneGivesTheDefaultsWhenEmpty) {
    DriverConfiguration configuration = UnusualConfiguration();
    preferences.LoadCurrentConfiguration(kPortCount, configuration);
    EXPECT_FALSE(Differs(configuration, DriverConfiguration()));
}

TEST_F(LoadTest, OpensTheOlderDomainFirstAndWritesNothing) {
    Load();
    const std::vector<PreferenceDomainId> expected = {DomainOf(kOlderDriverDomain), DomainOf(kDriverDomain)};
    EXPECT_EQ(domains.Synchronized(), expected);
    EXPECT_TRUE(domains.Changes().empty());
}

TEST_F(LoadTest, TheCurrentLoaderOpensTheCurrentDomainOnly) {
    LoadCurrent();
    EXPECT_EQ(domains.Synchronized(), std::vector<PreferenceDomainId>{DomainOf(kDriverDomain)});
}

TEST_F(LoadTest, TheDomainsAreTheDrivers) {
    EXPECT_STREQ(kDriverDomain, "com.sonavert.Vexil3Driver");
    EXPECT_STREQ(kOlderDriverDomain, "com.sonavert.VexilDrv.2");
}

TEST_F(LoadTest, MasksAreEightBytesLowestFirst) {
    Current()["InputPorts"] = Mask("\x01\x02\x03\x04\x05\x06\x07\x88");
    Current()["OutputPorts"] = Mask(std::string("\x00\x00\x00\x00\x01\x00\x00\x00", 8));
    Current()["LocalPipes"] = Mask(std::string("\x80\x00\x00\x00\x00\x00\x00\x80", 8));
    const DriverConfiguration configuration = Load();
    EXPECT_EQ(configuration.InputPorts, 0x8807060504030201u);
    EXPECT_EQ(configuration.OutputPorts, 0x0000000100000000u);
    EXPECT_EQ(configuration.LocalPipes, 0x8000000000000080u);
}

TEST_F(LoadTest, AShorterMaskGivesTheLowBytes) {
    for (const char* key : {"InputPorts", "OutputPorts", "LocalPipes"}) {
        Current()[key] = Mask("\x12\x34");
    }
    DriverConfiguration configuration = UnusualConfiguration();
    configuration.InputPorts = configuration.OutputPorts = configuration.LocalPipes = ~std::uint64_t{0};
    preferences.LoadConfiguration(kPortCount, configuration);
    EXPECT_EQ(configuration.InputPorts, 0x3412u);
    EXPECT_EQ(configuration.OutputPorts, 0x3412u);
    EXPECT_EQ(configuration.LocalPipes, 0x3412u);
}

TEST_F(LoadTest, AMaskOfMoreThanEightBytesCountsAsAbsentAndIsLogged) {
    for (const char* key : {"InputPorts", "OutputPorts", "LocalPipes"}) {
        Current()[key] = Mask("\x12\x34\x56\x78\x12\x34\x56\x78\x9A");
    }
    const DriverConfiguration configuration = Load();
    EXPECT_EQ(configuration.InputPorts, 0u);
    EXPECT_EQ(configuration.OutputPorts, 1u);
    EXPECT_EQ(configuration.LocalPipes, 0u);
    EXPECT_EQ(log.Text(),
              "GetBinary: buffer null or overflow (9 > 8)\n"
              "GetBinary: buffer null or overflow (9 > 8)\n"
              "GetBinary: buffer null or overflow (9 > 8)\n");
}

TEST_F(LoadTest, AStoredMaskOfNoPortsIsKept) {
    Current()["OutputPorts"] = Mask(std::string(8, '\0'));
    Older()["ActiveDevices"] = MakePropertyNumber(-1);
    EXPECT_EQ(Load().OutputPorts, 0u);
}

TEST_F(LoadTest, ValuesOfAnotherTypeCountAsAbsentWithoutAWord) {
    const PropertyRef text = MakePropertyString("5");
    const PropertyRef number = MakePropertyNumber(5);
    for (const char* key :
         {"InputPorts", "OutputPorts", "LocalPipes", "MiscOptions", "SendGranularity", "01 PortFlags"}) {
        Current()[key] = text;
    }
    for (const char* key : {"01 In_CustomName", "01 Out_CustomName", "01 SrcHost", "01 DstHost"}) {
        Current()[key] = number;
    }
    EXPECT_FALSE(Differs(Load(), DriverConfiguration()));
    EXPECT_EQ(log.Text(), "");
}

class MigrationTest : public LoadTest {};

TEST_F(MigrationTest, TheWordsGiveInputsAboveAndOutputsBelow) {
    Older()["ActiveDevices01"] = MakePropertyNumber((1 << 0) | (1 << 16) | (1 << 17));
    const DriverConfiguration configuration = Load();
    EXPECT_EQ(configuration.OutputPorts, 1u | std::uint64_t{1} << 16);
    EXPECT_EQ(configuration.InputPorts, std::uint64_t{1} << 16 | std::uint64_t{1} << 17);
}

TEST_F(MigrationTest, EachWordHoldsSixteenPorts) {
    const char* const keys[] = {"ActiveDevices", "ActiveDevices01", "ActiveDevices02", "ActiveDevices03"};
    for (int word = 0; word < 4; ++word) {
        for (int bit = 0; bit < 32; ++bit) {
            Older().clear();
            Older()[keys[word]] = MakePropertyNumber(static_cast<std::int32_t>(std::uint32_t{1} << bit));
            const DriverConfiguration configuration = Load();
            const std::uint64_t port = std::uint64_t{1} << (16 * word + bit % 16);
            EXPECT_EQ(configuration.InputPorts, bit < 16 ? 0 : port) << keys[word] << " bit " << bit;
            EXPECT_EQ(configuration.OutputPorts, bit < 16 ? (port | 1) : 1) << keys[word] << " bit " << bit;
        }
    }
}

TEST_F(MigrationTest, AllBitsOfAllWordsGiveAllPorts) {
    for (const char* key : {"ActiveDevices", "ActiveDevices01", "ActiveDevices02", "ActiveDevices03"}) {
        Older()[key] = MakePropertyNumber(-1);
    }
    const DriverConfiguration configuration = Load();
    EXPECT_EQ(configuration.InputPorts, ~std::uint64_t{0});
    EXPECT_EQ(configuration.OutputPorts, ~std::uint64_t{0});
}

TEST_F(MigrationTest, TakesPortsBelowThePortCountOnly) {
    for (const char* key : {"ActiveDevices", "ActiveDevices01", "ActiveDevices02", "ActiveDevices03"}) {
        Older()[key] = MakePropertyNumber(-1);
    }
    DriverConfiguration configuration;
    preferences.LoadConfiguration(20, configuration);
    EXPECT_EQ(configuration.InputPorts, 0xFFFFFu);
    EXPECT_EQ(configuration.OutputPorts, 0xFFFFFu);
    preferences.LoadConfiguration(0, configuration);
    EXPECT_EQ(configuration.InputPorts, 0u);
    EXPECT_EQ(configuration.OutputPorts, 1u);
}

TEST_F(MigrationTest, OneMaskIsMigratedWhileTheOtherIsStored) {
    Older()["ActiveDevices"] = MakePropertyNumber(-1);
    Current()["InputPorts"] = Mask(std::string("\x02\0\0\0\0\0\0\0", 8));
    const DriverConfiguration configuration = Load();
    EXPECT_EQ(configuration.InputPorts, 2u);
    EXPECT_EQ(configuration.OutputPorts, 0xFFFFu);
}

TEST_F(MigrationTest, MiscOptionsComeFromTheCurrentThenTheOlderDomain) {
    Older()["MiscOptions"] = MakePropertyNumber(9);
    EXPECT_EQ(Load().MiscOptions, 9u);
    Current()["MiscOptions"] = MakePropertyNumber(0);
    EXPECT_EQ(Load().MiscOptions, 0u);
}

TEST_F(MigrationTest, AStoredMinusOneIsNoMiscOptions) {
    Current()["MiscOptions"] = MakePropertyNumber(-1);
    EXPECT_EQ(Load().MiscOptions, 7u);
    Older()["MiscOptions"] = MakePropertyNumber(3);
    EXPECT_EQ(Load().MiscOptions, 3u);
    Older()["MiscOptions"] = MakePropertyNumber(-1);
    EXPECT_EQ(Load().MiscOptions, 7u);
}

TEST_F(MigrationTest, SendGranularityIsNotMigrated) {
    Older()["SendGranularity"] = MakePropertyNumber(50);
    EXPECT_EQ(Load().SendGranularity, 2u);
    Current()["SendGranularity"] = MakePropertyNumber(-1);
    EXPECT_EQ(Load().SendGranularity, 0xFFFFFFFFu);
}

TEST_F(MigrationTest, APortsEntryIsBuiltFromItsTwoOlderNumbers) {
    Older()["05 In_FromPort"] = MakePropertyNumber(static_cast<std::int32_t>(0x81ABCD07u));
    Older()["05 Out_ToPort"] = MakePropertyNumber(0x7F09);
    EXPECT_EQ(Load().PortFlags[4], (PortEntry{0x81, 0, 0x07, 0x09}));
}

TEST_F(MigrationTest, AMissingOlderNumberGivesItsHalfOfTheDefault) {
    Older()["05 In_FromPort"] = MakePropertyNumber(0x01000007);
    Older()["06 Out_ToPort"] = MakePropertyNumber(9);
    const DriverConfiguration configuration = Load();
    EXPECT_EQ(configuration.PortFlags[4], (PortEntry{0x01, 0, 0x07, 4}));
    EXPECT_EQ(configuration.PortFlags[5], (PortEntry{0xC0, 0, 5, 9}));
}

TEST_F(MigrationTest, AStoredEntryWinsOverTheOlderNumbers) {
    Current()["05 PortFlags"] = MakePropertyNumber(0x04030001);
    Older()["05 In_FromPort"] = MakePropertyNumber(0x40000009);
    Older()["05 Out_ToPort"] = MakePropertyNumber(9);
    EXPECT_EQ(Load().PortFlags[4], (PortEntry{1, 0, 3, 4}));
}

TEST_F(MigrationTest, AStoredMinusOneIsNoEntry) {
    Current()["05 PortFlags"] = MakePropertyNumber(-1);
    Older()["05 In_FromPort"] = MakePropertyNumber(0x40000009);
    EXPECT_EQ(Load().PortFlags[4], (PortEntry{0x40, 0, 9, 4}));
}

TEST_F(MigrationTest, AnEmptyOrMissingNameComesFromTheOlderDomain) {
    Current()["03 In_CustomName"] = MakePropertyString("");
    Older()["03 In_CustomName"] = MakePropertyString("older in");
    Older()["03 Out_CustomName"] = MakePropertyString("older out");
    const DriverConfiguration configuration = Load();
    EXPECT_STREQ(configuration.CustomNames[2].In_CustomName.c_str(), "older in");
    EXPECT_STREQ(configuration.CustomNames[2].Out_CustomName.c_str(), "older out");
}

TEST_F(MigrationTest, AStoredNameWins) {
    Current()["03 In_CustomName"] = MakePropertyString("name");
    Older()["03 In_CustomName"] = MakePropertyString("older");
    EXPECT_STREQ(Load().CustomNames[2].In_CustomName.c_str(), "name");
}

TEST_F(MigrationTest, HostsAreNotMigrated) {
    Older()["03 SrcHost"] = MakePropertyString("older");
    Older()["03 DstHost"] = MakePropertyString("older");
    const DriverConfiguration configuration = Load();
    EXPECT_STREQ(configuration.Hosts[2].SrcHost.c_str(), "");
    EXPECT_STREQ(configuration.Hosts[2].DstHost.c_str(), "");
}

TEST_F(MigrationTest, TheLastPortIsMigratedWhateverThePortCount) {
    Older()["64 Out_ToPort"] = MakePropertyNumber(1);
    Older()["64 In_CustomName"] = MakePropertyString("last");
    DriverConfiguration configuration;
    preferences.LoadConfiguration(1, configuration);
    EXPECT_EQ(configuration.PortFlags[63], (PortEntry{0xC0, 0, 63, 1}));
    EXPECT_STREQ(configuration.CustomNames[63].In_CustomName.c_str(), "last");
}

TEST_F(MigrationTest, TheCurrentLoaderMigratesNothing) {
    Older() = {{"ActiveDevices", MakePropertyNumber(-1)},
               {"MiscOptions", MakePropertyNumber(0)},
               {"01 In_FromPort", MakePropertyNumber(5)},
               {"01 Out_ToPort", MakePropertyNumber(5)},
               {"01 In_CustomName", MakePropertyString("older")},
               {"01 Out_CustomName", MakePropertyString("older")}};
    EXPECT_FALSE(Differs(LoadCurrent(), DriverConfiguration()));
}

TEST_F(MigrationTest, AnOlderDomainThatCannotBeReadGivesTheDefaults) {
    Current()["04 DstHost"] = MakePropertyString("studio");
    FaultyPreferenceDomains faulty(domains);
    faulty.FailApplication(kOlderDriverDomain);
    DriverConfiguration configuration;
    DriverPreferences(faulty).LoadConfiguration(kPortCount, configuration);
    DriverConfiguration expected;
    expected.Hosts[3].DstHost = "studio";
    EXPECT_FALSE(Differs(configuration, expected));
    // Four words for each of two masks, the options, and two numbers and two names of each port.
    EXPECT_EQ(log.Count("GetObjectOfType: Not initialized or invalid Entry (0x"), 8 + 1 + 64 * 4);
}

TEST_F(MigrationTest, ACurrentDomainThatCannotBeReadIsReplacedByTheOlderOne) {
    Current()["MiscOptions"] = MakePropertyNumber(1);
    Older()["MiscOptions"] = MakePropertyNumber(2);
    FaultyPreferenceDomains faulty(domains);
    faulty.FailApplication(kDriverDomain);
    DriverConfiguration configuration;
    DriverPreferences(faulty).LoadConfiguration(kPortCount, configuration);
    EXPECT_EQ(configuration.MiscOptions, 2u);
}

}  // namespace
}  // namespace vexil
