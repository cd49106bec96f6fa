// The lexical level of XML, as far as property lists need it: tags, character data, and what stands between
// them (comments, processing instructions, CDATA sections, the document type). Works on one text in memory,
// which it refers to; allocates only the texts that it hands out.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vexil {

bool IsXmlSpace(char character);

struct XmlTag {
    std::string_view name;
    bool closing = false;  // </name>
    bool empty = false;    // <name/>
};

// Each operation returns false after a failure, the first of which is kept for Problem().
class XmlScanner {
  public:
    explicit XmlScanner(std::string_view document) : text(document) {}

    // What precedes the root element. Also checks that the whole document is UTF-8 and holds only characters
    // that XML allows, which the other operations rely on.
    bool Prolog();
    // What follows the root element, to the end.
    bool Epilog();

    // The next tag, where only blanks, comments and processing instructions may precede it.
    bool NextTag(XmlTag& tag);
    bool ClosingTag(std::string_view name);
    // Whether the next tag is a closing one. False at the end and before a malformed one.
    bool AtClosingTag();

    // The character data up to the closing tag of `name`, which is taken too; another tag is a failure. Line
    // ends are made line feeds, references resolved. References to entities that a document type declares are
    // a failure.
    bool Text(std::string_view name, std::string& result);
    // The same where the text may hold nothing but characters that stand for themselves: no reference,
    // comment, section or processing instruction.
    bool PlainText(std::string_view name, std::string_view& result);
    bool Fail(const char* what);
    std::string Problem() const;

  private:
    // The document's text from a position to where the scanner stands.
    std::string_view Since(std::size_t start) const { return text.substr(start, position - start); }
    bool TextBeforeTag(std::string& result);
    bool StartsWith(std::string_view start) const { return text.substr(position).starts_with(start); }
    bool SkipPast(std::string_view end);
    void SkipSpace();
    bool SkipMisc();
    bool CheckCharacters();
    bool Declaration();
    bool DocumentType();
    bool Reference(std::string& result);

    std::string_view text;
    std::size_t position = 0;
    const char* failure = nullptr;
    std::size_t failedAt = 0;
};

}  // namespace vexil
