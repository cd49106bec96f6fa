#include "platform/qt/QtDialogs.h"

#include <algorithm>
#include <array>
#include <optional>

#include <QFile>
#include <QFontMetrics>
#include <QLabel>
#include <QList>
#include <QMessageBox>
#include <QPushButton>

#include "platform/qt/FieldText.h"
#include "platform/qt/FileChooser.h"
#include "platform/qt/FocusKeeper.h"
#include "platform/qt/QtWidgets.h"

namespace vexil {

namespace {

// A line of an explanation is broken where it is longer than this, pixels.
constexpr int kLongestLine = 460;

QMessageBox::Icon IconOf(int kind) {
    switch (kind) {
        case kAlertStop:
            return QMessageBox::Critical;
        case kAlertNote:
            return QMessageBox::Information;
        case kAlertCaution:
            return QMessageBox::Warning;
        default:
            return QMessageBox::NoIcon;
    }
}

// Where the desktop places a button, and what the titles of the toolkit's own buttons are.
struct ButtonStyle {
    QMessageBox::ButtonRole role;
    const char* toolkitTitle;
};

void ShowExplanation(QMessageBox& box, const QString& text) {
    box.setInformativeText(text);
    auto* label = box.findChild<QLabel*>("qt_msgbox_informativelabel");
    if (label == nullptr) {
        return;
    }
    // The format of the message is not for this text, which would guess at markup in, say, a file's name.
    label->setTextFormat(Qt::PlainText);
    // The toolkit breaks it at the width of the message above, which may be shorter than a single line.
    int longest = 0;
    for (const QString& line : text.split('\n')) {
        longest = std::max(longest, label->fontMetrics().horizontalAdvance(line));
    }
    label->setMinimumWidth(std::min(longest + 1, kLongestLine));
}

QPushButton* AddButton(QMessageBox& box, const AlertButton& button, const ButtonStyle& style) {
    if (button.kind == AlertButton::Kind::None) {
        return nullptr;
    }
    const QString title =
        DecodeText(button.kind == AlertButton::Kind::Titled ? button.title.c_str() : style.toolkitTitle);
    QPushButton* added = box.addButton(DrawnTitle(title), style.role);
    added->setProperty("title", title);
    return added;
}

}  // namespace

QtDialogs::QtDialogs(QtWidgets& qtWidgets) : widgets(qtWidgets) {}

int QtDialogs::RunAlert(const AlertRequest& request) {
    const FocusKeeper keepFocus(widgets.Window());
    QMessageBox box(widgets.Window());
    box.setLayoutDirection(Qt::LeftToRight);  // as its texts, whatever language the toolkit speaks
    box.setWindowModality(Qt::WindowModal);
    if (QWidget* window = widgets.Window()) {
        box.setWindowTitle(window->windowTitle());
    }
    box.setIcon(IconOf(request.kind));
    box.setTextFormat(Qt::PlainText);
    box.setText(DecodeText(request.message.c_str()));
    if (request.hasExplanation) {
        ShowExplanation(box, DecodeText(request.explanation.c_str()));
    }

    const bool hasCancel = request.cancelButton.kind != AlertButton::Kind::None;
    AlertButton defaultButton = request.defaultButton;
    if (defaultButton.kind == AlertButton::Kind::None) {
        defaultButton.kind = AlertButton::Kind::ToolkitDefault;
    }
    // Without a cancel button the other one is the way out.
    const QMessageBox::ButtonRole otherRole =
        hasCancel ? QMessageBox::DestructiveRole : QMessageBox::RejectRole;
    const std::array<QPushButton*, 3> buttons = {
        AddButton(box, defaultButton, {QMessageBox::AcceptRole, "OK"}),
        AddButton(box, request.cancelButton, {QMessageBox::RejectRole, "Cancel"}),
        AddButton(box, request.otherButton, {otherRole, "Don\xE2\x80\x99t Save"}),
    };
    const auto button = [&buttons](int number) { return buttons[static_cast<std::size_t>(number - 1)]; };

    if (request.defaultButtonNumber >= kAlertDefaultButton &&
        request.defaultButtonNumber <= kAlertOtherButton && button(request.defaultButtonNumber) != nullptr) {
        box.setDefaultButton(button(request.defaultButtonNumber));
    }
    QPushButton* escape = nullptr;
    for (const int number : {kAlertDefaultButton, kAlertOtherButton, kAlertCancelButton}) {
        if (button(number) != nullptr) {
            escape = button(number);
        }
    }
    box.setEscapeButton(escape);

    box.exec();
    for (const int number : {kAlertDefaultButton, kAlertCancelButton, kAlertOtherButton}) {
        if (box.clickedButton() != nullptr && box.clickedButton() == button(number)) {
            return number;
        }
    }
    return kAlertFailed;
}

std::int32_t QtDialogs::RunFileChooser(bool save, const std::string& proposedName,
                                       const std::string& /*typeIdentifier*/, std::string& path) {
    QWidget* window = widgets.Window();
    const FocusKeeper keepFocus(window);
    const std::optional<QString> chosen =
        save ? ChooseFileToSave(window, QFile::decodeName(QByteArray::fromStdString(proposedName)))
             : ChooseFileToLoad(window);
    if (!chosen) {
        return kUserCanceled;
    }
    path = QFile::encodeName(*chosen).toStdString();
    return 0;
}

}  // namespace vexil
