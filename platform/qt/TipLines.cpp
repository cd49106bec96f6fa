#include "platform/qt/TipLines.h"

#include <QFontMetrics>
#include <QList>
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
    const int space = metrics.horizontalAdvance(' ');
    // Each word is measured once: to measure the lines as they grow took half of what a start costs beyond a
    // bare window.
    const QStringList words = tip.split(' ');
    QList<int> widths;
    int whole = -space;
    for (const QString& word : words) {
        widths << metrics.horizontalAdvance(word);
        whole += space + widths.back();
    }
    const int lines = 1 + whole / longest;
    // A line of the average length still takes the word that begins in it, so that no short one comes last.
    const int average = whole / lines;
    QString broken = words.front();
    int line = widths.front();
    for (qsizetype word = 1; word < words.size(); ++word) {
        const int longer = line + space + widths[word];
        const bool fits = line == 0 || (line < average && longer <= longest);
        broken += (fits ? ' ' : '\n') + words[word];
        line = fits ? longer : widths[word];
    }
    return broken;
}

}  // namespace vexil
