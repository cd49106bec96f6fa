// The log: where its lines go and their exact bytes.
#include "shared/System/svLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <string>

#include "shared/System/PrintableText.h"
#include "shared/System/svLogFilter.h"
#include "tests/foundation/FailedAssertion.h"
#include "tests/foundation/LogProcess.h"

namespace vexil {
namespace {

constexpr const char* kPrefix = "CtrlPanel: ";
constexpr const char* kVersion = "Ver 3.3.900";
// Longer than any line.
const std::string kLongText(400, 'x');

#if defined(__x86_64__)
const std::string kArch = "arch=x86_64; ";
#elif defined(__aarch64__)
const std::string kArch = "arch=aarch64; ";
#elif defined(__i386__)
const std::string kArch = "arch=i386; ";
#else
const std::string kArch = "arch=[a-z0-9_]+; ";
#endif
const std::string kTime = "[A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9][0-9] [0-9]{2}:[0-9]{2}:[0-9]{2} [0-9]{4}";
const std::string kHeader = "CtrlPanel: Ver 3\\.3\\.900; " + kArch + "loaded at " + kTime + "\\.\n";
const std::string kClosing = "CtrlPanel: Unloaded at " + kTime + "\\.\n";

class Log : public testing::Test {
  protected:
    int OpenPanelLog(int mode = kLogAppend) const {
        return OpenLog(kPrefix, kVersion, mode, process.LogPath().c_str());
    }
    // A descriptor of the log file as the child has it, -1 when it has none.
    int LogDescriptor() const {
        struct stat file = {};
        if (stat(process.LogPath().c_str(), &file) != 0) {
            return -1;
        }
        for (int descriptor = 0; descriptor < 64; ++descriptor) {
            struct stat open = {};
            if (fstat(descriptor, &open) == 0 && open.st_ino == file.st_ino && open.st_dev == file.st_dev) {
                return descriptor;
            }
        }
        return -1;
    }
    void Put(const std::string& text) const { std::ofstream(process.LogPath()) << text; }

