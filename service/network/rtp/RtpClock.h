// The clock commands of an RTP-MIDI session: when this computer asks, what it answers, and when its peer is
// dead. Whoever called asks at once, every half second six times, then every 4 s, and every second while a
// note sounds. Whoever was called asks at once, to learn whether the peer answers, and later only whether it
// is still there.
//
// Pure; times are microseconds; nothing is allocated.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>

#include "service/network/rtp/RtpCodec.h"

namespace vexil {

// The time of a session, in the unit that clock commands and packets have.
inline std::uint64_t RtpTicks(std::uint64_t microseconds) {
    return microseconds / (1'000'000 / kRtpTicksPerSecond);
}

class RtpClock {
  public:
    static constexpr std::uint64_t kMillisecond = 1'000;
    static constexpr std::uint64_t kSecond = 1'000'000;
    // Unheard for so long since it was asked, a peer is dead: while a note sounds, and otherwise.
    static constexpr std::uint64_t kDeadSounding = 2 * kSecond;
    static constexpr std::uint64_t kDead = 3 * kSecond;
    // The same for a caller that has never answered a question: it has to ask within a minute, and most ask
    // every 10 s.
    static constexpr std::uint64_t kDeadCallerSounding = 25 * kSecond;
    static constexpr std::uint64_t kDeadCaller = 70 * kSecond;
    // Questions of the peer are answered so often in a second, at most.
    static constexpr std::uint32_t kMostAnswers = 20;

    void Begin(std::uint64_t now, bool hasCalled) {
        *this = RtpClock();
        isCaller = hasCalled;
        begun = now;
        lastHeard = now;
    }
    // This computer's own call was answered after it had taken the peer's.
    void BecomeCaller() { isCaller = true; }
    bool IsCaller() const { return isCaller; }
    // Something sounds, here or at the peer, for which the other is responsible.
    void SetSounding(bool sounds) { sounding = sounds; }

    // Anything came from the peer.
    void Heard(std::uint64_t now) {
        lastHeard = now;
        askedSince = 0;
    }
    std::uint64_t LastHeard() const { return lastHeard; }

    // When Ask is due.
    std::uint64_t NextAsk() const {
        if (!isCaller && !hasAnswered) {
            return asked == 0 ? begun : asked < kTries ? lastAsk + kSecond : ~std::uint64_t{0};
        }
        if (askedSince != 0) {
            return lastAsk + (sounding ? kSecond / 4 : kSecond / 2);
        }
        if (isCaller) {
            const std::uint64_t later = asked <= kFirstAsks ? kSecond / 2 : sounding ? kSecond : 4 * kSecond;
            return asked == 0 ? begun : lastAsk + later;
        }
        return std::max(lastAsk, lastHeard) + (sounding ? 1 : 12) * kSecond;
    }
    // When the peer is dead, if nothing is heard until then.
    std::uint64_t DeadAt() const {
        if (!isCaller && !hasAnswered) {
            return lastHeard + (sounding ? kDeadCallerSounding : kDeadCaller);
        }
        return askedSince == 0 ? ~std::uint64_t{0} : askedSince + (sounding ? kDeadSounding : kDead);
    }
    std::uint64_t NextTime() const { return std::min(NextAsk(), DeadAt()); }

    // The question that is sent now.
    SessionCommand Ask(std::uint64_t now) {
        ++asked;
        lastAsk = now;
        askedSince = askedSince == 0 ? now : askedSince;
        return Command(0, {RtpTicks(now), 0, 0});
    }

    // A clock command of the peer; what is to be sent for it. A question is answered by count 1 and nothing
    // else: peers that answer one more storm each other. Null: nothing.
    std::optional<SessionCommand> Take(std::uint64_t now, const SessionCommand& command) {
        if (command.count == 0) {
            if (now - answersSince >= kSecond) {
                answersSince = now;
                answers = 0;
            }
            return answers++ < kMostAnswers ? std::optional(Command(1, {command.times[0], RtpTicks(now), 0}))
                                            : std::nullopt;
        }
        // Once for each question of ours: an answer to no question of ours, or one that comes again, ends
        // here.
        if (command.count == 1 && asked != 0 && command.times[0] == RtpTicks(lastAsk) && closed != asked) {
            closed = asked;
            hasAnswered = true;
            roundTrip = now - lastAsk;
            return Command(2, {command.times[0], command.times[1], RtpTicks(now)});
        }
        hasAnswered = hasAnswered || (command.count == 1 && asked != 0);
        return std::nullopt;
    }
    // Of the last question that was answered; null before the first.
    std::optional<std::uint64_t> RoundTrip() const { return roundTrip; }

  private:
    static constexpr std::uint32_t kFirstAsks = 6;
    static constexpr std::uint32_t kTries = 3;  // to find out whether a caller answers

    static SessionCommand Command(std::uint8_t count, const std::array<std::uint64_t, 3>& times) {
        SessionCommand command;
        command.kind = SessionCommandKind::Clock;
        command.count = count;
        command.times = times;
        return command;
    }

    bool isCaller = false;
    bool sounding = false;
    bool hasAnswered = false;
    std::uint64_t begun = 0;
    std::uint64_t lastAsk = 0;
    std::uint64_t lastHeard = 0;
    std::uint64_t askedSince = 0;  // the first question since something was heard; 0: nothing was asked since
    std::uint32_t asked = 0;
    std::uint32_t closed = 0;  // the last question that was answered
    std::uint64_t answersSince = 0;
    std::uint32_t answers = 0;
    std::optional<std::uint64_t> roundTrip;
};

}  // namespace vexil
