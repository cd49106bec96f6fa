#include "platform/qt/SettingsFolder.h"

#include <QDir>
#include <QFileInfo>
#include <QSettings>
#include <QStandardPaths>

#include "shared/System/svLog.h"

namespace vexil {

namespace {

constexpr const char* kFolderKey = "SettingsFolder";

// The toolkit of today knows no place for state.
QString StateFile() {
    QString state = qEnvironmentVariable("XDG_STATE_HOME");
    // As the rules for that variable say: a relative path is no path.
    if (!QDir::isAbsolutePath(state)) {
        state = QDir::homePath() + "/.local/state";
    }
    return state + "/vexil3/panel.ini";
}

}  // namespace

QString SettingsFolder() {
    const QSettings state(StateFile(), QSettings::IniFormat);
    for (const QString& folder : {state.value(kFolderKey).toString(),
                                  QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation)}) {
        if (!folder.isEmpty() && QFileInfo(folder).isDir()) {
            return folder;
        }
    }
    return QDir::homePath();
}

void RememberSettingsFolder(const QString& folder) {
    QSettings state(StateFile(), QSettings::IniFormat);
    if (state.value(kFolderKey).toString() == folder) {
        return;
    }
    state.setValue(kFolderKey, folder);
    state.sync();
    if (state.status() != QSettings::NoError) {
        LogPrintf("Cannot remember the folder of settings files in %s.\n",
                  QFile::encodeName(state.fileName()).constData());
    }
}

}  // namespace vexil
