#include "config/PropertyValue.h"

#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>

namespace vexil {

namespace {

// A value made by `makeContent`, or null when there is no memory for it: a failure to make a value is a
// result, which the caller logs, and no exception.
template <class MakeContent>
PropertyRef Make(MakeContent makeContent) {
    try {
        return std::make_shared<const PropertyValue>(makeContent());
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

bool SameNumber(const PropertyNumber& left, const PropertyNumber& right) {
    const double* leftFloating = std::get_if<double>(&left);
    const double* rightFloating = std::get_if<double>(&right);
    // By bits, so that what is not a number equals itself and the two zeros stay apart.
    if (leftFloating != nullptr && rightFloating != nullptr) {
        return std::bit_cast<std::uint64_t>(*leftFloating) == std::bit_cast<std::uint64_t>(*rightFloating);
    }
    return left == right;
}

bool SameDictionary(const PropertyDictionary& left, const PropertyDictionary& right) {
    if (left.size() != right.size()) {
        return false;
    }
    for (auto l = left.begin(), r = right.begin(); l != left.end(); ++l, ++r) {
        if (l->first != r->first || !SameProperty(l->second, r->second)) {
            return false;
        }
    }
    return true;
}

bool SameOpaque(const PropertyOpaqueRef& left, const PropertyOpaqueRef& right) {
    if (left == nullptr || right == nullptr) {
        return left == right;
    }
    return left->Equals(*right);
}

}  // namespace

PropertyValue::PropertyValue(Content valueContent) : content(std::move(valueContent)) {}

bool SameProperty(const PropertyRef& left, const PropertyRef& right) {
    if (left == right) {
        return true;
    }
    if (left == nullptr || right == nullptr || left->Type() != right->Type()) {
        return false;
    }
    switch (left->Type()) {
        case PropertyType::String:
            return *left->As<PropertyString>() == *right->As<PropertyString>();
        case PropertyType::Number:
            return SameNumber(*left->As<PropertyNumber>(), *right->As<PropertyNumber>());
        case PropertyType::Boolean:
            return *left->As<bool>() == *right->As<bool>();
        case PropertyType::Data:
            return *left->As<PropertyData>() == *right->As<PropertyData>();
        case PropertyType::Dictionary:
            return SameDictionary(*left->As<PropertyDictionary>(), *right->As<PropertyDictionary>());
        case PropertyType::Opaque:
            return SameOpaque(*left->As<PropertyOpaqueRef>(), *right->As<PropertyOpaqueRef>());
    }
    return false;
}

PropertyRef MakeProperty(PropertyValue::Content content) {
    return Make([&] { return std::move(content); });
}

PropertyRef MakePropertyString(const char* text) {
    if (text == nullptr) {
        return nullptr;
    }
    const std::size_t length = strnlen(text, kMaxPropertyTextBytes + 1);
    if (length > kMaxPropertyTextBytes) {
        return nullptr;
    }
    return Make([=] { return PropertyString{std::string(text, length)}; });
}

PropertyRef MakePropertyNumber(std::int32_t number) {
    return Make([=] { return PropertyNumber(std::int64_t{number}); });
}

PropertyRef MakePropertyBoolean(bool boolean) {
    return Make([=] { return boolean; });
}

PropertyRef MakePropertyData(const void* bytes, std::size_t length) {
    if (length > kMaxPropertyDataBytes) {
        return nullptr;
    }
    const auto* first = static_cast<const std::uint8_t*>(bytes);
    return Make([=] { return PropertyData(first, first + length); });
}

PropertyRef MakePropertyDictionary(PropertyDictionary entries) {
    return Make([&] { return std::move(entries); });
}

std::int32_t PropertyInt32(const PropertyNumber& number) {
    if (const std::int64_t* whole = std::get_if<std::int64_t>(&number)) {
        return static_cast<std::int32_t>(static_cast<std::uint32_t>(*whole));
    }
    const double floating = std::get<double>(number);
    using Limits = std::numeric_limits<std::int32_t>;
    if (std::isnan(floating)) {
        return 0;
    }
    if (floating <= Limits::min()) {
        return Limits::min();
    }
    if (floating >= Limits::max()) {
        return Limits::max();
    }
    return static_cast<std::int32_t>(floating);
}

}  // namespace vexil
