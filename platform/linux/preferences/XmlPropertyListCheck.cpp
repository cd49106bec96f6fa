#include <charconv>
#include <chrono>
#include <cstdint>
#include <string>

#include "platform/linux/preferences/PropertyListCheck.h"
#include "platform/linux/preferences/XmlScanner.h"

namespace vexil {
namespace {

std::string_view Trimmed(std::string_view text) {
    while (!text.empty() && IsXmlSpace(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && IsXmlSpace(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

// A whole number of 64 bits, signed or not: what a property list can hold. The library takes one with leading
// zeros for octal.
bool IsInteger(std::string_view text) {
    text = Trimmed(text);
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+')) {
        text.remove_prefix(1);
    }
    int base = 10;
    if (text.starts_with("0x") || text.starts_with("0X")) {
        base = 16;
        text.remove_prefix(2);
    }
    if (base == 10 && text.size() > 1 && text.front() == '0') {
        return false;
    }
    std::uint64_t magnitude = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), magnitude, base);
    constexpr std::uint64_t kMostNegative = std::uint64_t{1} << 63U;
    return error == std::errc() && end == text.data() + text.size() &&
           (!negative || magnitude <= kMostNegative);
}

bool IsReal(std::string_view text) {
    text = Trimmed(text);
    if (text.starts_with('+') && !text.starts_with("+-")) {
        text.remove_prefix(1);
    }
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

bool IsBase64(std::string_view text) {
    constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::size_t digits = 0;
    std::size_t padding = 0;
    for (const char character : text) {
        if (IsXmlSpace(character)) {
            continue;
        }
        const bool pads = character == '=';
        if (!pads && (padding > 0 || kAlphabet.find(character) == std::string_view::npos)) {
            return false;
        }
        ++digits;
        padding += pads ? 1U : 0U;
    }
    return digits % 4 == 0 && padding <= 2;
}

// YYYY-MM-DDThh:mm:ssZ, a day of the calendar and a time of the day. The library makes another date of any
// other.
bool IsDate(std::string_view text) {
    constexpr std::string_view kForm = "0000-00-00T00:00:00Z";
    if (text.size() != kForm.size()) {
        return false;
    }
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool isDigit = text[i] >= '0' && text[i] <= '9';
        if (kForm[i] == '0' ? !isDigit : text[i] != kForm[i]) {
            return false;
        }
    }
    const auto twoDigits = [&](std::size_t at) {
        return static_cast<unsigned>((text[at] - '0') * 10 + (text[at + 1] - '0'));
    };
    const int year = static_cast<int>(twoDigits(0) * 100 + twoDigits(2));
    const std::chrono::year_month_day day{std::chrono::year(year), std::chrono::month(twoDigits(5)),
                                          std::chrono::day(twoDigits(8))};
    return day.ok() && twoDigits(11) < 24 && twoDigits(14) < 60 && twoDigits(17) < 60;
}

// Recursive descent, one call for each dictionary or array that is open: as deep as the limit and no deeper.
class XmlCheck {
  public:
    explicit XmlCheck(std::string_view text) : scanner(text) {}

    bool Document() {
        XmlTag tag;
        if (!scanner.Prolog() || !scanner.NextTag(tag)) {
            return false;
        }
        const bool wrapped = tag.name == "plist" && !tag.closing && !tag.empty;
        if (wrapped && !scanner.NextTag(tag)) {
            return false;
        }
        if (tag.closing || tag.name != "dict") {
            return scanner.Fail("the root is not a dictionary");
        }
        return (tag.empty || Dictionary(1)) && (!wrapped || scanner.ClosingTag("plist")) && scanner.Epilog();
    }

    std::string Problem() const { return scanner.Problem(); }

  private:
    bool Dictionary(unsigned depth) {
        for (;;) {
            XmlTag tag;
            if (!scanner.NextTag(tag)) {
                return false;
            }
            if (tag.closing) {
                return tag.name == "dict" || scanner.Fail("wrong closing tag");
            }
            std::string key;
            if (tag.name != "key") {
                return scanner.Fail("a key is missing");
            }
            if (!tag.empty && !scanner.Text("key", key)) {
                return false;
            }
            if (!Value(depth + 1)) {
                return false;
            }
        }
    }

    bool Array(unsigned depth) {
        while (!scanner.AtClosingTag()) {
            if (!Value(depth + 1)) {
                return false;
            }
        }
        return scanner.ClosingTag("array");
    }

    // `depth` is that of the value if it is a dictionary or an array.
    bool Value(unsigned depth) {
        XmlTag tag;
        if (!scanner.NextTag(tag)) {
            return false;
        }
        if (tag.closing) {
            return scanner.Fail("a value is missing");
        }
        if (tag.name == "dict" || tag.name == "array") {
            if (depth > kMaxPropertyListDepth) {
                return scanner.Fail("nested too deeply");
            }
            return tag.empty || (tag.name == "dict" ? Dictionary(depth) : Array(depth));
        }
        if (tag.name == "true" || tag.name == "false") {
            return tag.empty || scanner.ClosingTag(tag.name);
        }
        if (tag.name == "string") {
            std::string text;
            return tag.empty || scanner.Text("string", text);
        }
        // The library resolves nothing in the values of the other types.
        std::string_view text;
        if (!tag.empty && !scanner.PlainText(tag.name, text)) {
            return false;
        }
        const bool known = (tag.name == "integer" && IsInteger(text)) ||
                           (tag.name == "real" && IsReal(text)) || (tag.name == "data" && IsBase64(text)) ||
                           (tag.name == "date" && IsDate(text));
        return known || scanner.Fail("malformed value");
    }

    XmlScanner scanner;
};

}  // namespace

bool CheckXmlPropertyList(std::string_view text, std::string& problem) {
    XmlCheck check(text);
    if (check.Document()) {
        return true;
    }
    problem = check.Problem();
    return false;
}

}  // namespace vexil
