// Files that cannot be parsed: written in place by another program at this moment, or damaged.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <thread>

#include "config/DriverPreferences.h"
#include "shared/System/svLog.h"
#include "tests/platform_linux/PreferenceFolder.h"

namespace vexil {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// More than kSettleTime.
constexpr milliseconds kLongEnough{300};

class PlistUnparsableTest : public testing::Test {
  protected:
    void PutNumber(int number) const { folder.PutList(Number(number)); }
    static std::string Number(int number) {
        return "<key>A</key><integer>" + std::to_string(number) + "</integer>";
    }

    // Completes the file while `work` goes on. Where the machine was too slow for that, once more.
    void CompleteDuring(const std::function<void()>& begin, const std::function<void()>& complete,
                        const std::function<void()>& work) const {
        fs::create_directories(folder.paths.anyUserPreferences);
        for (int attempt = 0; attempt < 50; ++attempt) {
            for (const std::string& name : folder.OtherNames()) {
                fs::remove(name);
            }
            begin();
            const auto start = Clock::now();
            Clock::time_point end;
            std::thread writer([&] {
                std::this_thread::sleep_for(milliseconds(60));
                complete();
                end = Clock::now();
            });
            work();
            writer.join();
            if (end - start < kSettleTime - milliseconds(50)) {
                return;
            }
        }
        FAIL() << "the machine has no time for this test";
    }

