#include "config/DriverConfiguration.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <utility>

namespace vexil {
namespace {

TEST(PortEntry, IsPackedLowByteFirst) {
    const PortEntry entry{0xC1, 0x02, 0x03, 0x04};
    EXPECT_EQ(PackPortEntry(entry), 0x040302C1u);
    EXPECT_EQ(UnpackPortEntry(0x040302C1u), entry);
}

TEST(PortEntry, EveryByteSurvivesPacking) {
    const PortEntry entry{0xFF, 0xFE, 0xFD, 0xFC};
    EXPECT_EQ(UnpackPortEntry(PackPortEntry(entry)), entry);
}

TEST(PortEntry, LiesInMemoryAsItIsStored) {
    const PortEntry entry{0xC1, 0x02, 0x03, 0x04};
    const unsigned char expected[] = {0xC1, 0x02, 0x03, 0x04};
    static_assert(sizeof entry == sizeof expected);
    EXPECT_EQ(std::memcmp(&entry, expected, sizeof expected), 0);
}

TEST(PortEntry, DefaultsToUnusedSourceAndEqualPorts) {
    for (int port = 0; port < kMaxPorts; ++port) {
        const auto index = static_cast<std::uint32_t>(port);
        EXPECT_EQ(PackPortEntry(DefaultPortEntry(port)), 0xC0u + (index << 16) + (index << 24));
    }
}

TEST(DriverConfiguration, DefaultsEveryField) {
    const DriverConfiguration configuration;
    EXPECT_EQ(configuration.InputPorts, 0u);
    EXPECT_EQ(configuration.OutputPorts, 1u);
    EXPECT_EQ(configuration.LocalPipes, 0u);
    EXPECT_EQ(configuration.SendGranularity, 2u);
    EXPECT_EQ(configuration.MiscOptions, 7u);
    for (int port = 0; port < kMaxPorts; ++port) {
        EXPECT_EQ(configuration.PortFlags[port], DefaultPortEntry(port));
        EXPECT_TRUE(configuration.Hosts[port].SrcHost.IsEmpty());
        EXPECT_TRUE(configuration.Hosts[port].DstHost.IsEmpty());
        EXPECT_TRUE(configuration.CustomNames[port].In_CustomName.IsEmpty());
        EXPECT_TRUE(configuration.CustomNames[port].Out_CustomName.IsEmpty());
    }
}

TEST(DriverConfiguration, OptionBitsAreTheStoredOnes) {
    EXPECT_EQ(kShowConnectors, 1u);
    EXPECT_EQ(kLaunchMonitor, 2u);
    EXPECT_EQ(kEnableLogging, 4u);
    EXPECT_EQ(kUseWireless, 8u);
    EXPECT_EQ(kSendImmediately, 0x01);
    EXPECT_EQ(kSourcePortUnused, 0x40);
    EXPECT_EQ(kSourceComputerUnused, 0x80);
}

// One change of each field of the record.
struct FieldChange {
    const char* field;
    std::function<void(DriverConfiguration&)> change;
};

const FieldChange kFieldChanges[] = {
    {"InputPorts", [](DriverConfiguration& c) { c.InputPorts ^= std::uint64_t{1} << 63; }},
    {"OutputPorts", [](DriverConfiguration& c) { c.OutputPorts ^= std::uint64_t{1} << 32; }},
    {"LocalPipes", [](DriverConfiguration& c) { c.LocalPipes ^= 1; }},
    {"flags", [](DriverConfiguration& c) { c.PortFlags[0].flags ^= kSendImmediately; }},
    {"reserved", [](DriverConfiguration& c) { c.PortFlags[5].reserved ^= 1; }},
    {"sourcePort", [](DriverConfiguration& c) { c.PortFlags[31].sourcePort ^= 1; }},
    {"targetPort", [](DriverConfiguration& c) { c.PortFlags[63].targetPort ^= 1; }},
    {"MiscOptions", [](DriverConfiguration& c) { c.MiscOptions ^= kUseWireless; }},
    {"SendGranularity", [](DriverConfiguration& c) { ++c.SendGranularity; }},
    {"first SrcHost", [](DriverConfiguration& c) { c.Hosts[0].SrcHost = "a"; }},
    {"last SrcHost", [](DriverConfiguration& c) { c.Hosts[63].SrcHost = "a"; }},
    {"first DstHost", [](DriverConfiguration& c) { c.Hosts[0].DstHost = "a"; }},
    {"last DstHost", [](DriverConfiguration& c) { c.Hosts[63].DstHost = "a"; }},
    {"first In_CustomName", [](DriverConfiguration& c) { c.CustomNames[0].In_CustomName = "a"; }},
    {"last In_CustomName", [](DriverConfiguration& c) { c.CustomNames[63].In_CustomName = "a"; }},
    {"first Out_CustomName", [](DriverConfiguration& c) { c.CustomNames[0].Out_CustomName = "a"; }},
    {"last Out_CustomName", [](DriverConfiguration& c) { c.CustomNames[63].Out_CustomName = "a"; }},
};

TEST(Differs, IsFalseForEqualRecords) {
    EXPECT_FALSE(Differs(DriverConfiguration(), DriverConfiguration()));
}

TEST(Differs, SeesAChangeOfEveryField) {
    for (const FieldChange& field : kFieldChanges) {
        DriverConfiguration changed;
        field.change(changed);
        EXPECT_TRUE(Differs(changed, DriverConfiguration())) << field.field;
        EXPECT_TRUE(Differs(DriverConfiguration(), changed)) << field.field;
    }
}

TEST(Differs, TellsLetterCaseApart) {
    DriverConfiguration upper;
    DriverConfiguration lower;
    upper.Hosts[3].DstHost = "Studio";
    lower.Hosts[3].DstHost = "studio";
    EXPECT_TRUE(Differs(upper, lower));
}

TEST(Differs, ComparesTextAndNotItsPlace) {
    DriverConfiguration left;
    DriverConfiguration right;
    left.Hosts[3].DstHost = "Studio";
    right.Hosts[3].DstHost = "Studio";
    ASSERT_NE(left.Hosts[3].DstHost.c_str(), right.Hosts[3].DstHost.c_str());
    EXPECT_FALSE(Differs(left, right));
}

TEST(CopyConfiguration, CopiesEveryField) {
    for (const FieldChange& field : kFieldChanges) {
        DriverConfiguration from;
        DriverConfiguration to;
        field.change(from);
        CopyConfiguration(from, to);
        EXPECT_FALSE(Differs(from, to)) << field.field;
        EXPECT_TRUE(Differs(to, DriverConfiguration())) << field.field;
    }
}

TEST(CopyConfiguration, ReplacesWhatWasThere) {
    for (const FieldChange& field : kFieldChanges) {
        DriverConfiguration to;
        field.change(to);
        CopyConfiguration(DriverConfiguration(), to);
        EXPECT_FALSE(Differs(to, DriverConfiguration())) << field.field;
    }
}

TEST(CopyConfiguration, SharesTheCharactersOfEveryText) {
    DriverConfiguration from;
    DriverConfiguration to;
    from.Hosts[63].SrcHost = "source";
    from.Hosts[63].DstHost = "target";
    from.CustomNames[63].In_CustomName = "in";
    from.CustomNames[63].Out_CustomName = "out";
    CopyConfiguration(from, to);
    EXPECT_EQ(to.Hosts[63].SrcHost.c_str(), from.Hosts[63].SrcHost.c_str());
    EXPECT_EQ(to.Hosts[63].DstHost.c_str(), from.Hosts[63].DstHost.c_str());
    EXPECT_EQ(to.CustomNames[63].In_CustomName.c_str(), from.CustomNames[63].In_CustomName.c_str());
    EXPECT_EQ(to.CustomNames[63].Out_CustomName.c_str(), from.CustomNames[63].Out_CustomName.c_str());
}

TEST(CopyConfiguration, LeavesTheCopyAloneWhenTheOriginalIsEdited) {
    DriverConfiguration from;
    DriverConfiguration to;
    from.Hosts[0].SrcHost = "Studio";
    CopyConfiguration(from, to);
    from.Hosts[0].SrcHost.SetAt(0, 's');
    EXPECT_STREQ(to.Hosts[0].SrcHost.c_str(), "Studio");
}

TEST(IsAdmissible, WantsAnInputOrAnOutput) {
    DriverConfiguration configuration;
    configuration.InputPorts = 0;
    configuration.OutputPorts = 0;
    configuration.LocalPipes = ~std::uint64_t{0};
    EXPECT_FALSE(IsAdmissible(configuration));
    configuration.InputPorts = std::uint64_t{1} << 63;
    EXPECT_TRUE(IsAdmissible(configuration));
    configuration.InputPorts = 0;
    configuration.OutputPorts = std::uint64_t{1} << 32;
    EXPECT_TRUE(IsAdmissible(configuration));
}

TEST(ShownPortNumber, IsInBanksOfEightWithSixtyFourPorts) {
    const std::pair<int, unsigned> numbers[] = {{0, 11}, {7, 18}, {8, 21}, {15, 28}, {56, 81}, {63, 88}};
    for (const auto& [port, shown] : numbers) {
        EXPECT_EQ(ShownPortNumber(port), shown) << port;
    }
}

TEST(ShownPortNumber, CountsFromOneWithAnyOtherCount) {
    for (const int portCount : {1, 16, 63, 65}) {
        EXPECT_EQ(ShownPortNumber(0, portCount), 1u) << portCount;
        EXPECT_EQ(ShownPortNumber(63, portCount), 64u) << portCount;
    }
}

TEST(SendQuantizationText, IsMillisecondsWithOneDecimal) {
    const std::pair<std::uint32_t, const char*> texts[] = {{0, "0.0"},
                                                           {2, "0.2"},
                                                           {99, "9.9"},
                                                           {100, "10.0"},
                                                           {0x80000000u, "214748364.8"},
                                                           {0xFFFFFFFFu, "429496729.5"}};
    for (const auto& [granularity, text] : texts) {
        EXPECT_STREQ(SendQuantizationText(granularity).c_str(), text);
    }
}

}  // namespace
}  // namespace vexil
