// The panel: one window, two copies of the driver configuration, one connection to the driver, and the rules
// that keep them in step. Every edit goes straight into the edited configuration; the driver hears of it on
// Apply, but for the test output and the send quantization time, which follow at once.
//
// Lives for one run of the program. Event-loop thread only. Handlers are entered again while a question is
// open or while the toolkit tracks the mouse; each of them leaves the panel consistent before it calls out.
//
// The methods are in files of their own: CtrlPanel.cpp (making, running, closing), Apply.cpp,
// WindowEvents.cpp, ControlEvents.cpp, Refresh.cpp, SettingsCommands.cpp (Load and Save), About.cpp.
#pragma once

#include <cstdint>
#include <string>

#include "config/DriverConfiguration.h"
#include "config/DriverPreferences.h"
#include "driver/DriverConnection.h"
#include "driver/HostBrowser.h"
#include "driver/TestOutput.h"
#include "panel/PanelEvent.h"
#include "panel/StartUp.h"

namespace vexil {

// The two sides of a port, in the order in which they are refreshed.
enum class Side { Output = 0, Input = 1 };

class CtrlPanel : public PanelHandlers, private TestOutput::Mediator, private HostBrowser::Mediator {
  public:
    // Opens the driver connection, makes the window, loads the stored configuration, makes and fills the
    // controls. When the window or a control cannot be made, stops there with the status in UiStatus.
    explicit CtrlPanel(const PanelPlatform& platform);
    // Closes the connection, disposes of the window.
    ~CtrlPanel() override;
    CtrlPanel(const CtrlPanel&) = delete;
    CtrlPanel& operator=(const CtrlPanel&) = delete;

    // 0, or the toolkit's status of the first window or control that could not be made.
    std::int32_t UiStatus() const { return uiStatus; }

    // Shows the window and runs the event loop until the person has quit, then tidies up.
    void Run();

    // --- what the toolkit calls ---
    std::int32_t WindowEventHandler(const PanelEvent& event, const NextHandler& next) override;
    std::int32_t PortListKeyHandler(const PanelEvent& event, const NextHandler& next) override;
    std::int32_t EditTextHandler(const PanelEvent& event, const NextHandler& next) override;
    std::int32_t ComboBoxHandler(const PanelEvent& event, const NextHandler& next) override;
    void ArrowsAction(int control, int part) override;
    void SliderAction(int control) override;

  private:
    // --- making ---
    bool CreateMainWindow();
    bool CreateControls();
    void FillPortList();

    // --- configuration ---
    // The configuration from the preferences, into both copies.
    void LoadConfiguration();
    // The edited configuration to the preferences and, with a word to the driver, into effect.
    void Apply();
    bool HasUnappliedChanges();

    // --- closing ---
    // Asks about unapplied changes, if there are any: at a click on the close box, and when the event loop
    // has ended by itself. True when the panel may close.
    bool ConfirmClose();
    void StoreWirelessOption();

    // --- events ---
    bool HandleControlHit(const PanelEvent& event);
    bool IsPressOfTestButton(const PanelEvent& event) const;
    void SelectPort();
    void ToggleLocalPipe();
    void ToggleSide(Side side);
    void TogglePortFlag(int control, std::uint8_t flag, bool setWhenChecked);
    void ToggleOption(int control, std::uint32_t option);
    void StoreHostName(const svString& name);
    // A held test button sounds; whatever is to change meanwhile silences it first.
    void StartTestNote();
    void EndTestNote();

    // --- commands ---
    void SaveSettingsToFile();
    void LoadSettingsFromFile();
    void LoadSettings(const std::string& path);
    void ShowFileAccessError(const std::string& path, const char* whatFailed);
    void ShowAboutOrRemoveCache(bool remove);
    void ShowAbout();
    void RemoveCache();

    // --- questions; no second one is asked while one is open ---
    int Ask(const char* message, const char* explanation, const char* otherText, const char* cancelText,
            const char* defaultText, int alertType);
    std::int32_t AskForFile(bool save, std::string& path);

    // --- the configuration into the controls ---
    void RefreshPort();
    void RefreshSide(Side side);
    void RefreshPortName(Side side);
    void RefreshComputer(Side side);
    void RefreshPortNumber(Side side);
    void RefreshSourcePortBox();
    void RefreshSourceComputerBox();
    void RefreshSendImmediately();
    void RefreshChannel();
    void RefreshOptions();
    void EnableTestSection(bool on);
    void UpdateApplyButton();
    // The value of the local pipe box into the record, the groups and the test output.
    void FollowLocalPipeBox();
    void SetSendQuantization();
    void EnableControls(int first, int last, bool on);
    void ShowText(int control, const char* text);

    // --- the current port in the edited configuration ---
    int Port() const { return connection.currentPort; }
    std::uint64_t PortBit() const { return std::uint64_t{1} << connection.currentPort; }
    PortEntry& Entry() { return edited.PortFlags[connection.currentPort]; }
    PortHosts& Hosts() { return edited.Hosts[connection.currentPort]; }
    PortNames& Names() { return edited.CustomNames[connection.currentPort]; }
    bool IsChecked(int control) const { return widgets.Value(control) != 0; }

    // TestOutput::Mediator
    const DriverConfiguration& EditedConfiguration() const override { return edited; }
    int TestChannel() const override { return widgets.Value(kTestChannelArrows); }
    std::uint64_t HostTime() const override { return clock.HostTime(); }

    // HostBrowser::Mediator
    void SleepMicroseconds(unsigned microseconds) override { clock.SleepMicroseconds(microseconds); }
    int HostCount(HostList list) const override;
    void RemoveHost(HostList list, int index) override;
    void AppendHost(const char* name) override;
    void StoreCache(const void* bytes, std::uint32_t length) override;

    Widgets& widgets;
    Dialogs& dialogs;
    Desktop& desktop;
    Restarter& restarter;
    HostClock& clock;
    DriverPreferences preferences;

    DriverConnection connection;  // with current port, test output and wireless state
    TestOutput testOutput;
    HostBrowser hostBrowser;

    DriverConfiguration edited;   // what the controls show
    DriverConfiguration applied;  // what was last loaded from or saved to the preferences
    bool unappliedChanges = false;
    std::int32_t uiStatus = 0;

    // The field and the combo box that got the last control hit: where typed text goes. kNone at first.
    static constexpr int kNone = -1;
    int lastEditText = kNone;
    int lastComboBox = kNone;

    bool questionOpen = false;
    bool testNoteOn = false;
};

}  // namespace vexil