    LogProcess process;
};

TEST_F(Log, HoldsHeaderLinesAndClosingLine) {
    EXPECT_EQ(process.Run([this] {
        OpenPanelLog();
        LogPrintf("Unable to open socket! errno %d\n", 47);
    }),
              0);
    EXPECT_THAT(process.Log(),
                testing::MatchesRegex(kHeader + "CtrlPanel: Unable to open socket! errno 47\n" + kClosing));
    EXPECT_EQ(process.Output() + process.Input(), "");
}

TEST_F(Log, HeaderAndClosingLineTellTheLocalTime) {
    const std::time_t before = std::time(nullptr);
    process.Run([this] { OpenPanelLog(); });
    const std::time_t after = std::time(nullptr);
    bool found = false;
    for (std::time_t at = before; at <= after; ++at) {
        char text[64];
        std::strftime(text, sizeof text, "%a %b %e %H:%M:%S %Y", std::gmtime(&at));
        found = found || process.Log().find(std::string("loaded at ") + text + ".\n") != std::string::npos;
    }
    EXPECT_TRUE(found) << process.Log();
}

TEST_F(Log, HeaderWithoutAVersionStartsWithTheProcessor) {
    process.Run([this] { OpenLog(kPrefix, "", kLogAppend, process.LogPath().c_str()); });
    process.Run([this] { OpenLog(kPrefix, nullptr, kLogAppend, process.LogPath().c_str()); });
    const std::string header = "CtrlPanel: " + kArch + "loaded at " + kTime + "\\.\n";
    EXPECT_THAT(process.Log(), testing::MatchesRegex(header + kClosing + header + kClosing));
}

TEST_F(Log, WithoutAPrefixHasBareLines) {
    process.Run([this] {
        OpenLog("", kVersion, kLogAppend, process.LogPath().c_str());
        LogPrintf("line\n");
    });
    EXPECT_THAT(process.Log(), testing::MatchesRegex(kHeader.substr(11) + "line\n" + kClosing.substr(11)));
    process.Run([this] { OpenLog(nullptr, kVersion, kLogCreate, process.LogPath().c_str()); });
    EXPECT_THAT(process.Log(), testing::MatchesRegex(kHeader.substr(11) + kClosing.substr(11)));
}

TEST_F(Log, OpeningAlwaysReturnsOne) {
    EXPECT_EQ(process.Run([this] {
        const bool right = OpenPanelLog(kLogDisabled) == 1 && OpenPanelLog(0) == 1 && OpenPanelLog() == 1 &&
                           OpenLog(kPrefix, kVersion, kLogAppend, "/none/none.log") == 1;
        std::exit(right ? 0 : 1);
    }),
              0);
}

TEST_F(Log, AppendsAfterTheOldLines) {
    Put("old line\n");
    process.Run([this] { OpenPanelLog(kLogAppend); });
    EXPECT_THAT(process.Log(), testing::MatchesRegex("old line\n" + kHeader + kClosing));
}

TEST_F(Log, CreatedAnewStartsEmpty) {
    Put("old line\n");
    process.Run([this] { OpenPanelLog(kLogCreate); });
    EXPECT_THAT(process.Log(), testing::MatchesRegex(kHeader + kClosing));
}

TEST_F(Log, CreatingWinsOverAppending) {
    Put("old line\n");
    process.Run([this] { OpenPanelLog(kLogCreate | kLogAppend); });
    EXPECT_THAT(process.Log(), testing::MatchesRegex(kHeader + kClosing));
}

TEST_F(Log, IsPutUnderTmpOnRequest) {
    const std::string name = "vexil-log-test-" + std::to_string(getpid()) + ".log";
    process.Run([&name] { OpenLog(kPrefix, kVersion, kLogInTmp | kLogCreate, name.c_str()); });
    EXPECT_THAT(LogProcess::Read("/tmp/" + name), testing::MatchesRegex(kHeader + kClosing));
    unlink(("/tmp/" + name).c_str());
}

TEST_F(Log, IsWritableForEveryUserWhateverTheFileMask) {
    process.Run([this] {
        umask(077);
        OpenPanelLog();
    });
    EXPECT_EQ(std::filesystem::status(process.LogPath()).permissions(), std::filesystem::perms(0666));
}

TEST_F(Log, IsMadeWritableForEveryUserWhenItExists) {
    Put("");
    chmod(process.LogPath().c_str(), 0600);
    process.Run([this] { OpenPanelLog(); });
    EXPECT_EQ(std::filesystem::status(process.LogPath()).permissions(), std::filesystem::perms(0666));
}

TEST_F(Log, IsOpenedReadWriteForAppendingAndClosedInOtherPrograms) {
    EXPECT_EQ(process.Run([this] {
        OpenPanelLog();
        const int descriptor = LogDescriptor();
        const bool right = (fcntl(descriptor, F_GETFL) & (O_ACCMODE | O_APPEND)) == (O_RDWR | O_APPEND) &&
                           fcntl(descriptor, F_GETFD) == FD_CLOEXEC;
        std::exit(right ? 0 : 1);
    }),
              0);
}

TEST_F(Log, LeavesTheStandardDescriptorsAlone) {
    EXPECT_EQ(process.Run([this] {
        close(0);
        close(2);
        OpenPanelLog();
        std::exit(LogDescriptor() > 2 ? 0 : 1);
    }),
              0);
    EXPECT_THAT(process.Log(), testing::MatchesRegex(kHeader + kClosing));
}

TEST_F(Log, HoldsASharedLock) {
    EXPECT_EQ(process.Run([this] {
        OpenPanelLog();
        const int other = open(process.LogPath().c_str(), O_RDWR);
        const bool exclusive = flock(other, LOCK_EX | LOCK_NB) == 0;
        const bool shared = flock(other, LOCK_SH | LOCK_NB) == 0;
        std::exit(!exclusive && shared ? 0 : 1);
    }),
              0);
}

TEST_F(Log, WaitsForItsLockThroughSignals) {
    static int holder = -1;
    static volatile sig_atomic_t signals = 0;
    holder = open(process.LogPath().c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(flock(holder, LOCK_EX), 0);
    EXPECT_EQ(process.Run([this] {
        struct sigaction action = {};
        action.sa_handler = [](int) {
            signals = signals + 1;
            if (signals == 3) {
                flock(holder, LOCK_UN);
            }
        };
        sigaction(SIGALRM, &action, nullptr);
        const itimerval often = {{0, 5000}, {0, 5000}};
        setitimer(ITIMER_REAL, &often, nullptr);
        OpenPanelLog();
        std::exit(signals >= 3 ? 0 : 1);
    }),
              0);
    close(holder);
    EXPECT_THAT(process.Log(), testing::MatchesRegex(kHeader + kClosing));
}

TEST_F(Log, ThatIsKeptLockedIsNotOpenedAfterAQuarterOfASecond) {
    const int holder = open(process.LogPath().c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(flock(holder, LOCK_EX), 0);
    EXPECT_EQ(process.Run([this] {
        alarm(60);  // rather than wait for ever
        const auto start = std::chrono::steady_clock::now();
        OpenPanelLog();
        const auto waited = std::chrono::steady_clock::now() - start;
        LogPrintf("line\n");
        std::exit(waited >= std::chrono::milliseconds(250) && waited < std::chrono::seconds(10) ? 0 : 1);
    }),
              0);
    EXPECT_EQ(process.Log(), "");
    EXPECT_EQ(process.Output(), "CtrlPanel: line\n");
    close(holder);
}

TEST_F(Log, ThatIsKeptLockedIsNotEmptied) {
    std::ofstream(process.LogPath()) << "kept\n";
    const int holder = open(process.LogPath().c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(holder, LOCK_EX), 0);
    process.Run([this] { OpenLog(kPrefix, kVersion, kLogCreate, process.LogPath().c_str()); });
    EXPECT_EQ(process.Log(), "kept\n");
    close(holder);
}

TEST_F(Log, ThatIsUnderALeaseIsNotOpenedAfterAQuarterOfASecond) {
    const int holder = open(process.LogPath().c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fcntl(holder, F_SETLEASE, F_WRLCK) != 0) {
        GTEST_SKIP() << "the file system knows no leases";
    }
    signal(SIGIO, SIG_IGN);  // by which the kernel asks for it
    EXPECT_EQ(process.Run([this] {
        close_range(3, ~0U, 0);
        alarm(60);
        const auto start = std::chrono::steady_clock::now();
        OpenPanelLog();
        const auto waited = std::chrono::steady_clock::now() - start;
        LogPrintf("line\n");
        std::exit(waited < std::chrono::seconds(10) ? 0 : 1);
    }),
              0);
    EXPECT_EQ(process.Output(), "CtrlPanel: line\n");
    close(holder);
    signal(SIGIO, SIG_DFL);
}

TEST_F(Log, ThatCannotBeLockedIsNotOpened) {
    process.Run([this] {
        // From here on the process gets ENOLCK from flock.
        sock_filter program[] = {
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_flock, 0, 1),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOLCK),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        };
        const sock_fprog filter = {4, program};
        prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
        if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0) {
            std::exit(1);
        }
        OpenPanelLog();
        LogPrintf("line\n");
        LogPrintfRaw("log descriptor %d\n", LogDescriptor());
    });
    EXPECT_EQ(process.Log(), "");
    EXPECT_EQ(process.Output(), "CtrlPanel: line\nlog descriptor -1\n");
}

TEST_F(Log, ThatCannotBeCreatedSendsEveryLineToStandardOutput) {
    process.Run([this] {
        OpenLog(kPrefix, kVersion, kLogAppend, process.Path("none/test.log").c_str());
        LogPrintf("one\n");
        LogPrintfRaw("two\n");
    });
    EXPECT_EQ(process.Output(), "CtrlPanel: one\ntwo\n") << "no header, no closing line";
}

TEST_F(Log, WithoutAFileNameCannotBeCreated) {
    process.Run([] {
        OpenLog(kPrefix, kVersion, kLogAppend, nullptr);
        LogPrintf("one\n");
        OpenLog(kPrefix, kVersion, kLogAppend, "");
        LogPrintf("two\n");
    });
    EXPECT_EQ(process.Output(), "CtrlPanel: one\nCtrlPanel: two\n");
}

TEST_F(Log, PathIsCutTo258Characters) {
    const std::string directory = process.Path(std::string(200, 'd'));
    std::filesystem::create_directory(directory);
    const std::string path = directory + "/" + std::string(100, 'f');
    process.Run([&path] { OpenLog(kPrefix, kVersion, kLogAppend, path.c_str()); });
    EXPECT_THAT(LogProcess::Read(path.substr(0, 258)), testing::MatchesRegex(kHeader + kClosing));
}

TEST_F(Log, SwitchedOffIsNotOpened) {
    process.Run([this] {
        OpenPanelLog(kLogDisabled | kLogAppend);
        LogPrintf("line\n");
    });
    EXPECT_FALSE(std::filesystem::exists(process.LogPath()));
    EXPECT_EQ(process.Input(), "line\n") << "to descriptor 0, without a prefix";
    EXPECT_EQ(process.Output(), "");
}

TEST_F(Log, UnopenedWritesToDescriptorZeroWithoutAPrefix) {
    process.Run([] {
        LogPrintf("one\n");
        LogPrintfRaw("two\n");
    });
    EXPECT_EQ(process.Input(), "one\ntwo\n");
}

TEST_F(Log, WithoutAnOpeningModeTakesThePrefixAlone) {
    process.Run([this] {
        OpenPanelLog(kLogInTmp);
        LogPrintf("line\n");
    });
    EXPECT_FALSE(std::filesystem::exists(process.LogPath()));
    EXPECT_EQ(process.Input(), "CtrlPanel: line\n");
}

TEST_F(Log, ClosedTwiceHasOneClosingLine) {
    process.Run([this] {
        OpenPanelLog();
        CloseLog();
        LogPrintf("after\n");
        CloseLog();
    });
    EXPECT_THAT(process.Log(), testing::MatchesRegex(kHeader + kClosing));
    EXPECT_EQ(process.Output() + process.Input(), "");
}

TEST_F(Log, ClosedGivesItsDescriptorBack) {
    EXPECT_EQ(process.Run([this] {
        OpenPanelLog();
        CloseLog();
        std::exit(LogDescriptor() == -1 ? 0 : 1);
    }),
              0);
}

TEST_F(Log, OnStandardOutputLosesItsPrefixWhenClosed) {
    process.Run([] {
        OpenLog(kPrefix, kVersion, kLogAppend, "/none/none.log");
        CloseLog();
        LogPrintf("line\n");
    });
    EXPECT_EQ(process.Output(), "line\n");
}

TEST_F(Log, IsOpenFromTheOpeningToTheClosing) {
    EXPECT_EQ(process.Run([this] {
        bool right = !LogIsOpen();
        OpenPanelLog(kLogDisabled);
        right = right && !LogIsOpen();
        OpenPanelLog(0);
        right = right && !LogIsOpen();
        OpenLog(kPrefix, kVersion, kLogAppend, "/none/none.log");
        right = right && LogIsOpen();
        CloseLog();
        right = right && !LogIsOpen();
        OpenPanelLog();
        right = right && LogIsOpen();
        CloseLog();
        std::exit(right && !LogIsOpen() ? 0 : 1);
    }),
              0);
}

TEST_F(Log, LineIsCutTo258Characters) {
    process.Run([this] {
        OpenPanelLog();
        LogPrintf("%s\n", kLongText.c_str());
        LogPrintfRaw("%s\n", kLongText.c_str());
        LogPrintf("|\n");
    });
    const std::string cut = "CtrlPanel: " + kLongText.substr(0, 258 - 11);
    EXPECT_THAT(process.Log(), testing::MatchesRegex(kHeader + cut + kLongText.substr(0, 258) +
                                                     "CtrlPanel: \\|\n" + kClosing));
}

TEST_F(Log, LineOf258CharactersKeepsItsEnd) {
    process.Run([this] {
        OpenPanelLog();
        LogPrintf("%s\n", kLongText.substr(0, 258 - 12).c_str());
    });
    EXPECT_THAT(process.Log(),
                testing::MatchesRegex(kHeader + "CtrlPanel: " + kLongText.substr(0, 246) + "\n" + kClosing));
}

TEST_F(Log, FormatIsCutTo258CharactersWithThePrefix) {
    const std::string format = kLongText.substr(0, 258 - 11) + "%s\n";
    process.Run([this, &format] {
        OpenPanelLog();
        LogPrintf(format.c_str(), "never");
    });
    EXPECT_THAT(process.Log(),
                testing::MatchesRegex(kHeader + "CtrlPanel: " + kLongText.substr(0, 247) + kClosing));
}

TEST_F(Log, FormatCutWithinAConversionEndsBeforeIt) {
    const std::string format = kLongText.substr(0, 258 - 12) + "%s\n";
    process.Run([this, &format] {
        OpenPanelLog();
        LogPrintf(format.c_str(), "never");
    });
    EXPECT_THAT(process.Log(),
                testing::MatchesRegex(kHeader + "CtrlPanel: " + kLongText.substr(0, 246) + kClosing));
}

TEST_F(Log, PrefixIsAPartOfTheFormat) {
    process.Run([] {
        OpenLog("%d%% ", kVersion, 0, nullptr);
        const std::string format = "line %d\n";
        LogPrintf(format.c_str(), 1, 2);
    });
    EXPECT_EQ(process.Input(), "1% line 2\n");
}

TEST_F(Log, PrefixIsCopied) {
    process.Run([] {
        std::string prefix = "one: ";
        OpenLog(prefix.c_str(), kVersion, 0, nullptr);
        prefix = "two: ";
        LogPrintf("line\n");
    });
    EXPECT_EQ(process.Input(), "one: line\n");
}

TEST_F(Log, RawLinesHaveNoPrefix) {
    process.Run([this] {
        OpenPanelLog();
        LogPrintfRaw("raw %d\n", 1);
        LogPrintfRawIf(1, "raw %d\n", 2);
    });
    EXPECT_THAT(process.Log(), testing::MatchesRegex(kHeader + "raw 1\nraw 2\n" + kClosing));
}

TEST_F(Log, ConditionalLinesAreWrittenForAnyByteButZero) {
    process.Run([this] {
        OpenPanelLog();
        LogPrintfIf(0, "no\n");
        LogPrintfRawIf(0, "no\n");
        LogPrintfIf(1, "one\n");
        LogPrintfIf(0x80, "two\n");
    });
    EXPECT_THAT(process.Log(),
                testing::MatchesRegex(kHeader + "CtrlPanel: one\nCtrlPanel: two\n" + kClosing));
}

TEST_F(Log, EachLineIsOneWrite) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
    process.Run([&ends] {
        dup2(ends[1], 1);
        OpenLog(kPrefix, kVersion, kLogAppend, "/none/none.log");
        LogPrintf("one %d %s\n", 1, "two");
        LogPrintf("three\n");
    });
    char packet[300];
    const ssize_t length = recv(ends[0], packet, sizeof packet, MSG_DONTWAIT);
    EXPECT_EQ(std::string(packet, length < 0 ? 0 : static_cast<std::size_t>(length)),
              "CtrlPanel: one 1 two\n");
    close(ends[0]);
    close(ends[1]);
}

