// printf-style formatting of svString: the estimate of the greatest length, and the formatting itself.
#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "shared/System/svString.h"
#include "shared/System/svStringCheck.h"

namespace vexil {

namespace {

constexpr std::int64_t kNullTextLength = 6;         // "(null)"
constexpr std::int64_t kIntegerLength = 32;         // at least this for any integer or pointer
constexpr std::int64_t kExponentLength = 128;       // at least this for e, g and G
constexpr std::int64_t kExtraPlaces = 6;            // places that f is sized for beyond its precision
constexpr std::int64_t kMostFractionPlaces = 1074;  // a double has no non-zero place beyond this one

// One conversion, from behind its "%".
struct Conversion {
    std::int64_t width = 0;
    std::int64_t precision = 0;
    bool hasPrecision = false;
    char modifier = '\0';  // h, l, L, F, N, or none
    char letter = '\0';
};

// Walks a format and its arguments once. The argument list is a copy of the caller's.
class FormatWalk {
  public:
    FormatWalk(const char* text, va_list argList) : format(text), libraryFormat(text) {
        va_copy(arguments, argList);
    }
    ~FormatWalk() { va_end(arguments); }
    FormatWalk(const FormatWalk&) = delete;
    FormatWalk& operator=(const FormatWalk&) = delete;

    // The greatest length that the text can have, estimated. `visitText` is called for every text argument.
    template <class VisitText>
    std::int64_t Estimate(const VisitText& visitText);

    // The format for the C library, in which each modifier means what it was sized as.
    const char* LibraryFormat() const { return libraryFormat.c_str(); }

  private:
    bool AtDigit() const { return *position >= '0' && *position <= '9'; }
    std::int64_t Number();
    void ReadWidth(Conversion& conversion);
    void ReadPrecision(Conversion& conversion);
    void ReadModifier(Conversion& conversion);
    void SkipInteger(const Conversion& conversion);
    double Floating(const Conversion& conversion);
    void Translate(const Conversion& conversion);

