// Finds the other computers, and lets them find this one, by plain datagrams: queries, answers,
// announcements. What is heard goes into the directory.
//
// Datagrams and times go in, datagrams and events come out: hand in what has arrived (HandleDatagram), come
// back at PollTimeout (HandleTimeout), send what there is (PollTransmit, until it gives nothing), take what
// has happened (PollEvent, until it gives nothing). It sends nothing by itself: no timer while nobody asks.
//
// Times are microseconds. One thread at a time.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "service/network/AccessRules.h"
#include "service/network/ComputerDirectory.h"
#include "service/network/DatagramRate.h"
#include "service/network/DatagramSocket.h"
#include "service/network/Interfaces.h"
#include "service/network/PlainDatagram.h"

namespace vexil {

struct DiscoveryEvent {
    enum class Kind : std::uint8_t {
        ListChanged,   // the directory lists other computers, names or addresses
        Heard,         // `id` said who it is, at `from`: an announcement, or an answer
        Going,         // `id` says that it goes
        OwnKey,        // a computer at `from` uses the key of this one
        OtherVersion,  // a computer at `from` speaks version `version`
    };
    Kind kind = Kind::ListChanged;
    ComputerId id{};
    NetworkAddress from;
    bool announced = false;    // Heard: unasked, so it may just have come
    Nonce question{};          // Heard, of an answer: what it answers
    std::uint8_t version = 0;  // OtherVersion
};

struct DiscoveryCounters {
    std::uint64_t malformed = 0;    // plain datagrams
    std::uint64_t tooMany = 0;      // beyond the rate
    std::uint64_t notAdmitted = 0;  // from addresses that are not let in
    std::uint64_t unasked = 0;      // answers to nothing that was asked
    std::uint64_t answered = 0;     // queries
};

class Discovery {
  public:
    class Mediator {
      public:
        virtual ~Mediator() = default;
        // A random number that nobody can foresee.
        virtual std::uint64_t Random() = 0;
    };

    // A browse asks when it begins and again after these times.
    static constexpr std::array<std::uint64_t, 2> kAskAgain = {4'000, 150'000};
    static constexpr std::uint64_t kBrowseInterval = 100'000;

    // All outlive it.
    Discovery(Mediator& outside, ComputerDirectory& directory, const AccessRules& rules);

    // What this computer says of itself; the name is copied. While started, a change is announced.
    void SetComputer(std::uint64_t now, const ComputerAnswer& computer);
    // Announces this computer again, while started: who was turned away by it may try anew.
    void AnnounceAgain(std::uint64_t now);
    // Those by which it speaks. While started, it announces itself when they change.
    void SetInterfaces(std::uint64_t now, std::vector<NetworkInterface> spoken);

    // From Start, which announces this computer, to Stop, which says that it goes. Stopped, it answers
    // nothing and asks nothing. After Stop what there is to send is still given.
    void Start(std::uint64_t now);
    void Stop(std::uint64_t now);
    bool IsStarted() const { return started; }

    // Asks who is there. False when a browse has begun less than kBrowseInterval ago, or it is stopped.
    bool Browse(std::uint64_t now);
    // Asks at one address (with its port; 0: the link's), once. The nonce by which the answer is known.
    Nonce Ask(std::uint64_t now, const NetworkAddress& address);

    // Where other computers may be, as somebody says who may lie; with their ports, at most kMostHints of
    // them count. Those that are new are asked, and after these times once more where nobody has answered: a
    // firewall over there may let a question in only after that computer has asked here. What goes to
    // everybody goes to all of them as well. Where no computer may be, or this one is, nothing is sent.
    static constexpr std::size_t kMostHints = 512;
    static constexpr std::array<std::uint64_t, 3> kHintAgain = {1'000'000, 3'000'000, 9'000'000};
    void SetHints(std::uint64_t now, std::vector<NetworkAddress> addresses);

    // A plain datagram (KindOfDatagram).
    void HandleDatagram(std::uint64_t now, const ReceivedDatagram& told, ByteView datagram);
    void HandleTimeout(std::uint64_t now);

    struct Transmit {
        std::size_t size = 0;
        NetworkAddress to;
        NetworkAddress own;  // to leave from; no address: any
    };
    // Writes one datagram; null when there is nothing to send. `out` is kLongestDatagram long.
    std::optional<Transmit> PollTransmit(std::span<std::uint8_t> out);
    // When HandleTimeout is to be called, or there is something to send or to tell: at once, then; null: not
    // before something happens.
    std::optional<std::uint64_t> PollTimeout() const;
    std::optional<DiscoveryEvent> PollEvent();

    DiscoveryCounters Counters() const { return counters; }

  private:
    struct Pending {
        PlainKind kind = PlainKind::Query;
        Nonce nonce{};
        bool goingAway = false;
        NetworkAddress to;
        NetworkAddress own;
    };

    Nonce MakeNonce();
    std::vector<NetworkAddress> Everybody() const;
    bool IsWorthAsking(const NetworkAddress& hint) const;
    bool IsKnown(const NetworkAddress& hint) const;
    void RenewHintNonce(std::uint64_t now);
    void AskHintsAgain(std::uint64_t now);
    std::optional<std::uint64_t> NextHintRound() const;
    void AskEverybody();
    void AnnounceNow(bool goingAway);
    void Announce(std::uint64_t now);
    void Push(const Pending& datagram);
    void Remember(std::uint64_t now, const Nonce& nonce);
    void TakeComputer(std::uint64_t now, const NetworkAddress& from, const PlainDatagram& read);
    bool IsAsked(std::uint64_t now, const Nonce& nonce) const;
    void Report(const DiscoveryEvent& event);

    Mediator& mediator;
    ComputerDirectory& directory;
    const AccessRules& access;
    bool started = false;
    ComputerAnswer self;
    std::string selfName;
    std::vector<NetworkInterface> interfaces;
    DatagramRate rate;
    DiscoveryCounters counters;

    struct Question {
        Nonce nonce{};
        std::uint64_t until = 0;  // answers count until then
    };
    static constexpr std::size_t kQuestions = 128;
    std::array<Question, kQuestions> questions;
    std::size_t nextQuestion = 0;
    std::optional<std::uint64_t> browseBegun;
    Nonce browse{};
    std::size_t asksDone = kAskAgain.size();
    std::optional<std::uint64_t> announceAgain;
    std::optional<std::uint64_t> dropAt;  // who did not answer the last two browses

    std::vector<NetworkAddress> hints;  // in order
    // Questions at new hints: however often they change, not more than kMostHints in kHintTime.
    static constexpr std::uint64_t kHintTime = 1'000'000;
    Nonce hintNonce{};
    std::optional<std::uint64_t> hintsBegun;
    std::size_t hintsAsked = 0;
    std::uint64_t newHint = 0;                   // when the last one came
    std::size_t hintRounds = kHintAgain.size();  // done since then

    static constexpr std::size_t kMostPending = 2048;
    std::deque<Pending> pending;
    static constexpr std::size_t kMostEvents = 1024;
    std::deque<DiscoveryEvent> events;
};

}  // namespace vexil
