// Load and Save: the edited configuration to and from a file of the person's choice.
#include "config/IniFile.h"
#include "config/SettingsFile.h"
#include "panel/CtrlPanel.h"
#include "panel/SettingsDialog.h"

namespace vexil {

void CtrlPanel::SaveSettingsToFile() {
    std::string path = kDefaultSettingsName;
    if (AskForFile(true, path) != 0) {
        return;  // cancelled, or the platform could not ask
    }
    IniFile file;
    bool saved = FitsPathBuffer(path) && file.Open(path.c_str());
    if (saved) {
        ExportSettings(kPortCount, file, edited);
        saved = file.Close();
    }
    if (!saved) {
        ShowFileAccessError(path, " file cannot be opened for read/write access.");
    }
}

void CtrlPanel::LoadSettingsFromFile() {
    std::string path;
    if (AskForFile(false, path) == 0) {
        LoadSettings(path);
    }
}

void CtrlPanel::LoadSettings(const std::string& path) {
    IniFile file;
    if (!FitsPathBuffer(path) || !file.Open(path.c_str())) {
        ShowFileAccessError(path, " file cannot be opened for read access.");
        return;
    }
    ImportSettings(kPortCount, file, edited);
    file.Close();  // nothing was edited, so nothing is written
    hostBrowser.RefreshHosts();
    RefreshPort();
    RefreshOptions();
    UpdateApplyButton();
}

void CtrlPanel::ShowFileAccessError(const std::string& path, const char* whatFailed) {
    const std::string explanation = path + whatFailed;
    Ask("File Access Error!", explanation.c_str(), nullptr, nullptr, nullptr, kAlertCaution);
}

std::int32_t CtrlPanel::AskForFile(bool save, std::string& path) {
    questionOpen = true;
    const std::int32_t status = RunFileDialog(dialogs, save, path);
    questionOpen = false;
    return status;
}

}  // namespace vexil
