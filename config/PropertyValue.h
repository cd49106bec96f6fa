// The typed value tree that preferences are made of. Values are immutable and shared by reference count; a
// null reference stands for an absent value. A dictionary is changed by making a changed copy.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace vexil {

class PropertyValue;
using PropertyRef = std::shared_ptr<const PropertyValue>;  // null: absent

// The kinds of value. The numbers are the type ids of the store's trace lines and stay as they are.
enum class PropertyType { String = 0, Number = 1, Boolean = 2, Data = 3, Dictionary = 4, Opaque = 5 };

// Longest text that is made into a property string, in bytes: far above what a window's field takes (32767
// characters of at most four bytes) and far below the limit of a stored domain.
inline constexpr std::size_t kMaxPropertyTextBytes = 131072;

// Longest block that is made into property data, in bytes: far above the largest block that is kept (a host
// list of 8192 bytes) and, in any text form, far below the limit of a stored domain.
inline constexpr std::size_t kMaxPropertyDataBytes = 262144;

// A text, UTF-8 where it can be; other bytes are kept as they are.
struct PropertyString {
    std::string text;
    // Whether the stored form is the text itself, byte for byte. Where it is not (the text needed a stored
    // form of its own), the text is had only by copying it out.
    bool direct = true;

    bool operator==(const PropertyString& other) const { return text == other.text; }
};

// A number as it was stored: whole or floating.
using PropertyNumber = std::variant<std::int64_t, double>;

using PropertyData = std::vector<std::uint8_t>;
using PropertyDictionary = std::map<std::string, PropertyRef, std::less<>>;

// A value of a type that this program does not know. It is carried along unchanged, in the form of the back
// end that read it.
class PropertyOpaque {
  public:
    virtual ~PropertyOpaque() = default;
    virtual bool Equals(const PropertyOpaque& other) const = 0;
};
using PropertyOpaqueRef = std::shared_ptr<const PropertyOpaque>;

class PropertyValue {
  public:
    // In the order of PropertyType.
    using Content = std::variant<PropertyString, PropertyNumber, bool, PropertyData, PropertyDictionary,
                                 PropertyOpaqueRef>;

    explicit PropertyValue(Content valueContent);

    PropertyType Type() const { return static_cast<PropertyType>(content.index()); }

    // The content when it is of the asked kind, else null. Owned by the value.
    template <class Kind>
    const Kind* As() const {
        return std::get_if<Kind>(&content);
    }

  private:
    Content content;
};

// Deep comparison; two null references are equal. A whole number and a floating one are never equal, nor are
// floating ones of different bits.
bool SameProperty(const PropertyRef& left, const PropertyRef& right);

// The makers return null when there is no memory for the value, and for what each names besides.

// A value of any content, for a back end that has read one.
PropertyRef MakeProperty(PropertyValue::Content content);
// Null when the text is null or longer than kMaxPropertyTextBytes.
PropertyRef MakePropertyString(const char* text);
PropertyRef MakePropertyNumber(std::int32_t number);
PropertyRef MakePropertyBoolean(bool boolean);
// Null when `length` is above kMaxPropertyDataBytes. `bytes` may be null when `length` is 0.
PropertyRef MakePropertyData(const void* bytes, std::size_t length);
PropertyRef MakePropertyDictionary(PropertyDictionary entries);

// The number as a signed 32-bit integer: the low 32 bits of a whole number, the whole part of a floating one,
// limited to the range; 0 for what is not a number.
std::int32_t PropertyInt32(const PropertyNumber& number);

}  // namespace vexil
