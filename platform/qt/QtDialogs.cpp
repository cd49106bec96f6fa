#include "platform/qt/QtDialogs.h"

#include <array>

#include <QFile>
#include <QFileDialog>
#include <QLabel>
#include <QList>
#include <QMessageBox>
#include <QPushButton>

#include "platform/qt/FieldText.h"
#include "platform/qt/QtWidgets.h"

namespace vexil {

namespace {

constexpr const char* kSettingsType = "com.sonavert.vexil3.vexp3";
constexpr const char* kSettingsSuffix = "vexil3";

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

QPushButton* AddButton(QMessageBox& box, const AlertButton& button, const ButtonStyle& style) {
    if (button.kind == AlertButton::Kind::None)
        return nullptr;
    const QString title =
        DecodeText(button.kind == AlertButton::Kind::Titled ? button.title.c_str() : style.toolkitTitle);
    QPushButton* added = box.addButton(DrawnTitle(title), style.role);
    added->setProperty("title", title);
    return added;
}

}  // namespace

QtDialogs::QtDialogs(QtWidgets& qtWidgets) : widgets(qtWidgets) {}

int QtDialogs::RunAlert(const AlertRequest& request) {
    QMessageBox box(widgets.Window());
    box.setWindowModality(Qt::WindowModal);
    if (QWidget* window = widgets.Window())
        box.setWindowTitle(window->windowTitle());
    box.setIcon(IconOf(request.kind));
    box.setTextFormat(Qt::PlainText);
    box.setText(DecodeText(request.message.c_str()));
    if (request.hasExplanation) {
        box.setInformativeText(DecodeText(request.explanation.c_str()));
        // The format above is not for this text, which would guess at markup in, say, a file's name.
        if (auto* label = box.findChild<QLabel*>("qt_msgbox_informativelabel"))
            label->setTextFormat(Qt::PlainText);
    }

    const bool hasCancel = request.cancelButton.kind != AlertButton::Kind::None;
    AlertButton defaultButton = request.defaultButton;
    if (defaultButton.kind == AlertButton::Kind::None)
        defaultButton.kind = AlertButton::Kind::ToolkitDefault;
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
        request.defaultButtonNumber <= kAlertOtherButton && button(request.defaultButtonNumber) != nullptr)
        box.setDefaultButton(button(request.defaultButtonNumber));
    QPushButton* escape = nullptr;
    for (const int number : {kAlertDefaultButton, kAlertOtherButton, kAlertCancelButton}) {
        if (button(number) != nullptr)
            escape = button(number);
    }
    box.setEscapeButton(escape);

    box.exec();
    for (const int number : {kAlertDefaultButton, kAlertCancelButton, kAlertOtherButton}) {
        if (box.clickedButton() != nullptr && box.clickedButton() == button(number))
            return number;
    }
    return kAlertFailed;
}

std::int32_t QtDialogs::RunFileChooser(bool save, const std::string& proposedName,
                                       const std::string& typeIdentifier, std::string& path) {
    QFileDialog dialog(widgets.Window());
    dialog.setWindowModality(Qt::WindowModal);
    dialog.setAcceptMode(save ? QFileDialog::AcceptSave : QFileDialog::AcceptOpen);
    dialog.setFileMode(save ? QFileDialog::AnyFile : QFileDialog::ExistingFile);
    dialog.setWindowTitle(save ? "Save Settings" : "Load Settings");
    if (save || typeIdentifier == kSettingsType)
        dialog.setNameFilters({"Vexil III settings (*.vexil3)", "All files (*)"});
    if (save) {
        dialog.setDefaultSuffix(kSettingsSuffix);
        dialog.selectFile(QFile::decodeName(QByteArray::fromStdString(proposedName)));
    }
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
        return kUserCanceled;
    path = QFile::encodeName(dialog.selectedFiles().constFirst()).toStdString();
    return 0;
}

}  // namespace vexil
