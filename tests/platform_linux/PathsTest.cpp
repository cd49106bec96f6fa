#include "platform/linux/Paths.h"

#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

namespace vexil {
namespace {

class PathsTest : public testing::Test {
  protected:
    PathsTest() {
        std::string name = (std::filesystem::temp_directory_path() / "vexil-paths-XXXXXX").string();
        root = mkdtemp(name.data());
        surroundings.home = "/home/ada";
        surroundings.passwdHome = "/srv/people/ada";
        surroundings.uid = 1234;
        surroundings.hostName = "studio";
        surroundings.userName = "ada";
        surroundings.runUser = root + "/user";
        surroundings.temporary = root + "/tmp";
        std::filesystem::create_directories(root + "/user/1234");
        surroundings.systemPreferences = root + "/preferences";
        surroundings.systemControl = root + "/control";
        surroundings.systemNetwork = root + "/network";
        surroundings.machineIdFile = root + "/machine-id";
    }
    ~PathsTest() override { std::filesystem::remove_all(root); }

    void PutMachineId(const std::string& text) const { std::ofstream(root + "/machine-id") << text; }

    std::string root;
    Surroundings surroundings;
};

TEST_F(PathsTest, ConfigHomeDefaultsToDotConfigInHome) {
    const Paths paths = FindPaths(surroundings);
    EXPECT_EQ(paths.anyUserPreferences, "/home/ada/.config/vexil3/preferences/any-user");
    EXPECT_EQ(paths.currentUserPreferences, "/home/ada/.config/vexil3/preferences/current-user");
    EXPECT_FALSE(paths.anyUserIsSystemWide);
}

TEST_F(PathsTest, TheNetworksStateIsBelowTheStateHome) {
    EXPECT_EQ(FindPaths(surroundings).network, "/home/ada/.local/state/vexil3/network");
    surroundings.xdgStateHome = "/srv/state";
    EXPECT_EQ(FindPaths(surroundings).network, "/srv/state/vexil3/network");
    surroundings.xdgStateHome = "relative";
    surroundings.home.reset();
    EXPECT_EQ(FindPaths(surroundings).network, "/srv/people/ada/.local/state/vexil3/network");
    surroundings.passwdHome = "";
    EXPECT_EQ(FindPaths(surroundings).network, "");
}

TEST_F(PathsTest, TheNetworksStateOfTheComputersOneServiceIsItsOwn) {
    std::filesystem::create_directories(root + "/network");
    EXPECT_EQ(FindPaths(surroundings).network, "/home/ada/.local/state/vexil3/network");
    std::filesystem::create_directories(root + "/control");
    EXPECT_EQ(FindPaths(surroundings).network, root + "/network");
}

TEST_F(PathsTest, TheMachineIdIsToldApartFromTheHostId) {
    EXPECT_EQ(FindPaths(surroundings).machineId, "");
    PutMachineId("0123456789abcdef0123456789abcdef\n");
    EXPECT_EQ(FindPaths(surroundings).machineId, "0123456789abcdef0123456789abcdef");
}

TEST_F(PathsTest, ConfigHomeIsTakenWhenAbsolute) {
    surroundings.xdgConfigHome = "/etc/ada";
    EXPECT_EQ(FindPaths(surroundings).anyUserPreferences, "/etc/ada/vexil3/preferences/any-user");
}

TEST_F(PathsTest, RelativeAndEmptyConfigHomesAreIgnored) {
    for (const char* value : {"", "settings", "./settings", "~/settings"}) {
        surroundings.xdgConfigHome = value;
        EXPECT_EQ(FindPaths(surroundings).anyUserPreferences, "/home/ada/.config/vexil3/preferences/any-user")
            << value;
    }
}

TEST_F(PathsTest, WithoutAHomeThePasswdEntryCounts) {
    surroundings.home.reset();
    EXPECT_EQ(FindPaths(surroundings).currentUserPreferences,
              "/srv/people/ada/.config/vexil3/preferences/current-user");
    surroundings.home = "";
    EXPECT_EQ(FindPaths(surroundings).currentUserPreferences,
              "/srv/people/ada/.config/vexil3/preferences/current-user");
}

TEST_F(PathsTest, WithoutAnyHomeThereIsNoUsersFolder) {
    surroundings.home.reset();
    surroundings.passwdHome.clear();
    EXPECT_EQ(FindPaths(surroundings).anyUserPreferences, "");
    EXPECT_EQ(FindPaths(surroundings).currentUserPreferences, "");
}

TEST_F(PathsTest, TheSystemWideFolderIsForAnyUserOnlyAndOnlyWhereItExists) {
    std::filesystem::create_directory(surroundings.systemPreferences);
    const Paths paths = FindPaths(surroundings);
    EXPECT_EQ(paths.anyUserPreferences, surroundings.systemPreferences);
    EXPECT_TRUE(paths.anyUserIsSystemWide);
    EXPECT_EQ(paths.currentUserPreferences, "/home/ada/.config/vexil3/preferences/current-user");
}

TEST_F(PathsTest, ASharedFolderWithoutTheDriverForAllUsersIsForItsMembers) {
    std::filesystem::create_directory(surroundings.systemPreferences);
    std::filesystem::permissions(surroundings.systemPreferences, std::filesystem::perms::owner_read);
    std::filesystem::permissions(root, std::filesystem::perms::all);
    const uid_t user = geteuid();
    // Root may write to every folder.
    ASSERT_TRUE(user != 0 || seteuid(54321) == 0);
    const Paths ofAStranger = FindPaths(surroundings);
    ASSERT_EQ(0, seteuid(user));
    EXPECT_FALSE(ofAStranger.anyUserIsSystemWide);
    EXPECT_EQ(ofAStranger.anyUserPreferences, "/home/ada/.config/vexil3/preferences/any-user");
    std::filesystem::permissions(surroundings.systemPreferences, std::filesystem::perms::owner_all);
    EXPECT_TRUE(FindPaths(surroundings).anyUserIsSystemWide);
}

TEST_F(PathsTest, ASharedFolderIsForEverybodyWhereTheDriverForAllUsersIs) {
    std::filesystem::create_directory(surroundings.systemPreferences);
    std::filesystem::permissions(surroundings.systemPreferences, std::filesystem::perms::owner_read);
    std::filesystem::create_directory(surroundings.systemControl);
    EXPECT_TRUE(FindPaths(surroundings).anyUserIsSystemWide);
}

TEST_F(PathsTest, AFileIsNoSystemWideFolder) {
    std::ofstream(surroundings.systemPreferences) << "x";
    EXPECT_FALSE(FindPaths(surroundings).anyUserIsSystemWide);
}

TEST_F(PathsTest, TheControlFolderIsSystemWideThenRuntimeThenRunUser) {
    EXPECT_EQ(FindPaths(surroundings).control, root + "/user/1234/vexil3");
    surroundings.xdgRuntimeDir = "relative";
    EXPECT_EQ(FindPaths(surroundings).control, root + "/user/1234/vexil3");
    surroundings.xdgRuntimeDir = "/tmp/runtime";
    EXPECT_EQ(FindPaths(surroundings).control, "/tmp/runtime/vexil3");
    EXPECT_FALSE(FindPaths(surroundings).controlIsSystemWide);
    std::filesystem::create_directory(surroundings.systemControl);
    EXPECT_EQ(FindPaths(surroundings).control, surroundings.systemControl);
    EXPECT_TRUE(FindPaths(surroundings).controlIsSystemWide);
}

TEST_F(PathsTest, WithoutAFolderForRunningServicesAPrivateOneStandsIn) {
    std::filesystem::remove(root + "/user/1234");
    EXPECT_EQ(FindPaths(surroundings).standInRuntime, root + "/tmp/runtime-ada");
    EXPECT_EQ(FindPaths(surroundings).control, root + "/tmp/runtime-ada/vexil3");
    surroundings.xdgRuntimeDir = "/tmp/runtime";
    EXPECT_EQ(FindPaths(surroundings).standInRuntime, "");
    surroundings.xdgRuntimeDir.reset();
    std::filesystem::create_directory(surroundings.systemControl);
    EXPECT_EQ(FindPaths(surroundings).standInRuntime, "");
}

TEST_F(PathsTest, AUserWithoutANameHasTheFolderThatStandsInByNumber) {
    std::filesystem::remove(root + "/user/1234");
    for (const char* name : {"", "a/b"}) {
        surroundings.userName = name;
        EXPECT_EQ(FindPaths(surroundings).standInRuntime, root + "/tmp/runtime-1234") << name;
    }
}

TEST_F(PathsTest, TheHostIdIsTheMachineId) {
    PutMachineId("0123456789abcdef0123456789abcdef\n");
    EXPECT_EQ(FindPaths(surroundings).hostId, "0123456789abcdef0123456789abcdef");
}

TEST_F(PathsTest, WithoutAMachineIdTheHostIdIsTheHostName) {
    EXPECT_EQ(FindPaths(surroundings).hostId, "studio");
    for (const char* text : {"", "\n", "uninitialized\n", "0123456789abcdef",
                             "0123456789abcdef0123456789abcdef0", "../../../../../../etc/passwd00000\n"}) {
        PutMachineId(text);
        EXPECT_EQ(FindPaths(surroundings).hostId, "studio") << text;
    }
}

TEST_F(PathsTest, TheHostIdIsAlwaysAPartOfAFileName) {
    surroundings.hostName = "a/b";
    EXPECT_EQ(FindPaths(surroundings).hostId, "a_b");
    surroundings.hostName = "";
    EXPECT_EQ(FindPaths(surroundings).hostId, "localhost");
}

TEST(SurroundingsTest, ASystemWideInstallationHasItsFixedFolders) {
    const Surroundings surroundings;
    EXPECT_EQ(surroundings.systemPreferences, "/var/lib/vexil3/preferences");
    EXPECT_EQ(surroundings.systemControl, "/run/vexil3");
    EXPECT_EQ(surroundings.runUser, "/run/user");
    EXPECT_EQ(surroundings.temporary, "/tmp");
    EXPECT_EQ(surroundings.machineIdFile, "/etc/machine-id");
}

// Gives a variable a value, or takes it away, for as long as it lives.
class Variable {
  public:
    Variable(const char* variable, const char* value) : name(variable) {
        if (const char* old = std::getenv(name)) {
            before = old;
        }
        Set(value);
    }
    ~Variable() { Set(before ? before->c_str() : nullptr); }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