    const char* format;
    const char* position = nullptr;
    std::int64_t total = 0;
    std::string libraryFormat;
    std::size_t dropped = 0;  // characters that libraryFormat lacks in front of the position
    va_list arguments;
};

// The number at the position as atoi reads it, limited to its range, and past its digits.
std::int64_t FormatWalk::Number() {
    const std::int64_t number =
        std::clamp<std::int64_t>(std::strtoll(position, nullptr, 10), INT_MIN, INT_MAX);
    while (AtDigit()) {
        ++position;
    }
    return number;
}

void FormatWalk::ReadWidth(Conversion& conversion) {
    for (; *position != '\0' && std::strchr("#*-+0 ", *position) != nullptr; ++position) {
        if (*position == '#') {
            total += 2;
        } else if (*position == '*') {
            conversion.width = va_arg(arguments, int);
        }
    }
    if (conversion.width == 0) {
        conversion.width = Number();
    }
    CheckString(conversion.width >= 0, "nWidth >= 0");
}

void FormatWalk::ReadPrecision(Conversion& conversion) {
    if (*position != '.') {
        return;
    }
    ++position;
    conversion.hasPrecision = true;
    if (*position == '*') {
        conversion.precision = va_arg(arguments, int);
        ++position;
    } else {
        conversion.precision = Number();
    }
    CheckString(conversion.precision >= 0, "nPrecision >= 0");
}

void FormatWalk::ReadModifier(Conversion& conversion) {
    CheckString(std::strncmp(position, "I64", 3) != 0, "FALSE");
    if (*position != '\0' && std::strchr("FLNhl", *position) != nullptr) {
        conversion.modifier = *position++;
    }
    conversion.letter = *position;
}

// Consumes what the C library will consume, so that the arguments after it stay in step.
void FormatWalk::SkipInteger(const Conversion& conversion) {
    if (conversion.letter == 'p') {
        static_cast<void>(va_arg(arguments, void*));
    } else if (conversion.modifier == 'l') {
        static_cast<void>(va_arg(arguments, long));
    } else {
        static_cast<void>(va_arg(arguments, int));
    }
}

double FormatWalk::Floating(const Conversion& conversion) {
    if (conversion.modifier == 'L') {
        return static_cast<double>(va_arg(arguments, long double));
    }
    return va_arg(arguments, double);
}

// F and N say nothing here, nor does L except before a floating conversion, and hS is the narrow text; the C
// library has other ideas of all of them.
void FormatWalk::Translate(const Conversion& conversion) {
    const auto at = static_cast<std::size_t>(position - format) - dropped;
    if (conversion.letter == 'S') {
        libraryFormat[at] = 's';
    }
    const bool floating = std::strchr("efgG", conversion.letter) != nullptr;
    if (conversion.modifier == 'F' || conversion.modifier == 'N' ||
        (conversion.modifier == 'L' && !floating)) {
        libraryFormat.erase(at - 1, 1);
        ++dropped;
    }
}

// At least 1 and, with a precision, at most that; no more of the text is read than the precision allows.
std::int64_t TextItemLength(const char* text, const Conversion& conversion) {
    const std::int64_t most = conversion.hasPrecision ? conversion.precision : INT64_MAX;
    if (text == nullptr) {
        return std::min(kNullTextLength, most);
    }
    const auto length = static_cast<std::int64_t>(strnlen(text, static_cast<std::size_t>(most)));
    return std::min(std::max<std::int64_t>(length, 1), most);
}

// The length of the number written with "%*.*f", the width and six places more than the precision.
std::int64_t FixedPointLength(double number, const Conversion& conversion) {
    const std::int64_t places = conversion.precision + kExtraPlaces;
    const std::int64_t written = std::min(places, kMostFractionPlaces);
    std::int64_t length = std::snprintf(nullptr, 0, "%.*f", static_cast<int>(written), number);
    if (std::isfinite(number)) {
        length += places - written;
    }
    return std::max(length, conversion.width);
}

template <class VisitText>
std::int64_t FormatWalk::Estimate(const VisitText& visitText) {
    const char* const end = format + std::strlen(format);
    for (position = format; *position != '\0'; ++position) {
        if (*position != '%' || *++position == '%') {
            // The whole rest of the format for each literal character: far too much, and meant to be.
            total += end - position;
            continue;
        }
        Conversion conversion;
        ReadWidth(conversion);
        ReadPrecision(conversion);
        ReadModifier(conversion);
        const std::int64_t padded = conversion.width + conversion.precision;
        switch (conversion.letter) {
            case 'S':
            case 's': {
                const bool narrow =
                    conversion.letter == 's' ? conversion.modifier != 'l' : conversion.modifier == 'h';
                CheckString(narrow, "FALSE");
                const char* const text = va_arg(arguments, const char*);
                visitText(text);
                total += std::max(TextItemLength(text, conversion), conversion.width);
                break;
            }
            case 'd':
            case 'i':
            case 'o':
            case 'u':
            case 'x':
            case 'X':
            case 'p':
                SkipInteger(conversion);
                total += std::max(kIntegerLength, padded);
                break;
            case 'e':
            case 'g':
            case 'G':
                Floating(conversion);
                total += std::max(kExponentLength, padded);
                break;
            case 'f':
                total += FixedPointLength(Floating(conversion), conversion);
                break;
            case 'n':
                static_cast<void>(va_arg(arguments, void*));
                break;
            default:
                CheckString(false, "FALSE");
        }
        Translate(conversion);
    }
    return total;
}

}  // namespace

void svString::Format(const char* lpszFormat, ...) {
    va_list argList;
    va_start(argList, lpszFormat);
    FormatV(lpszFormat, argList);
    va_end(argList);
}

void svString::FormatV(const char* lpszFormat, va_list argList) {
    CheckString(lpszFormat != nullptr, "gIsValidString(lpszFormat)");
    FormatWalk walk(lpszFormat, argList);
    bool readsOwnText = Owns(lpszFormat);
    const std::int64_t nMaxLength =
        walk.Estimate([&](const char* text) { readsOwnText = readsOwnText || Owns(text); });

    // A text that is made from this string's own characters is written elsewhere, so that they last until it
    // is done.
    svString elsewhere;
    svString& target = readsOwnText ? elsewhere : *this;
    target.Reserve(nMaxLength);
    // Nothing may be written to the block of an empty string, and nothing fits into it.
    const int nAllocLength = target.GetAllocLength();
    const int r = std::vsnprintf(nAllocLength == 0 ? nullptr : target.m_pchData,
                                 nAllocLength == 0 ? 0 : static_cast<std::size_t>(nAllocLength) + 1,
                                 walk.LibraryFormat(), argList);
    CheckString(r <= nAllocLength, "r <= GetAllocLength()");
    target.ReleaseBuffer(-1);
    if (readsOwnText) {
        std::swap(m_pchData, elsewhere.m_pchData);
    }
}

}  // namespace vexil