TEST_F(Log, ResultIsThatOfTheWrite) {
    EXPECT_EQ(process.Run([this] {
        OpenPanelLog();
        const bool written = LogPrintf("%s\n", "four") == 11 + 5 && LogPrintfRaw("four\n") == 5 &&
                             LogPrintfIf(1, "x") == 12 && LogPrintfRawIf(1, "x") == 1 &&
                             LogPrintf("%s", kLongText.c_str()) == 258;
        const bool left = LogPrintfIf(0, "x") == 0 && LogPrintfRawIf(0, "x") == 0;
        std::exit(written && left ? 0 : 1);
    }),
              0);
}

TEST_F(Log, ResultOfAFailedWriteIsMinusOne) {
    EXPECT_EQ(process.Run([] {
        close(0);
        std::exit(LogPrintf("line\n") == -1 && LogPrintfRaw("line\n") == -1 ? 0 : 1);
    }),
              0);
}

TEST_F(Log, ResultWhenClosedIsTheFormattedLength) {
    EXPECT_EQ(process.Run([this] {
        OpenPanelLog();
        CloseLog();
        std::exit(LogPrintf("%s\n", "four") == 5 && LogPrintfRaw("%d", 10) == 2 ? 0 : 1);
    }),
              0);
}

TEST_F(Log, AShortWriteIsNotContinued) {
    EXPECT_EQ(process.Run([this] {
        OpenPanelLog();
        const auto size = static_cast<rlim_t>(std::filesystem::file_size(process.LogPath()));
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit = {size + 4, RLIM_INFINITY};
        setrlimit(RLIMIT_FSIZE, &limit);
        const int result = LogPrintfRaw("longer\n");
        std::exit(result == 4 ? 0 : 1);
    }),
              0);
    EXPECT_THAT(process.Log(), testing::MatchesRegex(kHeader + "long"));
}