  private:
    void Set(const char* value) const {
        if (value == nullptr) {
            unsetenv(name);
        } else {
            setenv(name, value, 1);
        }
    }

    const char* name;
    std::optional<std::string> before;
};

TEST(SurroundingsTest, ThoseOfThisProcessAreItsEnvironment) {
    const Variable config("XDG_CONFIG_HOME", "/tmp/a");
    const Variable runtime("XDG_RUNTIME_DIR", "/tmp/b");
    const Variable home("HOME", "/tmp/c");
    const Surroundings surroundings = CurrentSurroundings();
    EXPECT_EQ(surroundings.xdgConfigHome, "/tmp/a");
    EXPECT_EQ(surroundings.xdgRuntimeDir, "/tmp/b");
    EXPECT_EQ(surroundings.home, "/tmp/c");
}

TEST(SurroundingsTest, WhatTheEnvironmentLacksIsMissing) {
    const Variable config("XDG_CONFIG_HOME", nullptr);
    const Variable runtime("XDG_RUNTIME_DIR", nullptr);
    const Variable home("HOME", nullptr);
    const Surroundings surroundings = CurrentSurroundings();
    EXPECT_EQ(surroundings.xdgConfigHome, std::nullopt);
    EXPECT_EQ(surroundings.xdgRuntimeDir, std::nullopt);
    EXPECT_EQ(surroundings.home, std::nullopt);
}

TEST(SurroundingsTest, ThoseOfThisProcessNameItsUserAndHost) {
    const Surroundings surroundings = CurrentSurroundings();
    EXPECT_EQ(surroundings.uid, getuid());
    const passwd* entry = getpwuid(getuid());
    EXPECT_EQ(surroundings.passwdHome, entry == nullptr ? "" : entry->pw_dir);
    char name[256] = "";
    ASSERT_EQ(gethostname(name, sizeof name - 1), 0);
    EXPECT_EQ(surroundings.hostName, name);
}

}  // namespace
}  // namespace vexil
