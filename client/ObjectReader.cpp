#include "client/ObjectReader.h"

namespace vexil {

namespace {

constexpr unsigned kMostShownPort = 999;  // a stored byte is shown in at most three digits

}  // namespace

ObjectReader::ObjectReader(const Json& jsonValue, std::string jsonPlace, std::string& firstProblem)
    : value(jsonValue), place(std::move(jsonPlace)), problem(firstProblem) {
    if (!value.is_object()) {
        Complain("", "is no object");
    }
}

std::string ObjectReader::Text(const char* key) {
    const Json& field = Field(key);
    if (const auto* text = field.get_ptr<const std::string*>()) {
        return *text;
    }
    return Complain(key, "is no text"), "";
}

std::vector<std::string> ObjectReader::Texts(const char* key) {
    const Json& field = List(key, std::numeric_limits<std::size_t>::max());
    std::vector<std::string> texts;
    for (std::size_t i = 0; i < field.size(); ++i) {
        if (const auto* text = field[i].get_ptr<const std::string*>()) {
            texts.push_back(*text);
        } else {
            Complain(key + Index(i), "is no text");
        }
    }
    return texts;
}

bool ObjectReader::Flag(const char* key) {
    const Json& field = Field(key);
    if (const auto* flag = field.get_ptr<const bool*>()) {
        return *flag;
    }
    return Complain(key, "is neither true nor false"), false;
}

std::uint64_t ObjectReader::Number(const char* key, std::uint64_t most) {
    const Json& field = Field(key);
    const auto* number = field.get_ptr<const Json::number_unsigned_t*>();
    if (number != nullptr && *number <= most) {
        return *number;
    }
    return Complain(key, "is no number, or out of range"), 0;
}

std::uint32_t ObjectReader::Number32(const char* key) {
    return static_cast<std::uint32_t>(Number(key, std::numeric_limits<std::uint32_t>::max()));
}

std::uint16_t ObjectReader::Number16(const char* key) {
    return static_cast<std::uint16_t>(Number(key, std::numeric_limits<std::uint16_t>::max()));
}

unsigned ObjectReader::ShownPort(const char* key) {
    return static_cast<unsigned>(Number(key, kMostShownPort));
}

void ObjectReader::Complain(const std::string& key, const char* what) {
    if (problem.empty()) {
        problem = (place.empty() && key.empty() ? "it" : "its " + Place(key)) + " " + what;
    }
}

std::string ObjectReader::Place(const std::string& key) const {
    return place.empty() || key.empty() ? place + key : place + "." + key;
}

const ObjectReader::Json& ObjectReader::Field(const char* key) {
    static const Json kNone;
    if (!Has(key)) {
        Complain(key, "is missing");
        return kNone;
    }
    return value.find(key).value();
}

const ObjectReader::Json& ObjectReader::List(const char* key, std::size_t most) {
    static const Json kEmpty = Json::array();
    const Json& field = Field(key);
    if (!field.is_array() || field.size() > most) {
        Complain(key, "is no list, or too long");
        return kEmpty;
    }
    return field;
}

}  // namespace vexil
