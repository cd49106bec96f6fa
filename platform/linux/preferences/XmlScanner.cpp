#include "platform/linux/preferences/XmlScanner.h"

#include <algorithm>
#include <charconv>
#include <cstdint>

#include "platform/linux/preferences/PropertyText.h"
#include "shared/System/Utf8.h"

namespace vexil {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

char LowerCase(char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

// Whether an XML declaration names an encoding of which the document, being valid UTF-8, can be.
bool EncodingIsUtf8(std::string_view declaration) {
    const std::size_t name = declaration.find("encoding");
    const std::size_t open = name == std::string_view::npos ? name : declaration.find_first_of("\"'", name);
    if (open == std::string_view::npos) {
        return name == std::string_view::npos;
    }
    const std::size_t close = declaration.find(declaration[open], open + 1);
    if (close == std::string_view::npos) {
        return false;
    }
    std::string encoding(declaration.substr(open + 1, close - open - 1));
    std::transform(encoding.begin(), encoding.end(), encoding.begin(), LowerCase);
    return encoding == "utf-8" || encoding == "utf8" || encoding == "us-ascii";
}

}  // namespace

bool IsXmlSpace(char character) {
    return character == ' ' || character == '\t' || character == '\n' || character == '\r';
}

bool XmlScanner::Fail(const char* what) {
    if (failure == nullptr) {
        failure = what;
        failedAt = position;
    }
    return false;
}

std::string XmlScanner::Problem() const {
    return std::string(failure == nullptr ? "malformed" : failure) + " at byte " + std::to_string(failedAt);
}

bool XmlScanner::SkipPast(std::string_view end) {
    const std::size_t found = text.find(end, position);
    if (found == std::string_view::npos) {
        return Fail("cut off");
    }
    position = found + end.size();
    return true;
}

void XmlScanner::SkipSpace() {
    while (position < text.size() && IsXmlSpace(text[position])) {
        ++position;
    }
}

bool XmlScanner::SkipMisc() {
    for (;;) {
        SkipSpace();
        if (StartsWith("<!--")) {
            position += 4;
            if (!SkipPast("-->")) {
                return false;
            }
        } else if (StartsWith("<?")) {
            if (!SkipPast("?>")) {
                return false;
            }
        } else {
            return true;
        }
    }
}

bool XmlScanner::CheckCharacters() {
    for (std::string_view rest = text; !rest.empty();) {
        position = text.size() - rest.size();
        const std::optional<char32_t> character = TakeUtf8(rest);
        if (!character || !IsXmlCharacter(*character)) {
            return Fail("not a character of XML in UTF-8");
        }
    }
    position = 0;
    return true;
}

bool XmlScanner::Declaration() {
    if (!StartsWith("<?xml")) {
        return true;
    }
    const std::size_t start = position;
    if (!SkipPast("?>")) {
        return false;
    }
    return EncodingIsUtf8(Since(start)) || Fail("encoding is not UTF-8");
}

// Skipped unread, the declarations inside it included: what they declare may not be used.
bool XmlScanner::DocumentType() {
    bool inside = false;
    while (position < text.size()) {
        const char character = text[position];
        if (StartsWith("<!--")) {
            position += 4;
            if (!SkipPast("-->")) {
                return false;
            }
            continue;
        }
        ++position;
        if (character == '"' || character == '\'') {
            if (!SkipPast(std::string_view(&character, 1))) {
                return false;
            }
        } else if (character == '[') {
            inside = true;
        } else if (character == ']') {
            inside = false;
        } else if (character == '>' && !inside) {
            return true;
        }
    }
    return Fail("cut off");
}

bool XmlScanner::Prolog() {
    if (!CheckCharacters()) {
        return false;
    }
    if (StartsWith(kByteOrderMark)) {
        position += kByteOrderMark.size();
    }
    if (!Declaration() || !SkipMisc()) {
        return false;
    }
    return !StartsWith("<!DOCTYPE") || (DocumentType() && SkipMisc());
}

bool XmlScanner::Epilog() {
    if (!SkipMisc()) {
        return false;
    }
    return position == text.size() || Fail("text after the end");
}

bool XmlScanner::NextTag(XmlTag& tag) {
    if (!SkipMisc()) {
        return false;
    }
    if (position == text.size()) {
        return Fail("cut off");
    }
    tag = {};
    if (text[position] != '<') {
        return Fail("text where an element is wanted");
    }
    ++position;
    tag.closing = StartsWith("/");
    position += tag.closing ? 1U : 0U;
    const std::size_t name = position;
    position = std::min(text.find_first_of(" \t\r\n/><&\"'=", position), text.size());
    tag.name = Since(name);
    if (tag.name.empty() || tag.name.front() == '!') {
        return Fail("malformed tag");
    }
    while (position < text.size()) {
        const char character = text[position++];
        if (character == '>') {
            return true;
        }
        if (character == '<') {
            break;
        }
        if (character == '/' && !tag.closing && StartsWith(">")) {
            ++position;
            tag.empty = true;
            return true;
        }
        // Attributes, of which property lists use none but the root's version, are skipped.
        if ((character == '"' || character == '\'') && !SkipPast(std::string_view(&character, 1))) {
            return false;
        }
    }
    return Fail(position < text.size() ? "malformed tag" : "cut off");
}

bool XmlScanner::ClosingTag(std::string_view name) {
    XmlTag tag;
    if (!NextTag(tag)) {
        return false;
    }
    return (tag.closing && tag.name == name) || Fail("wrong closing tag");
}

bool XmlScanner::AtClosingTag() {
    return SkipMisc() && StartsWith("</");
}

bool XmlScanner::Text(std::string_view name, std::string& result) {
    return TextBeforeTag(result) && (StartsWith("</") || Fail("element inside a text")) && ClosingTag(name);
}

bool XmlScanner::PlainText(std::string_view name, std::string_view& result) {
    const std::size_t start = position;
    position = std::min(text.find_first_of("<&", position), text.size());
    result = Since(start);
    return (StartsWith("</") || Fail(position < text.size() ? "markup inside a value" : "cut off")) &&
           ClosingTag(name);
}

bool XmlScanner::TextBeforeTag(std::string& result) {
    while (position < text.size()) {
        const std::size_t end = std::min(text.find_first_of("<&\r", position), text.size());
        result += text.substr(position, end - position);
        position = end;
        if (StartsWith("\r")) {
            position += StartsWith("\r\n") ? 2U : 1U;
            result += '\n';
        } else if (StartsWith("&")) {
            if (!Reference(result)) {
                return false;
            }
        } else if (StartsWith("<![CDATA[")) {
            position += 9;
            const std::size_t start = position;
            if (!SkipPast("]]>")) {
                return false;
            }
            std::string section(Since(start).substr(0, position - start - 3));
            for (std::size_t at = 0; (at = section.find('\r', at)) != std::string::npos; ++at) {
                section.replace(at, section.compare(at, 2, "\r\n") == 0 ? 2 : 1, "\n");
            }
            result += section;
        } else if (StartsWith("<!--") || StartsWith("<?")) {
            if (!SkipPast(StartsWith("<?") ? "?>" : "-->")) {
                return false;
            }
        } else if (position < text.size()) {
            return true;
        }
    }
    return Fail("cut off");
}

bool XmlScanner::Reference(std::string& result) {
    const std::size_t end = text.substr(position, 16).find(';');
    if (end == std::string_view::npos) {
        return Fail("malformed reference");
    }
    std::string_view name = text.substr(position + 1, end - 1);
    constexpr std::pair<std::string_view, char> kNamed[] = {
        {"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}};
    for (const auto& [known, character] : kNamed) {
        if (name == known) {
            result += character;
            position += end + 1;
            return true;
        }
    }
    if (!name.starts_with('#')) {
        return Fail("reference to an unknown entity");
    }
    const int base = name.starts_with("#x") ? 16 : 10;
    name.remove_prefix(base == 16 ? 2 : 1);
    std::uint32_t character = 0;
    const auto [last, error] = std::from_chars(name.data(), name.data() + name.size(), character, base);
    if (name.empty() || error != std::errc() || last != name.data() + name.size() ||
        !IsXmlCharacter(character)) {
        return Fail("malformed reference");
    }
    AppendUtf8(result, character);
    position += end + 1;
    return true;
}

}  // namespace vexil
