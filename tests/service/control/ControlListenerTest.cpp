// The socket of the control channel: its place and modes, and whose it is.
#include "service/control/ControlListener.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "driver/DriverOptions.h"
#include "tests/config/TemporaryFolder.h"
#include "tests/service/control/RawClient.h"

namespace vexil {
namespace {

using ::testing::HasSubstr;

class ControlListenerTest : public ::testing::Test {
  protected:
    ControlListenerTest() { paths.control = folder / "vexil3"; }

    std::unique_ptr<ControlListener> Open() {
        problem.clear();
        return ControlListener::Open(paths, problem);
    }
    std::string SocketPath() const { return paths.control + "/" + kControlName; }
    static mode_t ModeOf(const std::string& path) {
        struct stat status {};
        EXPECT_EQ(0, lstat(path.c_str(), &status)) << path;
        return status.st_mode & 07777;
    }
    bool HasSocket() const {
        struct stat status {};
        return lstat(SocketPath().c_str(), &status) == 0 && S_ISSOCK(status.st_mode);
    }
    // What a service that was killed leaves behind.
    void LeaveStaleSocket() {
        const pid_t child = fork();
        if (child == 0) {
            const auto listener = Open();
            _exit(listener ? 0 : 1);  // without the end of the listener
        }
        int status = 0;
        waitpid(child, &status, 0);
        ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
        ASSERT_TRUE(HasSocket());
    }

    test::TemporaryFolder folder;
    Paths paths;
    std::string problem;
};

TEST_F(ControlListenerTest, MakesFolderAndSocketForThisUserAlone) {
    const mode_t before = umask(0);
    const auto listener = Open();
    umask(before);
    ASSERT_TRUE(listener) << problem;
    EXPECT_EQ(0700U, ModeOf(paths.control));
    EXPECT_EQ(0600U, ModeOf(SocketPath()));
    EXPECT_EQ(SocketPath(), listener->Path());
    EXPECT_FALSE(listener->Group());
    EXPECT_TRUE(RawClient(SocketPath()).IsConnected());
}

TEST_F(ControlListenerTest, ClosesAnOpenFolderOfThisUser) {
    ASSERT_EQ(0, mkdir(paths.control.c_str(), 0755));
    ASSERT_TRUE(Open());
    EXPECT_EQ(0700U, ModeOf(paths.control));
}

TEST_F(ControlListenerTest, SystemWideIsForTheGroupOfItsFolder) {
    paths.controlIsSystemWide = true;
    ASSERT_EQ(0, mkdir(paths.control.c_str(), 0750));
    if (geteuid() == 0) {
        ASSERT_EQ(0, chown(paths.control.c_str(), 0, 54321));
    }
    const auto listener = Open();
    ASSERT_TRUE(listener) << problem;
    struct stat ofFolder {};
    struct stat ofSocket {};
    ASSERT_EQ(0, stat(paths.control.c_str(), &ofFolder));
    ASSERT_EQ(0, stat(SocketPath().c_str(), &ofSocket));
    EXPECT_EQ(0660U, ModeOf(SocketPath()));
    EXPECT_EQ(0750U, ModeOf(paths.control));
    EXPECT_EQ(ofFolder.st_gid, ofSocket.st_gid);
    EXPECT_EQ(ofFolder.st_gid, listener->Group());
}

TEST_F(ControlListenerTest, SystemWideFolderThatEverybodyWritesIsRefused) {
    paths.controlIsSystemWide = true;
    ASSERT_EQ(0, mkdir(paths.control.c_str(), 0));
    ASSERT_EQ(0, chmod(paths.control.c_str(), 0777));
    EXPECT_FALSE(Open());
    EXPECT_EQ("Everybody may write to the folder " + paths.control + ".", problem);
}

TEST_F(ControlListenerTest, RemovesItsSocketAtTheEnd) {
    Open().reset();
    EXPECT_FALSE(HasSocket());
    EXPECT_TRUE(Open());
}

TEST_F(ControlListenerTest, LeavesASocketThatIsNotItsOwnAtTheEnd) {
    auto listener = Open();
    ASSERT_EQ(0, unlink(SocketPath().c_str()));
    test::WriteText(SocketPath(), "another's");
    listener.reset();
    EXPECT_EQ("another's", test::ReadText(SocketPath()));
}

TEST_F(ControlListenerTest, ReplacesTheSocketOfAServiceThatHasDied) {
    LeaveStaleSocket();
    const auto listener = Open();
    ASSERT_TRUE(listener) << problem;
    EXPECT_TRUE(RawClient(SocketPath()).IsConnected());
}

TEST_F(ControlListenerTest, NeverTakesTheSocketOfALivingService) {
    const auto first = Open();
    ASSERT_TRUE(first);
    EXPECT_FALSE(Open());
    EXPECT_EQ("Another vexil3d (process " + std::to_string(getpid()) + ") is serving " + SocketPath() + ".",
              problem);
    EXPECT_TRUE(RawClient(SocketPath()).IsConnected());
}

TEST_F(ControlListenerTest, NeverTakesASocketAtWhichSomebodyListensWithoutTheLock) {
    const auto first = Open();
    ASSERT_EQ(0, unlink((paths.control + "/vexil3d.lock").c_str()));
    EXPECT_FALSE(Open());
    EXPECT_EQ("Another vexil3d is serving " + SocketPath() + ".", problem);
    EXPECT_TRUE(HasSocket());
}

TEST_F(ControlListenerTest, LeavesAFileThatIsNoSocket) {
    ASSERT_EQ(0, mkdir(paths.control.c_str(), 0700));
    test::WriteText(SocketPath(), "a letter");
    EXPECT_FALSE(Open());
    EXPECT_EQ(SocketPath() + " is no socket; it is left alone.", problem);
    EXPECT_EQ("a letter", test::ReadText(SocketPath()));
}

TEST_F(ControlListenerTest, FolderThatIsALinkIsRefused) {
    ASSERT_EQ(0, mkdir((folder / "elsewhere").c_str(), 0700));
    ASSERT_EQ(0, symlink((folder / "elsewhere").c_str(), paths.control.c_str()));
    EXPECT_FALSE(Open());
    EXPECT_EQ(paths.control + " is no folder of this user.", problem);
}

TEST_F(ControlListenerTest, FolderOfAnotherUserIsRefused) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root, to make a folder of another user";
    }
    ASSERT_EQ(0, mkdir(paths.control.c_str(), 0777));
    ASSERT_EQ(0, chown(paths.control.c_str(), 54321, 54321));
    EXPECT_FALSE(Open());
    EXPECT_EQ(paths.control + " is no folder of this user.", problem);
}

