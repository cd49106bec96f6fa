// What is checked of a property list before the library that reads it gets to see it. libplist 2.2 follows
// any nesting by recursion, expands shared objects of a binary list without limit, takes malformed numbers
// for others and leading zeros for octal, resolves no reference in a number, data or a date, makes another
// date of one that does not exist, limits integers to 64 bits without a word, and ends texts at a zero byte:
// a list that passes here is read back whole and as it is.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vexil {

// A file above either limit is neither read nor written. Depth counts dictionaries and arrays inside
// each other, the list's own dictionary being the first.
inline constexpr std::size_t kMaxPropertyListBytes = 1U << 20U;
inline constexpr unsigned kMaxPropertyListDepth = 64;
// Values and keys of a binary list, each counted as often as it is referred to. More than the largest XML
// list holds.
inline constexpr std::size_t kMaxPropertyListNodes = 1U << 17U;

bool IsBinaryPropertyList(std::string_view bytes);

// Whether the text is a whole, well-formed XML list in UTF-8 within the depth limit whose root is a
// dictionary, and its numbers, data and dates are what they should be, in plain characters. False with the
// reason in `problem`.
bool CheckXmlPropertyList(std::string_view text, std::string& problem);

// The same of a binary list: every offset, reference and count inside the file, no cycle, no set, texts and
// dates that XML can hold, and no more nodes than kMaxPropertyListNodes.
//
// Layout: the text "bplist00", the objects, a table of their offsets, and a trailer of 32 bytes: 6 unused,
// the size of a table entry, the size of an object reference (1 byte each), then the number of objects, the
// number of the root object and the offset of the table (8 bytes each, most significant first, as all numbers
// are). An object starts with a marker: its kind in the upper four bits, its size or count in the lower four
// (15: an integer object with the count follows). An array holds references, a dictionary the references of
// its keys, then of its values.
bool CheckBinaryPropertyList(std::string_view bytes, std::string& problem);

// A checked binary list with `text` (ASCII, at most 14 characters) in place of every null, as libplist 2.2
// refuses a list that holds one.
std::string ReplaceBinaryNulls(std::string_view bytes, std::string_view text);

}  // namespace vexil
