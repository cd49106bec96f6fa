// Where the sections of an INI file begin, so that a look-up need not walk the whole file. Kept in step with
// the list of lines by whoever edits it: headers come, they never go.
//
// A look-up takes the logarithm of the number of headers, and so does a header that is appended.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <string_view>
#include <vector>

#include "shared/System/svString.h"

namespace vexil {

class IniSections {
  public:
    using Lines = std::list<svString>;
    using Position = Lines::const_iterator;

    // The lines must outlive this object, or be followed by Clear.
    explicit IniSections(const Lines& fileLines) : lines(fileLines) {}

    // Forgets all sections; for when the list of lines is emptied.
    void Clear();

    // Takes up a line that stands at the end of the list now, and is a header or not.
    void Append(Position line);

    // The first section of a name, and the lines between its header and the next.
    struct Body {
        Position begin;
        Position end;
        std::size_t header = 0;  // which of the headers it is; good until the next header comes
    };
    // False when there is no such section.
    bool Find(std::string_view name, Body& body) const;

    // Takes up a line that was put into the body of a section, and is a header or not.
    void Insert(Position line, const Body& body);

  private:
    // Headers are numbered in the order of the file, with gaps for those that come between them.
    using Order = std::uint64_t;
    static constexpr Order kGap = Order{1} << 40;
    struct Header {
        Order order;
        Position line;
    };

    void Rebuild();

    const Lines& lines;
    std::vector<Header> headers;  // all, in the order of the file
    // The first header of each name; the names lie in the lines.
    std::map<std::string_view, Order> firstOf;
};

}  // namespace vexil