TEST_F(ControlListenerTest, WithoutAPlaceForTheFolderItSaysSo) {
    paths.control = folder / "missing/vexil3";
    EXPECT_FALSE(Open());
    EXPECT_EQ("Cannot make the folder " + paths.control + ": No such file or directory.", problem);
}

TEST_F(ControlListenerTest, MakesTheFolderThatStandsInForThisUserAlone) {
    paths.standInRuntime = folder / "runtime-ada";
    paths.control = paths.standInRuntime + "/vexil3";
    const mode_t before = umask(0);
    const auto listener = Open();
    umask(before);
    ASSERT_TRUE(listener) << problem;
    EXPECT_EQ(0700U, ModeOf(paths.standInRuntime));
    EXPECT_TRUE(RawClient(SocketPath()).IsConnected());
}

TEST_F(ControlListenerTest, FolderOfAnotherUserDoesNotStandIn) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root, to make a folder of another user";
    }
    paths.standInRuntime = folder / "runtime-ada";
    paths.control = paths.standInRuntime + "/vexil3";
    ASSERT_EQ(0, mkdir(paths.standInRuntime.c_str(), 0777));
    ASSERT_EQ(0, chown(paths.standInRuntime.c_str(), 54321, 54321));
    EXPECT_FALSE(Open());
    EXPECT_EQ(paths.standInRuntime + " is no folder of this user.", problem);
}

TEST_F(ControlListenerTest, PathThatIsTooLongForASocketIsRefused) {
    paths.control = folder / std::string(100, 'x');
    EXPECT_FALSE(Open());
    EXPECT_THAT(problem, HasSubstr("File name too long."));
}

}  // namespace
}  // namespace vexil
