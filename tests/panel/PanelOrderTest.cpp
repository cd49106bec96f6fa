// What must have happened before what, as it is seen from beneath the panel.
#include <fstream>
#include <functional>
#include <string>

#include "tests/config/TemporaryFolder.h"
#include "tests/panel/PanelFixture.h"

namespace vexil {
namespace {

// A driver that looks around before it takes an option, and before it is closed.
class WatchingDriver : public MemoryKernelControl {
  public:
    std::function<void(int option)> onOption = [](int) {};
    std::function<void()> onClose = [] {};

    int SetOption(int descriptor, int level, int option, const void* payload, std::uint32_t length) override {
        onOption(option);
        return MemoryKernelControl::SetOption(descriptor, level, option, payload, length);
    }
    int Close(int descriptor) override {
        onClose();
        return MemoryKernelControl::Close(descriptor);
    }
};

class WatchingDesktop : public MemoryDesktop {
  public:
    std::function<void()> onHide = [] {};

    void HideWindow() override {
        onHide();
        MemoryDesktop::HideWindow();
    }
};

class WatchingRestarter : public MemoryRestarter {
  public:
    std::function<void()> onAddress = [] {};

    std::int32_t MakeAddress() override {
        onAddress();
        return MemoryRestarter::MakeAddress();
    }
};

class PanelOrder : public PanelTest {
  protected:
    PanelPlatform Watched() {
        return {memoryWidgets, memoryDialogs,  watchingDesktop, watchingRestarter,
                clock,         watchingDriver, preferences};
    }
    void StoreOptions(std::uint32_t options) {
        DriverConfiguration stored;
        stored.MiscOptions = options;
        Store(stored);
    }
    bool HasCache() {
        return preferences.CopyValue("Cache", kDriverDomain, UserScope::kCFPreferencesAnyUser,
                                     HostScope::kCFPreferencesCurrentHost) != nullptr;
    }

    WatchingDriver watchingDriver;
    WatchingDesktop watchingDesktop;
    WatchingRestarter watchingRestarter;
    MemoryPerson hands{memoryWidgets, watchingDesktop, memoryDialogs};
};

TEST_F(PanelOrder, AppliedConfigurationIsStoredWhenTheDriverIsToldToReadIt) {
    std::uint32_t found = 0;
    watchingDriver.onOption = [&](int option) {
        if (option == kOptionReloadConfiguration) {
            found = Stored().SendGranularity;
        }
    };
    watchingDesktop.Post([&] {
        hands.MoveSlider(9);
        hands.Click(kApply, false);
        watchingDesktop.EndEventLoop();
    });
    EXPECT_EQ(RunUserInterface(Watched()), 0);
    EXPECT_EQ(found, 9U);
}

TEST_F(PanelOrder, StoredWirelessBitIsClearedWhenTheDriverIsToldTheMode) {
    StoreOptions(kUseWireless | kEnableLogging);
    std::uint32_t found = 0;
    watchingDriver.onOption = [&](int option) {
        if (option == kOptionWirelessOn) {
            found = Stored().MiscOptions;
        }
    };
    CtrlPanel onWatched(Watched());
    EXPECT_EQ(found, kEnableLogging);
}

TEST_F(PanelOrder, WindowStillShowsWhenTheTestIsClosedAtTheEnd) {
    bool shown = false;
    watchingDriver.onOption = [&](int option) {
        if (option == kOptionDeactivateTestOutput) {
            shown = watchingDesktop.visible;
        }
    };
    watchingDesktop.Post([&] { watchingDesktop.EndEventLoop(); });
    EXPECT_EQ(RunUserInterface(Watched()), 0);
    EXPECT_TRUE(shown);
}

TEST_F(PanelOrder, WirelessBitIsStoredBehindTheHiddenWindow) {
    StoreOptions(kUseWireless);
    std::uint32_t atHide = kUseWireless;
    watchingDesktop.onHide = [&] { atHide = Stored().MiscOptions; };
    watchingDesktop.Post([&] { watchingDesktop.EndEventLoop(); });
    EXPECT_EQ(RunUserInterface(Watched()), 0);
    EXPECT_EQ(atHide, 0U);
    EXPECT_EQ(Stored().MiscOptions, kUseWireless);
}

TEST_F(PanelOrder, LoadedSettingsAreShownAfterTheHostsHaveBeenBrowsed) {
    const test::TemporaryFolder folder;
    const std::string path = folder / "stage.vexil3";
    std::ofstream(path) << "[Port_00]\nOutName=Loaded\n";
    memoryDialogs.alertAnswers.push_back({AlertHit::Other, {}});
    std::string atBrowse = "no browsing";
    watchingDesktop.Post([&] {
        watchingDriver.onOption = [&](int option) {
            if (option == kOptionBrowseHosts) {
                atBrowse = memoryWidgets.Of(kOutputName).text;
            }
        };
        hands.DropFile(path.c_str());
        EXPECT_EQ(memoryWidgets.Of(kOutputName).text, "Loaded");
        watchingDesktop.EndEventLoop();
    });
    EXPECT_EQ(RunUserInterface(Watched()), 0);
    EXPECT_EQ(atBrowse, "");
}

TEST_F(PanelOrder, ConnectionIsClosedBeforeTheWindowIsDisposedOf) {
    bool hadWindow = false;
    watchingDriver.onClose = [&] { hadWindow = memoryWidgets.hasWindow; };
    { CtrlPanel onWatched(Watched()); }
    EXPECT_TRUE(hadWindow);
}

TEST_F(PanelOrder, CacheIsRemovedAndTheRemovalLoggedWhenTheRestartIsAskedFor) {
    watchingDriver.hostInfos = {'N', 'a', 0, 'A', 1, 1, 1, 1, 1, 1, 'L', 1, 1, 1, 1, 1, 1, 'E', 1, 1, 0};
    bool hadCache = true;
    std::string logged;
    watchingRestarter.onAddress = [&] {
        hadCache = HasCache();
        logged = log.Text();
    };
    memoryDialogs.alertAnswers.push_back({AlertHit::Default, {}});
    watchingDesktop.Post([&] {
        EXPECT_TRUE(HasCache());
        log.Clear();
        hands.Click(kAbout, true);
        watchingDesktop.EndEventLoop();
    });
    EXPECT_EQ(RunUserInterface(Watched()), 0);
    EXPECT_FALSE(hadCache);
    EXPECT_EQ(logged, "Target computer list cache has been removed.");
}

}  // namespace
}  // namespace vexil
