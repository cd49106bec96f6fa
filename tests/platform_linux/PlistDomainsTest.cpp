#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <set>

#include "shared/System/svLog.h"
#include "tests/platform_linux/PreferenceFolder.h"

namespace vexil {
namespace {

namespace fs = std::filesystem;

int writes = 0;
int fdatasyncs = 0;
int CountedFdatasync(int file) {
    ++fdatasyncs;
    return fdatasync(file);
}
ssize_t CountedWrite(int file, const void* bytes, std::size_t count) {
    ++writes;
    return write(file, bytes, count);
}
DurabilityCalls CountedCalls() {
    DurabilityCalls calls = SystemDurabilityCalls();
    calls.fdatasync = CountedFdatasync;
    calls.write = CountedWrite;
    return calls;
}

class PlistDomainsTest : public testing::Test {
  protected:
    PlistDomainsTest() { writes = fdatasyncs = 0; }

    // The one name of the folder beside the domain's file and lock.
    std::string AsideName() const {
        const std::vector<std::string> names = folder.OtherNames();
        EXPECT_EQ(names.size(), 1U);
        return names.empty() ? "" : names.front();
    }
    void ExpectSetAsideAndUsable() {
        EXPECT_TRUE(domain.Synchronize());
        EXPECT_EQ(domain.Read("A"), nullptr);
        const std::string aside = AsideName();
        EXPECT_NE(aside.find(".plist.damaged-"), std::string::npos) << aside;
        EXPECT_TRUE(domain.Store("A", MakePropertyNumber(1)));
        EXPECT_TRUE(TestDomain(folder).Holds("A", 1));
        EXPECT_EQ(AsideName(), aside);
    }

    PreferenceFolder folder;
    // Has the preferences of all users in a folder of group 4321, as root alone can.
    bool ShareFolder() {
        folder.Share();
        return chown(folder.paths.anyUserPreferences.c_str(), 0, 4321) == 0;
    }

    TestDomain domain{folder, CountedCalls()};
};

TEST_F(PlistDomainsTest, ReadingMakesNoFolder) {
    EXPECT_TRUE(domain.Synchronize());
    EXPECT_EQ(domain.Read("A"), nullptr);
    EXPECT_TRUE(domain.Store("A", nullptr));
    EXPECT_FALSE(fs::exists(folder.root + "/config"));
}

TEST_F(PlistDomainsTest, TheFirstWriteMakesFoldersAndFileForTheUserAlone) {
    const mode_t before = umask(0);
    EXPECT_TRUE(domain.Store("A", MakePropertyNumber(1)));
    umask(before);
    for (const char* name : {"/config", "/config/vexil3", "/config/vexil3/preferences"}) {
        EXPECT_EQ(folder.ModeOf(folder.root + name), 0700U) << name;
    }
    EXPECT_EQ(folder.ModeOf(folder.paths.anyUserPreferences), 0700U);
    EXPECT_EQ(folder.ModeOf(folder.File()), 0600U);
    EXPECT_EQ(folder.OtherNames().size(), 0U);
}

TEST_F(PlistDomainsTest, AnExistingFilesModeAndGroupStay) {
    folder.PutList("");
    ASSERT_EQ(chmod(folder.File().c_str(), 0644), 0);
    if (geteuid() == 0) {
        ASSERT_EQ(chown(folder.File().c_str(), 1234, 4321), 0);
    }
    struct stat before {};
    struct stat after {};
    ASSERT_EQ(stat(folder.File().c_str(), &before), 0);
    EXPECT_TRUE(domain.Store("A", MakePropertyNumber(1)));
    ASSERT_EQ(stat(folder.File().c_str(), &after), 0);
    EXPECT_NE(before.st_ino, after.st_ino);
    EXPECT_EQ(after.st_mode, before.st_mode);
    EXPECT_EQ(after.st_uid, before.st_uid);
    EXPECT_EQ(after.st_gid, before.st_gid);
}

TEST_F(PlistDomainsTest, SystemWideFilesAreForTheFoldersGroup) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "giving a folder to another group takes root";
    }
    ASSERT_TRUE(ShareFolder());
    TestDomain systemWide(folder);
    EXPECT_TRUE(systemWide.Store("A", MakePropertyNumber(1)));
    for (const std::string& path : {folder.File(), folder.File() + ".lock"}) {
        struct stat status {};
        ASSERT_EQ(stat(path.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777U, 0660U) << path;
        EXPECT_EQ(status.st_gid, 4321U) << path;
    }
}

TEST_F(PlistDomainsTest, ASystemWideFileFromElsewhereBecomesTheGroupsWhenItIsWritten) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "giving a file to another group takes root";
    }
    ASSERT_TRUE(ShareFolder());
    folder.PutList("");
    ASSERT_EQ(chmod(folder.File().c_str(), 0604), 0);
    ASSERT_EQ(chown(folder.File().c_str(), 1234, 1234), 0);
    TestDomain systemWide(folder);
    EXPECT_TRUE(systemWide.Store("A", MakePropertyNumber(1)));
    struct stat status {};
    ASSERT_EQ(stat(folder.File().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0664U);
    EXPECT_EQ(status.st_gid, 4321U);
}

