#include "platform/linux/preferences/SummedPreferenceDomains.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "config/DriverPreferences.h"
#include "shared/System/svLog.h"
#include "tests/platform_linux/PreferenceFolder.h"

namespace vexil {
namespace {

using testing::HasSubstr;

bool diskIsFull = false;

ssize_t WriteUnlessFull(int file, const void* bytes, std::size_t count) {
    if (diskIsFull) {
        errno = ENOSPC;
        return -1;
    }
    return write(file, bytes, count);
}

DurabilityCalls CallsOfADisk() {
    DurabilityCalls calls = SystemDurabilityCalls();
    calls.write = WriteUnlessFull;
    return calls;
}

class SummedPreferences : public testing::Test {
  protected:
    SummedPreferences() {
        OpenLog("", "", kLogCreate, LogPath().c_str());
        header = Log().size();
        domains.SetFailureCame([this] { ++failuresCame; });
    }
    ~SummedPreferences() override { diskIsFull = false; }

    std::string LogPath() const { return folder.root + "/log"; }
    // What was written by the test.
    std::string Log() const { return folder.ContentOf(LogPath()).substr(header); }

    void Apply() {
        DriverConfiguration configuration;
        DriverPreferences(domains).SaveConfiguration(kMaxPorts, configuration);
    }

    PreferenceFolder folder;
    SummedPreferenceDomains domains{folder.paths, CallsOfADisk()};
    int failuresCame = 0;
    std::size_t header = 0;
};

TEST_F(SummedPreferences, AConfigurationThatCannotBeStoredIsOneLineWithTheSum) {
    diskIsFull = true;
    Apply();
    EXPECT_EQ(Log(), "");
    EXPECT_EQ(failuresCame, 1);
    EXPECT_THAT(domains.EndSum(), HasSubstr("No space left on device (28)"));
    EXPECT_THAT(Log(), HasSubstr("No space left on device (28)"));
    EXPECT_THAT(Log(), testing::EndsWith("(325 values)\n"));
    EXPECT_EQ(Log().find('\n'), Log().size() - 1);
}

TEST_F(SummedPreferences, AConfigurationThatIsStoredIsNoFailure) {
    Apply();
    EXPECT_EQ(failuresCame, 0);
    EXPECT_EQ(domains.EndSum(), "");
    EXPECT_EQ(Log(), "");
}

TEST_F(SummedPreferences, ASumBeginsAnewAfterItsEnd) {
    diskIsFull = true;
    Apply();
    domains.EndSum();
    EXPECT_EQ(domains.EndSum(), "");
    Apply();
    EXPECT_EQ(failuresCame, 2);
    EXPECT_NE(domains.EndSum(), "");
}

TEST_F(SummedPreferences, SettingsThatAreStoredAfterTheyCouldNotBeAreToldOnce) {
    int storedAgain = 0;
    domains.SetStoredAgain([&storedAgain] { ++storedAgain; });
    diskIsFull = true;
    Apply();
    ASSERT_NE(domains.EndSum(), "");
    diskIsFull = false;
    DriverPreferences(domains).WriteCache("abc", 3);
    EXPECT_EQ(storedAgain, 0) << "the list of computers is nobody's setting";
    Apply();
    EXPECT_EQ(storedAgain, 1);
}

TEST_F(SummedPreferences, TheListOfComputersAloneIsALineAndNoReason) {
    diskIsFull = true;
    DriverPreferences(domains).WriteCache("abc", 3);
    EXPECT_EQ(domains.EndSum(), "");
    EXPECT_THAT(Log(), testing::EndsWith("(1 value)\n"));
}

TEST_F(SummedPreferences, TheEndOfALineStaysWhereThePathIsLong) {
    folder.paths.anyUserPreferences += "/" + std::string(200, 'p');
    SummedPreferenceDomains elsewhere(folder.paths, CallsOfADisk());
    diskIsFull = true;
    DriverPreferences(elsewhere).WriteCache("abc", 3);
    elsewhere.EndSum();
    EXPECT_THAT(Log(), testing::EndsWith("(1 value)\n"));
}

}  // namespace
}  // namespace vexil
