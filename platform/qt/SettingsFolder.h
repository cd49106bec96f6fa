// The folder in which settings files were saved and loaded last, remembered between sessions. It is state of
// this user's desktop and no setting of the driver: it is kept in $XDG_STATE_HOME/vexil3/panel.ini.
#pragma once

#include <QString>

namespace vexil {

// The remembered folder; the user's documents folder while no folder is remembered or it is no longer there,
// and the home folder where there is no such one.
QString SettingsFolder();

// A failure is one log line and changes nothing else.
void RememberSettingsFolder(const QString& folder);

}  // namespace vexil
