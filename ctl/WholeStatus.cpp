#include "ctl/WholeStatus.h"

#include <nlohmann/json.hpp>
#include <optional>

namespace vexil {

namespace {

using Json = nlohmann::ordered_json;

// Where an answer says that the next one goes on; none when it does not, or not behind `before`.
std::optional<std::uint32_t> NextOf(const Json& status, std::uint32_t before) {
    if (!status.is_object() || !status.contains("next") || !status["next"].is_number_unsigned()) {
        return std::nullopt;
    }
    const auto next = status["next"].get<std::uint64_t>();
    if (next <= before || next > UINT32_MAX) {
        return std::nullopt;
    }
    return static_cast<std::uint32_t>(next);
}

// The lists of `more` behind those of `status`, and what it says is left.
void Join(Json& status, const Json& more) {
    for (const char* list : {"hosts", "sessions", "ports"}) {
        if (more.contains(list) && more[list].is_array() && status[list].is_array()) {
            status[list].insert(status[list].end(), more[list].begin(), more[list].end());
        }
    }
    for (const char* key : {"next", "portsLeftOut"}) {
        status.erase(key);
        if (more.contains(key)) {
            status[key] = more[key];
        }
    }
}

}  // namespace

ServiceAnswer AskWholeStatus(const std::function<ServiceAnswer(std::uint32_t first)>& ask) {
    constexpr int kMostAnswers = 64;  // of 64 KiB each
    ServiceAnswer whole = ask(0);
    if (whole.outcome != ServiceAnswer::Outcome::Answered) {
        return whole;
    }
    Json status = Json::parse(whole.data, nullptr, false);
    std::uint32_t first = 0;
    for (int answers = 1; answers < kMostAnswers; ++answers) {
        const std::optional<std::uint32_t> next = NextOf(status, first);
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
        Join(status, more);
        whole.data = status.dump(-1, ' ', false, Json::error_handler_t::replace);
        first = *next;
    }
    return whole;
}

}  // namespace vexil
