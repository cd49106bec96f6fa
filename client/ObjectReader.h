// Reads JSON text of a known form with every field checked.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

namespace vexil {

// Reads the fields of one JSON object. The first thing that is wrong anywhere becomes the problem, a phrase
// that names the place; from then on values are empty.
class ObjectReader {
  public:
    using Json = nlohmann::json;

    // `jsonPlace`: of the object in the whole; "" for the whole. All that is referred to must outlive the
    // reader.
    ObjectReader(const Json& jsonValue, std::string jsonPlace, std::string& firstProblem);

    bool Has(const char* key) const { return value.is_object() && value.contains(key); }
    bool IsNull(const char* key) { return Field(key).is_null() && Has(key); }

    ObjectReader Object(const char* key) { return {Field(key), Place(key), problem}; }
    std::string Text(const char* key);
    std::vector<std::string> Texts(const char* key);
    bool Flag(const char* key);
    std::uint64_t Number(const char* key, std::uint64_t most = std::numeric_limits<std::uint64_t>::max());
    std::uint32_t Number32(const char* key);
    std::uint16_t Number16(const char* key);
    // Any number that a stored byte is shown as.
    unsigned ShownPort(const char* key);

    // Calls `read` with an ObjectReader for each element of an array of at most `most`.
    template <class Read>
    void Elements(const char* key, std::size_t most, Read read) {
        const Json& field = List(key, most);
        for (std::size_t i = 0; i < field.size(); ++i) {
            read(ObjectReader(field[i], Place(key) + Index(i), problem));
        }
    }

    void Complain(const std::string& key, const char* what);

  private:
    static std::string Index(std::size_t index) { return "[" + std::to_string(index) + "]"; }
    std::string Place(const std::string& key) const;
    const Json& Field(const char* key);
    // The array in a field; empty when the field is absent or no array.
    const Json& List(const char* key, std::size_t most);

    const Json& value;
    const std::string place;
    std::string& problem;
};

// What `read` makes of the object in the text, or null with the problem.
template <class Read>
auto ReadJson(std::string_view text, std::string& problem, Read read)
    -> std::optional<decltype(read(std::declval<ObjectReader>()))> {
    problem.clear();
    const nlohmann::json parsed = nlohmann::json::parse(text, nullptr, false);
    if (parsed.is_discarded()) {
        problem = "it is no JSON";
        return std::nullopt;
    }
    auto result = read(ObjectReader(parsed, "", problem));
    return problem.empty() ? std::optional(std::move(result)) : std::nullopt;
}

}  // namespace vexil
