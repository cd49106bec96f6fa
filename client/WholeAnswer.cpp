#include "client/WholeAnswer.h"

#include <nlohmann/json.hpp>
#include <utility>

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

WholeAnswer::WholeAnswer(std::vector<std::string> namesOfLists) : lists(std::move(namesOfLists)) {}

std::optional<std::uint32_t> WholeAnswer::Add(const std::string& answer) {
    constexpr int kMostAnswers = 64;  // of 64 KiB each
    const bool isFirst = answers++ == 0;
    // Most answers are whole, and need not be read for that.
    if (isFirst && answer.find("\"next\"") == std::string::npos) {
        text = answer;
        return std::nullopt;
    }
    const Json more = Json::parse(answer, nullptr, false);
    if (isFirst || !more.is_object()) {
        text = answer;
    } else {
        Json whole = Json::parse(text, nullptr, false);
        Join(whole, more, lists);
        text = whole.dump(-1, ' ', false, Json::error_handler_t::replace);
    }
    const std::optional<std::uint32_t> next = answers < kMostAnswers ? NextOf(more, first) : std::nullopt;
    first = next.value_or(first);
    return next;
}

ServiceAnswer AskWhole(const std::function<ServiceAnswer(std::uint32_t first)>& ask,
                       const std::vector<std::string>& lists) {
    WholeAnswer whole(lists);
    for (std::optional<std::uint32_t> next = 0; next;) {
        ServiceAnswer answer = ask(*next);
        if (answer.outcome != ServiceAnswer::Outcome::Answered) {
            return answer;
        }
        next = whole.Add(answer.data);
    }
    return {ServiceAnswer::Outcome::Answered, {}, whole.Text()};
}

}  // namespace vexil
