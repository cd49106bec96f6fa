// A program that saves is killed at each of its system calls: the next opening finds the old or the new text,
// whole. And the calls come in the order that makes this true of a loss of power as well, which killing
// cannot show.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <sstream>

#include "config/RewriteCopy.h"
#include "tests/config/IniFixture.h"
#include "tests/doubles/LogCapture.h"

namespace vexil::test {
namespace {

using ::testing::ElementsAre;

// Every call by which the program opens, reads, changes or names files.
constexpr const char* kCalls =
    "openat,open,creat,read,write,pwrite64,ftruncate,truncate,lseek,fchmod,fchown,flock,fsync,fdatasync,"
    "rename,renameat,"
    "renameat2,link,linkat,unlink,unlinkat,close,dup2,dup3";
constexpr const char* kFileName = "settings.vexil3";
constexpr int kKeys =
    600;  // more text than a stream holds back, so that the file is written in several calls

int RunProgram(const std::vector<std::string>& words) {
    const pid_t child = ::fork();
    if (child == 0) {
        // A leak check cannot run in a traced process.
        ::setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
        std::vector<char*> arguments;
        arguments.reserve(words.size() + 1);
        for (const std::string& word : words) {
            arguments.push_back(const_cast<char*>(word.c_str()));
        }
        arguments.push_back(nullptr);
        ::execvp(arguments[0], arguments.data());
        ::_exit(127);
    }
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

std::string TextWith(const std::string& value) {
    std::string text = "; by hand\n[keys]\n";
    for (int key = 0; key < kKeys; ++key) {
        text += "key" + std::to_string(key) + "=" + value + "\n";
    }
    return text;
}

class SaveCrashTest : public IniFixture {
  protected:
    void SetUp() override {
        if (RunProgram({"strace", "-o", trace, "-e", "trace=none", "true"}) != 0) {
            GTEST_SKIP() << "no process can be traced here";
        }
    }

    // Runs the program traced; its exit status, or 128 and the signal that ended it.
    int RunTraced(const std::string& options, std::vector<std::string> command) {
        std::vector<std::string> words = {"strace", "-f", "-y", "-s", "8", "-o", trace};
        std::istringstream list(options);
        for (std::string option; list >> option;) {
            words.insert(words.end(), {"-e", option});
        }
        words.push_back(VEXIL_SAVE_PROGRAM);
        words.insert(words.end(), command.begin(), command.end());
        return RunProgram(words);
    }

    // How often the program makes each call.
    std::map<std::string, int> CountCalls(const std::vector<std::string>& command) {
        EXPECT_EQ(RunTraced(std::string("trace=") + kCalls, command), 0);
        std::map<std::string, int> counts;
        std::istringstream lines(ReadText(trace));
        // A line is the process number, blanks, and the call with its arguments.
        for (std::string process, line; lines >> process >> std::ws && std::getline(lines, line);) {
            if (const std::size_t end = line.find('('); end != std::string::npos) {
                ++counts[line.substr(0, end)];
            }
        }
        return counts;
    }

    // Puts the folder into the state before the save.
    void Prepare(const std::map<std::string, std::string>& files) {
        for (const std::string& name : folder.Names()) {
            std::filesystem::remove(folder / name);
        }
        for (const auto& [name, text] : files) {
            WriteText(folder / name, text);
            ::chmod((folder / name).c_str(), 0600);
        }
    }

    std::map<std::string, std::string> FolderContent() {
        std::map<std::string, std::string> files;
        for (const std::string& name : folder.Names()) {
            files[name] = ReadText(folder / name);
        }
        return files;
    }

    // Kills the command at each of its calls, starting from the files of `before` each time, and opens the
    // file: its text must be one of `allowed`.
    void KillEverywhere(const std::map<std::string, std::string>& before,
                        const std::vector<std::string>& command, const std::vector<std::string>& allowed) {
        Prepare(before);
        int kills = 0;
        for (const auto& [call, count] : CountCalls(command)) {
            for (int number = 1; number <= count; ++number) {
                Prepare(before);
                std::string at = " inject=" + call;
                at.append(":signal=KILL:when=").append(std::to_string(number));
                EXPECT_EQ(RunTraced(std::string("trace=").append(call).append(at), command), 128 + SIGKILL)
                    << at;
                ++kills;
                const auto killed = FolderContent();
                const std::string raw = killed.at(kFileName);
                const bool whole = std::find(allowed.begin(), allowed.end(), raw) != allowed.end();
                if (!whole) {
                    cutShort = killed;
                }
                ASSERT_TRUE(ini.Open(path.c_str())) << at;
                const std::string opened = Saved();
                ++texts[opened];
                EXPECT_NE(std::find(allowed.begin(), allowed.end(), opened), allowed.end()) << at;
                EXPECT_THAT(folder.Names(), ElementsAre(kFileName)) << at;
            }
        }
        EXPECT_GT(kills, 20);
    }

    TemporaryFolder traces;
    const std::string trace = traces / "trace";
    std::map<std::string, int> texts;             // how often each text was found
    std::map<std::string, std::string> cutShort;  // what a kill in the middle of the rewrite left
    LogCapture log;
};

TEST_F(SaveCrashTest, KilledAtAnyCallTheFileIsOldOrNew) {
    const std::string oldText = TextWith("old value");
    const std::string newText = TextWith("another, longer value");
    KillEverywhere({{kFileName, oldText}}, {"save", path, "another, longer value"}, {oldText, newText});
    EXPECT_GT(texts[oldText], 0);
    EXPECT_GT(texts[newText], 0);
    EXPECT_FALSE(cutShort.empty()) << "no kill hit the rewrite itself";
}

TEST_F(SaveCrashTest, KilledWhileItCompletesASaveItIsStillNew) {
    const std::string oldText = TextWith("old value");
    const std::string newText = TextWith("another, longer value");
    Prepare({{kFileName, oldText}});
    const std::string kill = "inject=write:signal=KILL:when=";
    for (int number = 1; cutShort.empty() && number < 10; ++number) {
        Prepare({{kFileName, oldText}});
        ASSERT_EQ(RunTraced("trace=write " + kill + std::to_string(number),
                            {"save", path, "another, longer value"}),
                  128 + SIGKILL);
        if (FolderContent().at(kFileName).size() < newText.size() &&
            FolderContent().at(kFileName) != oldText) {
            cutShort = FolderContent();
        }
    }
    ASSERT_FALSE(cutShort.empty());
    KillEverywhere(cutShort, {"open", path}, {newText});
}

// The steps of a save, as its trace shows them; calls that repeat a step are one.
class SaveOrderTest : public SaveCrashTest {
  protected:
    std::vector<std::string> Steps(const std::string& leftOut) {
        Prepare({{kFileName, TextWith("old value")}});
        std::vector<std::string> command = {"save", path, "another, longer value"};
        if (!leftOut.empty()) {
            command.push_back(leftOut);
        }
        EXPECT_EQ(RunTraced(std::string("trace=") + kCalls, command), 0);
        const std::string file = std::filesystem::canonical(folder.Path()) / kFileName;
        const std::string copy = std::filesystem::canonical(folder.Path()) / RewriteCopyName(kFileName);
        std::vector<std::string> steps;
        std::istringstream lines(ReadText(trace));
        for (std::string line; std::getline(lines, line);) {
            const auto has = [&line](const std::string& part) {
                return line.find(part) != std::string::npos;
            };
            std::string step;
            if (has(" write(") && has("<" + copy + ">")) {
                step = "write copy";
            } else if (has("fdatasync(") && has("<" + copy + ">")) {
                step = "sync copy";
            } else if (has("fsync(") && has("<" + folder.Path().string() + ">")) {
                step = "sync folder";
            } else if (has("O_TRUNC") && has("\"" + path + "\"")) {
                step = "empty file";
            } else if (has(" write(") && has("<" + file + ">")) {
                step = "write file";
            } else if (has("fdatasync(") && has("<" + file + ">")) {
                step = "sync file";
            } else if (has("unlinkat(") && has("\"" + RewriteCopyName(kFileName) + "\"")) {
                step = "remove copy";
            }
            if (!step.empty() && (steps.empty() || steps.back() != step)) {
                steps.push_back(step);
            }
        }
        return steps;
    }

    const std::vector<std::string> safe = {"write copy", "sync copy", "sync folder", "empty file",
                                           "write file", "sync file", "remove copy", "sync folder"};
};

TEST_F(SaveOrderTest, TheStepsComeInTheSafeOrder) {
    EXPECT_EQ(Steps(""), safe);
}

TEST_F(SaveOrderTest, LeavingOutAnyStepIsNoticed) {
    for (const char* step :
         {"sync-copy", "sync-folder", "empty-file", "write-file", "sync-file", "remove-copy"}) {
        EXPECT_NE(Steps(step), safe) << step;
    }
}

}  // namespace
}  // namespace vexil::test
