#include "platform/qt/TipLines.h"

#include <algorithm>

#include <QFontMetrics>
#include <QStringList>
#include <QToolTip>

namespace vexil {

namespace {

// Of the longest line, in letters of average width.
constexpr int kLongestLine = 60;

}  // namespace

QString TipInLines(const QString& tip) {
    const QFontMetrics metrics(QToolTip::font());
    const int longest = kLongestLine * metrics.averageCharWidth();
    const int lines = 1 + metrics.horizontalAdvance(tip) / longest;
    // A line of the average length still takes the word that begins in it, so that no short one comes last.
    const int average = metrics.horizontalAdvance(tip) / lines;
    QStringList broken{""};
    for (const QString& word : tip.split(' ')) {
        QString& line = broken.back();
        const QString longer = line.isEmpty() ? word : line + ' ' + word;
        if (line.isEmpty() ||
            (metrics.horizontalAdvance(line) < average && metrics.horizontalAdvance(longer) <= longest)) {
            line = longer;
        } else {
            broken << word;
        }
    }
    return broken.join('\n');
}

}  // namespace vexil
