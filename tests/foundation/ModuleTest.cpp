// The program's identity and places. The state is the process's own, so what depends on a fresh one runs in a
// process of its own.
#include "shared/System/svModule.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "tests/doubles/FaultyPreferenceDomains.h"
#include "tests/doubles/MemoryPreferenceDomains.h"

namespace vexil {
namespace {

namespace fs = std::filesystem;

// A temporary folder with an executable of the shape of an application bundle in it. Right under /tmp, so
// that the folders above it are known.
class Module : public testing::Test {
  protected:
    Module() {
        std::string name = "/tmp/vexil-module-XXXXXX";
        folder = fs::canonical(mkdtemp(name.data()));
        executable = MakeExecutable(folder / "holder/Panel.app/Contents/MacOS");
    }
    ~Module() override { fs::remove_all(folder); }

    static std::string MakeExecutable(const fs::path& directory) {
        fs::create_directories(directory);
        const fs::path path = directory / "vexil3";
        std::ofstream(path) << "x";
        return path.string();
    }

    int InitialisePanel() const { return svModule::Initialise(executable.c_str(), "Vexil III", "3"); }

    fs::path folder;
    std::string executable;
    MemoryPreferenceDomains domains;
};

TEST_F(Module, InitialisesWithAnExecutableInABundle) {
    EXPECT_EQ(InitialisePanel(), 0);
    EXPECT_EQ(svModule::CheckInitialised(), 0);
}

TEST_F(Module, ExecutableDirectoryEndsInASlash) {
    InitialisePanel();
    EXPECT_EQ(svModule::ExecutableDirectory(),
              (folder.string() + "/holder/Panel.app/Contents/MacOS/").c_str());
}

TEST_F(Module, ContentsDirectoryIsOneAboveTheExecutables) {
    InitialisePanel();
    EXPECT_EQ(svModule::ContentsDirectory(), (folder.string() + "/holder/Panel.app/Contents/").c_str());
}

TEST_F(Module, BundleHolderIsFourAboveTheExecutableFile) {
    InitialisePanel();
    EXPECT_EQ(svModule::BundleHolderPath(), (folder.string() + "/holder/").c_str());
}

TEST_F(Module, BundleHolderOfALinkedExecutableIsThatOfTheFile) {
    const std::string link = (folder / "link").string();
    fs::create_symlink(executable, link);
    EXPECT_EQ(svModule::Initialise(link.c_str(), "Vexil III", "3"), 0);
    EXPECT_EQ(svModule::BundleHolderPath(), (folder.string() + "/holder/").c_str());
    EXPECT_EQ(svModule::ExecutableDirectory(), (folder.string() + "/").c_str());
}

TEST_F(Module, BundleHolderOfTheShallowestExecutableIsTheRoot) {
    const std::string fourth = MakeExecutable(folder / "one");
    ASSERT_EQ(svModule::Initialise(fourth.c_str(), "Vexil III", "3"), 0) << "/tmp/FOLDER/one/vexil3";
    EXPECT_STREQ(svModule::BundleHolderPath().c_str(), "//");
}

TEST_F(Module, ATooShallowExecutableFailsAtTheRoot) {
    InitialisePanel();
    EXPECT_EQ(svModule::Initialise("/bin/sh", "Vexil III", "3"), ENOENT);
    EXPECT_STREQ(svModule::ExecutableDirectory().c_str(), "/bin/");
    EXPECT_EQ(svModule::BundleHolderPath(), (folder.string() + "/holder/").c_str()) << "kept from before";
}

TEST_F(Module, AMissingExecutableIsTheFileSystemsError) {
    EXPECT_EQ(svModule::Initialise((folder / "none").c_str(), "Vexil III", "3"), ENOENT);
    EXPECT_EQ(svModule::Initialise((executable + "/none").c_str(), "Vexil III", "3"), ENOTDIR);
    EXPECT_EQ(svModule::Initialise(nullptr, "Vexil III", "3"), EINVAL);
}

TEST_F(Module, AFailedInitialiseLeavesTheModuleInitialised) {
    svModule::Initialise((folder / "none/vexil3").c_str(), "Other", "9");
    EXPECT_EQ(svModule::CheckInitialised(), 0);
    EXPECT_EQ(svModule::ExecutableDirectory(), (folder.string() + "/none/").c_str());
    EXPECT_EQ(svModule::SetPreferenceInteger(domains, "Key", 1, true), 0);
    EXPECT_EQ(domains.Changes().at(0).domain.application, "com.sonavert.Other.9");
}

TEST_F(Module, APathWithoutASlashIsTheDirectoryAsAWhole) {
    svModule::Initialise("vexil3", "Vexil III", "3");
    EXPECT_STREQ(svModule::ExecutableDirectory().c_str(), "vexil3");
    EXPECT_STREQ(svModule::ContentsDirectory().c_str(), "vexil3");
}

TEST_F(Module, ContentsDirectoryOfAShortDirectoryIsWhatTheCutsLeave) {
    svModule::Initialise("bin/vexil3", "Vexil III", "3");
    EXPECT_STREQ(svModule::ContentsDirectory().c_str(), "bin");
    svModule::Initialise("/vexil3", "Vexil III", "3");
    EXPECT_STREQ(svModule::ExecutableDirectory().c_str(), "/");
    EXPECT_STREQ(svModule::ContentsDirectory().c_str(), "");
}

TEST_F(Module, ABundleHolderPathOf260BytesIsGiven) {
    const std::string base = folder.string() + "/";
    const fs::path holder = base + std::string(150, 'a') + "/" + std::string(260 - base.size() - 151, 'b');
    const std::string deep = MakeExecutable(holder / "P/C/M");
    EXPECT_EQ(svModule::Initialise(deep.c_str(), "Vexil III", "3"), 0);
    EXPECT_EQ(svModule::BundleHolderPath(), (holder.string() + "/").c_str());
}

TEST_F(Module, ABundleHolderPathOfMoreBytesIsEmpty) {
    const std::string base = folder.string() + "/";
    const fs::path holder = base + std::string(150, 'a') + "/" + std::string(261 - base.size() - 151, 'b');
    const std::string deep = MakeExecutable(holder / "P/C/M");
    EXPECT_EQ(svModule::Initialise(deep.c_str(), "Vexil III", "3"), 0);
    EXPECT_STREQ(svModule::BundleHolderPath().c_str(), "");
}

// Death tests that start this program anew and so meet a module that nobody has initialised.
class FreshModule : public testing::Test {
  protected:
    FreshModule() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
    ~FreshModule() override { GTEST_FLAG_SET(death_test_style, "fast"); }

