#include "service/control/NetworkAnswers.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "driver/ControlChannel.h"

namespace vexil {

namespace {

using Json = nlohmann::ordered_json;

std::string Text(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string Sentence(const char* field, const std::string& sentence) {
    Json json = Json::object();
    json[field] = sentence;
    return Text(json);
}

}  // namespace

std::string NetworkList(const NetworkOverview& overview, std::size_t first) {
    Json list = {{"speaks", overview.speaks}, {"port", overview.port},     {"key", overview.key},
                 {"allow", overview.allow},   {"secret", overview.secret}, {"problem", overview.problem},
                 {"avahi", overview.avahi},   {"rtp", overview.rtp}};
    list["computers"] = Json::array();
    constexpr std::size_t kRoomForNext = 32;
    const std::size_t headLength = Text(list).size() + kRoomForNext;
    std::size_t length = headLength;
    for (std::size_t at = first; at < overview.computers.size(); ++at) {
        const NetworkComputer& computer = overview.computers[at];
        Json json = {{"name", computer.name},
                     {"address", computer.address},
                     {"key", computer.key},
                     {"since", computer.since},
                     {"state", computer.state}};
        const std::size_t more = Text(json).size() + 1;
        if (headLength + more > kMaxControlData) {
            continue;
        }
        if (length + more > kMaxControlData) {
            list["next"] = at;
            break;
        }
        length += more;
        list["computers"].push_back(std::move(json));
    }
    return Text(list);
}

std::string NetworkDone(const std::string& sentence) {
    return Sentence("done", sentence);
}

std::string NetworkProblem(const std::string& sentence) {
    return Sentence("problem", sentence);
}

}  // namespace vexil
