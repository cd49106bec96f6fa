#include "ctl/SessionText.h"

#include <algorithm>

#include "ctl/StatusText.h"
#include "ctl/TextTable.h"
#include "shared/System/PrintableText.h"

namespace vexil {

namespace {

std::string WayText(const WayReport& way) {
    const std::string from = "port " + std::to_string(way.from);
    const std::string player = way.test ? "test output of " + from : from;
    return way.incoming ? "from its " + player + " to port " + std::to_string(way.to) + " here"
                        : "from " + player + " here to its port " + std::to_string(way.to);
}

}  // namespace

std::string SpeaksText(const std::string& speaks) {
    if (speaks == "off") {
        return "off";
    }
    if (speaks == "on") {
        return "on every interface";
    }
    if (speaks == "lo") {
        return "within this computer only";
    }
    std::string names;
    for (const char letter : speaks) {
        names += letter == ',' ? ", " : std::string(1, letter);
    }
    return "on " + Printable(names);
}

std::string NetworkText(const StatusReport& status) {
    if (!status.network) {
        return "";
    }
    const NetworkReport& network = *status.network;
    std::string line = SpeaksText(network.speaks);
    if (network.port != 0) {
        line += ", UDP port " + std::to_string(network.port);
    }
    if (!network.key.empty()) {
        line += ", key " + Printable(network.key);
    }
    std::string text = LabelledText("Network", line);
    if (!network.problem.empty()) {
        text += LabelledText("", "! " + Printable(network.problem));
    }
    if (!network.avahi.empty()) {
        text += LabelledText("", Printable(network.avahi));
    }
    for (const std::string& remark : network.remarks) {
        text += LabelledText("", "! " + Printable(remark));
    }
    return text;
}

std::string SessionsText(const StatusReport& status) {
    if (status.sessions.empty()) {
        return "";
    }
    TextTable table({{"COMPUTER", 12},
                     {"STATE", 9},
                     {"FOR", 4, true},
                     {"ADDRESS", 17},
                     {"BY", 6},
                     {"TRIP", 6, true},
                     {"LOST", 5, true},
                     {"REPAIRED", 8, true},
                     {"LATE", 5, true}});
    for (const SessionReport& session : status.sessions) {
        table.AddRow({Printable(session.computer), Printable(session.state), DurationText(session.seconds),
                      Printable(session.address), Printable(session.interface),
                      session.roundTrip ? RoundTripText(*session.roundTrip) : "",
                      ShortCountText(session.lost), CountText(session.repaired),
                      ShortCountText(session.late)});
        if (!session.problem.empty()) {
            table.AddNote(1, "! " + Printable(session.problem));
        }
        for (const WayReport& way : session.ways) {
            // What keeps all of them from getting through is said once.
            if (!way.problem.empty() && way.problem != session.problem) {
                table.AddNote(1, "! " + WayText(way) + ": " + Printable(way.problem));
            }
        }
    }
    return "\n" + table.Text();
}

std::string DurationText(std::uint64_t seconds) {
    if (seconds < 60) {
        return std::to_string(seconds) + "s";
    }
    if (seconds < 3600) {
        return std::to_string(seconds / 60) + "m";
    }
    if (seconds < 86'400) {
        return std::to_string(seconds / 3600) + "h";
    }
    return std::to_string(std::min<std::uint64_t>(seconds / 86'400, 999)) + "d";
}

std::string RoundTripText(std::uint32_t microseconds) {
    if (microseconds < 1000) {
        return std::to_string(microseconds) + " us";
    }
    if (microseconds < 10'000) {
        return std::to_string(microseconds / 1000) + "." + std::to_string(microseconds / 100 % 10) + " ms";
    }
    if (microseconds < 1'000'000) {
        return std::to_string(microseconds / 1000) + " ms";
    }
    return std::to_string(microseconds / 1'000'000) + " s";
}

}  // namespace vexil
