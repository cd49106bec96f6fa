#include "platform/linux/Paths.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
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
        surroundings.systemPreferences = root + "/preferences";
        surroundings.systemControl = root + "/control";
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

TEST_F(PathsTest, AFileIsNoSystemWideFolder) {
    std::ofstream(surroundings.systemPreferences) << "x";
    EXPECT_FALSE(FindPaths(surroundings).anyUserIsSystemWide);
}

TEST_F(PathsTest, TheControlFolderIsSystemWideThenRuntimeThenRunUser) {
    EXPECT_EQ(FindPaths(surroundings).control, "/run/user/1234/vexil3");
    surroundings.xdgRuntimeDir = "relative";
    EXPECT_EQ(FindPaths(surroundings).control, "/run/user/1234/vexil3");
    surroundings.xdgRuntimeDir = "/tmp/runtime";
    EXPECT_EQ(FindPaths(surroundings).control, "/tmp/runtime/vexil3");
    EXPECT_FALSE(FindPaths(surroundings).controlIsSystemWide);
    std::filesystem::create_directory(surroundings.systemControl);
    EXPECT_EQ(FindPaths(surroundings).control, surroundings.systemControl);
    EXPECT_TRUE(FindPaths(surroundings).controlIsSystemWide);
}

TEST_F(PathsTest, TheHostIdIsTheMachineId) {
    PutMachineId("0123456789abcdef0123456789abcdef\n");
    EXPECT_EQ(FindPaths(surroundings).hostId, "0123456789abcdef0123456789abcdef");
}

TEST_F(PathsTest, WithoutAMachineIdTheHostIdIsTheHostName) {
    EXPECT_EQ(FindPaths(surroundings).hostId, "studio");
    for (const char* text :
         {"", "\n", "uninitialized\n", "0123456789abcdef", "../../../../../../etc/passwd00000\n"}) {
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

}  // namespace
}  // namespace vexil
