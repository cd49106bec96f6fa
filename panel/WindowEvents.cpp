// The window's handler: closing, hits of the controls, the press of the test button.
#include "panel/CtrlPanel.h"

namespace vexil {

namespace {

// Hits that bring up a question.
bool AsksQuestion(const PanelEvent& event) {
    if (event.kind == EventKind::SettingsDropped) {
        return true;
    }
    return event.kind == EventKind::ControlHit && (event.control == kAbout || event.control == kLoad ||
                                                   event.control == kSave || event.control == kApply);
}

}  // namespace

std::int32_t CtrlPanel::WindowEventHandler(const PanelEvent& event, const NextHandler& next) {
    switch (event.kind) {
        case EventKind::MouseDown: {
            if (!IsPressOfTestButton(event)) {
                return kEventNotHandledErr;
            }
            EndTestNote();  // of a press within a press
            StartTestNote();
            const std::int32_t status = next();  // until the press has ended
            EndTestNote();
            return status;
        }
        case EventKind::WindowClose:
            EndTestNote();
            if (!questionOpen && ConfirmClose()) {
                desktop.EndEventLoop();
            }
            return kNoErr;
        case EventKind::ControlHit:
        case EventKind::SettingsDropped:
            if (questionOpen && AsksQuestion(event)) {
                return kNoErr;
            }
            break;
        default:
            return kEventNotHandledErr;
    }

    if (event.kind == EventKind::SettingsDropped) {
        EndTestNote();
        LoadSettings(event.path);
        return kNoErr;
    }
    return HandleControlHit(event) ? kNoErr : kEventNotHandledErr;
}

// Strictly inside: a press on the very edge does not count.
bool CtrlPanel::IsPressOfTestButton(const PanelEvent& event) const {
    if (!connection.IsConnected() || !connection.IsTestOutputOpen(Port())) {
        return false;
    }
    const ControlRect& rect = kControlTable[kTestButton].rect;
    const double top = rect.top + widgets.TitleBarHeight();
    const double bottom = rect.bottom + widgets.TitleBarHeight();
    return top < event.y && event.y < bottom && rect.left < event.x && event.x < rect.right;
}

bool CtrlPanel::HandleControlHit(const PanelEvent& event) {
    EndTestNote();
    switch (event.control) {
        case kPortList:
            SelectPort();
            return true;
        case kLocalPipe:
            ToggleLocalPipe();
            return true;
        case kMidiIn:
            ToggleSide(Side::Input);
            return true;
        case kMidiOut:
            ToggleSide(Side::Output);
            return true;
        case kAbout:
            ShowAboutOrRemoveCache((event.modifiers & kCommandKey) != 0);
            return true;
        case kLoad:
            LoadSettingsFromFile();
            return true;
        case kSave:
            SaveSettingsToFile();
            return true;
        case kSourceComputerBox:
            TogglePortFlag(kSourceComputerBox, kSourceComputerUnused, false);
            RefreshSourceComputerBox();
            break;
        case kSourcePortBox:
            TogglePortFlag(kSourcePortBox, kSourcePortUnused, false);
            RefreshSourcePortBox();
            break;
        case kSourcePortArrows:
            Entry().sourcePort = static_cast<std::uint8_t>(widgets.Value(kSourcePortArrows));
            RefreshPortNumber(Side::Input);
            break;
        case kTargetPortArrows:
            Entry().targetPort = static_cast<std::uint8_t>(widgets.Value(kTargetPortArrows));
            RefreshPortNumber(Side::Output);
            testOutput.Retarget();
            break;
        case kSendImmediatelyBox:
            TogglePortFlag(kSendImmediatelyBox, kSendImmediately, true);
            RefreshSendImmediately();
            testOutput.Retarget();
            break;
        case kShowConnectorsBox:
            ToggleOption(kShowConnectorsBox, kShowConnectors);
            break;
        case kLaunchMonitorBox:
            ToggleOption(kLaunchMonitorBox, kLaunchMonitor);
            break;
        case kEnableLoggingBox:
            ToggleOption(kEnableLoggingBox, kEnableLogging);
            break;
        case kUseWirelessBox:
            ToggleOption(kUseWirelessBox, kUseWireless);
            break;
        case kTestChannelArrows:
            RefreshChannel();
            return true;
        case kApply:
            Apply();
            break;
        default:
            return false;
    }
    UpdateApplyButton();
    return true;
}

void CtrlPanel::SelectPort() {
    const int row = widgets.SelectedRow();
    if (row < 0 || row >= kPortCount) {
        return;  // nothing is selected: the port that is shown stays
    }
    // Descriptor 0 alone counts as not open here; -1 does not, and closing what is not open does nothing.
    if (connection.driverSocket != 0) {
        testOutput.Close();
    }
    connection.currentPort = row;
    hostBrowser.RefreshHosts();
    RefreshPort();
}

void CtrlPanel::ToggleLocalPipe() {
    FollowLocalPipeBox();
    UpdateApplyButton();
}

void CtrlPanel::ToggleSide(Side side) {
    const bool isInput = side == Side::Input;
    std::uint64_t& ports = isInput ? edited.InputPorts : edited.OutputPorts;
    if (IsChecked(isInput ? kMidiIn : kMidiOut)) {
        ports |= PortBit();
        hostBrowser.RefreshHosts();
    } else {
        ports &= ~PortBit();
    }
    RefreshSide(side);
    UpdateApplyButton();
}

void CtrlPanel::TogglePortFlag(int control, std::uint8_t flag, bool setWhenChecked) {
    std::uint8_t& flags = Entry().flags;
    if (IsChecked(control) == setWhenChecked) {
        flags = static_cast<std::uint8_t>(flags | flag);
    } else {
        flags = static_cast<std::uint8_t>(flags & ~flag);
    }
}

void CtrlPanel::ToggleOption(int control, std::uint32_t option) {
    if (IsChecked(control)) {
        edited.MiscOptions |= option;
    } else {
        edited.MiscOptions &= ~option;
    }
    RefreshOptions();
}

void CtrlPanel::StartTestNote() {
    testNoteOn = true;
    testOutput.Play(true);
}

void CtrlPanel::EndTestNote() {
    if (!testNoteOn) {
        return;
    }
    testNoteOn = false;
    testOutput.Play(false);
}

}  // namespace vexil
