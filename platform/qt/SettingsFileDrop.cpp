#include "platform/qt/SettingsFileDrop.h"

#include <QDragEnterEvent>
#include <QList>
#include <QUrl>

namespace vexil {

QString DraggedSettingsFile(const QMimeData& data) {
    const QList<QUrl> urls = data.urls();
    if (urls.size() != 1 || !urls.front().isLocalFile()) {
        return {};
    }
    QString path = urls.front().toLocalFile();
    return path.endsWith(QLatin1String(".vexil3"), Qt::CaseInsensitive) ? path : QString();
}

bool IsSettingsFileDrag(const QEvent& event) {
    const auto& drag = static_cast<const QDragEnterEvent&>(event);
    return drag.mimeData() != nullptr && !DraggedSettingsFile(*drag.mimeData()).isEmpty();
}

}  // namespace vexil
