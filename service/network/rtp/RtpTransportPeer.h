// The peers and the computers of RtpTransport: of concern to its own sources only.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "service/network/rtp/RtpTransport.h"

namespace vexil {

// One session of a port of this computer.
struct RtpTransport::Peer : RtpSession::Mediator {
    Peer(RtpTransport& itsOwner, int itsPort)
        : owner(itsOwner), port(itsPort), session(*this, itsOwner.SessionName(itsPort)) {}
    void Hear(const MidiPiece& piece) override {
        owner.waysIn.Hear(this, kSessionPort, static_cast<std::uint8_t>(port), piece.systemExclusive,
                          piece.bytes, owner.SteadyTime(owner.hearingAt));
    }
    std::uint64_t Random() override { return owner.parts.gate.Random(); }

    RtpTransport& owner;
    const int port;
    RtpSession session;
    int computer = 0;        // number of the computer that it is; 0: nobody here has asked for it
    std::string name;        // as the peer says, fit to be shown; else its address
    NetworkAddress control;  // where it is
    NetworkAddress data;
    NetworkAddress own;  // address here to which it sends; it is answered from there
    std::size_t candidate = 0;
    std::uint64_t upSince = 0;
    bool hasLost = false;   // it was up, and is no longer heard
    bool hasEnded = false;  // it was up, and has said bye
    bool dirty = false;     // has something to send
};

// A session that is wanted.
struct RtpTransport::Computer {
    int number = 0;
    LinkTarget target;
    std::vector<LinkWayOut> ways;
};

}  // namespace vexil
