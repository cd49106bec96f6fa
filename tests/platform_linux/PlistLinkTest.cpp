// Symbolic links at the place of a domain's file, as in a home that is kept in version control.
#include <sys/wait.h>
#include <unistd.h>

#include "shared/System/svLog.h"
#include "tests/platform_linux/PreferenceFolder.h"

namespace vexil {
namespace {

namespace fs = std::filesystem;

class PlistLinkTest : public testing::Test {
  protected:
    PlistLinkTest() {
        fs::create_directories(folder.paths.anyUserPreferences);
        fs::create_directories(kept);
    }

    void PutTarget(const std::string& content) const { std::ofstream(target) << content; }
    void LinkToTarget() {
        PutTarget(kList);
        fs::create_symlink(target, folder.File());
    }

    // The names in the folder of the target.
    std::vector<std::string> KeptNames() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(kept)) {
            names.push_back(entry.path().filename().string());
        }
        return names;
    }

    // The domain reads as empty and takes nothing, what is there stays, and the log says once that `why`.
    void ExpectLeftAlone(const std::string& why) {
        const std::string log = folder.root + "/log";
        const std::string link = fs::read_symlink(folder.File()).string();
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            OpenLog("", "", kLogAppend, log.c_str());
            const bool empty = domain.Synchronize() && domain.Read("A") == nullptr;
            const bool isRefused = !domain.Store("A", MakePropertyNumber(1)) && domain.Synchronize();
            _exit(empty && isRefused ? 0 : 1);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
        EXPECT_EQ(fs::read_symlink(folder.File()), link);
        EXPECT_TRUE(folder.OtherNames().empty());
        const std::string lines = PreferenceFolder::ContentOf(log);
        const std::size_t first = lines.find("Preferences not used: " + why + ": " + folder.File());
        EXPECT_NE(first, std::string::npos) << lines;
        EXPECT_EQ(lines.find("Preferences", first + 1), std::string::npos) << lines;
    }

    const std::string kList = PreferenceFolder::List("<key>A</key><integer>7</integer>");
    PreferenceFolder folder;
    const std::string kept = folder.root + "/kept";
    const std::string target = kept + "/vexil3.plist";
    TestDomain domain{folder};
};

TEST_F(PlistLinkTest, TheFileThatALinkLeadsToIsRead) {
    LinkToTarget();
    EXPECT_TRUE(domain.Synchronize());
    EXPECT_TRUE(domain.Holds("A", 7));
    EXPECT_TRUE(fs::is_symlink(folder.File()));
    EXPECT_TRUE(folder.OtherNames().empty());
    EXPECT_EQ(PreferenceFolder::ContentOf(target), kList);
}

TEST_F(PlistLinkTest, AWriteReplacesTheFileThatALinkLeadsTo) {
    LinkToTarget();
    struct stat before {};
    struct stat after {};
    ASSERT_EQ(chmod(target.c_str(), 0644), 0);
    ASSERT_EQ(stat(target.c_str(), &before), 0);
    EXPECT_TRUE(domain.Store("B", MakePropertyNumber(8)));
    ASSERT_EQ(lstat(target.c_str(), &after), 0);
    EXPECT_NE(after.st_ino, before.st_ino);
    EXPECT_EQ(after.st_mode, before.st_mode);
    EXPECT_TRUE(fs::is_symlink(folder.File()));
    EXPECT_TRUE(TestDomain(folder).Holds("A", 7));
    EXPECT_TRUE(TestDomain(folder).Holds("B", 8));
    EXPECT_EQ(KeptNames(), std::vector<std::string>{"vexil3.plist"});
    EXPECT_TRUE(folder.OtherNames().empty());
    EXPECT_TRUE(fs::exists(folder.File() + ".lock"));
}

TEST_F(PlistLinkTest, RelativeLinksAreFollowedOneAfterTheOther) {
    PutTarget(kList);
    fs::create_symlink("vexil3.plist", kept + "/second");
    fs::create_symlink("../../../../kept/second", folder.File());
    EXPECT_TRUE(domain.Store("B", MakePropertyNumber(8)));
    EXPECT_TRUE(domain.Holds("A", 7));
    EXPECT_TRUE(fs::is_symlink(kept + "/second"));
    EXPECT_FALSE(fs::is_symlink(target));
    EXPECT_TRUE(TestDomain(folder).Holds("B", 8));
}

