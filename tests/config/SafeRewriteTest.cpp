// Saving in place: what stays as it is, what a save that was cut short leaves, and what is found in its way.
#include "config/SafeRewrite.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <thread>

#include "config/RewriteCopy.h"
#include "tests/config/IniFixture.h"
#include "tests/doubles/LogCapture.h"

namespace vexil::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr const char* kOld = "[a]\nx=1\nlast\n";
constexpr const char* kNew = "[a]\nx=22\nlast\n";
constexpr uid_t kSomebody = 65534;

struct stat Status(const std::filesystem::path& path) {
    struct stat status {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
    return status;
}

// Runs `work` in a process of an ordinary user and returns what it returned.
bool AsSomebody(const std::function<bool()>& work) {
    const pid_t child = ::fork();
    if (child == 0) {
        const bool ready = ::geteuid() != 0 || (::setgid(kSomebody) == 0 && ::setuid(kSomebody) == 0);
        ::_exit(ready && work() ? 0 : 1);
    }
    int status = 0;
    return ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

class SafeRewriteTest : public IniFixture {
  protected:
    // Opens the old text, sets x and closes; the result of closing.
    bool Save(const RewriteCalls& calls = kSystemRewriteCalls) {
        IniFile file(calls);
        if (!file.Open(path.c_str())) {
            return false;
        }
        file.SetValue("a", "x", "22");
        return file.Close();
    }

    // Leaves the copy of a save of kNew over kOld, as a program does that is killed then.
    void LeaveCopy() {
        WriteText(path, kOld);
        SafeRewrite rewrite(kSystemRewriteCalls);
        ASSERT_TRUE(rewrite.Begin(path.c_str(), kNew));
        ASSERT_TRUE(std::filesystem::exists(copyPath));
    }

    // The file's text after an opening, which is expected to succeed.
    std::string Reopened() {
        IniFile file;
        EXPECT_TRUE(file.Open(path.c_str()));
        EXPECT_TRUE(file.Close());
        return ReadText(path);
    }

    void ExpectOnlyTheFile() { EXPECT_THAT(folder.Names(), ElementsAre("settings.vexil3")); }

    const std::string copyPath = folder / RewriteCopyName("settings.vexil3");
    LogCapture log;
};

// What stays.

TEST_F(SafeRewriteTest, ASaveLeavesNothingBesideTheFile) {
    WriteText(path, kOld);
    EXPECT_TRUE(Save());
    EXPECT_EQ(ReadText(path), kNew);
    ExpectOnlyTheFile();
    EXPECT_EQ(log.Text(), "");
}

TEST_F(SafeRewriteTest, TheFileStaysTheSameOne) {
    WriteText(path, kOld);
    ::chmod(path.c_str(), 0640);
    if (::geteuid() == 0) {
        ASSERT_EQ(::chown(path.c_str(), kSomebody, kSomebody), 0);
    }
    std::filesystem::create_hard_link(path, folder / "other name");
    const struct stat before = Status(path);
    EXPECT_TRUE(Save());
    const struct stat after = Status(path);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(after.st_mode, before.st_mode);
    EXPECT_EQ(after.st_uid, before.st_uid);
    EXPECT_EQ(after.st_gid, before.st_gid);
    EXPECT_EQ(ReadText(folder / "other name"), kNew);
}

TEST_F(SafeRewriteTest, ASymbolicLinkStaysAndItsFileIsSaved) {
    std::filesystem::create_directory(folder / "real");
    WriteText(folder / "real" / "file", kOld);
    std::filesystem::create_symlink("real/file", path);
    EXPECT_TRUE(Save());
    EXPECT_TRUE(std::filesystem::is_symlink(path));
    EXPECT_EQ(ReadText(folder / "real" / "file"), kNew);
}

TEST_F(SafeRewriteTest, TheCopyOfALinkedFileLiesBesideTheFile) {
    std::filesystem::create_directory(folder / "real");
    WriteText(folder / "real" / "file", kOld);
    std::filesystem::create_symlink("real/file", path);
    {
        SafeRewrite rewrite(kSystemRewriteCalls);
        ASSERT_TRUE(rewrite.Begin(path.c_str(), kNew));
    }
    EXPECT_TRUE(std::filesystem::exists(folder / "real" / RewriteCopyName("file")));
    IniFile file;
    EXPECT_TRUE(file.Open((folder / "real" / "file").c_str()));
    EXPECT_EQ(ReadText(folder / "real" / "file"), kNew);
}

TEST_F(SafeRewriteTest, TheCopyIsItsOwnersAlone) {
    WriteText(path, kOld);
    ::chmod(path.c_str(), 0666);
    const mode_t mask = ::umask(0);
    LeaveCopy();
    ::umask(mask);
    EXPECT_EQ(Status(copyPath).st_mode, static_cast<mode_t>(S_IFREG | 0600));
}

TEST_F(SafeRewriteTest, TheAdministratorsCopyBelongsToTheOwnerOfTheFile) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only the administrator gives files away";
    }
    WriteText(path, kOld);
    ASSERT_EQ(::chown(path.c_str(), kSomebody, kSomebody), 0);
    LeaveCopy();
    EXPECT_EQ(Status(copyPath).st_uid, kSomebody);
    EXPECT_EQ(Reopened(), kNew);
}