    // What the new process has to say.
    static void Print(const svString& text) {
        std::fputs(text.c_str(), stderr);
        std::exit(0);
    }

    MemoryPreferenceDomains domains;
};

TEST_F(FreshModule, PlacesAreEmptyBeforeInitialise) {
    EXPECT_EXIT(Print(svModule::ExecutableDirectory() + svModule::ContentsDirectory() +
                      svModule::BundleHolderPath() + svModule::MainBundle()),
                testing::ExitedWithCode(0), testing::StrEq(""));
}

TEST_F(FreshModule, BundleHolderIsEmptyWhenItWasNeverFound) {
    const auto run = [] {
        svModule::Initialise("/none/vexil3", "Vexil III", "3");
        Print(svModule::BundleHolderPath());
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), testing::StrEq(""));
}

TEST_F(FreshModule, MainBundleIsTheApplicationBundlesFolder) {
    const auto run = [] {
        svModule::Initialise("/Applications/Panel.app/Contents/MacOS/vexil3", "Vexil III", "3");
        Print(svModule::MainBundle());
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), testing::StrEq("/Applications/Panel.app/"));
}

TEST_F(FreshModule, MainBundleOfAPlainExecutableIsItsDirectory) {
    const auto run = [] {
        svModule::Initialise("/usr/local/bin/vexil3", "Vexil III", "3");
        Print(svModule::MainBundle());
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), testing::StrEq("/usr/local/bin/"));
}

TEST_F(FreshModule, MainBundleStaysWhatItFirstWas) {
    const auto run = [] {
        svModule::MainBundle();
        svModule::Initialise("/usr/local/bin/vexil3", "Vexil III", "3");
        svModule::MainBundle();
        svModule::Initialise("/opt/bin/vexil3", "Vexil III", "3");
        Print(svModule::MainBundle());
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), testing::StrEq("/usr/local/bin/"));
}

TEST_F(Module, IdIsTheNameAndTheSubNameWithTheSpaceKept) {
    InitialisePanel();
    svModule::SetPreferenceInteger(domains, "Key", 1, true);
    EXPECT_EQ(domains.Changes().at(0).domain.application, "com.sonavert.Vexil III.3");
}

