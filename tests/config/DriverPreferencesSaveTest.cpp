// Saving the configuration, single options, and the cache.
#include <array>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tests/config/DriverPreferencesFixture.h"
#include "tests/doubles/FaultyPreferenceDomains.h"

namespace vexil {
namespace {

// A text of up to 40 bytes of any value but zero.
svString RandomText(std::mt19937_64& random) {
    std::string text(random() % 41, ' ');
    for (char& character : text) {
        character = static_cast<char>(1 + random() % 255);
    }
    return svString(text.c_str());
}

DriverConfiguration RandomConfiguration(std::mt19937_64& random) {
    DriverConfiguration configuration;
    configuration.InputPorts = random();
    configuration.OutputPorts = random();
    configuration.LocalPipes = random();
    configuration.MiscOptions = random() % 16;
    configuration.SendGranularity = static_cast<std::uint32_t>(random());
    for (int port = 0; port < kMaxPorts; ++port) {
        const auto index = [&] { return static_cast<std::uint8_t>(random() % kMaxPorts); };
        configuration.PortFlags[port] = {static_cast<std::uint8_t>(random() & 0xC1), 0, index(), index()};
        configuration.Hosts[port] = {RandomText(random), RandomText(random)};
        configuration.CustomNames[port] = {RandomText(random), RandomText(random)};
    }
    return configuration;
}

class SaveTest : public DriverPreferencesTest {
  protected:
    void Save(const DriverConfiguration& configuration) {
        preferences.SaveConfiguration(kPortCount, configuration);
    }
    std::vector<std::string> WrittenKeys() const {
        std::vector<std::string> keys;
        for (const MemoryPreferenceDomains::Change& change : domains.Changes()) {
            keys.push_back(change.key);
        }
        return keys;
    }
};

TEST_F(SaveTest, WritesEveryKeyInItsOrder) {
    std::vector<std::string> expected = {"InputPorts", "OutputPorts", "LocalPipes", "MiscOptions",
                                         "SendGranularity"};
    for (int number = 1; number <= 64; ++number) {
        const std::string prefix = (number < 10 ? "0" : "") + std::to_string(number) + " ";
        for (const char* name : {"PortFlags", "In_CustomName", "Out_CustomName", "SrcHost", "DstHost"}) {
            expected.push_back(prefix + name);
        }
    }
    ASSERT_EQ(expected.size(), 325u);
    Save(DriverConfiguration());
    EXPECT_EQ(WrittenKeys(), expected);
}

TEST_F(SaveTest, SynchronizesAfterEveryWriteAndTouchesTheCurrentDomainOnly) {
    Save(DriverConfiguration());
    EXPECT_EQ(domains.Synchronized(), std::vector<PreferenceDomainId>(1 + 325, DomainOf(kDriverDomain)));
    for (const MemoryPreferenceDomains::Change& change : domains.Changes()) {
        EXPECT_EQ(change.domain, DomainOf(kDriverDomain)) << change.key;
    }
    EXPECT_EQ(log.Text(), "");
}

TEST_F(SaveTest, StoresEachValueInItsForm) {
    DriverConfiguration configuration;
    configuration.InputPorts = 0x8807060504030201u;
    configuration.OutputPorts = 0;
    configuration.LocalPipes = std::uint64_t{1} << 63;
    configuration.MiscOptions = 0x8000000Fu;
    configuration.SendGranularity = 100;
    configuration.PortFlags[0] = {0xC1, 0, 2, 0xFF};
    configuration.CustomNames[4] = {"B\xC3\xBChne", "out"};
    configuration.Hosts[63] = {"source", "target"};
    Save(configuration);

    const std::pair<const char*, PropertyRef> values[] = {
        {"InputPorts", Mask("\x01\x02\x03\x04\x05\x06\x07\x88")},
        {"OutputPorts", Mask(std::string(8, '\0'))},
        {"LocalPipes", Mask(std::string("\0\0\0\0\0\0\0\x80", 8))},
        {"MiscOptions", MakePropertyNumber(static_cast<std::int32_t>(0x8000000Fu))},
        {"SendGranularity", MakePropertyNumber(100)},
        {"01 PortFlags", MakePropertyNumber(static_cast<std::int32_t>(0xFF0200C1u))},
        {"64 PortFlags", MakePropertyNumber(0x3F3F00C0)},
        {"05 In_CustomName", MakePropertyString("B\xC3\xBChne")},
        {"05 Out_CustomName", MakePropertyString("out")},
        {"64 SrcHost", MakePropertyString("source")},
        {"64 DstHost", MakePropertyString("target")},
        {"01 DstHost", MakePropertyString("")},
    };
    for (const auto& [key, value] : values) {
        EXPECT_TRUE(SameProperty(Current()[key], value)) << key;
    }
    EXPECT_EQ(Current().size(), 325u);
}

TEST_F(SaveTest, ReplacesANameByAnEmptyOne) {
    Current()["03 In_CustomName"] = MakePropertyString("name");
    Save(DriverConfiguration());
    EXPECT_TRUE(SameProperty(Current()["03 In_CustomName"], MakePropertyString("")));
}

TEST_F(SaveTest, LeavesTheKeysAboveThePortCountAlone) {
    Current()["03 DstHost"] = MakePropertyString("kept");
    preferences.SaveConfiguration(2, DriverConfiguration());
    EXPECT_EQ(domains.Changes().size(), 5u + 2 * 5);
    EXPECT_EQ(domains.Changes().back().key, "02 DstHost");
    EXPECT_TRUE(SameProperty(Current()["03 DstHost"], MakePropertyString("kept")));
}

TEST_F(SaveTest, ARandomConfigurationSurvives) {
    std::mt19937_64 random(20260101);
    for (int round = 0; round < 20; ++round) {
        const DriverConfiguration saved = RandomConfiguration(random);
        Save(saved);
        EXPECT_FALSE(Differs(saved, Load())) << "round " << round;
        EXPECT_FALSE(Differs(saved, LoadCurrent())) << "round " << round;
    }
}

TEST_F(SaveTest, AReloadTakesNoFallback) {
    DriverConfiguration saved;
    for (int port = 0; port < kMaxPorts; ++port) {
        saved.CustomNames[port] = {"in", "out"};
    }
    Save(saved);
    for (const char* key : {"ActiveDevices", "ActiveDevices01", "ActiveDevices02", "ActiveDevices03"}) {
        Older()[key] = MakePropertyNumber(-1);
    }
    Older()["MiscOptions"] = MakePropertyNumber(0);
    for (const char* name : {"In_FromPort", "Out_ToPort"}) {
        Older()[std::string("01 ") + name] = MakePropertyNumber(9);
    }
    for (const char* name : {"In_CustomName", "Out_CustomName"}) {
        Older()[std::string("01 ") + name] = MakePropertyString("older");
    }
    EXPECT_FALSE(Differs(saved, Load()));
}

TEST_F(SaveTest, AMigratedConfigurationIsSavedToTheCurrentDomain) {
    Older() = {{"ActiveDevices", MakePropertyNumber(0x00030002)},
               {"02 In_FromPort", MakePropertyNumber(0x01000007)},
               {"02 In_CustomName", MakePropertyString("older")}};
    const PropertyDictionary olderBefore = Older();
    const DriverConfiguration migrated = Load();
    Save(migrated);
    EXPECT_EQ(Older(), olderBefore);
    Older().clear();
    EXPECT_FALSE(Differs(migrated, Load()));
    EXPECT_EQ(migrated.OutputPorts, 3u);
    EXPECT_EQ(migrated.InputPorts, 3u);
    EXPECT_STREQ(migrated.CustomNames[1].In_CustomName.c_str(), "older");
}

TEST_F(SaveTest, AFailedWriteLosesItsValueOnly) {
    FaultyPreferenceDomains faulty(domains);
    faulty.FailOnceAfter(1 + 3);  // the opening and the three masks
    DriverConfiguration configuration;
    configuration.MiscOptions = 1;
    configuration.SendGranularity = 9;
    DriverPreferences(faulty).SaveConfiguration(kPortCount, configuration);
    EXPECT_EQ(Load().MiscOptions, 7u);
    EXPECT_EQ(Load().SendGranularity, 9u);
    EXPECT_EQ(Current().size(), 324u);
}

TEST_F(SaveTest, ADomainThatCannotBeOpenedLogsEveryWrite) {
    FaultyPreferenceDomains faulty(domains);
    faulty.FailApplication(kDriverDomain);
    DriverPreferences(faulty).SaveConfiguration(kPortCount, DriverConfiguration());
    EXPECT_TRUE(Current().empty());
    EXPECT_EQ(log.Count("PutObject: Not initialized or invalid Entry (0x"), 325);
}

class OptionTest : public DriverPreferencesTest {};

TEST_F(OptionTest, WirelessIsBitThreeOfTheCurrentMiscOptions) {
    const std::pair<std::int32_t, bool> options[] = {
        {0, false}, {7, false}, {8, true}, {15, true}, {-1, false}};
    for (const auto& [stored, wireless] : options) {
        Current()["MiscOptions"] = MakePropertyNumber(stored);
        EXPECT_EQ(preferences.GetWirelessOption(), wireless) << stored;
    }
}

TEST_F(OptionTest, WirelessIsOffWhenNothingIsStoredHere) {
    Older()["MiscOptions"] = MakePropertyNumber(15);
    EXPECT_FALSE(preferences.GetWirelessOption());
}

TEST_F(OptionTest, SettingWirelessChangesThatBitOnly) {
    Current()["MiscOptions"] = MakePropertyNumber(5);
    preferences.SetWirelessOption(true);
    EXPECT_TRUE(SameProperty(Current()["MiscOptions"], MakePropertyNumber(13)));
    preferences.SetWirelessOption(false);
    EXPECT_TRUE(SameProperty(Current()["MiscOptions"], MakePropertyNumber(5)));
    EXPECT_EQ(domains.Changes().size(), 2u);
}

TEST_F(OptionTest, SettingWirelessOnAnEmptyStoreWritesBackZeroOrEight) {
    Older()["MiscOptions"] = MakePropertyNumber(7);
    preferences.SetWirelessOption(false);
    EXPECT_TRUE(SameProperty(Current()["MiscOptions"], MakePropertyNumber(0)));
    preferences.SetWirelessOption(true);
    EXPECT_TRUE(SameProperty(Current()["MiscOptions"], MakePropertyNumber(8)));
    EXPECT_EQ(domains.Changes().size(), 2u);
}

// What the two domains hold under MiscOptions (null: nothing), and whether logging is on.
struct LoggingCase {
    PropertyRef current;
    PropertyRef older;
    bool logging;
};

TEST_F(OptionTest, LoggingIsBitTwoOfTheCurrentThenTheOlderMiscOptions) {
    const LoggingCase cases[] = {
        {nullptr, nullptr, true},
        {MakePropertyNumber(0), nullptr, false},
        {MakePropertyNumber(4), nullptr, true},
        {MakePropertyNumber(11), nullptr, false},
        {MakePropertyNumber(15), nullptr, true},
        {nullptr, MakePropertyNumber(3), false},
        {nullptr, MakePropertyNumber(7), true},
        {MakePropertyNumber(3), MakePropertyNumber(7), false},
        {MakePropertyNumber(7), MakePropertyNumber(3), true},
        {MakePropertyNumber(-1), MakePropertyNumber(3), false},
        {MakePropertyNumber(-1), MakePropertyNumber(-1), true},
        {MakePropertyString("0"), nullptr, true},
    };
    for (const LoggingCase& logging : cases) {
        Current() = {{"MiscOptions", logging.current}};
        Older() = {{"MiscOptions", logging.older}};
        EXPECT_EQ(preferences.GetLoggingOption(), logging.logging) << &logging - cases;
    }
    EXPECT_TRUE(domains.Changes().empty());
}

TEST_F(OptionTest, LoggingIsOnWhenNoDomainCanBeOpened) {
    FaultyPreferenceDomains faulty(domains);
    faulty.FailAll(true);
    EXPECT_TRUE(DriverPreferences(faulty).GetLoggingOption());
}

class CacheTest : public DriverPreferencesTest {
  protected:
    void Write() { preferences.WriteCache(block.data(), static_cast<std::uint32_t>(block.size())); }