TEST_F(SafeRewriteTest, AFileWithTheLongestNameIsSaved) {
    const std::string name(255, 'n');
    WriteText(folder / name, kOld);
    {
        SafeRewrite rewrite(kSystemRewriteCalls);
        ASSERT_TRUE(rewrite.Begin((folder / name).c_str(), kNew));
        EXPECT_EQ(folder.Names().size(), 2U);
    }
    IniFile file;
    ASSERT_TRUE(file.Open((folder / name).c_str()));
    EXPECT_EQ(ReadText(folder / name), kNew);
    EXPECT_THAT(folder.Names(), ElementsAre(name));
}

TEST_F(SafeRewriteTest, AFileInTheWorkingFolderIsSaved) {
    WriteText(path, kOld);
    const pid_t child = ::fork();
    if (child == 0) {
        IniFile file;
        const bool saved = ::chdir(folder.Path().c_str()) == 0 && file.Open("settings.vexil3");
        file.SetValue("a", "x", "22");
        ::_exit(saved && file.Close() ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(ReadText(path), kNew);
}

// What a save that was cut short leaves.

TEST_F(SafeRewriteTest, ARewriteThatHadNotBegunIsDone) {
    LeaveCopy();
    EXPECT_EQ(Reopened(), kNew);
    ExpectOnlyTheFile();
}

TEST_F(SafeRewriteTest, AnEmptiedFileIsFilled) {
    LeaveCopy();
    WriteText(path, "");
    EXPECT_EQ(Reopened(), kNew);
    ExpectOnlyTheFile();
}

TEST_F(SafeRewriteTest, AHalfWrittenFileIsCompleted) {
    LeaveCopy();
    WriteText(path, std::string(kNew).substr(0, 6));
    EXPECT_EQ(Reopened(), kNew);
    ExpectOnlyTheFile();
}

TEST_F(SafeRewriteTest, BytesThatNeverReachedTheDiskAreFilledIn) {
    LeaveCopy();
    std::string text(kNew);
    text.replace(3, 6, 6, '\0');
    WriteText(path, text);
    EXPECT_EQ(Reopened(), kNew);
    ExpectOnlyTheFile();
}

TEST_F(SafeRewriteTest, ARewriteThatWasDoneLosesItsCopy) {
    LeaveCopy();
    WriteText(path, kNew);
    EXPECT_EQ(Reopened(), kNew);
    ExpectOnlyTheFile();
}

TEST_F(SafeRewriteTest, TheLinesAreThoseOfTheCompletedFile) {
    LeaveCopy();
    WriteText(path, "");
    ASSERT_TRUE(ini.Open(path.c_str()));
    EXPECT_EQ(Value("a", "x"), "22");
    EXPECT_THAT(log.Text(), HasSubstr("an unfinished save has been completed"));
}

TEST_F(SafeRewriteTest, AFileThatWasEditedSinceIsKeptAndTheCopySetAside) {
    LeaveCopy();
    WriteText(path, "[a]\nx=by hand\n");
    EXPECT_EQ(Reopened(), "[a]\nx=by hand\n");
    EXPECT_THAT(folder.Names(), ElementsAre("settings.vexil3", "settings.vexil3.unsaved-1"));
    EXPECT_THAT(log.Text(), HasSubstr("settings.vexil3.unsaved-1"));
}

TEST_F(SafeRewriteTest, ACopyThatWasSetAsideCanBeLoaded) {
    LeaveCopy();
    WriteText(path, "[a]\nx=by hand\n");
    Reopened();
    ASSERT_TRUE(ini.Open((folder / "settings.vexil3.unsaved-1").c_str()));
    EXPECT_EQ(Value("a", "x"), "22");
    EXPECT_EQ(ini.AllLines().size(), 4U);
}

TEST_F(SafeRewriteTest, ACopyIsNotSetAsideOverAnotherOne) {
    WriteText(folder / "settings.vexil3.unsaved-1", "mine");
    LeaveCopy();
    WriteText(path, "edited\n");
    Reopened();
    EXPECT_EQ(ReadText(folder / "settings.vexil3.unsaved-1"), "mine");
    EXPECT_THAT(folder.Names(),
                ElementsAre("settings.vexil3", "settings.vexil3.unsaved-1", "settings.vexil3.unsaved-2"));
}

TEST_F(SafeRewriteTest, AFileThatWasDeletedSinceIsNotBroughtBack) {
    LeaveCopy();
    std::filesystem::remove(path);
    EXPECT_EQ(Reopened(), "");
    EXPECT_THAT(folder.Names(), ElementsAre("settings.vexil3", "settings.vexil3.unsaved-1"));
}

TEST_F(SafeRewriteTest, AnIncompleteCopyIsRemovedAndTheOldTextStays) {
    LeaveCopy();
    const std::string whole = ReadText(copyPath);
    for (const std::string& text : {std::string(), whole.substr(0, 10), whole.substr(0, whole.size() - 1),
                                    std::string(whole.size(), '\0'), whole + "x"}) {
        WriteText(copyPath, text);
        EXPECT_EQ(Reopened(), kOld);
        ExpectOnlyTheFile();
    }
}

TEST_F(SafeRewriteTest, ACopyWithADamagedTextIsRemovedAndTheOldTextStays) {
    LeaveCopy();
    std::string damaged = ReadText(copyPath);
    damaged[damaged.size() - 2] ^= 1;
    WriteText(copyPath, damaged);
    EXPECT_EQ(Reopened(), kOld);
    ExpectOnlyTheFile();
}

TEST_F(SafeRewriteTest, ATextThatWasWrittenOnSinceIsLeftAlone) {
    LeaveCopy();
    const std::string longer = std::string(kNew) + "more=1\n";
    WriteText(path, longer);
    EXPECT_EQ(Reopened(), longer);
    EXPECT_THAT(folder.Names(), ElementsAre("settings.vexil3", "settings.vexil3.unsaved-1"));
}

TEST_F(SafeRewriteTest, TheNextSaveCompletesTheOneThatWasCutShort) {
    LeaveCopy();
    WriteText(path, "");
    SafeRewrite rewrite(kSystemRewriteCalls);
    ASSERT_TRUE(rewrite.Begin(path.c_str(), "third\n"));
    EXPECT_EQ(ReadText(path), kNew);
}

// What is in the way.

TEST_F(SafeRewriteTest, AFileThatIsNoCopyIsLeftAlone) {
    WriteText(path, kOld);
    WriteText(copyPath, "somebody's text\n");
    EXPECT_TRUE(Save());
    EXPECT_EQ(ReadText(path), kNew);
    EXPECT_EQ(ReadText(copyPath), "somebody's text\n");
}

TEST_F(SafeRewriteTest, TheCopyOfAnotherFileIsLeftAlone) {
    LeaveCopy();
    WriteText(folder / "other", "old\n");
    const std::string otherCopy = folder / RewriteCopyName("other");
    std::filesystem::rename(copyPath, otherCopy);
    IniFile file;
    EXPECT_TRUE(file.Open((folder / "other").c_str()));
    EXPECT_EQ(ReadText(folder / "other"), "old\n");
    EXPECT_TRUE(std::filesystem::exists(otherCopy));
}

TEST_F(SafeRewriteTest, ASymbolicLinkAtThePlaceOfTheCopyIsNotFollowed) {
    WriteText(path, kOld);
    WriteText(folder / "victim", "mine");
    std::filesystem::create_symlink("victim", copyPath);
    EXPECT_TRUE(Save());
    EXPECT_EQ(ReadText(path), kNew);
    EXPECT_EQ(ReadText(folder / "victim"), "mine");
    EXPECT_TRUE(std::filesystem::is_symlink(copyPath));
}

TEST_F(SafeRewriteTest, AHardLinkAtThePlaceOfTheCopyIsLeftAlone) {
    LeaveCopy();
    std::filesystem::create_hard_link(copyPath, folder / "elsewhere");
    EXPECT_EQ(Reopened(), kOld);
    EXPECT_TRUE(std::filesystem::exists(copyPath));
}

TEST_F(SafeRewriteTest, AFifoOrAFolderAtThePlaceOfTheCopyIsLeftAlone) {
    WriteText(path, kOld);
    ASSERT_EQ(::mkfifo(copyPath.c_str(), 0600), 0);
    EXPECT_TRUE(Save());
    EXPECT_EQ(ReadText(path), kNew);
    std::filesystem::remove(copyPath);
    WriteText(path, kOld);
    std::filesystem::create_directory(copyPath);
    EXPECT_TRUE(Save());
    EXPECT_EQ(ReadText(path), kNew);
}

TEST_F(SafeRewriteTest, ACopyOfAStrangerIsNotApplied) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only the administrator gives files away";
    }
    LeaveCopy();
    ASSERT_EQ(::chown(copyPath.c_str(), kSomebody, kSomebody), 0);
    EXPECT_EQ(Reopened(), kOld);
    EXPECT_TRUE(std::filesystem::exists(copyPath));
}

