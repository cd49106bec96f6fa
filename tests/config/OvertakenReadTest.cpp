// A file that another program saves while it is being opened: what is read is a whole text, or nothing is
// opened.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <thread>
#include <utility>

#include "config/SafeRewrite.h"
#include "tests/config/IniFixture.h"
#include "tests/doubles/LogCapture.h"

namespace vexil::test {
namespace {

using ::testing::HasSubstr;

constexpr const char* kOld = "[a]\nx=11111\ny=11111\n";
constexpr const char* kNew = "[a]\nx=22222\ny=22222\nz=22222\n";
constexpr const char* kNewOfTheSameLength = "[a]\nx=22222\ny=22222\n";

// What the other program does before, in the midst of and after the first reading.
struct Meanwhile {
    std::function<void()> before;
    std::function<void()> inTheMidst;
    std::function<void()> after;
};
Meanwhile meanwhile;

void Once(std::function<void()>& work) {
    if (const auto once = std::exchange(work, {})) {
        once();
    }
}

std::size_t ReadMeanwhile(void* text, std::size_t size, std::size_t count, std::FILE* stream) {
    constexpr std::size_t kFirst = 9;  // within the value of x
    std::setvbuf(stream, nullptr, _IONBF, 0);
    Once(meanwhile.before);
    std::size_t length = std::fread(text, size, kFirst, stream);
    Once(meanwhile.inTheMidst);
    length += std::fread(static_cast<char*>(text) + length, size, count - length, stream);
    Once(meanwhile.after);
    return length;
}

class OvertakenReadTest : public IniFixture {
  protected:
    OvertakenReadTest() {
        calls.readText = ReadMeanwhile;
        WriteText(path, kOld);
        std::filesystem::last_write_time(path, longAgo);
    }
    ~OvertakenReadTest() override { meanwhile = {}; }

    void BeginSave(const char* text) {
        ASSERT_TRUE(other.Begin(path.c_str(), text));
        WriteText(path, "");
    }
    void EndSave(const char* text) {
        WriteText(path, text);
        other.Commit();
    }
    void ExpectRead(const std::string& text) {
        IniFile file(calls);
        ASSERT_TRUE(file.Open(path.c_str()));
        std::string read;
        for (const svString& line : file.AllLines()) {
            read += std::string(line.c_str()) + "\n";
        }
        EXPECT_EQ(read, text);
    }

    // The clock of files ticks every few milliseconds.
    const std::filesystem::file_time_type longAgo =
        std::filesystem::file_time_type::clock::now() - std::chrono::hours(1);
    SafeRewrite other{kSystemRewriteCalls};
    RewriteCalls calls = kSystemRewriteCalls;
    LogCapture log;
};

TEST_F(OvertakenReadTest, AFileThatASaveHasEmptiedIsReadWhenTheSaveIsDone) {
    std::thread end;
    meanwhile.before = [&] {
        BeginSave(kNew);
        end = std::thread([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            EndSave(kNew);
        });
    };
    ExpectRead(kNew);
    end.join();
}

TEST_F(OvertakenReadTest, AFileThatWasEmptyForTheTimeOfTheReadingIsReadAgain) {
    meanwhile.before = [&] { BeginSave(kNew); };
    meanwhile.after = [&] { EndSave(kNew); };
    ExpectRead(kNew);
}

TEST_F(OvertakenReadTest, ASaveBetweenTwoTicksOfTheClockOfFilesIsNoticed) {
    meanwhile.before = [&] { BeginSave(kNew); };
    meanwhile.after = [&] {
        EndSave(kNew);
        std::filesystem::last_write_time(path, longAgo);
    };
    ExpectRead(kNew);
}

TEST_F(OvertakenReadTest, HalvesOfTwoTextsOfOneLengthAreNotTakenForAText) {
    meanwhile.inTheMidst = [&] {
        BeginSave(kNewOfTheSameLength);
        EndSave(kNewOfTheSameLength);
    };
    ExpectRead(kNewOfTheSameLength);
}

TEST_F(OvertakenReadTest, AFileThatIsSavedAgainAndAgainIsNotOpened) {
    // Each reading finds a save that was cut short, which the next one completes.
    calls.readText = [](void* text, std::size_t size, std::size_t count, std::FILE* stream) {
        meanwhile.before();
        return std::fread(text, size, count, stream);
    };
    meanwhile.before = [&] { SafeRewrite(kSystemRewriteCalls).Begin(path.c_str(), kNew); };
    IniFile file(calls);
    EXPECT_FALSE(file.Open(path.c_str()));
    EXPECT_FALSE(file.IsOpen());
    EXPECT_THAT(log.Text(), HasSubstr("other programs are saving the file"));
}

// A folder can be opened, and not be read.
std::size_t ReadTheBeginningOnly(void* text, std::size_t size, std::size_t count, std::FILE* stream) {
    std::setvbuf(stream, nullptr, _IONBF, 0);
    std::size_t length = std::fread(text, size, std::string("[a]\n").size(), stream);
    const int file = ::dup(::fileno(stream));
    const int folder = ::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ::dup2(folder, ::fileno(stream));
    length += std::fread(static_cast<char*>(text) + length, size, count - length, stream);
    ::dup2(file, ::fileno(stream));
    ::close(folder);
    ::close(file);
    return length;
}

TEST_F(OvertakenReadTest, AFileThatCouldNotBeReadToItsEndIsOpenedAndNotSaved) {
    calls.readText = ReadTheBeginningOnly;
    IniFile file(calls);
    ASSERT_TRUE(file.Open(path.c_str()));
    EXPECT_EQ(file.AllLines().size(), 1U);
    file.SetValue("a", "x", "3");
    EXPECT_FALSE(file.Close());
    EXPECT_EQ(ReadText(path), kOld);
    EXPECT_THAT(log.Text(), HasSubstr("not saved, since the file could not be read to its end"));
}

}  // namespace
}  // namespace vexil::test
