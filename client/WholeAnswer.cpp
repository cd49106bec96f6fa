#include "client/WholeAnswer.h"

#include <nlohmann/json.hpp>
#include <optional>

namespace vexil {

namespace {

using Json = nlohmann::ordered_json;

// Where an answer says that the next one goes on; null when it does not, or not behind `before`.
std::optional<std::uint32_t> NextOf(const Json& answer, std::uint32_t before) {
    if (!answer.is_object() || !answer.contains("next") || !answer["next"].is_number_unsigned()) {
        return std::nullopt;
    }
    const auto next = answer["next"].get<std::uint64_t>();
    if (next <= before || next > UINT32_MAX) {
        return std::nullopt;
    }
    return static_cast<std::uint32_t>(next);
}

// The lists of `more` behind those of `whole`, and what it says is left.
void Join(Json& whole, const Json& more, const std::vector<std::string>& lists) {
    for (const std::string& list : lists) {
        if (more.contains(list) && more[list].is_array() && whole[list].is_array()) {
            whole[list].insert(whole[list].end(), more[list].begin(), more[list].end());
        }
    }
    for (const char* key : {"next", "portsLeftOut"}) {
        whole.erase(key);
        if (more.contains(key)) {
            whole[key] = more[key];
        }
    }
}

}  // namespace

ServiceAnswer AskWhole(const std::function<ServiceAnswer(std::uint32_t first)>& ask,
                       const std::vector<std::string>& lists) {
    constexpr int kMostAnswers = 64;  // of 64 KiB each
    ServiceAnswer whole = ask(0);
    if (whole.outcome != ServiceAnswer::Outcome::Answered) {
        return whole;
    }
    Json joined = Json::parse(whole.data, nullptr, false);
    std::uint32_t first = 0;
    for (int answers = 1; answers < kMostAnswers; ++answers) {
        const std::optional<std::uint32_t> next = NextOf(joined, first);
        if (!next) {
            break;
        }
        const ServiceAnswer answer = ask(*next);
        if (answer.outcome != ServiceAnswer::Outcome::Answered) {
            return answer;
        }
        const Json more = Json::parse(answer.data, nullptr, false);
        if (!more.is_object()) {
            return answer;
        }
        Join(joined, more, lists);
        whole.data = joined.dump(-1, ' ', false, Json::error_handler_t::replace);
        first = *next;
    }
    return whole;
}

}  // namespace vexil
