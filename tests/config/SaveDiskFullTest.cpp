// Saving onto a disk without room: a small file system in memory, seen by one process only.
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "config/RewriteCopy.h"
#include "tests/config/IniFixture.h"
#include "tests/doubles/LogCapture.h"

namespace vexil::test {
namespace {

constexpr int kNotPermitted = 77;
constexpr std::size_t kPage = 4096;
constexpr const char* kOld = "[a]\nx=1\n";

class SaveDiskFullTest : public IniFixture {
  protected:
    // Runs `work` in a process for which the folder lies on a disk of 16 pages. It returns the line of its
    // first failed expectation, or 0.
    void OnSmallDisk(const std::function<int()>& work) {
        const pid_t child = ::fork();
        if (child == 0) {
            const bool mounted = ::unshare(CLONE_NEWNS) == 0 &&
                                 ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                                 ::mount("tmpfs", folder.Path().c_str(), "tmpfs", 0, "size=64k") == 0;
            ::_exit(mounted ? work() : kNotPermitted);
        }
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFEXITED(status));
        if (WEXITSTATUS(status) == kNotPermitted) {
            GTEST_SKIP() << "no file system can be mounted here";
        }
        EXPECT_EQ(WEXITSTATUS(status), 0) << "the expectation that failed, in order";
    }

    // Takes all of the room but `pages`.
    void Fill(std::size_t pages) {
        const auto space = std::filesystem::space(folder.Path());
        WriteText(folder / "filler", std::string(space.available - pages * kPage, 'f'));
    }

    bool Save(const std::string& value) {
        IniFile file;
        const bool opened = file.Open(path.c_str());
        file.SetValue("a", "x", value.c_str());
        return file.Close() && opened;
    }

    bool CopyExists() { return std::filesystem::exists(folder / RewriteCopyName("settings.vexil3")); }

    LogCapture log;
};

TEST_F(SaveDiskFullTest, WithoutRoomForTheCopyTheOldTextStays) {
    OnSmallDisk([this] {
        WriteText(path, kOld);
        Fill(2);
        if (Save(std::string(4 * kPage, 'v'))) {
            return 1;
        }
        if (ReadText(path) != kOld) {
            return 2;
        }
        if (CopyExists()) {
            return 3;
        }
        std::filesystem::remove(folder / "filler");
        if (!Save("2") || ReadText(path) != "[a]\nx=2\n") {
            return 4;
        }
        return 0;
    });
}

TEST_F(SaveDiskFullTest, WithoutRoomForTheFileTheCopyHoldsTheNewTextUntilThereIs) {
    OnSmallDisk([this] {
        WriteText(path, kOld);
        Fill(7);
        const std::string value(4 * kPage, 'v');
        if (Save(value)) {
            return 1;
        }
        if (ReadText(path) == kOld || !CopyExists()) {
            return 2;
        }
        if (IniFile file; file.Open(path.c_str())) {
            return 3;
        }
        if (!CopyExists()) {
            return 4;
        }
        std::filesystem::remove(folder / "filler");
        if (IniFile file; !file.Open(path.c_str()) || !file.Close()) {
            return 5;
        }
        if (ReadText(path) != "[a]\nx=" + value + "\n") {
            return 6;
        }
        return CopyExists() ? 7 : 0;
    });
}

TEST_F(SaveDiskFullTest, ANewFileThatCannotBeSavedLeavesNothingBehind) {
    OnSmallDisk([this] {
        Fill(2);
        if (Save(std::string(4 * kPage, 'v'))) {
            return 1;
        }
        if (std::filesystem::exists(path)) {
            return 2;
        }
        if (CopyExists()) {
            return 3;
        }
        return 0;
    });
}

TEST_F(SaveDiskFullTest, ANewFileForWhichThereIsRoomOnceOnlyLeavesNothingBehind) {
    OnSmallDisk([this] {
        Fill(7);
        if (Save(std::string(4 * kPage, 'v'))) {
            return 1;
        }
        if (std::filesystem::exists(path)) {
            return 2;
        }
        if (CopyExists()) {
            return 3;
        }
        return 0;
    });
}

}  // namespace
}  // namespace vexil::test
