// Taking the stored configuration up at start-up, and putting the edited one into effect.
#include "driver/DriverOptions.h"
#include "panel/CtrlPanel.h"
#include "panel/StandardAlert.h"

namespace vexil {

void CtrlPanel::LoadConfiguration() {
    preferences.LoadConfiguration(kPortCount, applied);
    connection.wirelessAtStart = (applied.MiscOptions & kUseWireless) != 0;
    preferences.SetWirelessOption(false);
    // The driver's answer changes nothing here: the wireless mode is a wish.
    if (connection.IsConnected()) {
        connection.SendCommand(connection.wirelessAtStart ? kOptionWirelessOn : kOptionWirelessOff, nullptr,
                               0);
    }
    CopyConfiguration(applied, edited);
    unappliedChanges = false;
}

void CtrlPanel::Apply() {
    if (!IsAdmissible(edited)) {
        Ask("Inadmissible configuration found!",
            "At least one Vexil3Port should be enabled. By default Vexil3Port 1(11) output will be set "
            "enabled.",
            nullptr, nullptr, "Ok", kAlertCaution);
        edited.OutputPorts = 1;
    }
    CopyConfiguration(edited, applied);
    unappliedChanges = false;

    const bool wirelessBefore = connection.wirelessAtStart;
    connection.wirelessAtStart = (applied.MiscOptions & kUseWireless) != 0;
    // The stored options carry the wireless bit only while no panel runs.
    applied.MiscOptions &= ~kUseWireless;
    preferences.SaveConfiguration(kPortCount, applied);
    if (connection.wirelessAtStart) {
        applied.MiscOptions |= kUseWireless;
    }

    // A driver that does not take the hint reads the preferences at its next start.
    if (connection.IsConnected()) {
        connection.SendCommand(kOptionReloadConfiguration, nullptr, 0);
    }

    if (connection.wirelessAtStart != wirelessBefore) {
        Ask("\"Use Wireless\" option has been changed!",
            "The option will be applied at the next start of the Control Panel.", nullptr, nullptr, "Ok",
            kAlertCaution);
    }
}

bool CtrlPanel::HasUnappliedChanges() {
    unappliedChanges = true;
    if (Differs(edited, applied)) {
        return true;
    }
    unappliedChanges = false;
    return false;
}

}  // namespace vexil
