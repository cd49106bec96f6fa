#include "ctl/StoredSettings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "config/DriverPreferences.h"
#include "config/IniFile.h"
#include "config/PreferencesStore.h"
#include "config/SettingsFile.h"
#include "platform/linux/preferences/PlistPreferenceDomains.h"
#include "tests/ctl/CtlFolder.h"
#include "tests/doubles/FaultyPreferenceDomains.h"
#include "tests/doubles/MemoryPreferenceDomains.h"

namespace vexil {
namespace {

using Outcome = StoredSettings::Outcome;
using testing::HasSubstr;
using testing::StartsWith;

class StoredSettingsTest : public testing::Test {
  protected:
    // The log is opened before the domains are used, as the program does.
    CollectedLog log;
    const CtlFolder folder;
    PlistPreferenceDomains domains{folder.paths};
    StoredSettings settings{domains, log};

    DriverConfiguration Stored() const {
        PlistPreferenceDomains fresh(folder.paths);
        DriverConfiguration configuration;
        DriverPreferences(fresh).LoadConfiguration(kPortCount, configuration);
        return configuration;
    }
    static void Store(PreferenceDomains& target, const DriverConfiguration& configuration) {
        PreferenceBatch batch(target);  // one write in place of hundreds
        batch.Begin();
        DriverPreferences(batch).SaveConfiguration(kPortCount, configuration);
        ASSERT_TRUE(batch.Commit(kDriverDomain, UserScope::kCFPreferencesAnyUser,
                                 HostScope::kCFPreferencesCurrentHost));
    }
    static DriverConfiguration Sample() {
        DriverConfiguration configuration;
        configuration.InputPorts = 0x8000000000000001;
        configuration.LocalPipes = 4;
        configuration.SendGranularity = 55;
        configuration.MiscOptions = 0xB;
        configuration.Hosts[5].DstHost = "B\xC3\xBChne";
        configuration.CustomNames[63].In_CustomName = "Keys [left]";
        configuration.PortFlags[9] = {0x41, 0, 7, 8};
        return configuration;
    }
    // What a panel's Save makes of a configuration.
    std::string Exported(const DriverConfiguration& configuration) const {
        const std::string path = folder.File("exported.vexil3");
        std::filesystem::remove(path);
        IniFile file;
        EXPECT_TRUE(file.Open(path.c_str()));
        ExportSettings(kPortCount, file, configuration);
        EXPECT_TRUE(file.Close());
        return CtlFolder::Content(path);
    }
    std::string Settings(const std::string& content) const {
        std::string path = folder.File("mine.vexil3");
        CtlFolder::Put(path, content);
        return path;
    }
};

TEST_F(StoredSettingsTest, SaveWritesWhatThePanelWouldWrite) {
    Store(domains, Sample());
    const std::string path = folder.File("saved.vexil3");
    ASSERT_TRUE(settings.Save(path)) << settings.Problem();
    EXPECT_EQ(CtlFolder::Content(path), Exported(Sample()));
    EXPECT_EQ(settings.Problem(), "");
}

TEST_F(StoredSettingsTest, SaveOfAnEmptyStoreWritesTheDefaults) {
    const std::string path = folder.File("saved.vexil3");
    ASSERT_TRUE(settings.Save(path)) << settings.Problem();
    EXPECT_EQ(CtlFolder::Content(path), Exported(DriverConfiguration()));
    EXPECT_FALSE(std::filesystem::exists(folder.StoredFile())) << "nothing is stored by saving";
}

TEST_F(StoredSettingsTest, SaveEditsAFileInPlace) {
    const std::string path = Settings("; mine\n[Notes]\nroom=upstairs\n[General]\nSendGranularity = 9\n");
    ASSERT_TRUE(settings.Save(path)) << settings.Problem();
    EXPECT_THAT(CtlFolder::Content(path),
                StartsWith("; mine\n[Notes]\nroom=upstairs\n[General]\nSendGranularity=2\n[Options]\n"));
}

TEST_F(StoredSettingsTest, SaveTakesOverWhatThePreviousGenerationStored) {
    PreferencesStore older(domains, kOlderDriverDomain, true);
    ASSERT_TRUE(older.SetString("03 Out_CustomName", older.User(), "Organ"));
    const std::string path = folder.File("saved.vexil3");
    ASSERT_TRUE(settings.Save(path)) << settings.Problem();
    EXPECT_THAT(CtlFolder::Content(path), HasSubstr("OutName=Organ\n"));
}

TEST_F(StoredSettingsTest, LoadStoresWhatWasSaved) {
    const std::string path = Settings(Exported(Sample()));
    ASSERT_EQ(settings.Load(path), Outcome::Stored) << settings.Problem();
    DriverConfiguration expected = Sample();
    expected.CustomNames[63].In_CustomName = "";  // brackets end the section in a settings file
    EXPECT_FALSE(Differs(Stored(), expected));
    EXPECT_EQ(CtlFolder::Content(path), Exported(Sample())) << "the file is as it was";
}

TEST_F(StoredSettingsTest, WhatTheFileLacksStaysAsItWas) {
    Store(domains, Sample());
    ASSERT_EQ(settings.Load(Settings("[Port_05]\nDstName=studio\n")), Outcome::Stored);
    DriverConfiguration expected = Sample();
    expected.Hosts[5].DstHost = "studio";
    EXPECT_FALSE(Differs(Stored(), expected));
}

TEST_F(StoredSettingsTest, LoadStoresTheWirelessSwitchToo) {
    ASSERT_EQ(settings.Load(Settings("[Options]\nUseWireless=1\n")), Outcome::Stored);
    EXPECT_TRUE(DriverPreferences(domains).GetWirelessOption());
}

TEST_F(StoredSettingsTest, LoadGivesAConfigurationWithoutPortsTheFirstOutput) {
    ASSERT_EQ(settings.Load(Settings("[Port_00]\nProperties=\n[Port_03]\nProperties=Pipe\n")),
              Outcome::Corrected);
    EXPECT_EQ(Stored().OutputPorts, 1U);
    EXPECT_EQ(Stored().InputPorts, 0U);
    EXPECT_EQ(Stored().LocalPipes, 8U);
}

// Whichever of the synchronisations fails, all is stored or nothing.
TEST_F(StoredSettingsTest, LoadStoresAllOrNothing) {
    const std::string path = Settings(Exported(Sample()));
    int failures = 0;
    for (bool stored = false; !stored; ++failures) {
        ASSERT_LT(failures, 100);
        MemoryPreferenceDomains memory;
        FaultyPreferenceDomains faulty(memory);
        faulty.FailOnceAfter(failures);
        stored = StoredSettings(faulty, log).Load(path) == Outcome::Stored;
        EXPECT_EQ(memory.Storage().domains.empty(), !stored) << failures;
    }
    EXPECT_GT(failures, 3);
}

TEST_F(StoredSettingsTest, AMissingFileIsNotMade) {
    const std::string path = folder.File("none.vexil3");
    EXPECT_EQ(settings.Load(path), Outcome::Failed);
    EXPECT_EQ(settings.Problem(),
              path + " cannot be opened for reading and writing: No such file or directory\n");
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_FALSE(std::filesystem::exists(folder.StoredFile()));
}

TEST_F(StoredSettingsTest, WhatIsNoPlainFileIsRefused) {
    EXPECT_EQ(settings.Load(folder.root), Outcome::Failed);
    EXPECT_THAT(settings.Problem(), HasSubstr("Is a directory"));
    const std::string pipe = folder.File("pipe");
    ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
    EXPECT_EQ(settings.Load(pipe), Outcome::Failed);
    EXPECT_THAT(settings.Problem(), HasSubstr("it is no plain file"));
    EXPECT_FALSE(settings.Save(pipe));
    EXPECT_THAT(settings.Problem(), HasSubstr("it is no plain file"));
}

TEST_F(StoredSettingsTest, WhatHoldsNoSettingsIsRefused) {
    Store(domains, Sample());
    const std::string before = CtlFolder::Content(folder.StoredFile());
    for (const std::string& content :
         {std::string(), std::string("a letter to a friend\n"), std::string("[Notes]\nroom=upstairs\n"),
          std::string("[Options]\n\n"), std::string("[Port_64]\nFlags=1\n"),
          std::string("[Port_5]\nFlags=1\n"), std::string("[Port_ 5]\nFlags=1\n"),
          std::string("[Port_-1]\nFlags=1\n"), std::string("[Port_055]\nFlags=1\n"),
          std::string("[Options]\nUseWireless=1\n\0[Port_01]\n", 35)}) {
        const std::string path = Settings(content);
        EXPECT_EQ(settings.Load(path), Outcome::Failed) << content;
        EXPECT_EQ(settings.Problem(), path + " is no settings file\n");
    }
    EXPECT_EQ(CtlFolder::Content(folder.StoredFile()), before);
}

TEST_F(StoredSettingsTest, AFileThatIsTooLargeIsRefused) {
    const std::string path = Settings("[Options]\nUseWireless=1\n");
    std::filesystem::resize_file(path, kMaxRewriteBytes + 1);
    EXPECT_EQ(settings.Load(path), Outcome::Failed);
    EXPECT_THAT(settings.Problem(), HasSubstr("it is too large"));
}

TEST_F(StoredSettingsTest, ASaveThatCannotBeWrittenSaysWhy) {
    EXPECT_FALSE(settings.Save(folder.File("no folder/saved.vexil3")));
    EXPECT_THAT(settings.Problem(), HasSubstr("No such file or directory"));
    EXPECT_FALSE(settings.Save("/dev/full"));
    EXPECT_THAT(settings.Problem(), HasSubstr("it is no plain file"));
}

TEST_F(StoredSettingsTest, ADamagedStoreIsNeitherSavedNorCompletedByAFile) {
    const std::string path = folder.File("saved.vexil3");
    for (const bool load : {false, true}) {
        CtlFolder::Put(folder.StoredFile(), "<plist><dict><key>half");
        const bool done = load ? settings.Load(Settings("[Options]\nUseWireless=1\n")) != Outcome::Failed
                               : settings.Save(path);
        EXPECT_FALSE(done);
        EXPECT_THAT(settings.Problem(), StartsWith("the stored configuration cannot be read\n"
                                                   "Preferences set aside: "));
    }
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_TRUE(settings.Save(path)) << "what was damaged is out of the way now";
}

TEST_F(StoredSettingsTest, ADamagedStoreOfThePreviousGenerationStaysAndIsSaid) {
    const std::string older =
        folder.paths.anyUserPreferences + "/" + kOlderDriverDomain + "." + folder.paths.hostId + ".plist";
    CtlFolder::Put(older, "<plist><dict><key>half");
    EXPECT_TRUE(settings.Save(folder.File("saved.vexil3")));
    EXPECT_THAT(settings.Problem(), StartsWith("Preferences not used: "));
    EXPECT_EQ(CtlFolder::Content(older), "<plist><dict><key>half");
}

TEST_F(StoredSettingsTest, AStoreThatCannotBeReadIsNotSaved) {
    MemoryPreferenceDomains memory;
    FaultyPreferenceDomains faulty(memory);
    faulty.FailAll(true);
    StoredSettings unreadable(faulty, log);
    const std::string path = folder.File("saved.vexil3");
    EXPECT_FALSE(unreadable.Save(path));
    EXPECT_THAT(unreadable.Problem(), StartsWith("the stored configuration cannot be read\n"));
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(StoredSettingsTest, AStoreThatCannotBeWrittenStaysWhole) {
    Store(domains, Sample());
    const std::string before = CtlFolder::Content(folder.StoredFile());
    // The lock of the store cannot be had: its place is taken by a folder.
    std::filesystem::remove(folder.StoredFile() + ".lock");
    std::filesystem::create_directory(folder.StoredFile() + ".lock");
    EXPECT_EQ(settings.Load(Settings("[General]\nSendGranularity=1\n")), Outcome::Failed);
    EXPECT_THAT(settings.Problem(),
                StartsWith("the configuration cannot be stored\nCannot write preferences: "));
    EXPECT_EQ(CtlFolder::Content(folder.StoredFile()), before);
}

}  // namespace
}  // namespace vexil
