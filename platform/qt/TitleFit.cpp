#include "platform/qt/TitleFit.h"

#include <QFont>
#include <QFontMetricsF>

namespace vexil {

void FitTitle(QWidget& widget, const QString& title, int available) {
    const double excess = QFontMetricsF(widget.font()).horizontalAdvance(title) - available;
    if (excess <= 0 || title.isEmpty())
        return;
    QFont font = widget.font();
    font.setLetterSpacing(QFont::AbsoluteSpacing, -excess / static_cast<double>(title.size()));
    widget.setFont(font);
}

}  // namespace vexil
