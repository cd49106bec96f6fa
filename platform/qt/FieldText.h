// The panel's texts are bytes, meant as UTF-8; Qt's are UTF-16. Bytes that are not valid UTF-8 survive the
// way there and back: each becomes a lone low surrogate (U+DC80 to U+DCFF), which no valid text contains.
#pragma once

#include <string>

#include <QString>

namespace vexil {

QString DecodeText(const char* text);
// Surrogates that stand for no byte become U+FFFD. The result holds no zero byte before its end.
std::string EncodeText(const QString& text);

// For titles, which are never mnemonics: control characters are left out, ampersands shown as such.
QString DrawnTitle(const QString& title);

// A text to pick from a list, as the list shows it in one line and a field takes it: line breaks as below,
// other control characters left out.
QString PickedText(const QString& text);

// A field's text without line breaks and zero characters: at either end they are dropped, within the text
// each break becomes a blank. `cursor`, a position in `text`, follows.
QString WithoutLineBreaks(const QString& text, int& cursor);

}  // namespace vexil
