// What goes out: which body is sent when.
#include <algorithm>

#include "service/network/LinkAssociation.h"
#include "service/network/LinkTimes.h"
#include "service/network/Require.h"

namespace vexil {

void LinkAssociation::SayBye(const Bye& ours) {
    if (up) {
        CloseWithBye(Closing::Ended, ours);
    }
}

void LinkAssociation::SetName(std::string_view name) {
    Require(IsComputerName(name), "IsComputerName(name)");
    ownName.assign(name);
    nameUntold = true;
}

BodyHeader LinkAssociation::HeaderAt(std::uint64_t now) const {
    BodyHeader header;
    header.allBelow = up ? in.Window().AllBelow() : 0;
    header.time = static_cast<std::uint32_t>(now);
    clock.Fill(now, header);
    return header;
}

std::size_t LinkAssociation::BuildProbe(std::uint64_t now, std::uint64_t token,
                                        std::span<std::uint8_t> body) {
    BodyWriter writer(body, HeaderAt(now));
    writer.AddProbe(token);
    return up ? writer.Size() : 0;
}

std::optional<LinkAssociation::Transmit> LinkAssociation::TransmitBye(std::uint64_t now,
                                                                      std::span<std::uint8_t> body) {
    BodyWriter writer(body, HeaderAt(now));
    writer.AddBye(bye);
    if (--byesLeft == 0) {
        LinkEvent over;
        over.kind = LinkEvent::Kind::SessionOver;
        over.session = byeSession;
        Report(over);
    }
    return Transmit{writer.Size(), byeSession};
}

std::optional<LinkAssociation::Transmit> LinkAssociation::TransmitHello(std::uint64_t now,
                                                                        std::span<std::uint8_t> body) {
    BodyHeader header = HeaderAt(now);
    if (!coming.renewal) {
        header = {0, header.time, 0, kHeldTooLong};
    }
    BodyWriter writer(body, header);
    writer.AddHello(coming.Write(ownName));
    coming.Said(now);
    return Transmit{writer.Size(), coming.start.session};
}

bool LinkAssociation::HasToSend(std::uint64_t now) const {
    const bool helloDue = current.SaysHello() && now >= current.due;
    const bool probes = now - lastHeard >= kProbeAfter && now >= probeDue;
    return aliveDue || probeToAnswer || helloDue || probes || (ackDue != 0 && now >= ackDue) ||
           IsAliveDue(now) || out.Window().WantsToSend(now);
}

// What went again in vain goes in small datagrams: where full ones vanish these arrive.
std::size_t LinkAssociation::BodyLimit() const {
    return onlySmall || out.Window().RepeatsInVain() ? kSmallBody : kLongestBody;
}

std::optional<LinkAssociation::Transmit> LinkAssociation::PollTransmit(std::uint64_t now,
                                                                       std::span<std::uint8_t> space) {
    const std::span<std::uint8_t> body = space.first(std::min(space.size(), BodyLimit()));
    if (byesLeft > 0) {
        return TransmitBye(now, body);
    }
    if (coming.IsThere() && coming.due != 0 && now >= coming.due) {
        return TransmitHello(now, body);
    }
    if (!up) {
        return std::nullopt;
    }
    out.MoveDue(now);
    PushStates(now);
    while (HasToSend(now)) {
        const bool goesEmpty = aliveDue || (ackDue != 0 && now >= ackDue) || IsAliveDue(now);
        BodyWriter writer(body, HeaderAt(now));
        if (current.SaysHello()) {
            writer.AddHello(current.Write(ownName));
            current.Said(now);
        }
        if (ackDue != 0 && in.Window().HasGaps()) {
            writer.AddGaps(in.Window().ReadGaps());
        }
        if (probeToAnswer) {
            writer.AddProbeAnswer(*probeToAnswer);
            probeToAnswer.reset();
        }
        if (now - lastHeard >= kProbeAfter && now >= probeDue) {
            writer.AddProbe(now);
            probeDue = now + kProbeInterval;
        }
        out.Window().Fill(now, writer);
        if (goesEmpty || writer.HasFrames()) {
            ackDue = 0;
            aliveDue = false;
            lastSent = now;
            if (writer.Size() > kSmallBody) {
                full.Sent(static_cast<std::uint32_t>(now), out.Window().LastWritten());
            }
            return Transmit{writer.Size(), current.start.session};
        }
    }
    return std::nullopt;
}

void LinkAssociation::PushStates(std::uint64_t now) {
    std::array<std::uint8_t, kWayStateSize> content{};
    while (const std::optional<LinkRecord> state = in.StateToTell(content)) {
        if (!out.PushNow(now, *state)) {
            return;
        }
        in.Told(*state);
    }
    if (nameUntold) {
        LinkRecord name;
        name.type = RecordType::Name;
        name.number = static_cast<std::uint16_t>(nameNumber + 1);
        name.bytes = {reinterpret_cast<const std::uint8_t*>(ownName.data()), ownName.size()};
        if (out.PushNow(now, name)) {
            ++nameNumber;
            nameUntold = false;
        }
    }
}

std::optional<std::uint64_t> LinkAssociation::PollTimeout() const {
    std::optional<std::uint64_t> first;
    const auto at = [&first](std::uint64_t time) { first = first ? std::min(*first, time) : time; };
    if (byesLeft > 0) {
        at(0);
    }
    if (coming.IsThere()) {
        at(coming.begun + LinkGreeting::kLongest);
        if (coming.due != 0) {
            at(coming.due);
        }
    }
    if (previous != 0) {
        at(previousUntil);
    }
    if (!up) {
        return first;
    }
    at(lastHeard + kLostAfter);
    at(std::max(lastHeard + kProbeAfter, probeDue));
    at(lastSent + AliveInterval());
    // Without room for a state the peer's next acknowledgement comes first.
    const bool tells = (nameUntold || in.HasStatesToTell()) && out.Window().IsRelaxed();
    if (aliveDue || probeToAnswer || tells) {
        at(0);
    }
    if (ackDue != 0) {
        at(ackDue);
    }
    if (current.SaysHello()) {
        at(current.due);
    }
    for (const std::optional<std::uint64_t> time : {out.NextDue(), out.Window().NextTimeout()}) {
        if (time) {
            at(*time);
        }
    }
    return first;
}

}  // namespace vexil
