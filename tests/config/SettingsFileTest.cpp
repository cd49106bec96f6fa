// Export and import of the configuration.
#include "config/SettingsFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <ctime>
#include <functional>

#include "tests/config/IniFixture.h"

namespace vexil::test {
namespace {

class SettingsFileTest : public IniFixture {
  protected:
    std::string Exported(const DriverConfiguration& configuration, int portCount = kPortCount) {
        ExportSettings(portCount, ini, configuration);
        return Saved();
    }

    // Imports a file of this text.
    void Import(const std::string& text, int portCount = kPortCount) {
        Open(text);
        ImportSettings(portCount, ini, record);
        EXPECT_EQ(Saved(), text);
    }

    DriverConfiguration record;
};

std::string EmptyPort(int port) {
    char section[24];
    std::snprintf(section, sizeof section, "[Port_%02d]\n", port);
    const std::string number = std::to_string(port);
    return section + std::string("Flags=192\nSrcPort=") + number + "\nDstPort=" + number + "\n";
}

TEST_F(SettingsFileTest, TheWholeFileOfTheDefaultsIsWrittenInOrder) {
    Open("");
    std::string expected =
        "[Options]\nShowEndpoints=1\nLaunchMonitor=1\nEnableLogging=1\nUseWireless=0\n[General]"
        "\nSendGranularity=2\n"
        "[Port_00]\nProperties=Output\nFlags=192\nSrcPort=0\nDstPort=0\n";
    for (int port = 1; port < 64; ++port) {
        expected += EmptyPort(port);
    }
    EXPECT_EQ(Exported(record), expected);
}

TEST_F(SettingsFileTest, EveryKeyOfAPortIsWrittenInOrder) {
    record.InputPorts = record.OutputPorts = record.LocalPipes = 1;
    record.PortFlags[0] = {1, 77, 2, 255};
    record.Hosts[0] = {"src", "dst"};
    record.CustomNames[0] = {"in put", "out=put"};
    Open("");
    EXPECT_EQ(Exported(record, 1),
              "[Options]\nShowEndpoints=1\nLaunchMonitor=1\nEnableLogging=1\nUseWireless=0\n[General]\n"
              "SendGranularity=2\n[Port_00]\nProperties=Input,Output,Pipe\nFlags=1\nSrcPort=2\nDstPort=255\n"
              "SrcName=src\nDstName=dst\nInpName=in put\nOutName=out=put\n");
}

TEST_F(SettingsFileTest, EachSwitchHasItsOwnBit) {
    const char* const keys[] = {"ShowEndpoints", "LaunchMonitor", "EnableLogging", "UseWireless"};
    for (std::uint32_t bit = 0; bit < 4; ++bit) {
        Open("");
        record.MiscOptions = 1U << bit;
        ExportSettings(0, ini, record);
        for (std::uint32_t other = 0; other < 4; ++other) {
            EXPECT_EQ(Value("Options", keys[other]), bit == other ? "1" : "0");
        }
        ini.Close();
    }
}

TEST_F(SettingsFileTest, RolesAreJoinedByCommas) {
    record.InputPorts = 0b0101;
    record.OutputPorts = 0b0110;
    record.LocalPipes = 0b1100;
    Open("");
    ExportSettings(5, ini, record);
    EXPECT_EQ(Value("Port_00", "Properties"), "Input");
    EXPECT_EQ(Value("Port_01", "Properties"), "Output");
    EXPECT_EQ(Value("Port_02", "Properties"), "Input,Output,Pipe");
    EXPECT_EQ(Value("Port_03", "Properties"), "Pipe");
    EXPECT_EQ(Value("Port_04", "Properties"), "(none)");
}

TEST_F(SettingsFileTest, AGranularityAbove31BitsIsWrittenNegative) {
    record.SendGranularity = 0xFFFFFFFE;
    Open("");
    ExportSettings(0, ini, record);
    EXPECT_EQ(Value("General", "SendGranularity"), "-2");
}

TEST_F(SettingsFileTest, OtherSectionsAndLinesKeepTheirPlaces) {
    Open("; mine\n[Mine]\nk=v\n[Port_01]\n# note\n  Flags = 7\n\nOwn=1\n[Options]\nUseWireless=x\n");
    EXPECT_EQ(
        Exported(record, 2),
        "; mine\n[Mine]\nk=v\n[Port_01]\n# note\nFlags=192\n\nOwn=1\nSrcPort=1\nDstPort=1\n[Options]\n"
        "UseWireless=0\nShowEndpoints=1\nLaunchMonitor=1\nEnableLogging=1\n[General]\nSendGranularity=2\n"
        "[Port_00]\nProperties=Output\nFlags=192\nSrcPort=0\nDstPort=0\n");
}

TEST_F(SettingsFileTest, ExportingTwiceChangesNothing) {
    record.InputPorts = 0xF0F0;
    record.Hosts[3].DstHost = "studio";
    Open("[Mine]\nk=v\n");
    const std::string first = Exported(record);
    ASSERT_TRUE(ini.Open(nullptr));
    EXPECT_EQ(Exported(record), first);
}

TEST_F(SettingsFileTest, APortWithoutRolesLosesItsPropertiesLine) {
    record.InputPorts = record.OutputPorts = 1;
    Open("");
    const std::string first = Exported(record, 1);
    EXPECT_NE(first.find("Properties=Input,Output\n"), std::string::npos);
    record.InputPorts = record.OutputPorts = 0;
    ASSERT_TRUE(ini.Open(nullptr));
    EXPECT_EQ(Exported(record, 1).find("Properties"), std::string::npos);
}

TEST_F(SettingsFileTest, AnEmptiedNameLosesItsLine) {
    record.Hosts[0].SrcHost = "a";
    Open("");
    Exported(record, 1);
    record.Hosts[0].SrcHost.Empty();
    ASSERT_TRUE(ini.Open(nullptr));
    EXPECT_EQ(Exported(record, 1).find("SrcName"), std::string::npos);
}

TEST_F(SettingsFileTest, ALineBreakInANameSplitsTheLine) {
    record.Hosts[0].SrcHost = "a\nb";
    Open("");
    const std::string text = Exported(record, 1);
    EXPECT_NE(text.find("SrcName=a\nb\n"), std::string::npos);
}

TEST_F(SettingsFileTest, NoMorePortsThanTheRecordHasAreWritten) {
    Open("");
    ExportSettings(1000, ini, record);
    EXPECT_EQ(Value("Port_63", "Flags"), "192");
    EXPECT_EQ(Value("Port_64", "Flags"), "(none)");
}

TEST_F(SettingsFileTest, ANegativePortCountWritesNoPort) {
    Open("");
    ExportSettings(-1, ini, record);
    EXPECT_EQ(Value("Port_00", "Flags"), "(none)");
}

// Import.

TEST_F(SettingsFileTest, WhatIsExportedComesBack) {
    DriverConfiguration original;
    original.InputPorts = 0x8000000000000001;
    original.OutputPorts = 0x123456789ABCDEF0;
    original.LocalPipes = 0x0FEDCBA987654321;
    original.SendGranularity = 55;
    original.MiscOptions = 9;
    for (int port = 0; port < 64; ++port) {
        const svString name = svString("n") + std::to_string(port).c_str();
        const auto byte = static_cast<std::uint8_t>(port * 4 + 3);
        original.PortFlags[port] = {byte, 0, static_cast<std::uint8_t>(byte ^ 0x55),
                                    static_cast<std::uint8_t>(~byte)};
        original.Hosts[port] = {name + "s", name + "d"};
        original.CustomNames[port] = {name + "i", name + "o"};
    }
    Open("");
    Exported(original);
    ASSERT_TRUE(ini.Open(nullptr));
    ImportSettings(kPortCount, ini, record);
    EXPECT_FALSE(Differs(original, record));
}

TEST_F(SettingsFileTest, AnEmptyFileChangesNothing) {
    DriverConfiguration before;
    before.SendGranularity = 1000;
    CopyConfiguration(before, record);
    Import("");
    EXPECT_FALSE(Differs(before, record));
}

TEST_F(SettingsFileTest, OneKeyAloneChangesOnlyItsField) {
    DriverConfiguration expected;
    expected.Hosts[5].DstHost = "studio";
    Import("[Port_05]\nDstName=studio\n");
    EXPECT_FALSE(Differs(expected, record));
}

TEST_F(SettingsFileTest, ASwitchIsExactlyOneOrZero) {
    const struct {
        const char* value;
        std::uint32_t fromClear;
        std::uint32_t fromSet;
    } cases[] = {{"1", 8, 8},  {"0", 0, 0},    {" 1 ", 8, 8}, {" 0\t", 0, 0}, {"yes", 0, 8},
                 {"01", 0, 8}, {"true", 0, 8}, {"", 0, 8},    {"10", 0, 8},   {"2", 0, 8}};
    for (const auto& one : cases) {
        record.MiscOptions = 0;
        Import(std::string("[Options]\nUseWireless=") + one.value + "\n");
        EXPECT_EQ(record.MiscOptions, one.fromClear) << one.value;
        record.MiscOptions = 8;
        Import(std::string("[Options]\nUseWireless=") + one.value + "\n");
        EXPECT_EQ(record.MiscOptions, one.fromSet) << one.value;
    }
}

TEST_F(SettingsFileTest, EachSwitchSetsItsOwnBit) {
    const char* const keys[] = {"ShowEndpoints", "LaunchMonitor", "EnableLogging", "UseWireless"};
    for (std::uint32_t bit = 0; bit < 4; ++bit) {
        record.MiscOptions = 0;
        Import(std::string("[Options]\n") + keys[bit] + "=1\n");
        EXPECT_EQ(record.MiscOptions, 1U << bit);
    }
}

TEST_F(SettingsFileTest, OptionBitsWithoutAKeyAreKept) {
    record.MiscOptions = 0xFFFFFFFF;
    Import("[Options]\nShowEndpoints=0\n");
    EXPECT_EQ(record.MiscOptions, 0xFFFFFFFEU);
}

TEST_F(SettingsFileTest, GranularityIsLimited) {
    const struct {
        const char* value;
        std::uint32_t granularity;
    } cases[] = {{"250", 100},
                 {"-5", 0},
                 {"abc", 0},
                 {"", 42},
                 {"0", 0},
                 {"100", 100},
                 {"101", 100},
                 {"37x", 37},
                 {"+8", 8},
                 {"4294967297", 100},
                 {"99999999999999999999", 100},
                 {"-99999999999999999999", 0}};
    for (const auto& one : cases) {
        record.SendGranularity = 42;
        Import(std::string("[General]\nSendGranularity=") + one.value + "\n");
        EXPECT_EQ(record.SendGranularity, one.granularity) << one.value;
    }
}

TEST_F(SettingsFileTest, PropertiesSetAndClearAllThreeBits) {
    record.InputPorts = record.OutputPorts = ~std::uint64_t{0};
    record.LocalPipes = 0;
    Import("[Port_63]\nProperties=Pipe\n");
    EXPECT_EQ(record.InputPorts, ~std::uint64_t{0} >> 1);
    EXPECT_EQ(record.OutputPorts, ~std::uint64_t{0} >> 1);
    EXPECT_EQ(record.LocalPipes, std::uint64_t{1} << 63);
}

TEST_F(SettingsFileTest, EmptyPropertiesClearAllThreeBits) {
    record.InputPorts = record.OutputPorts = record.LocalPipes = 3;
    Import("[Port_01]\nProperties=\n");
    EXPECT_EQ(record.InputPorts, 1U);
    EXPECT_EQ(record.OutputPorts, 1U);
    EXPECT_EQ(record.LocalPipes, 1U);
}

TEST_F(SettingsFileTest, RolesAreFoundAnywhereInTheirOwnCase) {
    record.OutputPorts = 0;
    Import("[Port_00]\nProperties=NoInputs; output, XPipeX\n");
    EXPECT_EQ(record.InputPorts, 1U);
    EXPECT_EQ(record.OutputPorts, 0U);
    EXPECT_EQ(record.LocalPipes, 1U);
}

TEST_F(SettingsFileTest, BytesKeepTheLowBitsOfTheirNumber) {
    const struct {
        const char* value;
        std::uint8_t byte;
    } cases[] = {{"300", 44},
                 {"-1", 255},
                 {"", 0},
                 {"abc", 0},
                 {"255", 255},
                 {"256", 0},
                 {"12x", 12},
                 {"2147483647", 255},
                 {"2147483648", 255},
                 {"-2147483648", 0},
                 {"-2147483649", 0},
                 {"4294967296", 255},
                 {"99999999999999999999", 255},
                 {"-99999999999999999999", 0}};
    for (const auto& one : cases) {
        for (const char* key : {"Flags", "SrcPort", "DstPort"}) {
            record.PortFlags[2] = {9, 9, 9, 9};
            Import(std::string("[Port_02]\n") + key + "=" + one.value + "\n");
            PortEntry expected{9, 9, 9, 9};
            (*key == 'F'   ? expected.flags
             : *key == 'S' ? expected.sourcePort
                           : expected.targetPort) = one.byte;
            EXPECT_EQ(record.PortFlags[2], expected) << key << '=' << one.value;
        }
    }
}

TEST_F(SettingsFileTest, AnEmptyNameEmptiesItsField) {
    record.Hosts[0] = {"a", "b"};
    record.CustomNames[0] = {"c", "d"};
    Import("[Port_00]\nSrcName=\nDstName=\nInpName=\nOutName=\n");
    EXPECT_TRUE(record.Hosts[0].SrcHost.IsEmpty());
    EXPECT_TRUE(record.Hosts[0].DstHost.IsEmpty());
    EXPECT_TRUE(record.CustomNames[0].In_CustomName.IsEmpty());
    EXPECT_TRUE(record.CustomNames[0].Out_CustomName.IsEmpty());
}

TEST_F(SettingsFileTest, EachNameGoesToItsField) {
    Import("[Port_07]\nSrcName=s\nDstName=d\nInpName=i\nOutName=o\n");
    EXPECT_STREQ(record.Hosts[7].SrcHost.c_str(), "s");
    EXPECT_STREQ(record.Hosts[7].DstHost.c_str(), "d");
    EXPECT_STREQ(record.CustomNames[7].In_CustomName.c_str(), "i");
    EXPECT_STREQ(record.CustomNames[7].Out_CustomName.c_str(), "o");
}

TEST_F(SettingsFileTest, PortsFromThePortCountOnAreIgnored) {
    DriverConfiguration before;
    Import("[Port_04]\nDstName=x\n[Port_64]\nDstName=y\n[Port_4]\nDstName=z\n", 4);
    EXPECT_FALSE(Differs(before, record));
}

TEST_F(SettingsFileTest, NoMorePortsThanTheRecordHasAreRead) {
    DriverConfiguration before;
    Import("[Port_64]\nFlags=1\n[Port_100]\nFlags=1\n", 1000);
    EXPECT_FALSE(Differs(before, record));
}

// Processor time, so that other programs do not count.
double MillisecondsOf(const std::function<void()>& work) {
    const std::clock_t start = std::clock();
    work();
    return 1e3 * static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
}

// Each of the five hundred values is looked up on its own; none of these look-ups may walk the file.
TEST_F(SettingsFileTest, AnImportFromAnyTextTakesNoLongerThanAFewReadingsOfTheFile) {
    const std::size_t size = kMaxRewriteBytes / 2;
    std::string headers;
    while (headers.size() < size) {
        headers += "[]\n";
    }
    for (const std::string& text :
         {std::string(size, '\n'), headers, "[Port_00]\n" + std::string(size, '\n')}) {
        WriteText(path, text);
        const double reading = MillisecondsOf([this] { EXPECT_TRUE(ini.Open(path.c_str())); });
        const double importing = MillisecondsOf([this] { ImportSettings(kPortCount, ini, record); });
        EXPECT_LT(importing, 10 * reading) << text.substr(0, 10);
        ini.Close();
    }
}

TEST_F(SettingsFileTest, AnExportIntoAnyTextTakesNoLongerThanAFewReadingsOfTheFile) {
    for (int port = 0; port < kMaxPorts; ++port) {
        record.CustomNames[port].In_CustomName = "[brackets]";
    }
    WriteText(path, std::string(kMaxRewriteBytes / 2, '\n'));
    const double reading = MillisecondsOf([this] { EXPECT_TRUE(ini.Open(path.c_str())); });
    const double exporting = MillisecondsOf([this] { ExportSettings(kPortCount, ini, record); });
    EXPECT_LT(exporting, 10 * reading);
}

}  // namespace
}  // namespace vexil::test