TEST_F(PlistLinkTest, ALinkToAMissingFileIsEmptyAndTheFirstWriteMakesTheFile) {
    fs::create_symlink(target, folder.File());
    EXPECT_TRUE(domain.Synchronize());
    EXPECT_EQ(domain.Read("A"), nullptr);
    EXPECT_FALSE(fs::exists(target));
    EXPECT_TRUE(domain.Store("A", MakePropertyNumber(1)));
    EXPECT_TRUE(fs::is_symlink(folder.File()));
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(target)));
    EXPECT_TRUE(TestDomain(folder).Holds("A", 1));
}

TEST_F(PlistLinkTest, AFolderThatALinkLeadsThroughIsNotMade) {
    fs::create_symlink(kept + "/missing/vexil3.plist", folder.File());
    EXPECT_TRUE(domain.Synchronize());
    EXPECT_FALSE(domain.Store("A", MakePropertyNumber(1)));
    EXPECT_TRUE(KeptNames().empty());
    EXPECT_TRUE(fs::is_symlink(folder.File()));
}

TEST_F(PlistLinkTest, ADamagedFileIsSetAsideWhereItIsAndTheLinkStays) {
    LinkToTarget();
    PutTarget("garbage");
    EXPECT_TRUE(domain.Synchronize());
    EXPECT_EQ(domain.Read("A"), nullptr);
    ASSERT_EQ(KeptNames().size(), 1U);
    EXPECT_NE(KeptNames().front().find("vexil3.plist.damaged-"), std::string::npos);
    EXPECT_EQ(PreferenceFolder::ContentOf(kept + "/" + KeptNames().front()), "garbage");
    EXPECT_TRUE(fs::is_symlink(folder.File()));
    EXPECT_TRUE(domain.Store("A", MakePropertyNumber(1)));
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(target)));
}

TEST_F(PlistLinkTest, ALinkThatIsLedElsewhereIsTakenUp) {
    LinkToTarget();
    EXPECT_TRUE(domain.Synchronize());
    std::ofstream(kept + "/other") << PreferenceFolder::List("<key>A</key><integer>9</integer>");
    fs::remove(folder.File());
    fs::create_symlink(kept + "/other", folder.File());
    EXPECT_TRUE(domain.Synchronize());
    EXPECT_TRUE(domain.Holds("A", 9));
    EXPECT_TRUE(domain.Store("A", MakePropertyNumber(10)));
    EXPECT_EQ(PreferenceFolder::ContentOf(target), kList);
}

TEST_F(PlistLinkTest, ALinkToAFolderIsLeftAlone) {
    fs::create_symlink(kept, folder.File());
    ExpectLeftAlone("a symbolic link that leads to no file");
}

TEST_F(PlistLinkTest, ALinkThatLeadsToItselfIsLeftAlone) {
    fs::create_symlink(folder.File(), folder.File());
    ExpectLeftAlone("a symbolic link that leads nowhere");
}

TEST_F(PlistLinkTest, ALinkToAnotherUsersFileIsLeftAlone) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "giving a file to another user takes root";
    }
    LinkToTarget();
    ASSERT_EQ(chown(target.c_str(), 1234, 1234), 0);
    ExpectLeftAlone("a symbolic link to another user's file");
    EXPECT_EQ(PreferenceFolder::ContentOf(target), kList);
}

TEST_F(PlistLinkTest, RootFollowsNoLinkInAnotherUsersFolder) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "is about root";
    }
    LinkToTarget();
    ASSERT_EQ(chown(folder.paths.anyUserPreferences.c_str(), 1234, 1234), 0);
    ExpectLeftAlone("a symbolic link in another user's folder");
    EXPECT_EQ(PreferenceFolder::ContentOf(target), kList);
}

TEST_F(PlistLinkTest, ALinkInTheSharedFolderIsSetAsideAndTheLogSaysSo) {
    folder.Share();
    LinkToTarget();
    const std::string log = folder.root + "/log";
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        OpenLog("", "", kLogAppend, log.c_str());
        TestDomain shared(folder);
        _exit(shared.Synchronize() && shared.Read("A") == nullptr && shared.Store("A", MakePropertyNumber(1))
                  ? 0
                  : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_FALSE(fs::is_symlink(folder.File()));
    ASSERT_EQ(folder.OtherNames().size(), 1U);
    EXPECT_TRUE(fs::is_symlink(folder.OtherNames().front()));
    EXPECT_EQ(PreferenceFolder::ContentOf(target), kList);
    EXPECT_NE(PreferenceFolder::ContentOf(log).find(
                  "Preferences set aside: a symbolic link, which is not followed in a shared folder: "),
              std::string::npos);
}

}  // namespace
}  // namespace vexil
