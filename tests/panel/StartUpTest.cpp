// The whole run from the program's first argument on. Every run is a process of its own, as the log opens
// once.
//
// The log's path is fixed, so these tests want a machine without that folder: they never write into it.
#include "panel/StartUp.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <new>
#include <string>

#include "config/DriverPreferences.h"
#include "shared/System/svLog.h"
#include "shared/System/svModule.h"
#include "tests/doubles/FaultyDesktop.h"
#include "tests/doubles/FaultyWidgets.h"
#include "tests/doubles/MemoryDesktop.h"
#include "tests/doubles/MemoryDialogs.h"
#include "tests/doubles/MemoryHostClock.h"
#include "tests/doubles/MemoryKernelControl.h"
#include "tests/doubles/MemoryPreferenceDomains.h"
#include "tests/doubles/MemoryRestarter.h"
#include "tests/doubles/MemoryWidgets.h"
#include "tests/scenarios/TempFolder.h"

namespace {

constexpr int kSkipped = 77;
bool noObjects = false;

}  // namespace

// Takes the place of the library's, to let the panel object not be had. The memory comes from the throwing
// form, so that the usual operator delete frees it.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    if (noObjects) {
        return nullptr;
    }
    try {
        return ::operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

namespace vexil {
namespace {

class StartUp : public testing::Test {
  protected:
    StartUp() { desktop.loopsThatEndAtOnce = 1; }

    void StoreOptions(std::int32_t options, const char* domain = kDriverDomain) {
        preferences.SetValue("MiscOptions", MakePropertyNumber(options), domain,
                             UserScope::kCFPreferencesAnyUser, HostScope::kCFPreferencesCurrentHost);
        preferences.Synchronize(domain, UserScope::kCFPreferencesAnyUser,
                                HostScope::kCFPreferencesCurrentHost);
    }

    // Runs the panel in a process of its own, then `look` there, with descriptors 0 and 1 led into files.
    // Gives the exit status, 0 to 255.
    int Run(const std::function<void()>& look = {}) {
        const pid_t child = fork();
        if (child == 0) {
            for (const auto& [descriptor, name] : {std::pair{0, "zero"}, std::pair{1, "out"}}) {
                const int file = open(folder.Path(name).c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
                dup2(file, descriptor);
            }
            const int status = RunPanel("/opt/vexil/Vexil III.app/Contents/MacOS/vexil3",
                                        {widgets, dialogs, desktop, restarter, clock, driver, preferences});
            if (look) {
                look();
            }
            _exit(testing::Test::HasFailure() ? 99 : status & 0xff);
        }
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status));
        return WEXITSTATUS(status);
    }
    std::string StandardOutput() { return folder.Read("out"); }
    std::string DescriptorZero() { return folder.Read("zero"); }

    MemoryWidgets memoryWidgets;
    FaultyWidgets widgets{memoryWidgets};
    MemoryDialogs dialogs;
    MemoryDesktop memoryDesktop;
    FaultyDesktop desktop{memoryDesktop};
    MemoryRestarter restarter;
    MemoryHostClock clock;
    MemoryKernelControl driver;
    MemoryPreferenceDomains preferences;
    TempFolder folder;
};

TEST_F(StartUp, NormalRunEndsWith0) {
    EXPECT_EQ(Run(), 0);
}

TEST_F(StartUp, WithoutStoredOptionsLoggingIsOn) {
    driver.driverPresent = false;
    EXPECT_EQ(Run([] { EXPECT_TRUE(LogIsOpen()); }), 0);
    EXPECT_EQ(StandardOutput().rfind("CtrlPanel: Cannot find service id; error 2.\n", 0), 0U)
        << StandardOutput();
}

TEST_F(StartUp, LogThatCannotBeOpenedGoesToStandardOutputWithoutAHeader) {
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(StandardOutput().find("loaded at"), std::string::npos);
}

TEST_F(StartUp, StoredLoggingBitTurnsLoggingOn) {
    StoreOptions(4);
    driver.driverPresent = false;
    EXPECT_EQ(Run(), 0);
    EXPECT_NE(StandardOutput().find("CtrlPanel: "), std::string::npos);
}

TEST_F(StartUp, ClearedLoggingBitLeavesTheLogUnopenedAndItsLinesOnDescriptor0) {
    StoreOptions(3);
    driver.driverPresent = false;
    EXPECT_EQ(Run([] { EXPECT_FALSE(LogIsOpen()); }), 0);
    EXPECT_EQ(StandardOutput(), "");
    EXPECT_EQ(DescriptorZero().rfind("Cannot find service id; error 2.\n", 0), 0U) << DescriptorZero();
}

TEST_F(StartUp, LoggingBitOfTheOlderDomainCountsWhenThereIsNoOther) {
    StoreOptions(3, kOlderDriverDomain);
    EXPECT_EQ(Run([] { EXPECT_FALSE(LogIsOpen()); }), 0);
}

TEST_F(StartUp, LoggingBitOfTheCurrentDomainComesFirst) {
    StoreOptions(3, kOlderDriverDomain);
    StoreOptions(4);
    EXPECT_EQ(Run([] { EXPECT_TRUE(LogIsOpen()); }), 0);
}

TEST_F(StartUp, IdentityIsThereFromTheFirstArgument) {
    EXPECT_EQ(Run([&] {
                  EXPECT_EQ(svModule::CheckInitialised(), 0);
                  EXPECT_STREQ(svModule::ExecutableDirectory().c_str(),
                               "/opt/vexil/Vexil III.app/Contents/MacOS/");
                  svModule::SetPreferenceInteger(preferences, "probe", 1, true);
                  EXPECT_EQ(preferences.Changes().back().domain.application, "com.sonavert.Vexil III.3");
              }),
              0);
}

TEST_F(StartUp, PanelThatCannotBeMadeEndsWithMinus1) {
    noObjects = true;
    const int status = Run();
    noObjects = false;
    EXPECT_EQ(status, 255);
    EXPECT_EQ(StandardOutput(), "CtrlPanel: Cannot create user interface.\n");
}

TEST_F(StartUp, WindowThatCannotBeMadeEndsWithItsStatus) {
    widgets.windowStatus = 42;
    EXPECT_EQ(Run(), 42);
    EXPECT_EQ(StandardOutput(),
              "CtrlPanel: Cannot create window 42CtrlPanel: Cannot initialize user interface; error 42.\n");
}

}  // namespace
}  // namespace vexil

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    // The list of the tests is asked for on every machine.
    if (std::filesystem::exists("/Library/Logs") && !GTEST_FLAG_GET(list_tests)) {
        return kSkipped;
    }
    return RUN_ALL_TESTS();
}
