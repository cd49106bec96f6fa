#include "platform/qt/TitleFit.h"

#include <algorithm>

#include <QFont>
#include <QFontMetricsF>

namespace vexil {

namespace {

// The narrowest letters that are still read easily, of their own width at that height.
constexpr double kNarrowest = 0.6;
// Lower digits than this, of a text of 13 pixels, lose their shapes.
constexpr double kLowest = 0.75;

}  // namespace

void FitTitle(QWidget& widget, const QString& title, int available) {
    const double excess = QFontMetricsF(widget.font()).horizontalAdvance(title) - available;
    if (excess <= 0 || title.isEmpty()) {
        return;
    }
    QFont font = widget.font();
    font.setLetterSpacing(QFont::AbsoluteSpacing, -excess / static_cast<double>(title.size()));
    widget.setFont(font);
}

int BaselineIn(const QFontMetrics& metrics, int height) {
    return std::min(metrics.ascent(), height - metrics.descent());
}

TextScale ScaleToFit(double advance, double available) {
    if (advance <= available) {
        return {};
    }
    const double scale = available / advance;
    return {scale, std::clamp(scale / kNarrowest, kLowest, 1.0)};
}

}  // namespace vexil