TEST_F(SafeRewriteTest, AFileInAFolderThatTakesNoCopyIsRewrittenWithoutOne) {
    WriteText(path, kOld);
    ::chmod(path.c_str(), 0666);
    ::chmod(folder.Path().c_str(), 0555);
    EXPECT_TRUE(AsSomebody([this] { return Save(); }));
    EXPECT_EQ(ReadText(path), kNew);
    ::chmod(folder.Path().c_str(), 0755);
    ExpectOnlyTheFile();
}

TEST_F(SafeRewriteTest, AnotherSaveIsWaitedFor) {
    LeaveCopy();
    WriteText(path, "");
    Descriptor other(::open(copyPath.c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(::flock(other.Number(), LOCK_EX), 0);
    std::thread end([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        other.Close();
    });
    EXPECT_EQ(Reopened(), kNew);
    end.join();
}

TEST_F(SafeRewriteTest, ASaveThatDoesNotEndRefusesTheOpening) {
    LeaveCopy();
    const Descriptor other(::open(copyPath.c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(::flock(other.Number(), LOCK_EX), 0);
    EXPECT_FALSE(ini.Open(path.c_str()));
    EXPECT_THAT(log.Text(), HasSubstr("another save is under way"));
}

// Lets the other programs find the file half written.
std::size_t WriteInHalves(const void* text, std::size_t size, std::size_t count, std::FILE* stream) {
    const std::size_t half = std::fwrite(text, size, count / 2, stream);
    std::fflush(stream);
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    return half + std::fwrite(static_cast<const char*>(text) + half * size, size, count - half, stream);
}

TEST_F(SafeRewriteTest, ProgramsThatSaveAtOnceLeaveOneWholeText) {
    constexpr int kSaves = 10;
    // How long the disk takes is nothing to what the programs see of each other's saves.
    RewriteCalls calls = kSystemRewriteCalls;
    calls.writeText = WriteInHalves;
    calls.syncData = calls.syncFolder = [](int) { return 0; };
    WriteText(path, kOld);
    std::vector<pid_t> children;
    for (const char letter : std::string("abc")) {
        children.push_back(::fork());
        if (children.back() == 0) {
            // One may be refused since it never found the others at rest; it tries again then.
            for (int saved = 0; saved < kSaves;) {
                IniFile file(calls);
                if (!file.Open(path.c_str())) {
                    continue;
                }
                for (int key = 0; key < 20; ++key) {
                    file.SetValue("a", std::to_string(key).c_str(), std::string(400, letter).c_str());
                }
                saved += file.Close() ? 1 : 0;
            }
            ::_exit(0);
        }
    }
    for (const pid_t child : children) {
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
    ASSERT_TRUE(ini.Open(path.c_str()));
    const std::string first = Value("a", "0");
    EXPECT_EQ(first, std::string(400, first.front()));
    for (int key = 1; key < 20; ++key) {
        EXPECT_EQ(Value("a", std::to_string(key).c_str()), first);
    }
    EXPECT_EQ(ini.AllLines().size(), 23U);
    ini.Close();
    ExpectOnlyTheFile();
}

// Failures of a call.

int FailWithEio(int) {
    errno = EIO;
    return -1;
}

std::FILE* FailToReopen(const char*, const char*, std::FILE* stream) {
    std::fclose(stream);
    errno = EACCES;
    return nullptr;
}

std::size_t WriteHalf(const void* text, std::size_t size, std::size_t count, std::FILE* stream) {
    const std::size_t written = std::fwrite(text, size, count / 2, stream);
    errno = ENOSPC;
    return written;
}

// Fails the second time: once for the copy, once for the file.
int syncsLeft = 0;
int FailAfterOne(int descriptor) {
    return syncsLeft-- > 0 ? ::fdatasync(descriptor) : FailWithEio(descriptor);
}

TEST_F(SafeRewriteTest, AFileIsNotTouchedWhenItsCopyIsNotSafe) {
    WriteText(path, kOld);
    RewriteCalls calls = kSystemRewriteCalls;
    calls.syncData = FailWithEio;
    EXPECT_FALSE(Save(calls));
    EXPECT_EQ(ReadText(path), kOld);
    ExpectOnlyTheFile();
    EXPECT_THAT(log.Text(), HasSubstr("not saved (Input/output error)"));
}

TEST_F(SafeRewriteTest, AFileIsNotTouchedWhenItsFolderIsNotSafe) {
    WriteText(path, kOld);
    RewriteCalls calls = kSystemRewriteCalls;
    calls.syncFolder = FailWithEio;
    EXPECT_FALSE(Save(calls));
    EXPECT_EQ(ReadText(path), kOld);
    ExpectOnlyTheFile();
}

TEST_F(SafeRewriteTest, AFileThatCannotBeReopenedKeepsItsText) {
    WriteText(path, kOld);
    RewriteCalls calls = kSystemRewriteCalls;
    calls.reopen = FailToReopen;
    EXPECT_FALSE(Save(calls));
    EXPECT_EQ(ReadText(path), kOld);
    ExpectOnlyTheFile();
    EXPECT_THAT(log.Text(), HasSubstr("not saved (Permission denied)"));
}

TEST_F(SafeRewriteTest, AHalfWrittenFileIsReportedAndCompletedByTheNextOpening) {
    WriteText(path, kOld);
    RewriteCalls calls = kSystemRewriteCalls;
    calls.writeText = WriteHalf;
    EXPECT_FALSE(Save(calls));
    EXPECT_NE(ReadText(path), kNew);
    EXPECT_THAT(log.Text(), HasSubstr("not saved whole (No space left on device)"));
    EXPECT_EQ(Reopened(), kNew);
    ExpectOnlyTheFile();
}

TEST_F(SafeRewriteTest, AFileThatIsNotSafeOnTheDiskKeepsItsCopy) {
    WriteText(path, kOld);
    RewriteCalls calls = kSystemRewriteCalls;
    calls.syncData = FailAfterOne;
    syncsLeft = 1;
    EXPECT_FALSE(Save(calls));
    EXPECT_TRUE(std::filesystem::exists(copyPath));
    EXPECT_EQ(Reopened(), kNew);
    ExpectOnlyTheFile();
}

TEST_F(SafeRewriteTest, AnUnfinishedSaveThatCannotBeCompletedRefusesTheOpening) {
    LeaveCopy();
    WriteText(path, "");
    RewriteCalls calls = kSystemRewriteCalls;
    calls.syncData = FailWithEio;
    IniFile file(calls);
    EXPECT_FALSE(file.Open(path.c_str()));
    EXPECT_TRUE(std::filesystem::exists(copyPath));
    EXPECT_EQ(Reopened(), kNew);
}

TEST_F(SafeRewriteTest, ANewFileThatAnotherProgramFilledOutlivesASaveThatFails) {
    RewriteCalls calls = kSystemRewriteCalls;
    calls.syncData = FailWithEio;
    IniFile file(calls);
    ASSERT_TRUE(file.Open(path.c_str()));
    WriteText(path, "other\n");
    file.SetValue("a", "x", "22");
    EXPECT_FALSE(file.Close());
    EXPECT_EQ(ReadText(path), "other\n");
}

TEST_F(SafeRewriteTest, ATextThatIsSeenButNotSafeKeepsItsCopy) {
    LeaveCopy();
    WriteText(path, kNew);
    RewriteCalls calls = kSystemRewriteCalls;
    calls.syncData = FailWithEio;
    IniFile file(calls);
    EXPECT_FALSE(file.Open(path.c_str()));
    EXPECT_TRUE(std::filesystem::exists(copyPath));
    EXPECT_EQ(Reopened(), kNew);
    ExpectOnlyTheFile();
}

// What is no file.

TEST_F(SafeRewriteTest, AFifoADeviceAndAFolderAreRefusedAtOnce) {
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    EXPECT_FALSE(ini.Open(path.c_str()));
    EXPECT_FALSE(ini.Open("/dev/null"));
    EXPECT_FALSE(ini.Open(folder.Path().c_str()));
    EXPECT_FALSE(ini.Open((folder / "missing/file").c_str()));
    EXPECT_FALSE(ini.Open(""));
    EXPECT_FALSE(ini.IsOpen());
}

TEST_F(SafeRewriteTest, AHugeFileIsRefused) {
    WriteText(path, "");
    ASSERT_EQ(::truncate(path.c_str(), static_cast<off_t>(kMaxRewriteBytes) + 1), 0);
    EXPECT_FALSE(ini.Open(path.c_str()));
}

TEST_F(SafeRewriteTest, AFileOfTheGreatestSizeIsOpened) {
    WriteText(path, std::string(kMaxRewriteBytes, 'x'));
    EXPECT_TRUE(ini.Open(path.c_str()));
}

TEST_F(SafeRewriteTest, ASaveOfTheLargestSizeIsTaken) {
    WriteText(path, kOld);
    SafeRewrite rewrite(kSystemRewriteCalls);
    EXPECT_TRUE(rewrite.Begin(path.c_str(), std::string(kMaxRewriteBytes, 'x')));
    rewrite.Abandon();
}

TEST_F(SafeRewriteTest, ASaveAboveTheLargestSizeIsRefused) {
    WriteText(path, kOld);
    SafeRewrite rewrite(kSystemRewriteCalls);
    EXPECT_FALSE(rewrite.Begin(path.c_str(), std::string(kMaxRewriteBytes + 1, 'x')));
    EXPECT_EQ(ReadText(path), kOld);
    ExpectOnlyTheFile();
}

TEST_F(SafeRewriteTest, AnUnfinishedSaveOfTheLargestSizeIsCompleted) {
    WriteText(path, std::string(kMaxRewriteBytes, 'o'));
    const std::string text(kMaxRewriteBytes, 'n');
    {
        SafeRewrite rewrite(kSystemRewriteCalls);
        ASSERT_TRUE(rewrite.Begin(path.c_str(), text));
    }
    EXPECT_EQ(SafeRewrite(kSystemRewriteCalls).FinishPending(path.c_str()), PendingSave::None);
    EXPECT_TRUE(ReadText(path) == text);
    ExpectOnlyTheFile();
}

TEST_F(SafeRewriteTest, AFileThatMayNotBeWrittenIsRefused) {
    WriteText(path, kOld);
    ::chmod(path.c_str(), 0444);
    ::chmod(folder.Path().c_str(), 0755);
    EXPECT_TRUE(AsSomebody([this] { return !ini.Open(path.c_str()); }));
}

}  // namespace
}  // namespace vexil::test
