#include "panel/ControlTable.h"

#include "config/DriverConfiguration.h"

namespace vexil {

namespace {

constexpr int kLastPort = kPortCount - 1;

// Said of a field and of the texts beside it.
constexpr const char* kInputNameTip =
    "The name of this input in music programs; without one it goes by its port number.";
constexpr const char* kSourcePortTip = "The port on the source computer from which this input receives.";
constexpr const char* kOutputNameTip =
    "The name of this output in music programs; without one it goes by its port number.";
constexpr const char* kTargetComputerTip =
    "The computer to send to; pick one that was found on the network or type its name.";
constexpr const char* kTargetPortTip =
    "The port on the target computer that receives what this output sends.";
constexpr const char* kChannelTip = "The MIDI channel on which the test button plays.";
constexpr const char* kQuantizationTip =
    "Gathers what is sent into steps of this length; short ones are more exact, long ones spare the network.";

}  // namespace

// clang-format off
const std::array<ControlSpec, kControlCount> kControlTable = {{
    // number, kind, title,
    //     {top, left, bottom, right}, value, minimum, maximum, container, accessible name,
    //     tip
    {kPortList, ControlKind::ListBox, nullptr,
        {20, 20, 276, 100}, 0, 0, 0, kNoContainer, "Ports",
        "Choose here the port to set up; the 64 ports are numbered in banks of eight, 11 to 88."},
    {kLocalPipe, ControlKind::CheckBox, "Local pipe (loopback) mode",
        {20, 240, 36, 450}, 0, 0, 1, kNoContainer, "Local pipe (loopback) mode",
        "Connects this port's output to its own input, to patch two programs on this computer together."},
    {kAbout, ControlKind::PushButton, "About",
        {18, 490, 38, 560}, 0, 0, 0, kNoContainer, "About",
        "Shows the version; with Ctrl held, it empties the list of computers and asks to restart this one."},

    {kMidiIn, ControlKind::CheckGroupBox, "MIDI IN",
        {28, 120, 136, 560}, 0, 0, 1, kNoContainer, "MIDI IN",
        "Makes this port an input, through which music programs receive what is sent to it."},
    {kInputNameLabel, ControlKind::StaticText, "Port display name:",
        {60, 155, 76, 275}, 0, 0, 0, kMidiIn, "MIDI IN label: Port display name",
        kInputNameTip},
    {kInputName, ControlKind::EditText, "",
        {60, 280, 76, 540}, 0, 0, 0, kMidiIn, "MIDI IN Port display name",
        kInputNameTip},
    {kSourceComputerBox, ControlKind::CheckBox, "Source computer name:",
        {86, 135, 102, 310}, 0, 0, 1, kMidiIn, "MIDI IN Use source computer name",
        "Lets in only what comes from the computer named here; unticked, every computer is let in."},
    {kSourceComputer, ControlKind::ComboBox, "",
        {86, 316, 102, 540}, 0, 0, 0, kMidiIn, "MIDI IN Source computer name",
        "The computer to receive from; pick one that was found on the network or type its name."},
    {kSourcePortBox, ControlKind::CheckBox, "Source Port:",
        {112, 135, 128, 260}, 0, 0, 1, kMidiIn, "MIDI IN Use source port",
        "Lets in only what comes from a port of this number; unticked, any port will do."},
    {kSourcePortNumber, ControlKind::StaticText, "",
        {112, 266, 126, 286}, 0, 0, 0, kMidiIn, "MIDI IN Source port number",
        kSourcePortTip},
    {kSourcePortArrows, ControlKind::LittleArrows, nullptr,
        {110, 290, 130, 306}, 0, 0, kLastPort, kMidiIn, "MIDI IN Source port",
        kSourcePortTip},

    {kMidiOut, ControlKind::CheckGroupBox, "MIDI OUT",
        {138, 120, 276, 560}, 0, 0, 1, kNoContainer, "MIDI OUT",
        "Makes this port an output, through which music programs send to a port on this or another computer."},
    {kOutputNameLabel, ControlKind::StaticText, "Port display name:",
        {170, 155, 186, 275}, 0, 0, 0, kMidiOut, "MIDI OUT label: Port display name",
        kOutputNameTip},
    {kOutputName, ControlKind::EditText, "",
        {170, 280, 186, 540}, 0, 0, 0, kMidiOut, "MIDI OUT Port display name",
        kOutputNameTip},
    {kTargetComputerLabel, ControlKind::StaticText, "Target computer name:",
        {196, 155, 212, 310}, 0, 0, 0, kMidiOut, "MIDI OUT label: Target computer name",
        kTargetComputerTip},
    {kTargetComputer, ControlKind::ComboBox, "",
        {196, 316, 212, 540}, 0, 0, 0, kMidiOut, "MIDI OUT Target computer name",
        kTargetComputerTip},
    {kTargetPortLabel, ControlKind::StaticText, "Target Port:",
        {222, 155, 238, 260}, 0, 0, 0, kMidiOut, "MIDI OUT label: Target Port",
        kTargetPortTip},
    {kTargetPortNumber, ControlKind::StaticText, "",
        {222, 266, 238, 286}, 0, 0, 0, kMidiOut, "MIDI OUT Target port number",
        kTargetPortTip},
    {kTargetPortArrows, ControlKind::LittleArrows, nullptr,
        {220, 290, 240, 306}, 0, 0, kLastPort, kMidiOut, "MIDI OUT Target port",
        kTargetPortTip},
    {kSendImmediatelyBox, ControlKind::CheckBox, "Send Immediately",
        {248, 135, 264, 310}, 0, 0, 1, kMidiOut, "MIDI OUT Send Immediately",
        "Sends each message of this port the moment it is played, not gathered into time steps with others."},
    {kTestLabel, ControlKind::StaticText, "Test: MIDI Ch",
        {248, 390, 264, 480}, 0, 0, 0, kMidiOut, "MIDI OUT label: Test: MIDI Ch",
        kChannelTip},
    {kTestChannelNumber, ControlKind::StaticText, "1",
        {248, 480, 264, 500}, 0, 0, 0, kMidiOut, "MIDI OUT Test MIDI channel number",
        kChannelTip},
    {kTestChannelArrows, ControlKind::LittleArrows, "",
        {246, 500, 266, 520}, 1, 1, 16, kMidiOut, "MIDI OUT Test MIDI channel",
        kChannelTip},
    {kTestButton, ControlKind::RoundButton, "",
        {246, 526, 264, 540}, 0, 0, 0, kMidiOut, "MIDI OUT Play test chord",
        "Plays a chord through this port while you hold it, and a different one at the next press."},

    {kSettingsGroup, ControlKind::GroupBox, "Settings:",
        {290, 20, 400, 180}, 0, 0, 0, kNoContainer, "Settings",
        "Options of the driver on this computer."},
    {kShowConnectorsBox, ControlKind::CheckBox, "Show Connectors",
        {312, 35, 332, 165}, 0, 0, 1, kSettingsGroup, "Show Connectors",
        "Shows the ports in the port lists of music programs; unticked, they are kept out of them."},
    {kLaunchMonitorBox, ControlKind::CheckBox, "Launch Monitor",
        {332, 35, 352, 165}, 0, 0, 1, kSettingsGroup, "Launch Monitor",
        "Asks the driver to open its monitor when it starts; the driver of this version has no monitor."},
    {kEnableLoggingBox, ControlKind::CheckBox, "Enable Logging",
        {352, 35, 372, 165}, 0, 0, 1, kSettingsGroup, "Enable Logging",
        "Keeps a log of what happens, for finding out what went wrong."},
    {kUseWirelessBox, ControlKind::CheckBox, "Use Wireless",
        {372, 35, 392, 165}, 0, 0, 1, kSettingsGroup, "Use Wireless",
        "Lets the driver use a wireless network, from the panel's next start on."},

    {kRealtimeGroup, ControlKind::GroupBox, "Realtime Options:",
        {290, 200, 380, 560}, 0, 0, 0, kNoContainer, "Realtime Options",
        "How exactly messages keep their time on the network."},
    {kQuantizationLabel, ControlKind::StaticText, "Send Quantization Time, ms:",
        {314, 215, 330, 410}, 0, 0, 0, kRealtimeGroup, "Label: Send Quantization Time, ms",
        kQuantizationTip},
    {kQuantizationNumber, ControlKind::StaticText, "",
        {314, 490, 330, 530}, 0, 0, 0, kRealtimeGroup, "Send Quantization Time in ms",
        kQuantizationTip},
    {kQuantizationSlider, ControlKind::Slider, "",
        {340, 215, 360, 540}, 0, 0, kMaxSendGranularity, kRealtimeGroup, "Send Quantization Time",
        kQuantizationTip},

    {kLoad, ControlKind::PushButton, "Load",
        {390, 330, 410, 400}, 0, 0, 0, kNoContainer, "Load",
        "Reads a whole set-up from a settings file into this window; Apply makes it take effect."},
    {kSave, ControlKind::PushButton, "Save",
        {390, 410, 410, 480}, 0, 0, 0, kNoContainer, "Save",
        "Writes the whole set-up as shown to a settings file."},
    {kApply, ControlKind::PushButton, "Apply",
        {390, 490, 410, 560}, 0, 0, 0, kNoContainer, "Apply",
        "Stores the set-up and tells the driver to use it."},
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
