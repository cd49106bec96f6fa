#include "platform/linux/preferences/InotifyPreferenceWatch.h"

#include "tests/platform_linux/PreferenceFolder.h"

namespace vexil {
namespace {

namespace fs = std::filesystem;

class InotifyPreferenceWatchTest : public testing::Test {
  protected:
    InotifyPreferenceWatchTest() { fs::create_directories(kept); }

    // Nothing that was done before counts now.
    InotifyPreferenceWatch Watch() const { return {folder.paths, kTestDomain, kTestUser}; }
    static std::string List(int number) {
        return PreferenceFolder::List("<key>A</key><integer>" + std::to_string(number) + "</integer>");
    }
    static void Write(const std::string& path, const std::string& content) { std::ofstream(path) << content; }

    PreferenceFolder folder;
    const std::string kept = folder.root + "/kept";
    const std::string target = kept + "/vexil3.plist";
};

TEST_F(InotifyPreferenceWatchTest, TellsOfAFileThatIsMadeWrittenInPlaceReplacedAndRemoved) {
    fs::create_directories(folder.paths.anyUserPreferences);
    InotifyPreferenceWatch watch = Watch();
    folder.Put(List(1));
    EXPECT_TRUE(watch.Take());
    folder.Put(List(2));
    EXPECT_TRUE(watch.Take());
    EXPECT_TRUE(TestDomain(folder).Store("A", MakePropertyNumber(3)));
    EXPECT_TRUE(watch.Take());
    fs::rename(folder.File(), kept + "/away");
    EXPECT_TRUE(watch.Take());
    fs::rename(kept + "/away", folder.File());
    EXPECT_TRUE(watch.Take());
    fs::remove(folder.File());
    EXPECT_TRUE(watch.Take());
}

TEST_F(InotifyPreferenceWatchTest, TellsNothingOfReadingOfLocksAndOfOtherDomains) {
    folder.Put(List(1));
    InotifyPreferenceWatch watch = Watch();
    TestDomain domain(folder);
    EXPECT_TRUE(domain.Synchronize());
    EXPECT_TRUE(domain.Store("A", MakePropertyNumber(1)));
    Write(folder.File() + ".lock", "");
    Write(folder.paths.anyUserPreferences + "/another", "");
    EXPECT_FALSE(watch.Take());
}

TEST_F(InotifyPreferenceWatchTest, AwaitsAFolderThatIsMissing) {
    InotifyPreferenceWatch watch = Watch();
    EXPECT_FALSE(watch.Take());
    fs::create_directory(folder.root + "/config");
    EXPECT_TRUE(watch.Take());
    fs::create_directory(folder.root + "/config/vexil3");
    EXPECT_TRUE(watch.Take());
    fs::create_directories(folder.paths.anyUserPreferences);
    EXPECT_TRUE(watch.Take());
    folder.Put(List(1));
    EXPECT_TRUE(watch.Take());
}

TEST_F(InotifyPreferenceWatchTest, FollowsAFolderThatIsRemovedAndMadeAnew) {
    folder.Put(List(1));
    InotifyPreferenceWatch watch = Watch();
    fs::remove_all(folder.root + "/config");
    EXPECT_TRUE(watch.Take());
    fs::create_directories(folder.paths.anyUserPreferences);
    EXPECT_TRUE(watch.Take());
    folder.Put(List(2));
    EXPECT_TRUE(watch.Take());
}

TEST_F(InotifyPreferenceWatchTest, FollowsAFolderThatIsReplaced) {
    folder.Put(List(1));
    InotifyPreferenceWatch watch = Watch();
    fs::rename(folder.paths.anyUserPreferences, kept + "/before");
    fs::create_directories(folder.paths.anyUserPreferences);
    EXPECT_TRUE(watch.Take());
    Write(folder.File(), List(2));
    EXPECT_TRUE(watch.Take());
    Write(kept + "/before/" + fs::path(folder.File()).filename().string(), List(3));
    EXPECT_FALSE(watch.Take());
}

TEST_F(InotifyPreferenceWatchTest, FollowsALinkToItsTarget) {
    Write(target, List(1));
    fs::create_directories(folder.paths.anyUserPreferences);
    fs::create_symlink(target, folder.File());
    InotifyPreferenceWatch watch = Watch();
    Write(target, List(2));
    EXPECT_TRUE(watch.Take());
    Write(kept + "/new", List(3));
    EXPECT_FALSE(watch.Take());
    fs::rename(kept + "/new", target);
    EXPECT_TRUE(watch.Take());
}

TEST_F(InotifyPreferenceWatchTest, FollowsALinkThatIsLedElsewhere) {
    Write(target, List(1));
    fs::create_directories(folder.paths.anyUserPreferences);
    fs::create_symlink(target, folder.File());
    InotifyPreferenceWatch watch = Watch();
    fs::remove(folder.File());
    fs::create_symlink(kept + "/later/file", folder.File());
    EXPECT_TRUE(watch.Take());
    Write(target, List(2));
    EXPECT_FALSE(watch.Take());
    fs::create_directory(kept + "/later");
    EXPECT_TRUE(watch.Take());
    Write(kept + "/later/file", List(3));
    EXPECT_TRUE(watch.Take());
}

TEST_F(InotifyPreferenceWatchTest, FollowsNoLinkInASharedFolder) {
    folder.Share();
    Write(target, List(1));
    fs::create_symlink(target, folder.File());
    InotifyPreferenceWatch watch = Watch();
    Write(target, List(2));
    EXPECT_FALSE(watch.Take());
    fs::remove(folder.File());
    EXPECT_TRUE(watch.Take());
}

TEST_F(InotifyPreferenceWatchTest, OfAUserWithoutAHomeTellsNothing) {
    folder.paths.anyUserPreferences.clear();
    InotifyPreferenceWatch watch = Watch();
    EXPECT_FALSE(watch.Take());
}

}  // namespace
}  // namespace vexil