    const std::array<std::uint8_t, 5> block{'a', 0, 'b', 0, 0};
};

TEST_F(CacheTest, IsReadAsItWasWritten) {
    Write();
    EXPECT_TRUE(SameProperty(Current()["Cache"], MakePropertyData(block.data(), block.size())));
    std::array<std::uint8_t, 8> buffer{};
    std::uint32_t size = buffer.size();
    EXPECT_TRUE(preferences.ReadCache(buffer.data(), &size));
    EXPECT_EQ(size, 5u);
    EXPECT_TRUE(std::equal(block.begin(), block.end(), buffer.begin()));
}

TEST_F(CacheTest, ReadingIntoASmallerBufferGivesTheLength) {
    Write();
    std::array<std::uint8_t, 4> buffer{};
    std::uint32_t size = buffer.size();
    EXPECT_FALSE(preferences.ReadCache(buffer.data(), &size));
    EXPECT_EQ(size, 5u);
    EXPECT_EQ(log.Text(), "GetBinary: buffer null or overflow (5 > 4)\n");
}

TEST_F(CacheTest, IsGoneAfterItsRemoval) {
    Write();
    preferences.RemoveCache();
    EXPECT_FALSE(Current().contains("Cache"));
    std::array<std::uint8_t, 8> buffer{};
    std::uint32_t size = buffer.size();
    EXPECT_FALSE(preferences.ReadCache(buffer.data(), &size));
    EXPECT_EQ(size, 8u);
}

TEST_F(CacheTest, WritingNoBytesRemovesIt) {
    Write();
    preferences.WriteCache(block.data(), 0);
    EXPECT_FALSE(Current().contains("Cache"));
}

TEST_F(CacheTest, SurvivesASave) {
    Write();
    preferences.SaveConfiguration(kPortCount, DriverConfiguration());
    EXPECT_TRUE(Current().contains("Cache"));
}

class CompleteOptionsTest : public DriverPreferencesTest {
  protected:
    std::int32_t Options() {
        const PropertyRef options = Current()["MiscOptions"];
        for (int number = 0; number < 16; ++number) {
            if (SameProperty(options, MakePropertyNumber(number))) {
                return number;
            }
        }
        return -1;
    }
};

TEST_F(CompleteOptionsTest, WhereNothingIsStoredTheDefaultsAre) {
    EXPECT_TRUE(preferences.CompleteOptions(true));
    EXPECT_EQ(Options(), 7);
    EXPECT_EQ(domains.Changes().size(), 1u);
}

TEST_F(CompleteOptionsTest, WhatAPanelLeftBehindAtItsStartDoesNotCount) {
    preferences.SetWirelessOption(false);
    EXPECT_TRUE(preferences.CompleteOptions(true));
    EXPECT_EQ(Options(), 7);
}

TEST_F(CompleteOptionsTest, TheOlderDomainComesBeforeTheDefaults) {
    Older()["MiscOptions"] = MakePropertyNumber(9);
    preferences.SetWirelessOption(false);
    EXPECT_TRUE(preferences.CompleteOptions(true));
    EXPECT_EQ(Options(), 9);
    EXPECT_TRUE(preferences.CompleteOptions(false));
    EXPECT_EQ(Options(), 1);
    EXPECT_TRUE(SameProperty(Older()["MiscOptions"], MakePropertyNumber(9)));
}

TEST_F(CompleteOptionsTest, ASavedConfigurationIsLeftAlone) {
    DriverConfiguration configuration;
    configuration.MiscOptions = 0;
    preferences.SaveConfiguration(kPortCount, configuration);
    domains.Forget();
    EXPECT_TRUE(preferences.CompleteOptions(true));
    EXPECT_EQ(Options(), 0);
    EXPECT_TRUE(domains.Changes().empty());
}

TEST_F(CompleteOptionsTest, WhatCannotBeStoredIsSaid) {
    domains.Storage().writable = false;
    EXPECT_FALSE(preferences.CompleteOptions(true));
    EXPECT_EQ(Options(), -1);
}

}  // namespace
}  // namespace vexil
