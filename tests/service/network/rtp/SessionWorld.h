// Ends of RTP-MIDI sessions on a wire in memory, in virtual time: sessions of this program, and peers by hand
// that do what a test says.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "service/network/rtp/RtpSession.h"
#include "tests/doubles/MemoryWire.h"

namespace vexil::test {

using Bytes = std::vector<std::uint8_t>;
inline constexpr std::uint64_t kSecond = 1'000'000;

inline NetworkAddress SessionAddress(int computer, RtpPort port) {
    const auto host = static_cast<std::uint8_t>(computer);
    return NetworkAddress::V4({10, 0, 0, host}, port == RtpPort::Control ? 5004 : 5005, 2);
}

// Two sockets, as every end has them.
class SessionSockets {
  public:
    SessionSockets(MemoryWire& wire, int itsComputer)
        : computer(itsComputer),
          control(wire, {SessionAddress(itsComputer, RtpPort::Control)}),
          data(wire, {SessionAddress(itsComputer, RtpPort::Data)}) {}
    void Send(int to, RtpPort port, ByteView bytes) {
        (port == RtpPort::Control ? control : data).Send(SessionAddress(to, port), {}, bytes);
    }
    // The next datagram on a port; null when none has come.
    std::optional<Bytes> Receive(RtpPort port) {
        Bytes into(2048);
        const auto received = (port == RtpPort::Control ? control : data).Receive(into);
        if (!received) {
            return std::nullopt;
        }
        into.resize(received->size);
        return into;
    }
    const int computer;

  private:
    MemoryDatagramSocket control;
    MemoryDatagramSocket data;
};

// A session of this program with the end of another computer.
class SessionEnd : RtpSession::Mediator {
  public:
    SessionEnd(MemoryWire& itsWire, int computer, int itsPeer)
        : wire(itsWire), sockets(itsWire, computer), peer(itsPeer), session(*this, "HOST 11") {}

    std::uint64_t Now() const { return wire.Now() / 1000; }
    void Want() { session.SetWanted(Now(), true); }
    RtpTaken Play(const Bytes& message, int source = 0) {
        MidiPiece piece;
        piece.bytes = message;
        return session.Send(Now(), source, piece);
    }
    // A whole system exclusive message, F0 to F7, in pieces as the engine gives them.
    bool PlayExclusive(const Bytes& message, int source = 0) {
        for (std::size_t at = 0; at < message.size(); at += kLongestPiece) {
            MidiPiece piece;
            piece.bytes = ByteView(message).subspan(at, std::min(kLongestPiece, message.size() - at));
            piece.systemExclusive = true;
            piece.first = at == 0;
            piece.last = at + piece.bytes.size() == message.size();
            if (session.Send(Now(), source, piece) != RtpTaken::Taken) {
                return false;
            }
        }
        return true;
    }
    void Step() {
        for (const RtpPort port : {RtpPort::Control, RtpPort::Data}) {
            while (const std::optional<Bytes> datagram = sockets.Receive(port)) {
                if (const auto command = ReadSessionCommand(*datagram)) {
                    if (command->kind == SessionCommandKind::Invitation) {
                        session.TakeInvitation(Now(), port, *command);
                    } else {
                        session.HearCommand(Now(), port, *command);
                    }
                } else if (const auto packet = ReadRtpPacket(*datagram)) {
                    session.HearPacket(Now(), *packet);
                }
            }
        }
        session.HandleTimeout(Now());
        Bytes out(kLongestRtpDatagram);
        while (const auto transmit = session.PollTransmit(Now(), out)) {
            sockets.Send(peer, transmit->port, ByteView(out).first(transmit->size));
        }
        while (const auto event = session.PollEvent()) {
            events.push_back(event->kind);
        }
    }

    MemoryWire& wire;
    SessionSockets sockets;
    const int peer;
    RtpSession session;
    std::vector<Bytes> heard;
    std::vector<RtpEvent::Kind> events;

  private:
    void Hear(const MidiPiece& piece) override {
        // Pieces of one exclusive are heard as one.
        if (piece.systemExclusive && !piece.first && !heard.empty()) {
            heard.back().insert(heard.back().end(), piece.bytes.begin(), piece.bytes.end());
        } else {
            heard.emplace_back(piece.bytes.begin(), piece.bytes.end());
        }
    }
    std::uint64_t Random() override {
        return ++random * 0x9E3779B97F4A7C15 + static_cast<std::uint64_t>(sockets.computer);
    }

