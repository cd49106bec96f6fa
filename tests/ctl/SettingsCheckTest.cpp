#include "ctl/SettingsCheck.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "config/IniFile.h"
#include "config/SettingsFile.h"
#include "tests/ctl/CtlFolder.h"

namespace vexil {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// The remarks as "LINE: TEXT".
std::vector<std::string> Remarks(const std::string& text) {
    std::vector<std::string> lines;
    for (const SettingsRemark& remark : CheckSettings(text).remarks) {
        lines.push_back(std::to_string(remark.line) + ": " + remark.text);
    }
    return lines;
}

// Of one value in the section of a port.
std::vector<std::string> PortRemarks(const std::string& line) {
    return Remarks("[Port_05]\n" + line + "\n");
}

TEST(SettingsCheck, FindsNothingInWhatTheProgramWrites) {
    const CtlFolder folder;
    DriverConfiguration configuration;
    configuration.InputPorts = configuration.LocalPipes = 0xFF;
    configuration.PortFlags[3] = {1 | 64 | 128, 0, 63, 0};
    configuration.Hosts[3] = {"a", "b=c"};
    IniFile file;
    ASSERT_TRUE(file.Open(folder.File("saved").c_str()));
    ExportSettings(kPortCount, file, configuration);
    ASSERT_TRUE(file.Close());
    const SettingsFindings findings = CheckSettings(CtlFolder::Content(folder.File("saved")));
    EXPECT_THAT(findings.remarks, IsEmpty());
    EXPECT_TRUE(findings.holdsSettings);
}

TEST(SettingsCheck, CommentsAndBlankLinesAreNoFindings) {
    EXPECT_THAT(Remarks("; mine\r\n\r\n# too\n[General]\n \t\n ; SendGranularity=3\n"), IsEmpty());
}

TEST(SettingsCheck, AWordThatIsNoRoleIsFoundWithItsLine) {
    EXPECT_THAT(PortRemarks("\nProperties=Input, Outptu"),
                ElementsAre("3: Properties: 'Outptu' is not Input, Output or Pipe"));
    EXPECT_THAT(PortRemarks("Properties=input"),
                ElementsAre("2: Properties: 'input' is not Input, Output or Pipe"));
    EXPECT_THAT(PortRemarks("Properties=InputOutput"),
                ElementsAre("2: Properties: 'InputOutput' is read as Input,Output"));
    EXPECT_THAT(PortRemarks("Properties="), IsEmpty());
}

TEST(SettingsCheck, APortBeyondTheLastIsFound) {
    EXPECT_THAT(PortRemarks("DstPort=99"),
                ElementsAre("2: DstPort: '99' is no port: they are counted from 0 to 63"));
    EXPECT_THAT(PortRemarks("SrcPort=64"), testing::SizeIs(1));
    EXPECT_THAT(PortRemarks("SrcPort=63"), IsEmpty());
}

TEST(SettingsCheck, ANumberSaysAsWhatItIsRead) {
    EXPECT_THAT(PortRemarks("Flags=300"),
                ElementsAre("2: Flags: '300' is not from 0 to 255 and is read as 44"));
    EXPECT_THAT(PortRemarks("DstPort=-1"),
                ElementsAre("2: DstPort: '-1' is not from 0 to 255 and is read as 255"));
    EXPECT_THAT(PortRemarks("SrcPort=two"), ElementsAre("2: SrcPort: 'two' is no number and is read as 0"));
    EXPECT_THAT(PortRemarks("Flags="), ElementsAre("2: Flags: '' is no number and is read as 0"));
    EXPECT_THAT(PortRemarks("Flags=3"), ElementsAre("2: Flags: 2 of the flags '3' means nothing"));
    EXPECT_THAT(Remarks("[General]\nSendGranularity=250\n"),
                ElementsAre("2: SendGranularity: '250' is not from 0 to 100 and is read as 100"));
    EXPECT_THAT(Remarks("[General]\nSendGranularity=1.5\n"),
                ElementsAre("2: SendGranularity: '1.5' is no number and is read as 1"));
    EXPECT_THAT(Remarks("[General]\nSendGranularity=\n"),
                ElementsAre("2: SendGranularity: has no value: it stays as it is"));
}

TEST(SettingsCheck, AnOptionThatIsNeitherOneNorZeroIsFound) {
    EXPECT_THAT(Remarks("[Options]\nUseWireless=yes\nEnableLogging=1\n"),
                ElementsAre("2: UseWireless: 'yes' is neither 1 nor 0: the option stays as it is"));
}

TEST(SettingsCheck, UnknownKeysAndSectionsAreFound) {
    EXPECT_THAT(PortRemarks("Dstname=x"), ElementsAre("2: there is no key 'Dstname' in this section"));
    EXPECT_THAT(Remarks("[Port_64]\nFlags=9999\n[options]\n"),
                ElementsAre("1: there is no section 'Port_64': nothing in it is read",
                            "3: there is no section 'options': nothing in it is read"));
    EXPECT_FALSE(CheckSettings("[Port_64]\nFlags=1\n").holdsSettings);
}

TEST(SettingsCheck, WhatIsThereTwiceIsFound) {
    EXPECT_THAT(PortRemarks("Flags=1\nFlags=64"),
                ElementsAre("3: key 'Flags' has been there before: this one is not read"));
    EXPECT_THAT(Remarks("[General]\n[Options]\n[General]\nSendGranularity=999\n"),
                ElementsAre("3: section 'General' has been there before: this one is not read"));
}

TEST(SettingsCheck, LinesOfNoKindAreFound) {
    EXPECT_THAT(Remarks("Flags=1\n[Port_00]\nFlags 1\n=1\n"),
                ElementsAre("1: 'Flags' stands in front of the first section",
                            "3: 'Flags 1' is neither a [section] nor a key=value",
                            "4: '=1' is neither a [section] nor a key=value"));
}

TEST(SettingsCheck, ANameWithBracketsIsFoundForItEndsTheSection) {
    EXPECT_THAT(PortRemarks("InpName=Keys [left]\nOutName=Organ"),
                ElementsAre("2: the brackets make it the header of a section: 'InpName=Keys [left]'"));
}

TEST(SettingsCheck, LinesAreCountedAsAnEditorCountsThem) {
    const std::string longName(1500, 'x');
    EXPECT_THAT(PortRemarks("InpName=" + longName + "\r\nFlags=2"),
                ElementsAre(HasSubstr("2: the line is too long"), HasSubstr("2: 'xxx"),
                            "3: Flags: 2 of the flags '2' means nothing"));
}

TEST(SettingsCheck, VeryManyRemarksAreCut) {
    std::string text = "[General]\n";
    for (int line = 0; line < 1000; ++line) {
        text += "x\n";
    }
    const std::string lines = RemarkLines("file", CheckSettings(text).remarks);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 101);
    EXPECT_THAT(lines, testing::EndsWith("file: and 900 more\n"));
}

}  // namespace
}  // namespace vexil