TEST_F(PlistDomainsTest, ASystemWideFolderIsNeverMade) {
    folder.paths.anyUserIsSystemWide = true;
    TestDomain systemWide(folder);
    EXPECT_FALSE(systemWide.Store("A", MakePropertyNumber(1)));
    EXPECT_FALSE(fs::exists(folder.paths.anyUserPreferences));
}

TEST_F(PlistDomainsTest, AUserWithoutAHomeStoresNothing) {
    Paths nowhere;
    nowhere.hostId = "host";
    PlistPreferenceDomains domains(nowhere);
    EXPECT_TRUE(domains.Synchronize(kTestDomain, kTestUser, kTestHost));
    domains.SetValue("A", MakePropertyNumber(1), kTestDomain, kTestUser, kTestHost);
    EXPECT_FALSE(domains.Synchronize(kTestDomain, kTestUser, kTestHost));
}

TEST_F(PlistDomainsTest, StoringWhatIsStoredCostsNothing) {
    EXPECT_TRUE(domain.Store("A", MakePropertyNumber(1)));
    ASSERT_TRUE(fs::remove(folder.File() + ".lock"));
    const auto time = fs::last_write_time(folder.File());
    writes = fdatasyncs = 0;
    EXPECT_TRUE(domain.Store("A", MakePropertyNumber(1)));
    EXPECT_TRUE(domain.Store("B", nullptr));
    EXPECT_EQ(writes + fdatasyncs, 0);
    EXPECT_FALSE(fs::exists(folder.File() + ".lock")) << "no lock was taken";
    EXPECT_EQ(fs::last_write_time(folder.File()), time);
}

TEST_F(PlistDomainsTest, SeveralChangesAreOneWrite) {
    for (const char* key : {"A", "B", "C"}) {
        domain.Set(key, MakePropertyNumber(1));
    }
    EXPECT_TRUE(domain.Synchronize());
    EXPECT_EQ(fdatasyncs, 1);
    EXPECT_EQ(writes, 1);
}

TEST_F(PlistDomainsTest, AChangeBackToWhatAnotherProgramReplacedIsStored) {
    EXPECT_TRUE(domain.Store("A", MakePropertyNumber(1)));
    EXPECT_TRUE(TestDomain(folder).Store("A", MakePropertyNumber(2)));
    EXPECT_TRUE(domain.Store("A", MakePropertyNumber(1)));
    EXPECT_TRUE(TestDomain(folder).Holds("A", 1));
}

TEST_F(PlistDomainsTest, ARewriteInPlaceOfTheSameSizeIsSeen) {
    for (int number = 0; number < 200; ++number) {
        folder.PutList("<key>A</key><integer>" + std::to_string(100 + number) + "</integer>");
        EXPECT_TRUE(domain.Synchronize());
        ASSERT_TRUE(domain.Holds("A", 100 + number)) << number;
    }
}

