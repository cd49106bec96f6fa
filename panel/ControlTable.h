// The 36 controls of the window as data: kind, title, rectangle, values, container. The row number is the
// control's number, which is its identity everywhere in the panel.
#pragma once

#include <array>

namespace vexil {

inline constexpr int kControlCount = 36;

// Control numbers, in the table's order.
enum Control : int {
    kPortList = 0,
    kLocalPipe = 1,
    kAbout = 2,
    kMidiIn = 3,
    kInputNameLabel = 4,
    kInputName = 5,
    kSourceComputerBox = 6,
    kSourceComputer = 7,
    kSourcePortBox = 8,
    kSourcePortNumber = 9,
    kSourcePortArrows = 10,
    kMidiOut = 11,
    kOutputNameLabel = 12,
    kOutputName = 13,
    kTargetComputerLabel = 14,
    kTargetComputer = 15,
    kTargetPortLabel = 16,
    kTargetPortNumber = 17,
    kTargetPortArrows = 18,
    kSendImmediatelyBox = 19,
    kTestLabel = 20,
    kTestChannelNumber = 21,
    kTestChannelArrows = 22,
    kTestButton = 23,
    kSettingsGroup = 24,
    kShowConnectorsBox = 25,
    kLaunchMonitorBox = 26,
    kEnableLoggingBox = 27,
    kUseWirelessBox = 28,
    kRealtimeGroup = 29,
    kQuantizationLabel = 30,
    kQuantizationNumber = 31,
    kQuantizationSlider = 32,
    kLoad = 33,
    kSave = 34,
    kApply = 35,
};

enum class ControlKind {
    ListBox,
    CheckBox,
    PushButton,
    CheckGroupBox,
    GroupBox,
    StaticText,
    EditText,
    ComboBox,
    LittleArrows,
    RoundButton,
    Slider,
};

// Window content coordinates, pixels.
struct ControlRect {
    int top;
    int left;
    int bottom;
    int right;

    bool operator==(const ControlRect&) const = default;
};

inline constexpr int kWindowWidth = 580;
inline constexpr int kWindowHeight = 430;
inline constexpr const char* kWindowTitle = "Vexil III Control Panel";
inline constexpr int kNoContainer = -1;

struct ControlSpec {
    int number;
    ControlKind kind;
    const char* title;  // null: without a title
    ControlRect rect;
    int value;    // initial value
    int minimum;  // value range: 0 and 1 of what is checked, 0 and 0 of what has no value
    int maximum;
    int container;  // the group it is embedded in, or kNoContainer
    // How assistive technology names it: unique, from the title or the label beside it and its group.
    const char* accessibleName;
    // What it is for, in one sentence that a musician understands.
    const char* tip;
};

extern const std::array<ControlSpec, kControlCount> kControlTable;

// The order in which controls are embedded in their groups.
struct Embedding {
    int container;
    int control;
};
inline constexpr int kEmbeddingCount = 26;
extern const std::array<Embedding, kEmbeddingCount> kEmbeddings;

// List box, in pixels and rows.
inline constexpr int kListCellHeight = 16;
inline constexpr int kListCellWidth = 80;
inline constexpr int kSliderTickMarks = 50;

}  // namespace vexil
