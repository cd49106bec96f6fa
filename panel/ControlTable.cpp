#include "panel/ControlTable.h"

#include "config/DriverConfiguration.h"

namespace vexil {

namespace {

constexpr int kLastPort = kPortCount - 1;

}  // namespace

// clang-format off
const std::array<ControlSpec, kControlCount> kControlTable = {{
    // number, kind, title,
    //     {top, left, bottom, right}, value, minimum, maximum, container, accessible name
    {kPortList, ControlKind::ListBox, nullptr,
        {20, 20, 276, 100}, 0, 0, 0, kNoContainer, "Ports"},
    {kLocalPipe, ControlKind::CheckBox, "Local pipe (loopback) mode",
        {20, 240, 36, 450}, 0, 0, 1, kNoContainer, "Local pipe (loopback) mode"},
    {kAbout, ControlKind::PushButton, "About",
        {18, 490, 38, 560}, 0, 0, 0, kNoContainer, "About"},

    {kMidiIn, ControlKind::CheckGroupBox, "MIDI IN",
        {28, 120, 136, 560}, 0, 0, 1, kNoContainer, "MIDI IN"},
    {kInputNameLabel, ControlKind::StaticText, "Port display name:",
        {60, 155, 76, 275}, 0, 0, 0, kMidiIn, "MIDI IN label: Port display name"},
    {kInputName, ControlKind::EditText, "",
        {60, 280, 76, 540}, 0, 0, 0, kMidiIn, "MIDI IN Port display name"},
    {kSourceComputerBox, ControlKind::CheckBox, "Source computer name:",
        {86, 135, 102, 310}, 0, 0, 1, kMidiIn, "MIDI IN Use source computer name"},
    {kSourceComputer, ControlKind::ComboBox, "",
        {86, 316, 102, 540}, 0, 0, 0, kMidiIn, "MIDI IN Source computer name"},
    {kSourcePortBox, ControlKind::CheckBox, "Source Port:",
        {112, 135, 128, 260}, 0, 0, 1, kMidiIn, "MIDI IN Use source port"},
    {kSourcePortNumber, ControlKind::StaticText, "",
        {112, 266, 126, 286}, 0, 0, 0, kMidiIn, "MIDI IN Source port number"},
    {kSourcePortArrows, ControlKind::LittleArrows, nullptr,
        {110, 290, 130, 306}, 0, 0, kLastPort, kMidiIn, "MIDI IN Source port"},

    {kMidiOut, ControlKind::CheckGroupBox, "MIDI OUT",
        {138, 120, 276, 560}, 0, 0, 1, kNoContainer, "MIDI OUT"},
    {kOutputNameLabel, ControlKind::StaticText, "Port display name:",
        {170, 155, 186, 275}, 0, 0, 0, kMidiOut, "MIDI OUT label: Port display name"},
    {kOutputName, ControlKind::EditText, "",
        {170, 280, 186, 540}, 0, 0, 0, kMidiOut, "MIDI OUT Port display name"},
    {kTargetComputerLabel, ControlKind::StaticText, "Target computer name:",
        {196, 155, 212, 310}, 0, 0, 0, kMidiOut, "MIDI OUT label: Target computer name"},
    {kTargetComputer, ControlKind::ComboBox, "",
        {196, 316, 212, 540}, 0, 0, 0, kMidiOut, "MIDI OUT Target computer name"},
    {kTargetPortLabel, ControlKind::StaticText, "Target Port:",
        {222, 155, 238, 260}, 0, 0, 0, kMidiOut, "MIDI OUT label: Target Port"},
    {kTargetPortNumber, ControlKind::StaticText, "",
        {222, 266, 238, 286}, 0, 0, 0, kMidiOut, "MIDI OUT Target port number"},
    {kTargetPortArrows, ControlKind::LittleArrows, nullptr,
        {220, 290, 240, 306}, 0, 0, kLastPort, kMidiOut, "MIDI OUT Target port"},
    {kSendImmediatelyBox, ControlKind::CheckBox, "Send Immediately",
        {248, 135, 264, 310}, 0, 0, 1, kMidiOut, "MIDI OUT Send Immediately"},
    {kTestLabel, ControlKind::StaticText, "Test: MIDI Ch",
        {248, 390, 264, 480}, 0, 0, 0, kMidiOut, "MIDI OUT label: Test: MIDI Ch"},
    {kTestChannelNumber, ControlKind::StaticText, "1",
        {248, 480, 264, 500}, 0, 0, 0, kMidiOut, "MIDI OUT Test MIDI channel number"},
    {kTestChannelArrows, ControlKind::LittleArrows, "",
        {246, 500, 266, 520}, 1, 1, 16, kMidiOut, "MIDI OUT Test MIDI channel"},
    {kTestButton, ControlKind::RoundButton, "",
        {246, 526, 264, 540}, 0, 0, 0, kMidiOut, "MIDI OUT Play test chord"},

    {kSettingsGroup, ControlKind::GroupBox, "Settings:",
        {290, 20, 400, 180}, 0, 0, 0, kNoContainer, "Settings"},
    {kShowConnectorsBox, ControlKind::CheckBox, "Show Connectors",
        {312, 35, 332, 165}, 0, 0, 1, kSettingsGroup, "Show Connectors"},
    {kLaunchMonitorBox, ControlKind::CheckBox, "Launch Monitor",
        {332, 35, 352, 165}, 0, 0, 1, kSettingsGroup, "Launch Monitor"},
    {kEnableLoggingBox, ControlKind::CheckBox, "Enable Logging",
        {352, 35, 372, 165}, 0, 0, 1, kSettingsGroup, "Enable Logging"},
    {kUseWirelessBox, ControlKind::CheckBox, "Use Wireless",
        {372, 35, 392, 165}, 0, 0, 1, kSettingsGroup, "Use Wireless"},

    {kRealtimeGroup, ControlKind::GroupBox, "Realtime Options:",
        {290, 200, 380, 560}, 0, 0, 0, kNoContainer, "Realtime Options"},
    {kQuantizationLabel, ControlKind::StaticText, "Send Quantization Time, ms:",
        {314, 215, 330, 410}, 0, 0, 0, kRealtimeGroup, "Label: Send Quantization Time, ms"},
    {kQuantizationNumber, ControlKind::StaticText, "",
        {314, 490, 330, 530}, 0, 0, 0, kRealtimeGroup, "Send Quantization Time in ms"},
    {kQuantizationSlider, ControlKind::Slider, "",
        {340, 215, 360, 540}, 0, 0, 100, kRealtimeGroup, "Send Quantization Time"},

    {kLoad, ControlKind::PushButton, "Load",
        {390, 330, 410, 400}, 0, 0, 0, kNoContainer, "Load"},
    {kSave, ControlKind::PushButton, "Save",
        {390, 410, 410, 480}, 0, 0, 0, kNoContainer, "Save"},
    {kApply, ControlKind::PushButton, "Apply",
        {390, 490, 410, 560}, 0, 0, 0, kNoContainer, "Apply"},
}};

// The test section (20 to 23) comes last, after the groups below it.
const std::array<Embedding, kEmbeddingCount> kEmbeddings = {{
    {kMidiIn, kInputNameLabel},
    {kMidiIn, kInputName},
    {kMidiIn, kSourceComputerBox},
    {kMidiIn, kSourceComputer},
    {kMidiIn, kSourcePortBox},
    {kMidiIn, kSourcePortNumber},
    {kMidiIn, kSourcePortArrows},

    {kMidiOut, kOutputNameLabel},
    {kMidiOut, kOutputName},
    {kMidiOut, kTargetComputerLabel},
    {kMidiOut, kTargetComputer},
    {kMidiOut, kTargetPortLabel},
    {kMidiOut, kTargetPortNumber},
    {kMidiOut, kTargetPortArrows},
    {kMidiOut, kSendImmediatelyBox},

    {kSettingsGroup, kShowConnectorsBox},
    {kSettingsGroup, kLaunchMonitorBox},
    {kSettingsGroup, kEnableLoggingBox},
    {kSettingsGroup, kUseWirelessBox},

    {kRealtimeGroup, kQuantizationLabel},
    {kRealtimeGroup, kQuantizationNumber},
    {kRealtimeGroup, kQuantizationSlider},

    {kMidiOut, kTestLabel},
    {kMidiOut, kTestChannelNumber},
    {kMidiOut, kTestChannelArrows},
    {kMidiOut, kTestButton},
}};
// clang-format on

}  // namespace vexil