TEST_F(PlistDomainsTest, AReplacedFileOfTheSameSizeIsSeen) {
    TestDomain other(folder);
    for (int number = 0; number < 50; ++number) {
        ASSERT_TRUE(other.Store("A", MakePropertyNumber(100 + number)));
        EXPECT_TRUE(domain.Synchronize());
        ASSERT_TRUE(domain.Holds("A", 100 + number)) << number;
    }
}

TEST_F(PlistDomainsTest, ARemovedFileIsEmpty) {
    EXPECT_TRUE(domain.Store("A", MakePropertyNumber(1)));
    fs::remove(folder.File());
    EXPECT_TRUE(domain.Synchronize());
    EXPECT_EQ(domain.Read("A"), nullptr);
}

TEST_F(PlistDomainsTest, DamagedContentIsSetAsideWhole) {
    const std::string contents[] = {
        "",
        "garbage",
        "<plist version=\"1.0\"><dict><key>A</key><integer>1</integer>",
        "bplist00 and no more",
        "<plist version=\"1.0\"><dict><key>A</key><integer>1x</integer></dict></plist>",
        "<plist version=\"1.0\"><array/></plist>"};
    for (const std::string& content : contents) {
        SCOPED_TRACE(content);
        PreferenceFolder own;
        own.Put(content);
        TestDomain damaged(own);
        EXPECT_TRUE(damaged.Store("B", MakePropertyNumber(2)));
        ASSERT_EQ(own.OtherNames().size(), 1U);
        EXPECT_EQ(own.ContentOf(own.OtherNames().front()), content);
        EXPECT_TRUE(TestDomain(own).Holds("B", 2));
    }
}

TEST_F(PlistDomainsTest, DamagedContentIsSetAside) {
    folder.Put("garbage");
    ExpectSetAsideAndUsable();
}

TEST_F(PlistDomainsTest, ATooLargeFileIsSetAside) {
    folder.PutList("<key>A</key><string>" + std::string(1U << 20U, 'x') + "</string>");
    ExpectSetAsideAndUsable();
}

TEST_F(PlistDomainsTest, AFileOfTheLargestSizeIsRead) {
    folder.PutList("<key>A</key><integer>7</integer>");
    std::string content = folder.Content();
    content.resize(1U << 20U, '\n');
    folder.Put(content);
    EXPECT_TRUE(domain.Holds("A", 7));
    EXPECT_TRUE(folder.OtherNames().empty());
}

TEST_F(PlistDomainsTest, AFileOneByteAboveTheLargestSizeIsSetAside) {
    folder.PutList("<key>A</key><integer>7</integer>");
    std::string content = folder.Content();
    content.resize((1U << 20U) + 1, '\n');
    folder.Put(content);
    ExpectSetAsideAndUsable();
}

TEST_F(PlistDomainsTest, AFolderInTheFilesPlaceIsSetAside) {
    fs::create_directories(folder.File() + "/inside");
    ExpectSetAsideAndUsable();
    EXPECT_TRUE(fs::exists(AsideName() + "/inside"));
}

TEST_F(PlistDomainsTest, APipeInTheFilesPlaceIsSetAsideWithoutWaiting) {
    fs::create_directories(folder.paths.anyUserPreferences);
    ASSERT_EQ(mkfifo(folder.File().c_str(), 0600), 0);
    ExpectSetAsideAndUsable();
}

TEST_F(PlistDomainsTest, ASocketInTheFilesPlaceIsSetAside) {
    fs::create_directories(folder.paths.anyUserPreferences);
    ASSERT_EQ(mknod(folder.File().c_str(), S_IFSOCK | 0600, 0), 0);
    ExpectSetAsideAndUsable();
}

TEST_F(PlistDomainsTest, FilesSetAsideNeverReplaceEachOther) {
    for (int number = 0; number < 5; ++number) {
        folder.Put("garbage " + std::to_string(number));
        EXPECT_TRUE(domain.Synchronize());
    }
    std::set<std::string> contents;
    for (const std::string& name : folder.OtherNames()) {
        contents.insert(folder.ContentOf(name));
    }
    EXPECT_EQ(contents.size(), 5U);
}

TEST_F(PlistDomainsTest, AnEmptyListIsNoDamage) {
    folder.PutList("");
    EXPECT_TRUE(domain.Synchronize());
    EXPECT_EQ(folder.OtherNames().size(), 0U);
}

