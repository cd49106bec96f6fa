// The handlers of single controls: keys in the port list, text in fields and combo boxes, arrows, slider.
#include "panel/CtrlPanel.h"

namespace vexil {

namespace {

bool IsKey(const PanelEvent& event) {
    return event.kind == EventKind::RawKeyDown || event.kind == EventKind::RawKeyRepeat;
}

}  // namespace

std::int32_t CtrlPanel::PortListKeyHandler(const PanelEvent& event, const NextHandler& next) {
    if (!IsKey(event) || !event.hasCharacter) {
        return kEventNotHandledErr;
    }
    if (event.character != kCharUpArrow && event.character != kCharDownArrow) {
        return kNoErr;  // swallowed: the list does not select by letters
    }

    EndTestNote();
    const std::int32_t status = next();
    if (status != kNoErr) {
        return status;
    }
    SelectPort();
    return kEventNotHandledErr;
}

std::int32_t CtrlPanel::EditTextHandler(const PanelEvent& event, const NextHandler& next) {
    if (event.kind == EventKind::ControlHit) {
        lastEditText = event.control;
        return kNoErr;
    }
    if (!IsKey(event) || !event.hasCharacter) {
        return kEventNotHandledErr;
    }
    if (event.character == kCharReturn || event.character == kCharLineFeed) {
        return kNoErr;  // swallowed: a name holds no line ends
    }

    const std::int32_t status = next();
    if (status != kNoErr) {
        return status;
    }
    svString text;
    if (lastEditText == kNone || !widgets.GetText(lastEditText, text)) {
        return kEventNotHandledErr;
    }
    (lastEditText == kInputName ? Names().In_CustomName : Names().Out_CustomName) = text;
    UpdateApplyButton();
    return kEventNotHandledErr;
}

std::int32_t CtrlPanel::ComboBoxHandler(const PanelEvent& event, const NextHandler& next) {
    if (event.kind == EventKind::ControlHit) {
        lastComboBox = event.control;
        return kEventNotHandledErr;  // the combo box deals with the click itself
    }

    svString text;
    if (event.kind == EventKind::ListItemSelected) {
        if (lastComboBox == kNone || event.itemIndex < 0 ||
            !widgets.ItemText(lastComboBox, event.itemIndex, text)) {
            return kEventNotHandledErr;
        }
    } else if (IsKey(event) && event.hasCharacter) {
        const std::int32_t status = next();
        if (status != kNoErr) {
            return status;
        }
        if (lastComboBox == kNone || !widgets.GetText(lastComboBox, text)) {
            return kEventNotHandledErr;
        }
    } else {
        return kEventNotHandledErr;
    }
    StoreHostName(text);
    return kEventNotHandledErr;
}

void CtrlPanel::StoreHostName(const svString& name) {
    if (lastComboBox == kSourceComputer) {
        Hosts().SrcHost = name;
    } else {
        Hosts().DstHost = name;
    }
    if (lastComboBox == kTargetComputer) {
        EndTestNote();
        testOutput.Retarget();
    }
    UpdateApplyButton();
}

// The control hit that follows takes the value into the configuration.
void CtrlPanel::ArrowsAction(int control, int part) {
    EndTestNote();
    const ControlSpec& spec = kControlTable[static_cast<std::size_t>(control)];
    int value = widgets.Value(control);
    if (part == kUpPart && value < spec.maximum) {
        ++value;
    } else if (part == kDownPart && value > spec.minimum) {
        --value;
    }
    widgets.SetValue(control, value);
}

void CtrlPanel::SliderAction(int control) {
    edited.SendGranularity = static_cast<std::uint32_t>(widgets.Value(control));
    SetSendQuantization();
    UpdateApplyButton();
}

}  // namespace vexil
