// Save, Load, and a settings file dropped on the window.
#include <sys/stat.h>
#include <unistd.h>

#include "tests/scenarios/Scenario.h"
#include "tests/scenarios/TempFolder.h"

namespace vexil {
namespace {

using Options = std::vector<int>;

constexpr const char* kSaveFailed = " file cannot be opened for read/write access.";
constexpr const char* kLoadFailed = " file cannot be opened for read access.";

// Is somebody whom file permissions bind while it lives.
class OrdinaryUser {
  public:
    OrdinaryUser() : before(geteuid()) { changed = before != 0 || seteuid(65534) == 0; }
    ~OrdinaryUser() { EXPECT_EQ(seteuid(before), 0); }
    bool changed;

  private:
    uid_t before;
};

class Settings : public Scenario {
  protected:
    void ChooseFile(const std::string& path) { dialogs.fileAnswers.push_back({0, path}); }
    void Save(const std::string& path) {
        ChooseFile(path);
        Hands().Click(kSave);
    }
    void Load(const std::string& path) {
        ChooseFile(path);
        Hands().Click(kLoad);
    }
    void ExpectFileAccessError(const std::string& explanation) {
        ASSERT_EQ(dialogs.alerts.size(), 1U);
        const AlertRequest& alert = dialogs.alerts[0];
        EXPECT_EQ(alert.message, "File Access Error!");
        EXPECT_EQ(alert.explanation, explanation);
        EXPECT_EQ(alert.kind, kAlertCaution);
        EXPECT_EQ(alert.defaultButtonNumber, kAlertDefaultButton);
        EXPECT_EQ(alert.defaultButton.kind, AlertButton::Kind::None);
        EXPECT_EQ(alert.cancelButton.kind, AlertButton::Kind::None);
        EXPECT_EQ(alert.otherButton.kind, AlertButton::Kind::None);
    }
    // A path in the folder that is as long as asked, in folders that exist.
    std::string LongPath(std::size_t length) {
        std::string path = folder.Path();
        while (path.size() + 102 < length) {
            path += "/" + std::string(100, 'd');
            mkdir(path.c_str(), 0700);
        }
        return path + "/" + std::string(length - path.size() - 1, 'f');
    }

