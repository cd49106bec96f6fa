// The peers and the computers of LinkTransport: of concern to its own sources only.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "service/network/JitterBuffer.h"
#include "service/network/LinkTransport.h"

namespace vexil {

// A computer that was called so often has had 0.7 s to answer.
inline constexpr std::size_t kCallsUntilSilent = 4;

// One association, or a call on its way to one.
struct LinkTransport::Peer : LinkPeer::Mediator {
    Peer(LinkTransport& itsOwner, LinkSealing& sealing, std::string_view name)
        : owner(itsOwner), link(*this, sealing, name) {}
    Refusal Judge(const KeyHash& key) override { return owner.Judge(*this, key); }
    std::uint64_t Random() override { return owner.parts.gate.Random(); }

    LinkTransport& owner;
    LinkPeer link;
    int computer = 0;                    // number of the computer that it is; 0: nobody here has asked for it
    NetworkAddress address;              // where it is
    NetworkAddress own;                  // address here to which it sends; it is answered from there
    std::optional<JitterBuffer> jitter;  // while it is heard by an interface that needs one
    std::uint64_t begun = 0;
    std::uint64_t upSince = 0;
    bool dirty = false;  // has something to send
    bool gone = false;   // to be dropped when it has nothing to say any more
};

// A computer that is wanted.
struct LinkTransport::Computer {
    int number = 0;
    LinkTarget target;
    std::vector<LinkWayOut> ways;
    CallSchedule calls;
    Nonce nonce{};
    std::optional<ComputerId> answered;  // who answered at its candidates last
    bool asked = false;                  // answers with the nonce count
    std::uint64_t wirelessAt = 0;        // when candidates by wireless interfaces are asked; 0: never
    LinkPeerState::Kind kind = LinkPeerState::Kind::Searching;
    Refusal refusal = Refusal::None;
    bool refusedThere = false;
    std::uint64_t since = 0;

    void SetKind(LinkPeerState::Kind next, std::uint64_t now) {
        kind = next;
        refusal = Refusal::None;
        refusedThere = false;
        since = now;
    }
    void SetRefused(Refusal why, bool there, std::uint64_t now) {
        kind = LinkPeerState::Kind::Refused;
        refusal = why;
        refusedThere = there;
        since = now;
    }
};

}  // namespace vexil
