// The ways of LinkTransport, and what goes on them.
#include <algorithm>

#include "service/network/LinkTransport.h"
#include "service/network/LinkTransportPeer.h"

namespace vexil {

namespace {

constexpr std::uint8_t kFirstRealtimeByte = 0xF8;

auto FindWay(std::vector<LinkWayOut>& ways, int source, int input) {
    return std::find_if(ways.begin(), ways.end(),
                        [&](const LinkWayOut& way) { return way.source == source && way.input == input; });
}

}  // namespace

void LinkTransport::OpenWay(std::uint64_t now, int number, int source, int input) {
    Computer* computer = ComputerOf(number);
    if (computer == nullptr || FindWay(computer->ways, source, input) != computer->ways.end()) {
        return;
    }
    if (!IsWanted(*computer)) {
        computer->calls.Begin(now);
    }
    computer->ways.push_back({source, input});
    changed = true;
    if (Peer* peer = PeerOf(*computer)) {
        peer->link.Association().OpenWay(now, static_cast<std::uint8_t>(source),
                                         static_cast<std::uint8_t>(input));
        Serve(now, *peer);
    }
}

void LinkTransport::EndWay(std::uint64_t now, int number, int source, int input) {
    Computer* computer = ComputerOf(number);
    if (computer == nullptr) {
        return;
    }
    const auto way = FindWay(computer->ways, source, input);
    if (way == computer->ways.end()) {
        return;
    }
    computer->ways.erase(way);
    changed = true;
    if (Peer* peer = PeerOf(*computer)) {
        peer->link.Association().EndWay(now, static_cast<std::uint8_t>(source),
                                        static_cast<std::uint8_t>(input));
        Serve(now, *peer);
    }
}

void LinkTransport::TakeWayState(const Peer& peer, const LinkEvent& event) {
    Computer* computer = ComputerOf(peer.computer);
    if (computer == nullptr) {
        return;
    }
    const auto way = FindWay(computer->ways, event.source, event.input);
    if (way != computer->ways.end() && (!way->answered || way->problem != event.problem)) {
        way->answered = true;
        way->problem = event.problem;
        changed = true;
    }
}

void LinkTransport::JudgeWaysAgain(std::uint64_t now) {
    for (const auto& peer : peers) {
        LinkAssociation& association = peer->link.Association();
        waysIn.ForEach(peer.get(), [&](LinkWaysIn::Way& way) {
            const WayVerdict verdict =
                parts.gate.JudgeWay(association.PeerName(), peer->address, way.source, way.input);
            if (verdict == way.verdict) {
                return;
            }
            const WayProblem before = way.verdict.problem;
            const WayProblem problem = waysIn.Change(way, verdict, SteadyTime(now));
            if (problem != before) {
                association.AnswerWay(way.source, way.input, problem);
                peer->dirty = true;
            }
            changed = true;
        });
    }
    SendDirty(now);
}

WayResult LinkTransport::Pass(const RemoteRing::Delivery& delivery) {
    Computer* computer = ComputerOf(delivery.to.computer);
    Peer* peer = computer == nullptr ? nullptr : PeerOf(*computer);
    if (peer == nullptr) {
        return WayResult::NotUp;
    }
    const std::uint64_t steady = delivery.time - static_cast<std::uint64_t>(parts.engine.ClockLead());
    const std::uint64_t due = (steady - static_cast<std::uint64_t>(steadyLead)) / 1000;
    const WayResult result = peer->link.Association().Send(due, delivery.to.from, delivery.to.port,
                                                           PieceOfDelivery(delivery.bytes));
    peer->dirty = peer->dirty || result == WayResult::Taken;
    return result;
}

void LinkTransport::Deliver(const RemoteRing::Delivery& delivery) {
    // Behind a system exclusive that waits only what may stand inside it goes at once.
    const bool waits = staged.Has(delivery.to.from) && delivery.bytes.front() < kFirstRealtimeByte;
    if (waits || Pass(delivery) == WayResult::NoRoom) {
        staged.Put(delivery);
    } else {
        parts.ring.PassedOn(delivery.to, delivery.bytes.size());
    }
}

void LinkTransport::FlushStaged(std::uint64_t) {
    staged.Flush([this](const RemoteRing::Delivery& delivery) {
        if (Pass(delivery) == WayResult::NoRoom) {
            return false;
        }
        parts.ring.PassedOn(delivery.to, delivery.bytes.size());
        return true;
    });
}

}  // namespace vexil
