#include "platform/qt/FieldText.h"

#include <optional>
#include <string_view>

#include "shared/System/Utf8.h"

namespace vexil {

namespace {

constexpr char16_t kByteEscape = 0xDC00;
constexpr char32_t kReplacement = 0xFFFD;
constexpr unsigned char kFirstEscapedByte = 0x80;

bool IsLineBreak(QChar character) {
    switch (character.unicode()) {
        case u'\n':
        case u'\v':
        case u'\f':
        case u'\r':
        case 0x0085:
        case QChar::LineSeparator:
        case QChar::ParagraphSeparator:
            return true;
        default:
            return false;
    }
}

bool IsUnwanted(QChar character) {
    return IsLineBreak(character) || character.isNull();
}

}  // namespace

QString DecodeText(const char* text) {
    QString decoded;
    std::string_view rest = text;
    while (!rest.empty()) {
        const std::optional<char32_t> character = TakeUtf8(rest);
        if (!character) {
            decoded += QChar(static_cast<char16_t>(kByteEscape + static_cast<unsigned char>(rest.front())));
            rest.remove_prefix(1);
        } else if (QChar::requiresSurrogates(*character)) {
            decoded += QChar(QChar::highSurrogate(*character));
            decoded += QChar(QChar::lowSurrogate(*character));
        } else {
            decoded += QChar(static_cast<char16_t>(*character));
        }
    }
    return decoded;
}

std::string EncodeText(const QString& text) {
    std::string bytes;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar unit = text[i];
        if (unit.isNull()) {
            break;
        }
        if (unit.isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate()) {
            AppendUtf8(bytes, QChar::surrogateToUcs4(unit, text[i + 1]));
            ++i;
        } else if (unit.unicode() >= kByteEscape + kFirstEscapedByte &&
                   unit.unicode() <= kByteEscape + 0xFF) {
            bytes += static_cast<char>(unit.unicode() - kByteEscape);
        } else {
            AppendUtf8(bytes, unit.isSurrogate() ? kReplacement : unit.unicode());
        }
    }
    return bytes;
}

QString DrawnTitle(const QString& title) {
    QString drawn;
    for (const QChar character : title) {
        if (character.category() == QChar::Other_Control) {
            continue;
        }
        drawn += character;
        if (character == u'&') {
            drawn += character;
        }
    }
    return drawn;
}

QString PickedText(const QString& text) {
    int cursor = 0;
    QString picked = WithoutLineBreaks(text, cursor);
    picked.removeIf([](QChar character) { return character.category() == QChar::Other_Control; });
    return picked;
}

QString WithoutLineBreaks(const QString& text, int& cursor) {
    qsizetype first = 0;
    qsizetype end = text.size();
    while (first < end && IsUnwanted(text[first])) {
        ++first;
    }
    while (end > first && IsUnwanted(text[end - 1])) {
        --end;
    }

    QString clean;
    qsizetype cleanCursor = 0;
    for (qsizetype i = first; i < end; ++i) {
        const bool isPairEnd = i > first && text[i] == u'\n' && text[i - 1] == u'\r';
        if (!text[i].isNull() && !isPairEnd) {
            clean += IsLineBreak(text[i]) ? QChar(u' ') : text[i];
        }
        if (i < cursor) {
            cleanCursor = clean.size();
        }
    }
    cursor = static_cast<int>(cleanCursor);
    return clean;
}

}  // namespace vexil
