#include "platform/linux/preferences/PropertyList.h"

#include <plist/plist.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "platform/linux/preferences/PropertyListCheck.h"
#include "platform/linux/preferences/PropertyText.h"

namespace vexil {
namespace {

using Node = std::shared_ptr<void>;

// XML lists have neither UIDs nor nulls. A one-entry dictionary stands for each: the first is what
// property-list tools write, for the second there is no custom (libplist cannot write a list that holds a
// null at all).
constexpr const char* kUidKey = "CF$UID";
constexpr const char* kNullKey = "vexil$null";
// What a null of a binary list is read as: no text of an XML list can be that.
constexpr std::string_view kNullMark = "\x01null\x02";

Node Own(plist_t node) {
    return {node, plist_free};
}

struct FreeMemory {
    void operator()(void* memory) const { std::free(memory); }
};
template <class Kind>
using Allocated = std::unique_ptr<Kind, FreeMemory>;

// Calls `visit(key, value)` for each entry until it returns false.
template <class Visit>
bool ForEachEntry(plist_t dictionary, Visit visit) {
    plist_dict_iter started = nullptr;
    plist_dict_new_iter(dictionary, &started);
    const Allocated<void> iterator(started);
    for (;;) {
        char* name = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(dictionary, iterator.get(), &name, &value);
        const Allocated<char> key(name);
        if (value == nullptr) {
            return true;
        }
        if (!visit(std::string(name), value)) {
            return false;
        }
    }
}

std::string XmlOf(plist_t node) {
    char* text = nullptr;
    std::uint32_t length = 0;
    plist_to_xml(node, &text, &length);
    const Allocated<char> owned(text);
    return text == nullptr ? std::string() : std::string(text, length);
}

// What the library writes around the entries of a list.
constexpr std::string_view kHead =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n"
    "<dict>\n";
constexpr std::string_view kTail = "</dict>\n</plist>\n";

// The library writes years before 1000 with fewer than four digits, which no reader takes for a date. Texts
// hold no tag, since their "<" is written as an entity.
void PadYears(std::string& xml) {
    constexpr std::string_view kTag = "<date>";
    for (std::size_t at = xml.find(kTag); at != std::string::npos; at = xml.find(kTag, at)) {
        at += kTag.size();
        const std::size_t digits = xml.find('-', at) - at;
        if (digits < 4) {
            xml.insert(at, 4 - digits, '0');
        }
    }
}

// The XML of one entry of a list; takes `value`.
std::string SourceOf(const std::string& storedKey, plist_t value) {
    const Node list = Own(plist_new_dict());
    plist_dict_set_item(list.get(), storedKey.c_str(), value);
    const std::string xml = XmlOf(list.get());
    const std::size_t start = xml.find("<dict>\n") + std::strlen("<dict>\n");
    std::string source = xml.substr(start, xml.rfind("</dict>") - start);
    PadYears(source);
    return source;
}

class PlistOpaque : public PropertyOpaque {
  public:
    explicit PlistOpaque(plist_t node) : copy(Own(plist_copy(node))) {}
    bool Equals(const PropertyOpaque& other) const override {
        const auto* same = dynamic_cast<const PlistOpaque*>(&other);
        return same != nullptr && XmlOf(copy.get()) == XmlOf(same->copy.get());
    }
    plist_t Get() const { return copy.get(); }

