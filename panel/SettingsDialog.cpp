#include "panel/SettingsDialog.h"

namespace vexil {

std::int32_t RunFileDialog(Dialogs& dialogs, bool save, std::string& path) {
    std::string chosen;
    const std::int32_t status = dialogs.RunFileChooser(save, save ? path : std::string(),
                                                       save ? "" : kSettingsTypeIdentifier, chosen);
    if (status == 0) {
        path = chosen;
    }
    return status;
}

}  // namespace vexil