// Runs `task` as a user who is not root and does not own the folder's contents.
template <class Task>
void AsAnotherUser(Task task) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        const bool ready = setgid(65534) == 0 && setuid(65534) == 0;
        _exit(ready && task() ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

TEST_F(PlistDomainsTest, AFileThatMayNotBeReadIsSetAside) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root to become another user";
    }
    folder.PutList("<key>A</key><integer>7</integer>");
    ASSERT_EQ(chmod(folder.File().c_str(), 0), 0);
    ASSERT_EQ(chmod(folder.root.c_str(), 0755), 0);
    ASSERT_EQ(chmod(folder.paths.anyUserPreferences.c_str(), 0777), 0);
    AsAnotherUser([this] {
        TestDomain other(folder);
        return other.Store("A", MakePropertyNumber(1)) && TestDomain(folder).Holds("A", 1) &&
               folder.OtherNames().size() == 1;
    });
}

TEST_F(PlistDomainsTest, WhatCannotBeSetAsideReadsAsEmptyRefusesWritesAndIsLoggedOnce) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root to become another user";
    }
    folder.Put("garbage");
    ASSERT_EQ(chmod(folder.root.c_str(), 0755), 0);
    ASSERT_EQ(chmod(folder.paths.anyUserPreferences.c_str(), 0755), 0);
    const std::string log = folder.root + "/log";
    std::ofstream(log) << "";
    ASSERT_EQ(chmod(log.c_str(), 0666), 0);
    AsAnotherUser([&] {
        OpenLog("", "", kLogAppend, log.c_str());
        TestDomain other(folder);
        const bool empty = other.Synchronize() && other.Synchronize() && other.Read("A") == nullptr;
        return empty && !other.Store("A", MakePropertyNumber(1)) && !other.Store("A", MakePropertyNumber(1));
    });
    EXPECT_EQ(folder.Content(), "garbage");
    const std::string lines = folder.ContentOf(log);
    const std::size_t first = lines.find("cannot be set aside");
    ASSERT_NE(first, std::string::npos) << lines;
    EXPECT_EQ(lines.find("cannot be set aside", first + 1), std::string::npos) << lines;
}

TEST_F(PlistDomainsTest, AFolderThatBecomesAccessibleIsUsed) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root to become another user";
    }
    fs::create_directories(folder.paths.anyUserPreferences);
    ASSERT_EQ(chown(folder.paths.anyUserPreferences.c_str(), 65534, 65534), 0);
    ASSERT_EQ(chmod(folder.root.c_str(), 0755), 0);
    AsAnotherUser([this] {
        TestDomain other(folder);
        const std::string& place = folder.paths.anyUserPreferences;
        const bool closed = chmod(place.c_str(), 0) == 0 && other.Synchronize() &&
                            other.Read("A") == nullptr && !other.Store("A", MakePropertyNumber(1));
        return closed && chmod(place.c_str(), 0700) == 0 && other.Store("A", MakePropertyNumber(1));
    });
}

