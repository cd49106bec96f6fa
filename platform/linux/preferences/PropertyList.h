// A domain's property list in memory, and its file form: read from XML or binary, written in XML. What this
// program does not know is kept in the library's own form and written back.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "config/PropertyValue.h"

namespace vexil {

class PropertyList {
  private:
    struct Entry {
        PropertyRef value;
        std::string source;  // the XML of its key and its value
    };

  public:
    // Changed entries (null: removed), and the file's content with them.
    struct Change {
        std::map<std::string, std::optional<Entry>> entries;
        std::string xml;
    };

    // The list of a file's content; null, with the reason in `problem`, for anything that does not pass the
    // checks of PropertyListCheck.h.
    static std::optional<PropertyList> Read(const std::string& content, std::string& problem);

    // The value under a top-level key, or null.
    PropertyRef Find(const std::string& key) const;

    // What it takes to replace some top-level values, or to remove those whose new value is null. Null, with
    // the reason in `problem`, when the result could not be read back: too deep or too large, or a value that
    // has no form here.
    std::optional<Change> Prepare(const std::map<std::string, PropertyRef>& values,
                                  std::string& problem) const;
    // Takes a change of this very list up.
    void Apply(const Change& change);

  private:
    // An entry that is not changed is written back as it was read, so a write costs little more than a copy
    // of the text.
    std::map<std::string, Entry> entries;
};

}  // namespace vexil
