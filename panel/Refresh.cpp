// The edited configuration into the controls, and which controls can be used. Setting a control raises no
// event.
#include "panel/CtrlPanel.h"

namespace vexil {

void CtrlPanel::RefreshPort() {
    widgets.SetValue(kLocalPipe, (edited.LocalPipes & PortBit()) != 0 ? 1 : 0);
    for (const Side side : {Side::Output, Side::Input}) {
        RefreshPortName(side);
        RefreshComputer(side);
        RefreshPortNumber(side);
        RefreshSide(side);
    }
    RefreshSendImmediately();
    FollowLocalPipeBox();
    UpdateApplyButton();
}

void CtrlPanel::FollowLocalPipeBox() {
    if (IsChecked(kLocalPipe)) {
        edited.LocalPipes |= PortBit();
        widgets.SetEnabled(kMidiIn, false);
        widgets.SetEnabled(kMidiOut, false);
        testOutput.Close();
        return;
    }
    edited.LocalPipes &= ~PortBit();
    widgets.SetEnabled(kMidiIn, true);
    widgets.SetEnabled(kMidiOut, true);
    if ((edited.OutputPorts & PortBit()) != 0) {
        testOutput.Open();
    }
}

void CtrlPanel::RefreshSide(Side side) {
    if (side == Side::Input) {
        const bool on = (edited.InputPorts & PortBit()) != 0;
        widgets.SetValue(kMidiIn, on ? 1 : 0);
        if (on) {
            for (const int control : {kInputNameLabel, kInputName, kSourceComputerBox, kSourcePortBox}) {
                widgets.SetEnabled(control, true);
            }
        }
        RefreshSourceComputerBox();
        RefreshSourcePortBox();
        if (!on) {
            EnableControls(kInputNameLabel, kSourcePortArrows, false);
        }
        return;
    }

    const bool on = (edited.OutputPorts & PortBit()) != 0;
    widgets.SetValue(kMidiOut, on ? 1 : 0);
    const bool hasDescriptor = connection.driverSocket != 0;  // -1 counts, as in SelectPort
    if (on) {
        EnableControls(kOutputNameLabel, kSendImmediatelyBox, true);
        if (hasDescriptor) {
            testOutput.Open();
            if (connection.IsConnected()) {
                EnableTestSection(true);
            }
        }
        return;
    }
    if (hasDescriptor) {
        EnableTestSection(false);
        testOutput.Close();
    }
    EnableControls(kOutputNameLabel, kSendImmediatelyBox, false);
}

void CtrlPanel::RefreshPortName(Side side) {
    if (side == Side::Input) {
        ShowText(kInputName, Names().In_CustomName.c_str());
    } else {
        ShowText(kOutputName, Names().Out_CustomName.c_str());
    }
}

void CtrlPanel::RefreshComputer(Side side) {
    if (side == Side::Input) {
        ShowText(kSourceComputer, Hosts().SrcHost.c_str());
    } else {
        ShowText(kTargetComputer, Hosts().DstHost.c_str());
    }
}

void CtrlPanel::RefreshPortNumber(Side side) {
    const bool isInput = side == Side::Input;
    const int port = isInput ? Entry().sourcePort : Entry().targetPort;
    widgets.SetValue(isInput ? kSourcePortArrows : kTargetPortArrows, port);
    svString text;
    text.Format("%u", ShownPortNumber(port));
    ShowText(isInput ? kSourcePortNumber : kTargetPortNumber, text.c_str());
}

void CtrlPanel::RefreshSourceComputerBox() {
    const bool used = (Entry().flags & kSourceComputerUnused) == 0;
    widgets.SetValue(kSourceComputerBox, used ? 1 : 0);
    widgets.SetEnabled(kSourceComputer, used);
}

void CtrlPanel::RefreshSourcePortBox() {
    const bool used = (Entry().flags & kSourcePortUnused) == 0;
    widgets.SetValue(kSourcePortBox, used ? 1 : 0);
    EnableControls(kSourcePortNumber, kSourcePortArrows, used);
}

void CtrlPanel::RefreshSendImmediately() {
    widgets.SetValue(kSendImmediatelyBox, (Entry().flags & kSendImmediately) != 0 ? 1 : 0);
}

void CtrlPanel::RefreshChannel() {
    svString text;
    text.Format("%d", widgets.Value(kTestChannelArrows));
    ShowText(kTestChannelNumber, text.c_str());
}

void CtrlPanel::RefreshOptions() {
    SetSendQuantization();
    widgets.SetValue(kQuantizationSlider, static_cast<int>(edited.SendGranularity));
    widgets.SetValue(kShowConnectorsBox, (edited.MiscOptions & kShowConnectors) != 0 ? 1 : 0);
    widgets.SetValue(kLaunchMonitorBox, (edited.MiscOptions & kLaunchMonitor) != 0 ? 1 : 0);
    widgets.SetValue(kEnableLoggingBox, (edited.MiscOptions & kEnableLogging) != 0 ? 1 : 0);
    widgets.SetValue(kUseWirelessBox, (edited.MiscOptions & kUseWireless) != 0 ? 1 : 0);
}

void CtrlPanel::SetSendQuantization() {
    connection.SendQuantization(edited.SendGranularity);
    ShowText(kQuantizationNumber, SendQuantizationText(edited.SendGranularity).c_str());
}

void CtrlPanel::EnableTestSection(bool on) {
    EnableControls(kTestLabel, kTestButton, on);
}

void CtrlPanel::UpdateApplyButton() {
    widgets.SetEnabled(kApply, HasUnappliedChanges());
}

void CtrlPanel::EnableControls(int first, int last, bool on) {
    for (int control = first; control <= last; ++control) {
        widgets.SetEnabled(control, on);
    }
}

void CtrlPanel::ShowText(int control, const char* text) {
    widgets.SetText(control, text);
    widgets.Redraw(control);
}

}  // namespace vexil
