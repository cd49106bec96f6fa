// A domain's property list in memory, and its file form: read from XML or binary, written in XML. What this
// program does not know is kept as the library's own nodes and written back.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "config/PropertyValue.h"

namespace vexil {

class PropertyList {
  public:
    // An empty list.
    PropertyList();

    // The list of a file's content; none, with the reason in `problem`, for anything that does not pass the
    // checks of PropertyListCheck.h.
    static std::optional<PropertyList> Read(const std::string& content, std::string& problem);

    // The value under a top-level key, or none.
    PropertyRef Find(const std::string& key) const;

    // The list with some top-level values replaced, or removed where the new value is none, as it will be
    // read back. None, with the reason in `problem`, when it could not be: too deep or too large, or a value
    // that has no form here.
    struct Written;
    std::optional<Written> Change(const std::map<std::string, PropertyRef>& changes,
                                  std::string& problem) const;

  private:
    using Node = std::shared_ptr<void>;  // a tree of libplist, never changed once it is here
    explicit PropertyList(Node dictionary) : root(std::move(dictionary)) {}
    void FillEntries();

    struct Entry {
        PropertyRef value;
        std::string storedKey;
    };
    Node root;
    std::map<std::string, Entry> entries;
};

struct PropertyList::Written {
    PropertyList list;
    std::string xml;
};

}  // namespace vexil