TEST_F(PlistDomainsTest, AHeldLockIsTheReasonGivenForABadFileThatStays) {
    EXPECT_TRUE(domain.Store("A", MakePropertyNumber(1)));
    Descriptor holder(open((folder.File() + ".lock").c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(flock(holder.Number(), LOCK_EX), 0);
    folder.Put("garbage");
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        OpenLog("", "", kLogAppend, (folder.root + "/log").c_str());
        TestDomain(folder).Synchronize();
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_NE(folder.ContentOf(folder.root + "/log").find("lock: Connection timed out (110)"),
              std::string::npos);
    EXPECT_EQ(folder.Content(), "garbage");
    holder.Close();
    EXPECT_TRUE(domain.Store("A", MakePropertyNumber(2)));
    EXPECT_EQ(folder.OtherNames().size(), 1U);
}

TEST_F(PlistDomainsTest, ALineBeforeTheLogIsOpenIsWrittenAtTheNextCallAfterwards) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        folder.Put("garbage");
        TestDomain early(folder);
        early.Synchronize();
        OpenLog("Test: ", "", kLogAppend, (folder.root + "/log").c_str());
        early.Read("A");
        early.Read("A");
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    const std::string log = folder.ContentOf(folder.root + "/log");
    const std::size_t first = log.find("Test: Preferences set aside: ");
    ASSERT_NE(first, log.npos) << log;
    EXPECT_EQ(log.find("set aside", first + 20), log.npos) << log;
    EXPECT_EQ(log.back(), '\n');
}

TEST_F(PlistDomainsTest, AHeldLockDelaysAWriteTwoSecondsAndTheNextNotAtAll) {
    EXPECT_TRUE(domain.Store("A", MakePropertyNumber(1)));
    Descriptor holder(open((folder.File() + ".lock").c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(flock(holder.Number(), LOCK_EX), 0);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(domain.Store("A", MakePropertyNumber(2)));
    const auto once = std::chrono::steady_clock::now() - start;
    EXPECT_GE(once, std::chrono::milliseconds(1900));
    EXPECT_LE(once, std::chrono::milliseconds(10'000));  // a busy computer is slow
    for (int i = 0; i < 300; ++i) {
        EXPECT_FALSE(domain.Store("A", MakePropertyNumber(2)));
    }
    EXPECT_LE(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));  // not 2 s each
    EXPECT_TRUE(TestDomain(folder).Holds("A", 1));
    holder.Close();
    EXPECT_TRUE(domain.Store("A", MakePropertyNumber(2)));
}

TEST_F(PlistDomainsTest, ALockThatIsNoFileRefusesTheWrite) {
    fs::create_directories(folder.paths.anyUserPreferences);
    ASSERT_EQ(mkfifo((folder.File() + ".lock").c_str(), 0600), 0);
    EXPECT_FALSE(domain.Store("A", MakePropertyNumber(1)));
    EXPECT_FALSE(fs::exists(folder.File()));
}

TEST_F(PlistDomainsTest, WhatAKilledWriterLeftIsReplaced) {
    EXPECT_TRUE(domain.Store("A", MakePropertyNumber(1)));
    std::ofstream(folder.File() + ".new") << "half";
    fs::create_hard_link(folder.File(), folder.File() + ".old");
    EXPECT_TRUE(domain.Store("A", MakePropertyNumber(2)));
    EXPECT_TRUE(TestDomain(folder).Holds("A", 2));
    EXPECT_EQ(folder.OtherNames().size(), 0U);
}

TEST_F(PlistDomainsTest, ProcessesThatWriteDifferentKeysLoseNothing) {
    constexpr int kProcesses = 4;
    constexpr int kKeys = 25;
    std::vector<pid_t> children;
    for (int process = 0; process < kProcesses; ++process) {
        children.push_back(fork());
        ASSERT_GE(children.back(), 0);
        if (children.back() == 0) {
            TestDomain own(folder);
            bool stored = true;
            for (int key = 0; key < kKeys; ++key) {
                stored =
                    own.Store(std::to_string(process) + " " + std::to_string(key), MakePropertyNumber(key)) &&
                    stored;
            }
            _exit(stored ? 0 : 1);
        }
    }
    for (const pid_t child : children) {
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
    TestDomain all(folder);
    for (int process = 0; process < kProcesses; ++process) {
        for (int key = 0; key < kKeys; ++key) {
            EXPECT_TRUE(all.Holds(std::to_string(process) + " " + std::to_string(key), key))
                << process << " " << key;
        }
    }
    EXPECT_EQ(folder.OtherNames().size(), 0U);
}

TEST_F(PlistDomainsTest, DomainsOfAnyNameStayInTheirFolder) {
    for (const char* name : {"../../escape", "a/b", ".hidden", "", "..", "%2E"}) {
        domain.domains.SetValue("A", MakePropertyString(name), name, kTestUser, kTestHost);
        EXPECT_TRUE(domain.domains.Synchronize(name, kTestUser, kTestHost)) << name;
    }
    TestDomain other(folder);
    for (const char* name : {"../../escape", "a/b", ".hidden", "", "..", "%2E"}) {
        EXPECT_TRUE(
            SameProperty(other.domains.CopyValue("A", name, kTestUser, kTestHost), MakePropertyString(name)));
    }
    EXPECT_FALSE(fs::exists(folder.root + "/config/vexil3/escape.0123456789abcdef0123456789abcdef.plist"));
}

// Each of the four calls fails in turn.
int FailingFile(int) {
    errno = EIO;
    return -1;
}
int FailingRename(int, const char*, int, const char*) {
    errno = EIO;
    return -1;
}
ssize_t FailingWrite(int, const void*, std::size_t) {
    errno = ENOSPC;
    return -1;
}
int writesLeft = 0;
ssize_t ShortThenFailingWrite(int file, const void* bytes, std::size_t count) {
    return writesLeft-- > 0 ? write(file, bytes, std::min<std::size_t>(count, 7))
                            : FailingWrite(file, bytes, count);
}
ssize_t NothingWritten(int, const void*, std::size_t) {
    return 0;
}
int interruptions = 0;
ssize_t InterruptedShortWrite(int file, const void* bytes, std::size_t count) {
    if (++interruptions % 2 == 1) {
        errno = EINTR;
        return -1;
    }
    return write(file, bytes, std::min<std::size_t>(count, 7));
}

void ExpectOldFileIntact(const DurabilityCalls& calls, bool existing) {
    PreferenceFolder folder;
    if (existing) {
        ASSERT_TRUE(TestDomain(folder).Store("A", MakePropertyNumber(1)));
    } else {
        fs::create_directories(folder.paths.anyUserPreferences);
    }
    const std::string before = folder.Content();
    TestDomain failing(folder, calls);
    EXPECT_FALSE(failing.Store("A", MakePropertyNumber(2)));
    EXPECT_EQ(folder.Content(), before);
    EXPECT_EQ(fs::exists(folder.File()), existing);
    EXPECT_EQ(folder.OtherNames().size(), 0U);
    EXPECT_TRUE(SameProperty(failing.Read("A"), existing ? MakePropertyNumber(1) : nullptr));
    EXPECT_TRUE(TestDomain(folder).Store("A", MakePropertyNumber(3)));
    EXPECT_TRUE(failing.Synchronize());
    EXPECT_TRUE(failing.Holds("A", 3));
}

TEST(PlistDomainsFaultTest, AnyFailureLeavesTheOldFileWhole) {
    for (const bool existing : {true, false}) {
        DurabilityCalls calls = SystemDurabilityCalls();
        calls.fdatasync = FailingFile;
        ExpectOldFileIntact(calls, existing);
        calls = SystemDurabilityCalls();
        calls.fsync = FailingFile;
        ExpectOldFileIntact(calls, existing);
        calls = SystemDurabilityCalls();
        calls.rename = FailingRename;
        ExpectOldFileIntact(calls, existing);
        calls = SystemDurabilityCalls();
        for (const auto write : {FailingWrite, NothingWritten, ShortThenFailingWrite}) {
            writesLeft = 3;
            calls.write = write;
            ExpectOldFileIntact(calls, existing);
        }
    }
}

TEST(PlistDomainsFaultTest, AFolderThatCouldNotBeMadePermanentIsMadeAnew) {
    PreferenceFolder folder;
    DurabilityCalls calls = SystemDurabilityCalls();
    calls.fsync = FailingFile;
    EXPECT_FALSE(TestDomain(folder, calls).Store("A", MakePropertyNumber(1)));
    EXPECT_FALSE(fs::exists(folder.root + "/config"));
    EXPECT_TRUE(TestDomain(folder).Store("A", MakePropertyNumber(1)));
}

TEST(PlistDomainsFaultTest, ShortAndInterruptedWritesAreGoneOnWith) {
    PreferenceFolder folder;
    DurabilityCalls calls = SystemDurabilityCalls();
    calls.write = InterruptedShortWrite;
    EXPECT_TRUE(TestDomain(folder, calls).Store("A", MakePropertyNumber(1)));
    EXPECT_TRUE(TestDomain(folder).Holds("A", 1));
}

}  // namespace
}  // namespace vexil
