#include "client/NetworkReport.h"

#include <limits>

#include "client/ObjectReader.h"

namespace vexil {

std::optional<NetworkList> ReadNetworkList(std::string_view json, std::string& problem) {
    return ReadJson(json, problem, [](ObjectReader list) {
        NetworkList read;
        read.speaks = list.Text("speaks");
        read.port = list.Number16("port");
        read.key = list.Text("key");
        read.allow = list.Text("allow");
        read.secret = list.Flag("secret");
        read.problem = list.Text("problem");
        read.avahi = list.Has("avahi") ? list.Text("avahi") : "";
        read.rtp = list.Has("rtp") && list.Flag("rtp");
        list.Elements("computers", std::numeric_limits<std::size_t>::max(), [&](ObjectReader computer) {
            read.computers.push_back({computer.Text("name"), computer.Text("address"), computer.Text("key"),
                                      computer.Number("since"), computer.Text("state")});
        });
        return read;
    });
}

std::optional<NetworkChange> ReadNetworkChange(std::string_view json, std::string& problem) {
    return ReadJson(json, problem, [](ObjectReader answer) {
        NetworkChange change;
        if (answer.Has("problem")) {
            change.refused = answer.Text("problem");
        } else {
            change.done = answer.Text("done");
        }
        return change;
    });
}

}  // namespace vexil
