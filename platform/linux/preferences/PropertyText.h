// How texts are stored in XML property lists. Most texts are stored as they are. XML has no place for bytes
// that are not valid UTF-8 nor for some characters (control characters, U+FFFE, U+FFFF), and a reader of XML
// turns a carriage return into a line feed; yet such texts must come back byte for byte, from a file that
// every property-list tool reads.
//
// So each byte b of what XML cannot carry is stored as the private-use character U+F700 + b, and the
// characters U+F700 to U+F7FF themselves are stored the same way, byte by byte. For example the name
// "B\xFChne" (Latin-1) is stored as B U+F7FC h n e.
#pragma once

#include <string>
#include <string_view>

#include "config/PropertyValue.h"

namespace vexil {

// The stored form of a text: valid UTF-8 of characters that XML carries unchanged.
std::string StoredText(std::string_view text);

// A text of another program in a form that XML carries: as StoredText, but with its private-use characters as
// they are.
std::string XmlSafeText(std::string_view text);

// The text of a stored form. A form that StoredText does not make (written by another program, with
// private-use characters of its own) is taken as it stands. `direct` is true when the text is the stored
// form.
PropertyString TextOfStored(std::string_view stored);

// Whether an XML 1.0 document may hold the character.
bool IsXmlCharacter(char32_t character);

}  // namespace vexil
