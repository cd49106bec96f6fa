#include "tests/service/network/LinkWorld.h"

#include <algorithm>

namespace vexil::test {

namespace {

constexpr int kNumbers = 1 << 14;  // messages of a way carry a number of 14 bits
constexpr Microseconds kCallInterval = 100 * kMillisecond;

std::array<std::uint8_t, 3> NumberMessage(long number) {
    return {0xA0, static_cast<std::uint8_t>(number & 0x7F), static_cast<std::uint8_t>(number >> 7 & 0x7F)};
}

}  // namespace

LinkWorld::LinkWorld(const WorldPlan& given) : plan(given), random(given.seed) {
    for (int end = 0; end < 2; ++end) {
        Computer& computer = ends[Index(end)];
        computer.association = std::make_unique<LinkAssociation>(end == 0 ? "laptop" : "studio");
        for (int way = 0; way < plan.ways; ++way) {
            computer.programs[way].nextAt = now + Draw(plan.meanInterval + 1);
            computer.association->OpenWay(now, Source(way), Input(way));
        }
    }
}

void LinkWorld::Restart(int end) {
    Computer& computer = ends[Index(end)];
    computer.association = std::make_unique<LinkAssociation>(end == 0 ? "laptop" : "studio");
    computer.heard.clear();
    computer.calling = 0;
    computer.callAt = now;
    for (auto& [way, program] : computer.programs) {
        program.exclusive.clear();
        if (program.wanted) {
            computer.association->OpenWay(now, Source(way), Input(way));
        }
    }
}

void LinkWorld::Live(Microseconds span) {
    for (Computer& computer : ends) {
        for (auto& [way, program] : computer.programs) {
            program.nextAt = std::max(program.nextAt, now);  // while it rested nothing was played
        }
    }
    Advance(now + span, true);
}

void LinkWorld::Rest(Microseconds span) {
    Advance(now + span, false);
}

void LinkWorld::Advance(Microseconds until, bool withLoad) {
    Microseconds before = 0;
    int stuck = 0;
    while (complaint.empty()) {
        stuck = now == before ? stuck + 1 : 0;
        before = now;
        if (stuck > 10000) {
            Complain("time stands still");
            return;
        }
        Microseconds next = until;
        if (!wire.empty()) {
            next = std::min(next, wire.top().time);
        }
        for (int end = 0; end < 2; ++end) {
            const Computer& computer = ends[Index(end)];
            if (const auto timeout = computer.association->PollTimeout()) {
                next = std::min(next, *timeout);
            }
            if (calls && !computer.association->IsUp()) {
                next = std::min(next, computer.callAt);
            }
            for (const auto& [way, program] : computer.programs) {
                next = withLoad ? std::min(next, program.nextAt) : next;
            }
        }
        now = std::max(now, next);
        while (!wire.empty() && wire.top().time <= now) {
            const Datagram datagram = wire.top();
            wire.pop();
            Deliver(datagram);
        }
        for (int end = 0; end < 2; ++end) {
            if (withLoad) {
                Load(end);
            }
            Serve(end);
        }
        if (withLoad && now >= nextMisfortune) {
            Misfortunes();
        }
        if (now >= until && (wire.empty() || wire.top().time > now)) {
            return;
        }
    }
}

void LinkWorld::Misfortunes() {
    nextMisfortune = now + 100 * kMillisecond;
    if (plan.cut > 0) {
        plan.faults.cut = now < cutUntil;
    }
    if (Chance() < plan.cut) {
        cutUntil = now + Draw(plan.longestCut);
        plan.faults.cut = true;
    }
    if (Chance() < plan.restart) {
        Restart(static_cast<int>(Draw(2)));
    }
}

void LinkWorld::Put(int to, Datagram datagram) {
    ++datagrams;
    const int copies = Chance() < plan.faults.duplicates ? 2 : 1;
    for (int copy = 0; copy < copies; ++copy) {
        if (plan.faults.cut || plan.faults.deaf[Index(to)] || Chance() < plan.faults.loss) {
            continue;
        }
        datagram.to = to;
        datagram.order = order++;
        datagram.time = now + plan.faults.delay + Draw(plan.faults.jitter + 1);
        wire.push(datagram);
    }
}

void LinkWorld::Deliver(const Datagram& datagram) {
    Computer& computer = ends[Index(datagram.to)];
    SessionStart start;
    start.session = datagram.session;
    start.association = datagram.number;
    switch (datagram.kind) {
        case Datagram::Kind::Call: {
            start.role = SessionRole::Called;
            // Both calling: the call with the smaller number stands, as with the sealed sessions.
            if (datagram.session < computer.lastTaken ||
                (computer.calling != 0 && computer.calling < datagram.session)) {
                return;
            }
            computer.calling = 0;
            if (datagram.session != computer.lastTaken) {
                computer.lastTaken = datagram.session;
                computer.association->BeginSession(now, start);
            }
            Datagram taken = datagram;
            taken.kind = Datagram::Kind::CallTaken;
            Put(1 - datagram.to, taken);
            break;
        }
        case Datagram::Kind::CallTaken:
            if (computer.calling == datagram.session) {
                computer.calling = 0;
                computer.callAt = now + 3 * kSecond;
                computer.association->BeginSession(now, start);
            }
            break;
        case Datagram::Kind::Body:
            computer.association->HandleBody(now, datagram.session, datagram.body);
            break;
    }
    Serve(datagram.to);
}

void LinkWorld::Serve(int end) {
    Computer& computer = ends[Index(end)];
    LinkAssociation& association = *computer.association;
    association.HandleTimeout(now);
    while (const auto event = association.PollEvent(now)) {
        TakeEvent(end, *event);
    }
    std::array<std::uint8_t, kLongestBody> body{};
    for (int count = 0;; ++count) {
        const auto transmit = association.PollTransmit(now, body);
        if (!transmit) {
            break;
        }
        if (count > 2000) {
            Complain("an end sends without end");
            return;
        }
        Datagram datagram;
        datagram.session = transmit->session;
        datagram.body.assign(body.begin(), body.begin() + static_cast<std::ptrdiff_t>(transmit->size));
        if (!BodyReader::Open(datagram.body)) {
            Complain("a malformed body was sent");
        }
        Tamper(datagram.body);
        Put(1 - end, std::move(datagram));
    }
    while (const auto event = association.PollEvent(now)) {
        TakeEvent(end, *event);
    }
    if (calls && !association.IsUp() && now >= computer.callAt) {
        computer.callAt = now + kCallInterval;
        if (computer.calling == 0 || now - computer.callBegun > 3 * kSecond) {
            computer.call.kind = Datagram::Kind::Call;
            computer.call.session = computer.calling = nextSession++;
            computer.call.number = random() | 1;
            computer.callBegun = now;
        }
        Put(1 - end, computer.call);
    }
}

void LinkWorld::Tamper(std::vector<std::uint8_t>& body) {
    if (planted || body.size() < 60) {
        return;
    }
    if (plan.planted == Planted::FalseAcknowledgement && Draw(20) == 0) {
        const int allBelow = (body[0] | body[1] << 8) + 3;
        if (allBelow > 40) {
            body[0] = static_cast<std::uint8_t>(allBelow);
            body[1] = static_cast<std::uint8_t>(allBelow >> 8);
        }
    }
    // The first record of the first frame, where it is a message: as if its sender had counted it twice.
    const std::size_t record = kBodyHeaderSize + 3 + 4;
    if (plan.planted == Planted::WayNumbersShifted && body[kBodyHeaderSize] == 1 && body[record] == 0x32 &&
        Draw(20) == 0) {
        ++body[record + 3];
        planted = true;
    }
}

void LinkWorld::TakeEvent(int end, const LinkEvent& event) {
    Computer& computer = ends[Index(end)];
    HeardWay& way = computer.heard[event.input];
    const bool isMessage = event.kind == LinkEvent::Kind::Message;
    if (!isMessage && event.kind != LinkEvent::Kind::Piece) {
        computer.events.push_back(event.kind);
    }
    const bool plant = !planted && heard > 100;
    switch (event.kind) {
        case LinkEvent::Kind::Up:
            ++associations;
            computer.callAt = now + kCallInterval;
            for (const auto& [input, heardWay] : computer.heard) {
                if (heardWay.open) {
                    Complain("an association begins and a way of the old one is open");
                }
            }
            break;
        case LinkEvent::Kind::Lost:
        case LinkEvent::Kind::Ended:
            computer.callAt = now;
            break;
        case LinkEvent::Kind::WayOpened:
            if (way.open) {
                Complain("an open way is opened");
            }
            way.open = true;
            way.next = -1;
            computer.association->AnswerWay(event.source, event.input, WayProblem::None);
            break;
        case LinkEvent::Kind::WayEnded:
            if (plant && plan.planted == Planted::EndSwallowed) {
                planted = true;
                break;
            }
            if (!way.open) {
                Complain("a closed way ends");
            }
            way.open = false;
            way.exclusive.clear();
            while (const auto release = way.sounding.NextRelease()) {
                way.sounding.Heard(release->Message());
            }
            break;
        case LinkEvent::Kind::Message:
            if (plant && plan.planted == Planted::MessageSwallowed && event.bytes[0] == 0xA0) {
                planted = true;
                break;
            }
            if (plant && plan.planted == Planted::MessagesSwapped && !swapped && event.bytes[0] == 0xA0) {
                swapped = event;
                swappedBytes.assign(event.bytes.begin(), event.bytes.end());
                break;
            }
            latencies.push_back(now - std::min(now, event.due));
            Hear(way, event.bytes, false);
            if (plant && plan.planted == Planted::MessageTwice && event.bytes[0] == 0xA0) {
                planted = true;
                Hear(way, event.bytes, false);
            }
            if (swapped && !planted && swapped->input == event.input) {
                planted = true;
                Hear(way, swappedBytes, false);
            }
            break;
        case LinkEvent::Kind::Piece: {
            std::vector<std::uint8_t> bytes(event.bytes.begin(), event.bytes.end());
            if (plant && plan.planted == Planted::ExclusiveDamaged && bytes.size() > 8) {
                planted = true;
                bytes[7] ^= 1;
            }
            computer.association->PiecesPassedOn(event.source, event.input, bytes.size());
            if (event.first != way.exclusive.empty()) {
                Complain("a piece of a system exclusive that did not begin");
            }
            way.exclusive.insert(way.exclusive.end(), bytes.begin(), bytes.end());
            if (event.last) {
                Hear(way, way.exclusive, true);
                way.exclusive.clear();
            }
            break;
        }
        default:
            break;
    }
}

void LinkWorld::Hear(HeardWay& way, ByteView message, bool exclusive) {
    if (!way.open) {
        Complain("a message on a way that is not open");
    }
    way.sounding.Heard(message);
    if (exclusive) {
        if (message.size() < 4 || message.front() != 0xF0 || message.back() != 0xF7) {
            Complain("a system exclusive without beginning or end");
            return;
        }
        for (std::size_t at = 3; at + 1 < message.size(); ++at) {
            if (message[at] != ((message[1] + at) & 0x7F)) {
                Complain("a byte of a system exclusive is wrong");
                return;
            }
        }
        HearNumber(way, message[1] | message[2] << 7);
    } else if (message[0] == 0xA0) {
        HearNumber(way, message[1] | message[2] << 7);
    }
}

void LinkWorld::HearNumber(HeardWay& way, int number) {
    ++heard;
    ++way.count;
    if (way.next >= 0 && number != way.next) {
        Complain("number " + std::to_string(number) + " was heard and " + std::to_string(way.next) +
                 " had to come");
    }
    if (way.last >= 0 && (number - way.last + kNumbers) % kNumbers > kNumbers / 2) {
        Complain("something old was heard");
    }
    way.last = number;
    way.next = (number + 1) % kNumbers;
}

void LinkWorld::Load(int end) {
    Computer& computer = ends[Index(end)];
    for (auto& [way, program] : computer.programs) {
        while (program.nextAt <= now) {
            program.nextAt += 1 + Draw(2 * plan.meanInterval);
            PlayOne(end, way, program);
        }
    }
}

bool LinkWorld::SendOne(int end, int way) {
    Program& program = ends[Index(end)].programs[way];
    const auto message = NumberMessage(program.number);
    MidiPiece piece;
    piece.bytes = message;
    const WayResult result = End(end).Send(now, Source(way), Input(way), piece);
    program.number += 1;
    sent += result == WayResult::Taken ? 1 : 0;
    return result == WayResult::Taken;
}

bool LinkWorld::GoOnWithExclusive(int end, int way, Program& program) {
    while (!program.exclusive.empty()) {
        MidiPiece piece;
        piece.systemExclusive = true;
        piece.first = program.exclusiveAt == 0;
        const std::size_t size = std::min<std::size_t>(992, program.exclusive.size() - program.exclusiveAt);
        piece.last = program.exclusiveAt + size == program.exclusive.size();
        piece.bytes = ByteView(program.exclusive).subspan(program.exclusiveAt, size);
        const WayResult result = End(end).Send(now, Source(way), Input(way), piece);
        if (result == WayResult::NoRoom) {
            return false;
        }
        program.exclusiveAt += size;
        if (piece.last || result != WayResult::Taken) {
            sent += result == WayResult::Taken ? 1 : 0;
            program.exclusive.clear();
        }
    }
    return true;
}

void LinkWorld::PlayOne(int end, int way, Program& program) {
    if (!GoOnWithExclusive(end, way, program)) {
        return;
    }
    LinkAssociation& association = End(end);
    if (Chance() < plan.wayChange) {
        program.wanted = !program.wanted;
        if (program.wanted) {
            association.OpenWay(now, Source(way), Input(way));
        } else {
            association.EndWay(now, Source(way), Input(way));
        }
    }
    if (!program.wanted) {
        return;
    }
    if (Chance() < plan.exclusive) {
        const std::size_t size = 4 + Draw(plan.longestExclusive);
        program.exclusive.assign(size, 0xF0);
        program.exclusive[1] = static_cast<std::uint8_t>(program.number & 0x7F);
        program.exclusive[2] = static_cast<std::uint8_t>(program.number >> 7 & 0x7F);
        for (std::size_t at = 3; at + 1 < size; ++at) {
            program.exclusive[at] = static_cast<std::uint8_t>((program.exclusive[1] + at) & 0x7F);
        }
        program.exclusive.back() = 0xF7;
        program.exclusiveAt = 0;
        ++program.number;
        GoOnWithExclusive(end, way, program);
        return;
    }
    if (Chance() < 0.3) {
        const std::array<std::uint8_t, 3> note = {static_cast<std::uint8_t>(Draw(2) == 0 ? 0x90 : 0x80),
                                                  static_cast<std::uint8_t>(Draw(128)), 64};
        MidiPiece piece;
        piece.bytes = note;
        association.Send(now, Source(way), Input(way), piece);
    }
    SendOne(end, way);
}

void LinkWorld::HealAndCheck() {
    plan.faults = WireFaults();
    cutUntil = 0;
    // Long enough for the loss of an old association and the call that follows.
    Rest(3 * kSecond);
    if (!BothUp()) {
        Complain("3 s after the faults stopped the two are not up");
        return;
    }
    Rest(2 * kSecond);
    for (int end = 0; end < 2; ++end) {
        for (auto& [way, program] : ends[Index(end)].programs) {
            HeardWay& there = ends[Index(1 - end)].heard[way];
            if (there.open != program.wanted) {
                Complain("a way is open there and not wanted here, or the other way round");
            }
            if (!there.open && !there.sounding.IsAtRest()) {
                Complain("a note sounds and its way has ended");
            }
            if (!program.wanted) {
                continue;
            }
            for (int tries = 0; !GoOnWithExclusive(end, way, program); ++tries) {
                Rest(10 * kMillisecond);
                if (tries > 100) {
                    Complain("a system exclusive finds no room");
                    return;
                }
            }
            SendOne(end, way);
            Rest(50 * kMillisecond);
            if (there.last != (program.number - 1) % kNumbers) {
                Complain("what was sent last is not heard");
            }
        }
    }
}

}  // namespace vexil::test
