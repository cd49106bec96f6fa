// Settings files that are dragged onto the window.
#pragma once

#include <QEvent>
#include <QMimeData>
#include <QString>

namespace vexil {

// The absolute path of the one local settings file that is dragged; empty when something else is.
QString DraggedSettingsFile(const QMimeData& data);

// Whether a DragEnter event brings a settings file.
bool IsSettingsFileDrag(const QEvent& event);

}  // namespace vexil