    PreferenceFolder folder;
    TestDomain waiting{folder};
    TestDomain driver{folder, SystemDurabilityCalls(), Unparsable::GoOnWith};
};

TEST_F(PlistUnparsableTest, AFileThatIsWrittenInPlaceIsWaitedFor) {
    const std::string whole = PreferenceFolder::List(Number(2));
    for (const std::size_t length : {std::size_t{0}, whole.size() / 2}) {
        CompleteDuring([&] { folder.Put(whole.substr(0, length)); }, [&] { folder.Put(whole); },
                       [this] { EXPECT_TRUE(waiting.Synchronize()); });
        EXPECT_TRUE(waiting.Holds("A", 2));
        EXPECT_TRUE(folder.OtherNames().empty());
    }
}

TEST_F(PlistUnparsableTest, AWriteWaitsForItToo) {
    PutNumber(1);
    EXPECT_TRUE(waiting.Synchronize());
    CompleteDuring([&] { folder.Put("<plist"); }, [this] { PutNumber(2); },
                   [this] { EXPECT_TRUE(waiting.Store("B", MakePropertyNumber(3))); });
    EXPECT_TRUE(TestDomain(folder).Holds("A", 2));
    EXPECT_TRUE(TestDomain(folder).Holds("B", 3));
}

TEST_F(PlistUnparsableTest, ADamagedOneIsSetAsideAfterAQuarterOfASecond) {
    folder.Put("garbage");
    const auto start = Clock::now();
    EXPECT_TRUE(waiting.Synchronize());
    EXPECT_GE(Clock::now() - start, kSettleTime);
    EXPECT_EQ(folder.OtherNames().size(), 1U);
}

TEST_F(PlistUnparsableTest, TheDriverGoesOnWithWhatItHas) {
    PutNumber(1);
    EXPECT_TRUE(driver.Synchronize());
    EXPECT_FALSE(driver.domains.LookAgainIn());
    folder.Put("");
    EXPECT_TRUE(driver.Synchronize());
    EXPECT_TRUE(driver.Holds("A", 1));
    ASSERT_TRUE(driver.domains.LookAgainIn());
    EXPECT_LE(*driver.domains.LookAgainIn(), kSettleTime);
    PutNumber(2);
    EXPECT_TRUE(driver.Synchronize());
    EXPECT_TRUE(driver.Holds("A", 2));
    EXPECT_FALSE(driver.domains.LookAgainIn());
    EXPECT_TRUE(folder.OtherNames().empty());
}

TEST_F(PlistUnparsableTest, TheDriverSetsItAsideWhenTheTimeIsOver) {
    PutNumber(1);
    EXPECT_TRUE(driver.Synchronize());
    folder.Put("garbage");
    EXPECT_TRUE(driver.Synchronize());
    EXPECT_EQ(folder.Content(), "garbage");
    std::this_thread::sleep_for(kLongEnough);
    EXPECT_EQ(driver.domains.LookAgainIn(), milliseconds(0));
    EXPECT_TRUE(driver.Synchronize());
    EXPECT_EQ(driver.Read("A"), nullptr);
    EXPECT_FALSE(driver.domains.LookAgainIn());
    ASSERT_EQ(folder.OtherNames().size(), 1U);
    EXPECT_EQ(PreferenceFolder::ContentOf(folder.OtherNames().front()), "garbage");
}

TEST_F(PlistUnparsableTest, TheDriverWritesNothingMeanwhile) {
    folder.Put("garbage");
    EXPECT_FALSE(driver.Store("A", MakePropertyNumber(1)));
    EXPECT_EQ(folder.Content(), "garbage");
    PutNumber(2);
    EXPECT_TRUE(driver.Store("B", MakePropertyNumber(1)));
    EXPECT_TRUE(TestDomain(folder).Holds("A", 2));
}

TEST_F(PlistUnparsableTest, TheDriverLeavesItToAWriterWhoHoldsTheLock) {
    PutNumber(1);
    EXPECT_TRUE(driver.Store("A", MakePropertyNumber(2)));
    Descriptor holder(open((folder.File() + ".lock").c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(flock(holder.Number(), LOCK_EX), 0);
    folder.Put("garbage");
    EXPECT_TRUE(driver.Synchronize());
    std::this_thread::sleep_for(kLongEnough);
    EXPECT_TRUE(driver.Synchronize());
    EXPECT_TRUE(driver.Holds("A", 2));
    EXPECT_TRUE(driver.domains.LookAgainIn());
    EXPECT_EQ(folder.Content(), "garbage");
    PutNumber(3);
    holder.Close();
    EXPECT_TRUE(driver.Synchronize());
    EXPECT_TRUE(driver.Holds("A", 3));
}

// What the older generation stored is read and never changed, whatever it is.
TEST_F(PlistUnparsableTest, ADamagedFileOfTheOlderDomainStaysIsLoggedOnceAndReadsAsEmpty) {
    const std::string older =
        folder.paths.anyUserPreferences + "/" + kOlderDriverDomain + "." + folder.paths.hostId + ".plist";
    const std::string log = folder.root + "/log";
    fs::create_directories(folder.paths.anyUserPreferences);
    std::ofstream(older) << "garbage";
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        OpenLog("", "", kLogAppend, log.c_str());
        PlistPreferenceDomains domains(folder.paths);
        const bool read = domains.Synchronize(kOlderDriverDomain, kTestUser, kTestHost) &&
                          domains.Synchronize(kOlderDriverDomain, kTestUser, kTestHost);
        const bool isEmpty =
            domains.CopyValue("MiscOptions", kOlderDriverDomain, kTestUser, kTestHost) == nullptr;
        _exit(read && isEmpty ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(PreferenceFolder::ContentOf(older), "garbage");
    EXPECT_EQ(folder.OtherNames(), std::vector<std::string>{older}) << "no lock, nothing set aside";
    const std::string lines = PreferenceFolder::ContentOf(log);
    const std::size_t first = lines.find("Preferences not used: ");
    EXPECT_NE(first, std::string::npos) << lines;
    EXPECT_EQ(lines.find("Preferences", first + 1), std::string::npos) << lines;
}

TEST_F(PlistUnparsableTest, TheDriverLooksNoFurtherWhenTheFileIsGoneAgain) {
    EXPECT_TRUE(driver.Synchronize());
    folder.Put("garbage");
    EXPECT_TRUE(driver.Synchronize());
    ASSERT_TRUE(driver.domains.LookAgainIn());
    fs::remove(folder.File());
    EXPECT_TRUE(driver.Synchronize());
    EXPECT_FALSE(driver.domains.LookAgainIn());
    EXPECT_TRUE(driver.Store("A", MakePropertyNumber(1)));
}

}  // namespace
}  // namespace vexil
