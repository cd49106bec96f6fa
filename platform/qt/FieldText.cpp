#include "platform/qt/FieldText.h"

namespace vexil {

namespace {

constexpr char16_t kByteEscape = 0xDC00;
constexpr char32_t kReplacement = 0xFFFD;
constexpr unsigned char kFirstEscapedByte = 0x80;

bool IsContinuation(unsigned char byte) {
    return (byte & 0xC0) == 0x80;
}

// Length of the well-formed UTF-8 sequence at `bytes` (zero-terminated, so reading stops in time) and its
// character; 0 when there is none.
int ReadSequence(const unsigned char* bytes, char32_t& character) {
    const unsigned char lead = bytes[0];
    int length = 0;
    char32_t smallest = 0;
    if (lead < 0x80) {
        character = lead;
        return 1;
    }
    if ((lead & 0xE0) == 0xC0) {
        length = 2;
        smallest = 0x80;
        character = lead & 0x1F;
    } else if ((lead & 0xF0) == 0xE0) {
        length = 3;
        smallest = 0x800;
        character = lead & 0x0F;
    } else if ((lead & 0xF8) == 0xF0) {
        length = 4;
        smallest = 0x10000;
        character = lead & 0x07;
    } else {
        return 0;
    }
    for (int i = 1; i < length; ++i) {
        if (!IsContinuation(bytes[i]))
            return 0;
        character = (character << 6) | (bytes[i] & 0x3F);
    }
    const bool isSurrogate = character >= 0xD800 && character <= 0xDFFF;
    return character < smallest || character > 0x10FFFF || isSurrogate ? 0 : length;
}

void AppendUtf8(std::string& bytes, char32_t character) {
    const auto append = [&bytes](char32_t byte) { bytes += static_cast<char>(byte); };
    if (character < 0x80) {
        append(character);
    } else if (character < 0x800) {
        append(0xC0 | (character >> 6));
        append(0x80 | (character & 0x3F));
    } else if (character < 0x10000) {
        append(0xE0 | (character >> 12));
        append(0x80 | ((character >> 6) & 0x3F));
        append(0x80 | (character & 0x3F));
    } else {
        append(0xF0 | (character >> 18));
        append(0x80 | ((character >> 12) & 0x3F));
        append(0x80 | ((character >> 6) & 0x3F));
        append(0x80 | (character & 0x3F));
    }
}

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
    const auto* bytes = reinterpret_cast<const unsigned char*>(text);
    while (*bytes != 0) {
        char32_t character = 0;
        const int length = ReadSequence(bytes, character);
        if (length == 0) {
            decoded += QChar(static_cast<char16_t>(kByteEscape + *bytes));
            ++bytes;
            continue;
        }
        if (QChar::requiresSurrogates(character)) {
            decoded += QChar(QChar::highSurrogate(character));
            decoded += QChar(QChar::lowSurrogate(character));
        } else {
            decoded += QChar(static_cast<char16_t>(character));
        }
        bytes += length;
    }
    return decoded;
}

std::string EncodeText(const QString& text) {
    std::string bytes;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar unit = text[i];
        if (unit.isNull())
            break;
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
        if (character.category() == QChar::Other_Control)
            continue;
        drawn += character;
        if (character == u'&')
            drawn += character;
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
    while (first < end && IsUnwanted(text[first]))
        ++first;
    while (end > first && IsUnwanted(text[end - 1]))
        --end;

    QString clean;
    qsizetype cleanCursor = 0;
    for (qsizetype i = first; i < end; ++i) {
        const bool isPairEnd = i > first && text[i] == u'\n' && text[i - 1] == u'\r';
        if (!text[i].isNull() && !isPairEnd)
            clean += IsLineBreak(text[i]) ? QChar(u' ') : text[i];
        if (i < cursor)
            cleanCursor = clean.size();
    }
    cursor = static_cast<int>(cleanCursor);
    return clean;
}

}  // namespace vexil
