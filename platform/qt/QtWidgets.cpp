#include "platform/qt/QtWidgets.h"

#include <QGuiApplication>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScreen>

#include <vector>

#include "config/DriverConfiguration.h"
#include "platform/qt/AccessibleRoles.h"
#include "platform/qt/CheckControls.h"
#include "platform/qt/ComboBox.h"
#include "platform/qt/EditText.h"
#include "platform/qt/FieldText.h"
#include "platform/qt/GroupPane.h"
#include "platform/qt/LittleArrows.h"
#include "platform/qt/PanelWindow.h"
#include "platform/qt/PortListBox.h"
#include "platform/qt/RoundButton.h"
#include "platform/qt/StaticText.h"
#include "platform/qt/TickedSlider.h"
#include "platform/qt/TipLines.h"

namespace vexil {

namespace {

// Fields have a row of 16 pixels for their text; their frame goes around it.
constexpr int kFieldFrame = 3;
// The slider counts tenths of a millisecond.
constexpr int kSliderValuesPerUnit = 10;

QRect PlaceOf(const ControlSpec& spec) {
    const ControlRect& rect = spec.rect;
    const QRect place(rect.left, rect.top, rect.right - rect.left, rect.bottom - rect.top);
    const bool isField = spec.kind == ControlKind::EditText || spec.kind == ControlKind::ComboBox;
    return isField ? place.adjusted(-kFieldFrame, -kFieldFrame, kFieldFrame, kFieldFrame) : place;
}

// The texts that stand beside a control and belong to it: its label, and the number that it sets.
std::vector<int> TextsOf(int control) {
    switch (control) {
        case kInputName:
            return {kInputNameLabel};
        case kSourcePortArrows:
            return {kSourcePortNumber};
        case kOutputName:
            return {kOutputNameLabel};
        case kTargetComputer:
            return {kTargetComputerLabel};
        case kTargetPortArrows:
            return {kTargetPortLabel, kTargetPortNumber};
        case kTestChannelArrows:
            return {kTestLabel, kTestChannelNumber};
        case kQuantizationSlider:
            return {kQuantizationLabel, kQuantizationNumber};
        default:
            return {};
    }
}

// Whether a text shows the number that a control sets.
bool IsNumber(int control) {
    return control == kSourcePortNumber || control == kTargetPortNumber || control == kTestChannelNumber ||
           control == kQuantizationNumber;
}

int ShownPort(int port) {
    return static_cast<int>(ShownPortNumber(port));
}

int ShownAsItIs(int value) {
    return value;
}

LittleArrows::Shown ShownBy(int arrows) {
    return arrows == kTestChannelArrows ? ShownAsItIs : ShownPort;
}

svString ToPanelText(const QString& text) {
    return svString(EncodeText(text).c_str());
}

}  // namespace

QtWidgets::QtWidgets() {
    InstallAccessibleRoles();
}
QtWidgets::~QtWidgets() = default;

QWidget* QtWidgets::Window() const {
    return window.get();
}

bool QtWidgets::IsClosing() const {
    return window && window->IsClosing();
}

void QtWidgets::EndPresses() {
    if (auto* button = dynamic_cast<RoundButton*>(ControlAt(kTestButton))) {
        button->EndPress();
    }
}

void QtWidgets::SetMarks(const PortMarks::Marks& marks) {
    if (PortListBox* list = PortList()) {
        list->SetMarks(marks);
    }
}

std::int32_t QtWidgets::CreateWindow(const ControlRect& content) {
    DisposeWindow();
    window = std::make_unique<PanelWindow>(content.right - content.left, content.bottom - content.top);
    // The content's place, not the frame's; the main display is not always the one at the corner of all.
    const QScreen* const screen = QGuiApplication::primaryScreen();
    const QPoint corner = screen == nullptr ? QPoint() : screen->geometry().topLeft();
    window->setGeometry(corner.x() + content.left, corner.y() + content.top, content.right - content.left,
                        content.bottom - content.top);
    return kNoErr;
}

void QtWidgets::SetWindowTitle(const char* title) {
    if (window) {
        window->setWindowTitle(DecodeText(title));
    }
}

void QtWidgets::DisposeWindow() {
    controls = {};
    lastEditText = {};
    lastComboBox = {};
    window.reset();
}

std::int32_t QtWidgets::CreateControl(const ControlSpec& spec, PanelHandlers& handlers) {
    QtControl* control = MakeControl(spec, handlers);
    controls[static_cast<std::size_t>(spec.number)] = {control, true};
    control->Outer().setGeometry(PlaceOf(spec));
    QWidget& widget = control->Widget();
    widget.setObjectName(ControlName(spec.number));
    const QString name = DecodeText(spec.accessibleName);
    widget.setAccessibleName(name);
    const QString tip = DecodeText(spec.tip);
    widget.setToolTip(TipInLines(tip));
    widget.setAccessibleDescription(tip);
    if (ComboBox* combo = ComboAt(spec.number)) {
        // The text of an editable combo box hides its name.
        combo->setAccessibleDescription(name);
        combo->lineEdit()->setAccessibleName(name);
        combo->lineEdit()->setAccessibleDescription(tip);
    }
    // A letter that is underlined would change the title.
    if (spec.number == kLoad || spec.number == kSave || spec.number == kApply) {
        static_cast<QPushButton&>(widget).setShortcut(QKeySequence("Alt+" + QString(spec.title).left(1)));
    }
    DescribeNumber(spec.number);
    for (const int text : TextsOf(spec.number)) {
        static_cast<QLabel&>(ControlAt(text)->Widget()).setBuddy(&widget);
    }
    return kNoErr;
}

QtControl* QtWidgets::MakeControl(const ControlSpec& spec, PanelHandlers& handlers) {
    const Reporter reporter(spec.number, handlers);
    const QString title = DecodeText(spec.title == nullptr ? "" : spec.title);
    QWidget* parent = window.get();
    switch (spec.kind) {
        case ControlKind::ListBox: {
            auto* list = new PortListBox(reporter, kPortCount, kListCellHeight, parent);
            window->FrameChild(*list);
            return list;
        }
        case ControlKind::CheckBox:
            return new CheckBox(reporter, title, parent);
        case ControlKind::PushButton:
            return new PushButton(reporter, title, parent);
        case ControlKind::CheckGroupBox:
            return new GroupPane(reporter, title, true, parent);
        case ControlKind::GroupBox:
            return new GroupPane(reporter, title, false, parent);
        case ControlKind::StaticText:
            return new StaticText(title, parent);
        case ControlKind::EditText:
            return new EditText(reporter, lastEditText, parent);
        case ControlKind::ComboBox:
            return new ComboBox(reporter, lastComboBox, parent);
        case ControlKind::LittleArrows:
            return new LittleArrows(reporter, spec.value, spec.minimum, spec.maximum, ShownBy(spec.number),
                                    parent);
        case ControlKind::RoundButton:
            return new RoundButton(reporter, parent);
        case ControlKind::Slider:
            break;
    }
    return new TickedSlider(reporter, spec.minimum, spec.maximum, kSliderTickMarks, kSliderValuesPerUnit,
                            parent);
}

void QtWidgets::Embed(int container, int control) {
    QtControl* group = ControlAt(container);
    QtControl* embedded = ControlAt(control);
    if (group == nullptr || embedded == nullptr) {
        return;
    }
    QWidget& widget = embedded->Outer();
    const QPoint place = widget.mapTo(window.get(), QPoint(0, 0));
    widget.setParent(&group->Outer());
    widget.move(group->Outer().mapFrom(window.get(), place));
    widget.show();
}

void QtWidgets::InstallWindowHandler(PanelHandlers& handlers) {
    if (window) {
        window->SetHandlers(handlers);
    }
}

int QtWidgets::Value(int control) const {
    const QtControl* found = ControlAt(control);
    return found == nullptr ? 0 : found->Value();
}

void QtWidgets::SetValue(int control, int value) {
    if (QtControl* found = ControlAt(control)) {
        found->SetValue(value);
    }
}

bool QtWidgets::GetText(int control, svString& text) const {
    const QtControl* found = ControlAt(control);
    QString read;
    if (found == nullptr || !found->ReadText(read)) {
        return false;
    }
    text = ToPanelText(read);
    return true;
}

void QtWidgets::SetText(int control, const char* text) {
    if (QtControl* found = ControlAt(control)) {
        found->WriteText(DecodeText(text));
    }
    DescribeNumber(control);
}

// The text of a number is read out before what it is for: its accessible name hides it.
void QtWidgets::DescribeNumber(int control) {
    QtControl* shown = ControlAt(control);
    if (!IsNumber(control) || shown == nullptr) {
        return;
    }
    QString number;
    shown->ReadText(number);
    const QString tip = DecodeText(kControlTable[static_cast<std::size_t>(control)].tip);
    shown->Widget().setAccessibleDescription(number.isEmpty() ? tip : number + ". " + tip);
}

bool QtWidgets::IsEnabled(int control) const {
    return ControlAt(control) != nullptr && controls[static_cast<std::size_t>(control)].enabled;
}

void QtWidgets::SetEnabled(int control, bool enabled) {
    QtControl* found = ControlAt(control);
    if (found == nullptr) {
        return;
    }
    controls[static_cast<std::size_t>(control)].enabled = enabled;
    found->Outer().setEnabled(enabled);
}

void QtWidgets::SetRowText(int row, const char* text) {
    if (PortListBox* list = PortList()) {
        list->SetRowText(row, DecodeText(text));
    }
}

int QtWidgets::RowCount() const {
    const PortListBox* list = PortList();
    return list == nullptr ? 0 : list->count();
}

int QtWidgets::SelectedRow() const {
    const PortListBox* list = PortList();
    return list == nullptr ? -1 : list->SelectedRow();
}

void QtWidgets::SelectRow(int row) {
    if (PortListBox* list = PortList()) {
        list->SelectRow(row);
    }
}

int QtWidgets::ItemCount(int control) const {
    const ComboBox* combo = ComboAt(control);
    return combo == nullptr ? 0 : combo->count();
}

bool QtWidgets::AppendItem(int control, const char* text) {
    ComboBox* combo = ComboAt(control);
    if (combo == nullptr) {
        return false;
    }
    combo->AppendItem(DecodeText(text));
    return true;
}

void QtWidgets::RemoveItem(int control, int index) {
    if (ComboBox* combo = ComboAt(control)) {
        combo->RemoveItem(index);
    }
}

bool QtWidgets::ItemText(int control, int index, svString& text) const {
    const ComboBox* combo = ComboAt(control);
    if (combo == nullptr || index < 0 || index >= combo->count()) {
        return false;
    }
    text = ToPanelText(combo->itemText(index));
    return true;
}

void QtWidgets::Redraw(int control) {
    if (QtControl* found = ControlAt(control)) {
        found->Widget().update();
    }
}

QtControl* QtWidgets::ControlAt(int control) const {
    if (control < 0 || control >= kControlCount) {
        return nullptr;
    }
    return controls[static_cast<std::size_t>(control)].control;
}

ComboBox* QtWidgets::ComboAt(int control) const {
    return dynamic_cast<ComboBox*>(ControlAt(control));
}

PortListBox* QtWidgets::PortList() const {
    return dynamic_cast<PortListBox*>(ControlAt(kPortList));
}

}  // namespace vexil