    TempFolder folder;
};

TEST_F(Settings, SaveDialogProposesTheDefaultName) {
    Run([&] { Save(folder.Path("a.vexil3")); });
    ASSERT_EQ(dialogs.choosers.size(), 1U);
    EXPECT_TRUE(dialogs.choosers[0].save);
    EXPECT_EQ(dialogs.choosers[0].proposedName, "default.vexil3");
}

TEST_F(Settings, LoadDialogIsFilteredToTheSettingsType) {
    dialogs.fileAnswers.push_back({kUserCanceled});
    Run([&] { Hands().Click(kLoad); });
    ASSERT_EQ(dialogs.choosers.size(), 1U);
    EXPECT_FALSE(dialogs.choosers[0].save);
    EXPECT_EQ(dialogs.choosers[0].typeIdentifier, "com.sonavert.vexil3.vexp3");
}

TEST_F(Settings, SaveWritesWhatIsShownAppliedOrNot) {
    Run([&] {
        Hands().MoveSlider(37);
        Save(folder.Path("a.vexil3"));
        QuitWithoutApplying();
    });
    const std::string text = folder.Read("a.vexil3");
    EXPECT_EQ(text.rfind("[Options]\nShowEndpoints=1\nLaunchMonitor=1\nEnableLogging=1\nUseWireless=0\n"
                         "[General]\nSendGranularity=37\n"
                         "[Port_00]\nProperties=Output\nFlags=192\nSrcPort=0\nDstPort=0\n"
                         "[Port_01]\nFlags=192\nSrcPort=1\nDstPort=1\n",
                         0),
              0U)
        << text.substr(0, 300);
    EXPECT_NE(text.find("[Port_63]\nFlags=192\nSrcPort=63\nDstPort=63\n"), std::string::npos);
}

TEST_F(Settings, SaveSendsAndStoresNothing) {
    Run([&] {
        Sent();
        world->preferences.Forget();
        Save(folder.Path("a.vexil3"));
        EXPECT_EQ(Sent(), Options());
        EXPECT_TRUE(world->preferences.Changes().empty());
        EXPECT_FALSE(CanApply());
    });
}

TEST_F(Settings, SaveOverAFileKeepsLinesAddedByHandAndUpdatesItsKeysInPlace) {
    folder.Write(
        "a.vexil3",
        "; my studio\n[Mine]\nnote=keep\n[General]\nSendGranularity = 99\n; behind\n[Options]\nOther=5\n");
    Run([&] { Save(folder.Path("a.vexil3")); });
    EXPECT_EQ(folder.Read("a.vexil3")
                  .rfind("; my studio\n[Mine]\nnote=keep\n[General]\nSendGranularity=2\n"
                         "; behind\n[Options]\nOther=5\nShowEndpoints=1\n",
                         0),
              0U);
}

TEST_F(Settings, SaveTwiceLeavesTheFileTheSame) {
    Run([&] {
        Save(folder.Path("a.vexil3"));
        const std::string first = folder.Read("a.vexil3");
        Save(folder.Path("a.vexil3"));
        EXPECT_EQ(folder.Read("a.vexil3"), first);
    });
}

TEST_F(Settings, CanceledSaveTouchesNothing) {
    dialogs.fileAnswers.push_back({kUserCanceled});
    Run([&] { Hands().Click(kSave); });
    EXPECT_TRUE(folder.IsEmpty());
    EXPECT_TRUE(dialogs.alerts.empty());
}

TEST_F(Settings, PlatformErrorOfADialogEndsTheCommandSilently) {
    dialogs.fileAnswers = {{-43}, {-43}};
    Run([&] {
        Sent();
        Hands().Click(kSave);
        Hands().Click(kLoad);
        EXPECT_EQ(Sent(), Options());
    });
    EXPECT_TRUE(dialogs.alerts.empty());
}

TEST_F(Settings, SaveIntoAMissingFolderIsReportedWithThePath) {
    const std::string path = folder.Path("none/a.vexil3");
    Run([&] {
        Answer(AlertHit::Default);
        Save(path);
    });
    ExpectFileAccessError(path + kSaveFailed);
}

TEST_F(Settings, SaveOntoAFolderIsReported) {
    Run([&] {
        Answer(AlertHit::Default);
        Save(folder.Path());
    });
    ExpectFileAccessError(folder.Path() + kSaveFailed);
}

TEST_F(Settings, SaveIntoAFolderThatMayNotBeWrittenIsReported) {
    chmod(folder.Path().c_str(), 0755);
    const std::string path = folder.Path("a.vexil3");
    if (geteuid() != 0) {
        chmod(folder.Path().c_str(), 0555);
    }
    Run([&] {
        Answer(AlertHit::Default);
        const OrdinaryUser user;
        ASSERT_TRUE(user.changed);
        Save(path);
    });
    chmod(folder.Path().c_str(), 0755);
    ExpectFileAccessError(path + kSaveFailed);
}

TEST_F(Settings, LoadOfAWriteProtectedFileIsReported) {
    chmod(folder.Path().c_str(), 0755);
    folder.Write("a.vexil3", "[General]\nSendGranularity=37\n");
    chmod(folder.Path("a.vexil3").c_str(), 0444);
    Run([&] {
        Answer(AlertHit::Default);
        const OrdinaryUser user;
        ASSERT_TRUE(user.changed);
        Load(folder.Path("a.vexil3"));
        EXPECT_EQ(Text(kQuantizationNumber), "0.2");
        EXPECT_FALSE(CanApply());
    });
    ExpectFileAccessError(folder.Path("a.vexil3") + kLoadFailed);
}

TEST_F(Settings, PathOf259BytesIsSavedAndLoaded) {
    const std::string path = LongPath(259);
    Run([&] {
        Save(path);
        Load(path);
    });
    EXPECT_TRUE(dialogs.alerts.empty());
    EXPECT_TRUE(std::filesystem::exists(path));
}

TEST_F(Settings, LongerPathIsRefusedAndNeverCut) {
    const std::string path = LongPath(260);
    Run([&] {
        Answer(AlertHit::Default);
        Save(path);
    });
    ExpectFileAccessError(path + kSaveFailed);
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_FALSE(std::filesystem::exists(path.substr(0, 259)));
}

TEST_F(Settings, LoadOfALongerPathIsRefused) {
    const std::string path = LongPath(260);
    std::ofstream(path) << "[General]\nSendGranularity=37\n";
    Run([&] {
        Answer(AlertHit::Default);
        Load(path);
        EXPECT_EQ(Text(kQuantizationNumber), "0.2");
    });
    ExpectFileAccessError(path + kLoadFailed);
}

TEST_F(Settings, LoadShowsTheImportedValuesAtOnce) {
    folder.Write("a.vexil3",
                 "[Options]\nShowEndpoints=0\nUseWireless=1\n[General]\nSendGranularity=37\n"
                 "[Port_00]\nProperties=Input\nFlags=0\nSrcPort=7\nDstPort=8\nSrcName=alpha\nDstName=beta\n"
                 "InpName=Keys\nOutName=Synth\n");
    Run([&] {
        Load(folder.Path("a.vexil3"));
        EXPECT_FALSE(IsChecked(kShowConnectorsBox));
        EXPECT_TRUE(IsChecked(kUseWirelessBox));
        EXPECT_EQ(Value(kQuantizationSlider), 37);
        EXPECT_EQ(Text(kQuantizationNumber), "3.7");
        EXPECT_TRUE(IsChecked(kMidiIn));
        EXPECT_FALSE(IsChecked(kMidiOut));
        EXPECT_EQ(Text(kSourcePortNumber), "18");
        EXPECT_EQ(Text(kTargetPortNumber), "21");
        EXPECT_EQ(Text(kSourceComputer), "alpha");
        EXPECT_EQ(Text(kTargetComputer), "beta");
        EXPECT_EQ(Text(kInputName), "Keys");
        EXPECT_EQ(Text(kOutputName), "Synth");
        EXPECT_TRUE(IsEnabled(kSourceComputer));
        EXPECT_TRUE(CanApply());
        QuitWithoutApplying();
    });
}

TEST_F(Settings, LoadLeavesDriverAndPreferencesUntilApply) {
    folder.Write("a.vexil3", "[General]\nSendGranularity=37\n");
    Run([&] {
        Sent();
        world->preferences.Forget();
        Load(folder.Path("a.vexil3"));
        EXPECT_EQ(LastCall(191).bytes.at(0), 37);
        EXPECT_EQ(Sent(), (Options{197, 202, 191})) << "browse and quantization only";
        EXPECT_TRUE(world->preferences.Changes().empty());
        Hands().Click(kApply);
        EXPECT_EQ(Sent(), Options{190});
        EXPECT_EQ(Stored().SendGranularity, 37U);
    });
}

TEST_F(Settings, LoadDoesNotRetargetAnOpenTest) {
    folder.Write("a.vexil3", "[Port_00]\nDstName=beta\nDstPort=9\n");
    Run([&] {
        Sent();
        Load(folder.Path("a.vexil3"));
        EXPECT_EQ(Sent(), (Options{197, 202, 191}));
        QuitWithoutApplying();
    });
}

TEST_F(Settings, LoadOfTheSameValuesIsNoChange) {
    Run([&] {
        Save(folder.Path("a.vexil3"));
        Load(folder.Path("a.vexil3"));
        EXPECT_FALSE(CanApply());
    });
}

TEST_F(Settings, LoadOfAPartialFileChangesOnlyWhatItHolds) {
    folder.Write("a.vexil3", "[Port_05]\nDstName=studio\n");
    Run([&] {
        Load(folder.Path("a.vexil3"));
        Hands().Click(kApply);
        const DriverConfiguration stored = Stored();
        EXPECT_STREQ(stored.Hosts[5].DstHost.c_str(), "studio");
        DriverConfiguration expected;
        expected.Hosts[5].DstHost = "studio";
        EXPECT_FALSE(Differs(stored, expected));
    });
}

TEST_F(Settings, LoadOfAStrangeFileChangesNothing) {
    std::string junk(5000, '\xff');
    for (std::size_t i = 0; i < junk.size(); i += 7) {
        junk[i] = static_cast<char>(i);
    }
    folder.Write("a.vexil3", junk);
    Run([&] {
        Load(folder.Path("a.vexil3"));
        EXPECT_FALSE(CanApply());
    });
    EXPECT_EQ(folder.Read("a.vexil3"), junk);
}

TEST_F(Settings, LoadedPortBeyondTheArrowsIsKeptUntilItIsStepped) {
    folder.Write("a.vexil3", "[Port_00]\nDstPort=200\n");
    Run([&] {
        Load(folder.Path("a.vexil3"));
        EXPECT_EQ(Text(kTargetPortNumber), "261");
        Hands().Click(kApply);
        EXPECT_EQ(Stored().PortFlags[0].targetPort, 200);
    });
}

TEST_F(Settings, LoadedConfigurationWithoutPortsIsCorrectedOnlyByApply) {
    folder.Write("a.vexil3", "[Port_00]\nProperties=\n");
    Run([&] {
        Load(folder.Path("a.vexil3"));
        EXPECT_FALSE(IsChecked(kMidiOut));
        Answer(AlertHit::Default);
        Hands().Click(kApply);
        EXPECT_EQ(Stored().OutputPorts, 1U);
    });
}

TEST_F(Settings, LoadRefreshesThePortThatIsShown) {
    folder.Write("a.vexil3", "[Port_07]\nOutName=eight\n");
    Run([&] {
        Hands().ClickRow(7);
        Load(folder.Path("a.vexil3"));
        EXPECT_EQ(Text(kOutputName), "eight");
        QuitWithoutApplying();
    });
}

TEST_F(Settings, CanceledLoadLeavesThePanelUntouched) {
    dialogs.fileAnswers.push_back({kUserCanceled});
    Run([&] {
        Sent();
        Hands().Click(kLoad);
        EXPECT_EQ(Sent(), Options());
    });
}

TEST_F(Settings, DroppedFileLoadsWithoutADialog) {
    folder.Write("a.vexil3", "[General]\nSendGranularity=37\n");
    Run([&] {
        Sent();
        Hands().DropFile(folder.Path("a.vexil3").c_str());
        EXPECT_EQ(Text(kQuantizationNumber), "3.7");
        EXPECT_TRUE(CanApply());
        EXPECT_EQ(Sent(), (Options{197, 202, 191}));
        QuitWithoutApplying();
    });
    EXPECT_TRUE(dialogs.choosers.empty());
}

TEST_F(Settings, DroppedFolderIsReportedAsLoadReportsIt) {
    const std::string path = folder.Path("folder.vexil3");
    std::filesystem::create_directory(path);
    Run([&] {
        Answer(AlertHit::Default);
        Hands().DropFile(path.c_str());
    });
    ExpectFileAccessError(path + kLoadFailed);
}

}  // namespace
}  // namespace vexil