  private:
    Node copy;
};

std::string_view StringOf(plist_t node) {
    std::uint64_t length = 0;
    const char* text = plist_get_string_ptr(node, &length);
    return {text, static_cast<std::size_t>(length)};
}

// A copy of the tree in which everything has a form in XML. The library writes texts as they are, so those
// that XML would not carry take their stored form here; the private-use characters of that form stay.
plist_t Writable(plist_t node) {
    switch (plist_get_node_type(node)) {
        case PLIST_DICT: {
            plist_t result = plist_new_dict();
            ForEachEntry(node, [&](const std::string& key, plist_t value) {
                plist_dict_set_item(result, XmlSafeText(key).c_str(), Writable(value));
                return true;
            });
            return result;
        }
        case PLIST_ARRAY: {
            plist_t result = plist_new_array();
            for (std::uint32_t i = 0; i < plist_array_get_size(node); ++i) {
                plist_array_append_item(result, Writable(plist_array_get_item(node, i)));
            }
            return result;
        }
        case PLIST_STRING: {
            if (StringOf(node) != kNullMark) {
                return plist_new_string(XmlSafeText(StringOf(node)).c_str());
            }
            plist_t result = plist_new_dict();
            plist_dict_set_item(result, kNullKey, plist_new_bool(1));
            return result;
        }
        default:
            return plist_copy(node);
    }
}

// A dictionary that stands for a value of a type which XML lists lack.
bool StandsForAnotherType(const PropertyDictionary& entries) {
    if (entries.size() != 1) {
        return false;
    }
    const auto& [key, value] = *entries.begin();
    return (key == kUidKey && value->Type() == PropertyType::Number) ||
           (key == kNullKey && value->Type() == PropertyType::Boolean);
}

PropertyRef MakeValue(PropertyValue::Content content) {
    return std::make_shared<const PropertyValue>(std::move(content));
}
PropertyRef MakeOpaque(plist_t node) {
    return MakeValue(PropertyOpaqueRef(std::make_shared<PlistOpaque>(node)));
}

PropertyRef ValueOf(plist_t node) {
    switch (plist_get_node_type(node)) {
        case PLIST_BOOLEAN: {
            std::uint8_t boolean = 0;
            plist_get_bool_val(node, &boolean);
            return MakeValue(boolean != 0);
        }
        case PLIST_UINT: {
            // Negative numbers come in two's complement; the library tells them from those above the signed
            // range only by what it writes.
            std::uint64_t number = 0;
            plist_get_uint_val(node, &number);
            const bool negative = static_cast<std::int64_t>(number) < 0;
            if (negative && XmlOf(node).find("<integer>-") == std::string::npos) {
                return MakeOpaque(node);
            }
            return MakeValue(PropertyNumber(static_cast<std::int64_t>(number)));
        }
        case PLIST_REAL: {
            double number = 0;
            plist_get_real_val(node, &number);
            // Binary lists hold many bit patterns that are not a number, XML has one text for them all.
            return MakeValue(PropertyNumber(std::isnan(number) ? std::nan("") : number));
        }
        case PLIST_STRING:
            return MakeValue(TextOfStored(StringOf(node)));
        case PLIST_DATA: {
            std::uint64_t length = 0;
            const char* bytes = plist_get_data_ptr(node, &length);
            return MakeValue(bytes == nullptr ? PropertyData() : PropertyData(bytes, bytes + length));
        }
        case PLIST_DICT: {
            PropertyDictionary entries;
            ForEachEntry(node, [&](const std::string& key, plist_t value) {
                entries[TextOfStored(key).text] = ValueOf(value);
                return true;
            });
            return StandsForAnotherType(entries) ? MakeOpaque(node) : MakeValue(std::move(entries));
        }
        default:
            return MakeOpaque(node);
    }
}

// A new tree for a value; null, with the reason in `problem`, for one that has no form here. `depth` is that
// of the value if it is a dictionary.
plist_t NodeOf(const PropertyRef& value, unsigned depth, std::string& problem) {
    if (value == nullptr) {
        problem = "a dictionary holds none";
        return nullptr;
    }
    if (const auto* text = value->As<PropertyString>()) {
        return plist_new_string(StoredText(text->text).c_str());
    }
    if (const auto* number = value->As<PropertyNumber>()) {
        const auto* whole = std::get_if<std::int64_t>(number);
        return whole != nullptr ? plist_new_uint(static_cast<std::uint64_t>(*whole))
                                : plist_new_real(std::get<double>(*number));
    }
    if (const auto* boolean = value->As<bool>()) {
        return plist_new_bool(*boolean ? 1 : 0);
    }
    if (const auto* data = value->As<PropertyData>()) {
        return plist_new_data(reinterpret_cast<const char*>(data->data()), data->size());
    }
    if (const auto* opaque = value->As<PropertyOpaqueRef>()) {
        const auto* own = dynamic_cast<const PlistOpaque*>(opaque->get());
        problem = own == nullptr ? "value of an unknown type" : problem;
        return own == nullptr ? nullptr : plist_copy(own->Get());
    }
    if (depth > kMaxPropertyListDepth) {
        problem = "nested too deeply";
        return nullptr;
    }
    plist_t dictionary = plist_new_dict();
    for (const auto& [key, inner] : *value->As<PropertyDictionary>()) {
        plist_t node = NodeOf(inner, depth + 1, problem);
        if (node == nullptr) {
            plist_free(dictionary);
            return nullptr;
        }
        plist_dict_set_item(dictionary, StoredText(key).c_str(), node);
    }
    return dictionary;
}

}  // namespace

std::optional<PropertyList> PropertyList::Read(const std::string& content, std::string& problem) {
    const bool isBinary = IsBinaryPropertyList(content);
    if (!(isBinary ? CheckBinaryPropertyList(content, problem) : CheckXmlPropertyList(content, problem))) {
        return std::nullopt;
    }
    // The library does not know the byte order mark that an XML text may start with.
    const std::size_t start = content.starts_with("\xEF\xBB\xBF") ? 3 : 0;
    const std::string readable = isBinary ? ReplaceBinaryNulls(content, kNullMark) : content.substr(start);
    const auto length = static_cast<std::uint32_t>(readable.size());
    plist_t read = nullptr;
    (isBinary ? plist_from_bin : plist_from_xml)(readable.data(), length, &read);
    const Node tree = Own(read);
    if (!tree || plist_get_node_type(read) != PLIST_DICT) {
        problem = "not understood";
        return std::nullopt;
    }
    const Node writable = Own(Writable(read));
    PropertyList list;
    ForEachEntry(writable.get(), [&](const std::string& key, plist_t value) {
        list.entries[TextOfStored(key).text] = {ValueOf(value), SourceOf(key, plist_copy(value))};
        return true;
    });
    return list;
}

PropertyRef PropertyList::Find(const std::string& key) const {
    const auto found = entries.find(key);
    return found == entries.end() ? nullptr : found->second.value;
}

std::optional<PropertyList::Change> PropertyList::Prepare(const std::map<std::string, PropertyRef>& values,
                                                          std::string& problem) const {
    Change change;
    for (const auto& [key, value] : values) {
        if (value == nullptr) {
            change.entries[key] = std::nullopt;
            continue;
        }
        plist_t node = NodeOf(value, 2, problem);
        if (node == nullptr) {
            return std::nullopt;
        }
        PropertyRef readBack = ValueOf(node);
        const std::string source = SourceOf(StoredText(key), node);
        if (!CheckXmlPropertyList(std::string(kHead).append(source).append(kTail), problem)) {
            return std::nullopt;
        }
        change.entries[key] = Entry{std::move(readBack), source};
    }
    change.xml = kHead;
    const auto append = [&](const Entry& entry) { change.xml += entry.source; };
    auto changed = change.entries.begin();
    const auto appendChangedBelow = [&](const std::string* key) {
        for (; changed != change.entries.end() && (key == nullptr || changed->first < *key); ++changed) {
            if (changed->second) {
                append(*changed->second);
            }
        }
    };
    for (const auto& [key, entry] : entries) {
        appendChangedBelow(&key);
        if (changed == change.entries.end() || changed->first != key) {
            append(entry);
        }
    }
    appendChangedBelow(nullptr);
    change.xml += kTail;
    if (change.xml.size() > kMaxPropertyListBytes) {
        problem = "too large";
        return std::nullopt;
    }
    return change;
}

void PropertyList::Apply(const Change& change) {
    for (const auto& [key, entry] : change.entries) {
        if (entry) {
            entries[key] = *entry;
        } else {
            entries.erase(key);
        }
    }
}

}  // namespace vexil