    std::uint64_t random = 7;
};

// A peer that does nothing but what it is told, and remembers what has come.
class PeerByHand {
  public:
    struct Heard {
        std::uint64_t time = 0;
        RtpPort port = RtpPort::Control;
        Bytes bytes;
        std::optional<SessionCommand> command;  // null: a packet
    };

    PeerByHand(MemoryWire& itsWire, int computer, int itsPeer)
        : wire(itsWire), sockets(itsWire, computer), peer(itsPeer) {}

    void Say(RtpPort port, SessionCommand command) {
        if (command.ssrc == 0) {
            command.ssrc = ssrc;
        }
        Bytes out(kLongestRtpDatagram);
        out.resize(WriteSessionCommand(command, out));
        sockets.Send(peer, port, out);
    }
    void Say(RtpPort port, SessionCommandKind kind, std::optional<std::uint32_t> token = 1) {
        SessionCommand command;
        command.kind = kind;
        command.token = token;
        Say(port, command);
    }
    void SayClock(std::uint8_t count, std::array<std::uint64_t, 3> times) {
        SessionCommand command;
        command.kind = SessionCommandKind::Clock;
        command.count = count;
        command.times = times;
        Say(RtpPort::Data, command);
    }
    // A packet without a journal.
    void SayList(std::uint16_t sequence, const Bytes& list) {
        Bytes packet = {0x80, 97};
        const auto put = [&packet](std::uint32_t value, int bytes) {
            for (int byte = bytes - 1; byte >= 0; --byte) {
                packet.push_back(static_cast<std::uint8_t>(value >> (8 * byte)));
            }
        };
        put(sequence, 2);
        put(0, 4);
        put(ssrc, 4);
        put(0x8000U | static_cast<std::uint32_t>(list.size()), 2);
        packet.insert(packet.end(), list.begin(), list.end());
        sockets.Send(peer, RtpPort::Data, packet);
    }
    void Step() {
        for (const RtpPort port : {RtpPort::Control, RtpPort::Data}) {
            while (const std::optional<Bytes> datagram = sockets.Receive(port)) {
                std::optional<SessionCommand> command = ReadSessionCommand(*datagram);
                if (command) {
                    Answer(port, *command);
                    command->name = {};
                }
                heard.push_back({wire.Now() / 1000, port, *datagram, command});
            }
        }
    }
    std::vector<Heard> Commands(SessionCommandKind kind) const {
        std::vector<Heard> found;
        std::copy_if(heard.begin(), heard.end(), std::back_inserter(found),
                     [kind](const Heard& each) { return each.command && each.command->kind == kind; });
        return found;
    }
    std::vector<Heard> Packets() const {
        std::vector<Heard> found;
        std::copy_if(heard.begin(), heard.end(), std::back_inserter(found),
                     [](const Heard& each) { return !each.command; });
        return found;
    }

    MemoryWire& wire;
    SessionSockets sockets;
    const int peer;
    std::uint32_t ssrc = 0xABCD;
    bool accepts = true;       // it answers invitations
    bool answersClock = true;  // and questions
    std::vector<Heard> heard;

  private:
    void Answer(RtpPort port, const SessionCommand& command) {
        if (command.kind == SessionCommandKind::Invitation && accepts) {
            Say(port, SessionCommandKind::Accepted, command.token);
        }
        if (command.kind == SessionCommandKind::Clock && command.count == 0 && answersClock) {
            SayClock(1, {command.times[0], 500, 0});
        }
    }
};

// Lets time pass from one thing that happens to the next.
template <class... Ends>
void Pass(MemoryWire& wire, std::uint64_t microseconds, Ends&... ends) {
    const std::uint64_t end = wire.Now() / 1000 + microseconds;
    for (;;) {
        (ends.Step(), ...);
        std::uint64_t next = end;
        const auto at = [&next](std::optional<std::uint64_t> time) {
            next = std::min(next, time.value_or(next));
        };
        const auto timeOf = [](auto& each) -> std::optional<std::uint64_t> {
            if constexpr (requires { each.session; }) {
                return each.session.PollTimeout(each.Now());
            } else {
                return std::nullopt;
            }
        };
        (at(timeOf(ends)), ...);
        const std::uint64_t now = wire.Now() / 1000;
        if (const auto arrival = wire.NextArrival()) {
            at((*arrival + 999) / 1000);
        }
        if (now >= end) {
            return;
        }
        wire.Advance((std::max(next, now + 1) - now) * 1000);
    }
}

}  // namespace vexil::test