TEST_F(Module, IdWithoutASubNameIsTheNameAlone) {
    svModule::Initialise(executable.c_str(), "Vexil III", nullptr);
    svModule::SetPreferenceInteger(domains, "Key", 1, true);
    EXPECT_EQ(domains.Changes().at(0).domain.application, "com.sonavert.Vexil III");
}

TEST_F(Module, PreferencesAreStoredForTheChosenUserScope) {
    InitialisePanel();
    svModule::SetPreferenceInteger(domains, "Key", 1, true);
    svModule::SetPreferenceString(domains, "Key", "text", false);
    EXPECT_EQ(domains.Changes().at(0).domain.user, UserScope::kCFPreferencesAnyUser);
    EXPECT_EQ(domains.Changes().at(1).domain.user, UserScope::kCFPreferencesCurrentUser);
}

TEST_F(Module, PreferencesAreReadBackFromTheSameScope) {
    InitialisePanel();
    EXPECT_EQ(svModule::SetPreferenceInteger(domains, "Window/Left", -40, true), 0);
    EXPECT_EQ(svModule::SetPreferenceString(domains, "Window/Title", "Panel", false), 0);
    EXPECT_EQ(svModule::GetPreferenceInteger(domains, "Window/Left", 7, true), -40);
    EXPECT_EQ(svModule::GetPreferenceInteger(domains, "Window/Left", 7, false), 7);
    EXPECT_STREQ(svModule::GetPreferenceString(domains, "Window/Title", "none", false).c_str(), "Panel");
    EXPECT_STREQ(svModule::GetPreferenceString(domains, "Window/Title", "none", true).c_str(), "none");
}

TEST_F(Module, PreferencesOfAStoreThatDoesNotInitialiseAreTheDefaults) {
    InitialisePanel();
    svModule::SetPreferenceInteger(domains, "Key", 1, true);
    svModule::SetPreferenceString(domains, "Text", "text", true);
    FaultyPreferenceDomains faulty(domains);
    faulty.FailAll(true);
    EXPECT_EQ(svModule::GetPreferenceInteger(faulty, "Key", 7, true), 7);
    EXPECT_STREQ(svModule::GetPreferenceString(faulty, "Text", "none", true).c_str(), "none");
    EXPECT_STREQ(svModule::GetPreferenceString(faulty, "Text", nullptr, true).c_str(), "");
    EXPECT_EQ(svModule::SetPreferenceInteger(faulty, "Key", 2, true), -1);
    EXPECT_EQ(svModule::SetPreferenceString(faulty, "Text", "x", true), -1);
}

TEST_F(Module, APreferenceThatCannotBeMadePermanentIsAFailure) {
    InitialisePanel();
    FaultyPreferenceDomains faulty(domains);
    faulty.FailOnceAfter(1);
    EXPECT_EQ(svModule::SetPreferenceInteger(faulty, "Key", 2, true), -1);
    faulty.FailOnceAfter(1);
    EXPECT_EQ(svModule::SetPreferenceString(faulty, "Text", "x", true), -1);
}

TEST_F(Module, ANullTextRemovesThePreference) {
    InitialisePanel();
    svModule::SetPreferenceString(domains, "Text", "text", true);
    EXPECT_EQ(svModule::SetPreferenceString(domains, "Text", nullptr, true), 0);
    EXPECT_STREQ(svModule::GetPreferenceString(domains, "Text", "none", true).c_str(), "none");
}

#define EXPECT_NOT_INITIALISED(statement, line)              \
    EXPECT_EXIT(statement, testing::KilledBySignal(SIGABRT), \
                testing::StrEq("shared/System/svModule:" line ": failed assertion `sInited'\n"))

TEST_F(FreshModule, BeforeInitialiseEveryAccessorStopsTheProgramWithItsLine) {
    EXPECT_NOT_INITIALISED(svModule::CheckInitialised(), "227");
    EXPECT_NOT_INITIALISED(svModule::GetPreferenceInteger(domains, "Key", 1, true), "244");
    EXPECT_NOT_INITIALISED(svModule::SetPreferenceInteger(domains, "Key", 1, true), "261");
    EXPECT_NOT_INITIALISED(svModule::GetPreferenceString(domains, "Key", "", true), "278");
    EXPECT_NOT_INITIALISED(svModule::SetPreferenceString(domains, "Key", "", true), "295");
}

}  // namespace
}  // namespace vexil
