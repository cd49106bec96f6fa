#include "platform/qt/FileChooser.h"

#include <QCoreApplication>
#include <QFileDialog>
#include <QFileInfo>
#include <QMessageBox>

#include "platform/qt/SettingsFolder.h"

namespace vexil {

namespace {

constexpr const char* kSuffix = "vexil3";

// A chosen path, and whether the chooser was about that path when it asked whether to replace a file.
struct Chosen {
    QString path;
    bool isCompleted = false;
};

QString WithSuffix(const QString& path) {
    return QFileInfo(path).suffix().isEmpty() ? path + '.' + kSuffix : path;
}

std::optional<Chosen> Run(QFileDialog& dialog) {
    const bool save = dialog.acceptMode() == QFileDialog::AcceptSave;
    dialog.setWindowModality(Qt::WindowModal);
    dialog.setWindowTitle(save ? "Save Settings" : "Load Settings");
    dialog.setNameFilters({"Vexil III settings (*.vexil3)", "All files (*)"});
    dialog.open();
    // The toolkit completes the name and then asks; the desktop's chooser asks, and the toolkit would
    // complete the name behind its back.
    const bool isDesktops = dialog.testAttribute(Qt::WA_DontShowOnScreen);
    if (save && !isDesktops) {
        dialog.setDefaultSuffix(kSuffix);
    }
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) {
        return std::nullopt;
    }
    return Chosen{dialog.selectedFiles().constFirst(), !isDesktops};
}

bool AsksToReplace(QWidget* window, const QString& path) {
    const QString question =
        QCoreApplication::translate("QFileDialog", "%1 already exists.\nDo you want to replace it?")
            .arg(QFileInfo(path).fileName());
    QMessageBox box(QMessageBox::Warning, "Save Settings", question, QMessageBox::Yes | QMessageBox::No,
                    window);
    box.setWindowModality(Qt::WindowModal);
    box.setTextFormat(Qt::PlainText);
    box.setDefaultButton(QMessageBox::No);
    return box.exec() == QMessageBox::Yes;
}

}  // namespace

std::optional<QString> ChooseFileToLoad(QWidget* window) {
    QFileDialog dialog(window);
    dialog.setAcceptMode(QFileDialog::AcceptOpen);
    dialog.setFileMode(QFileDialog::ExistingFile);
    dialog.setDirectory(SettingsFolder());
    const std::optional<Chosen> chosen = Run(dialog);
    if (!chosen) {
        return std::nullopt;
    }
    RememberSettingsFolder(QFileInfo(chosen->path).absolutePath());
    return chosen->path;
}

std::optional<QString> ChooseFileToSave(QWidget* window, const QString& proposed) {
    QString folder = SettingsFolder();
    QString name = proposed;
    for (;;) {
        QFileDialog dialog(window);
        dialog.setAcceptMode(QFileDialog::AcceptSave);
        dialog.setFileMode(QFileDialog::AnyFile);
        dialog.setDirectory(folder);
        dialog.selectFile(name);
        const std::optional<Chosen> chosen = Run(dialog);
        if (!chosen) {
            return std::nullopt;
        }
        const QString path = WithSuffix(chosen->path);
        folder = QFileInfo(path).absolutePath();
        name = QFileInfo(path).fileName();
        const bool wasAsked = chosen->isCompleted || path == chosen->path;
        if (!wasAsked && QFileInfo::exists(path) && !AsksToReplace(window, path)) {
            continue;
        }
        RememberSettingsFolder(folder);
        return path;
    }
}

}  // namespace vexil
