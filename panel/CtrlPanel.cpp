#include "panel/CtrlPanel.h"

#include "panel/CenterRect.h"
#include "panel/StandardAlert.h"
#include "shared/System/svLog.h"

namespace vexil {

namespace {

// The buttons of the question about unapplied changes. Their titles begin with the length of the word, as a
// character that is not seen: the texts come from a table of counted strings, and always have been handed
// over so.
constexpr const char* kQuitButton =
    "\x04"
    "Quit";
constexpr const char* kApplyAndQuitButton =
    "\x0e"
    "Apply and Quit";
constexpr const char* kCancelButton =
    "\x06"
    "Cancel";

}  // namespace

CtrlPanel::CtrlPanel(const PanelPlatform& platform)
    : widgets(platform.widgets),
      dialogs(platform.dialogs),
      desktop(platform.desktop),
      restarter(platform.restarter),
      clock(platform.clock),
      preferences(platform.preferences),
      connection(platform.kernelControl),
      testOutput(connection, *this),
      hostBrowser(connection, *this) {
    connection.Open();
    if (!CreateMainWindow()) {
        return;
    }
    LoadConfiguration();
    if (!CreateControls()) {
        return;
    }
    EnableTestSection(connection.IsConnected());
    hostBrowser.RefreshHosts();
    RefreshPort();
    RefreshOptions();
}

CtrlPanel::~CtrlPanel() {
    connection.Close();
    widgets.DisposeWindow();
}

bool CtrlPanel::CreateMainWindow() {
    ControlRect content;
    CenterRectOnMainDisplay(desktop, content, kWindowWidth, kWindowHeight);
    uiStatus = widgets.CreateWindow(content);
    if (uiStatus != kNoErr) {
        LogPrintf("Cannot create window %d", uiStatus);  // no line end: the next line follows on it
        return false;
    }
    widgets.SetWindowTitle(kWindowTitle);
    return true;
}

bool CtrlPanel::CreateControls() {
    for (const ControlSpec& spec : kControlTable) {
        uiStatus = widgets.CreateControl(spec, *this);
        if (uiStatus != kNoErr) {
            return false;
        }
        if (spec.number == kPortList) {
            FillPortList();
        }
    }
    for (const Embedding& embedding : kEmbeddings) {
        widgets.Embed(embedding.container, embedding.control);
    }
    return true;
}

void CtrlPanel::FillPortList() {
    widgets.SelectRow(0);
    svString text;
    for (int port = 0; port < kPortCount; ++port) {
        text.Format("Port %d", static_cast<int>(ShownPortNumber(port)));
        widgets.SetRowText(port, text.c_str());
    }
}

void CtrlPanel::Run() {
    desktop.FlushEvents();
    desktop.SetDialogBackground();
    desktop.ShowWindow();
    widgets.InstallWindowHandler(*this);

    do {
        desktop.RunEventLoop();
    } while (!ConfirmClose());

    testOutput.Close();
    desktop.HideWindow();
    StoreWirelessOption();
}

bool CtrlPanel::ConfirmClose() {
    if (!unappliedChanges) {
        return true;
    }
    const int answer = Ask("Settings have not been previously applied. Apply settings?",
                           "You also can continue to make settings clicking <Cancel> or revert using <Quit>.",
                           kQuitButton, kCancelButton, kApplyAndQuitButton, kAlertCaution);
    if (answer == kAlertCancelButton) {
        return false;
    }
    if (answer == kAlertOtherButton) {
        unappliedChanges = false;
    } else if (answer == kAlertDefaultButton) {
        Apply();
    }
    return true;
}

// The bit is kept out of the store while the panel runs, so it takes effect at the next start, and only after
// a clean exit.
void CtrlPanel::StoreWirelessOption() {
    preferences.SetWirelessOption(connection.wirelessAtStart);
}

int CtrlPanel::Ask(const char* message, const char* explanation, const char* otherText,
                   const char* cancelText, const char* defaultText, int alertType) {
    questionOpen = true;
    const int answer = ShowStandardAlert(dialogs, message, explanation, otherText, cancelText, defaultText,
                                         alertType, kAlertDefaultButton);
    questionOpen = false;
    return answer;
}

int CtrlPanel::HostCount(HostList list) const {
    return widgets.ItemCount(list == HostList::Source ? kSourceComputer : kTargetComputer);
}

void CtrlPanel::RemoveHost(HostList list, int index) {
    widgets.RemoveItem(list == HostList::Source ? kSourceComputer : kTargetComputer, index);
}

void CtrlPanel::AppendHost(const char* name) {
    if (widgets.AppendItem(kSourceComputer, name)) {
        widgets.AppendItem(kTargetComputer, name);  // takes what the other list took
    }
}

void CtrlPanel::StoreCache(const void* bytes, std::uint32_t length) {
    preferences.WriteCache(bytes, length);
}

}  // namespace vexil