TEST_F(Log, LineToAGivenDescriptorHasNoPrefix) {
    process.Run([this] {
        OpenPanelLog();
        const int output = 1;
        LogPrintfTo(&output, "line %d\n", 1);
    });
    EXPECT_EQ(process.Output(), "line 1\n");
    EXPECT_THAT(process.Log(), testing::MatchesRegex(kHeader + kClosing));
}

TEST_F(Log, LineToDescriptorMinusOneIsOnlyFormatted) {
    EXPECT_EQ(process.Run([] {
        const int none = -1;
        std::exit(LogPrintfTo(&none, "%s", "four") == 4 ? 0 : 1);
    }),
              0);
    EXPECT_EQ(process.Output() + process.Input(), "");
}

TEST_F(Log, ErrnoIsLeftAsItWas) {
    EXPECT_EQ(process.Run([] {
        close(0);
        const int none = 77;
        errno = ENOTCONN;
        LogPrintf("line\n");
        LogPrintfRaw("line\n");
        LogPrintfTo(&none, "line\n");
        std::exit(errno == ENOTCONN ? 0 : 1);
    }),
              0);
}

TEST_F(Log, LinesAreWhatTheirFilterMakesOfThem) {
    process.Run([this] {
        OpenPanelLog();
        SetLogFilter(PrintableLines);
        LogPrintf("%s\n",
                  "a\x1b\u009b\u202e"
                  "b");
        LogPrintfRaw("%s\n", "c\x07");
        SetLogFilter(nullptr);
        LogPrintf("%s\n", "d\x07");
    });
    EXPECT_THAT(process.Log(), testing::HasSubstr("CtrlPanel: a???b\nc?\nCtrlPanel: d\x07\n"));
}

TEST(Assertion, PrintsItsLineAndAborts) {
    EXPECT_EXIT(AssertionFailed(kAssertionFormat, "shared/System/svModule", 4000000000U, "sInited"),
                testing::KilledBySignal(SIGABRT),
                testing::StrEq("shared/System/svModule:4000000000: failed assertion `sInited'\n"));
}

TEST(Assertion, FlushesABufferedStandardError) {
    const auto run = [] {
        std::setvbuf(stderr, nullptr, _IOFBF, BUFSIZ);
        AssertionFailed(kAssertionFormat, "file", 1, "FALSE");
    };
    EXPECT_EXIT(run(), testing::KilledBySignal(SIGABRT),
                testing::StrEq("file:1: failed assertion `FALSE'\n"));
}

}  // namespace
}  // namespace vexil
