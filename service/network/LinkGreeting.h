// The hello of one session: what this computer says, what it has heard, and when it says it again. Pure data.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string_view>

#include "service/network/LinkCodec.h"

namespace vexil {

enum class SessionRole : std::uint8_t { Caller, Called };

struct SessionStart {
    std::uint32_t session = 0;  // its number here; not 0
    SessionRole role = SessionRole::Caller;
    // Caller: of the association that is to begin, a random number that is not 0, or, to renew one, its
    // number.
    std::uint64_t association = 0;
    Refusal refusal = Refusal::None;         // the peer is not let in; it is told so
    std::optional<SecretProof> ownProof;     // that this computer knows the secret, where it knows one
    std::optional<SecretProof> neededProof;  // that the peer has to give; null: no proof is needed
};

struct LinkGreeting {
    static constexpr std::uint64_t kFirstInterval = 25'000;
    static constexpr std::uint64_t kLongestInterval = 400'000;
    static constexpr std::uint64_t kLongest = 3'000'000;  // a greeting lives no longer

    SessionStart start;  // session 0: nothing to start
    std::uint64_t begun = 0;
    bool renewal = false;    // of the association that we know
    bool hasTheirs = false;  // the peer's hello has come and is accepted
    bool theyHaveOurs = false;
    std::uint64_t due = 0;  // when our hello goes again; 0: with nothing of its own
    std::uint64_t interval = kFirstInterval;

    bool IsThere() const { return start.session != 0; }
    // Our hello goes with every body until the peer has it.
    bool SaysHello() const { return IsThere() && !theyHaveOurs; }

    void Begin(std::uint64_t now, const SessionStart& session, bool isRenewal) {
        *this = LinkGreeting();
        start = session;
        begun = now;
        renewal = isRenewal;
        due = session.role == SessionRole::Caller ? now : 0;
    }
    void Said(std::uint64_t now) {
        due = now + interval;
        interval = std::min(interval * 2, kLongestInterval);
    }
    Hello Write(std::string_view name) const {
        Hello hello;
        hello.hasYours = hasTheirs;
        hello.renewal = renewal;
        hello.association = start.association;
        hello.proof = start.ownProof;
        hello.name = name;
        return hello;
    }
};

}  // namespace vexil
