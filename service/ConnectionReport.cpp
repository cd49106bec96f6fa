#include "service/ConnectionReport.h"

#include <algorithm>
#include <utility>

#include "service/control/RouteText.h"
#include "shared/System/svLog.h"

namespace vexil {

void ConnectionReport::Sessions(std::uint64_t now, const std::vector<RemoteSession>& sessions, bool enabled) {
    std::map<std::string, std::string> next;
    for (const RemoteSession& session : sessions) {
        if (session.up) {
            next[session.computer] = session.address;
        }
    }
    for (const auto& [computer, address] : connected) {
        if (next.contains(computer)) {
            continue;
        }
        const auto session = std::find_if(
            sessions.begin(), sessions.end(),
            [&computer = computer](const RemoteSession& each) { return each.computer == computer; });
        const std::string why = session == sessions.end() ? "" : " " + session->problem;
        Line(now, enabled, "The connection with \"" + NameText(computer) + "\" has ended." + why);
    }
    for (const RemoteSession& session : sessions) {
        const auto before = connected.find(session.computer);
        if (session.up && (before == connected.end() || before->second != session.address)) {
            Line(now, enabled,
                 "Connected with \"" + NameText(session.computer) + "\" at " + session.address +
                     (session.interface.empty() ? "" : " by " + session.interface) +
                     (session.wireless ? ", wireless" : "") +
                     (session.key.empty() ? ", by RTP-MIDI." : ", key " + session.key + "."));
        }
    }
    connected = std::move(next);
}

void ConnectionReport::Line(std::uint64_t now, bool enabled, const std::string& text) {
    if (now - minuteBegan >= kMinute) {
        minuteBegan = now;
        lines = 0;
    }
    ++lines;
    if (lines < kMostLines) {
        LogPrintfIf(enabled, "%s\n", text.c_str());
    } else if (lines == kMostLines) {
        LogPrintfIf(enabled, "Connections come and go too often; the rest of this minute is not told.\n");
    }
}

}  // namespace vexil
