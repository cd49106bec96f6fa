// The computers that routes and inputs name: who each of them is, where it may be, and the number under which
// the link and the engine know it. Names and addresses of one computer share a number.
//
// Pure but for the look-ups that it asks for; times are microseconds. One thread at a time.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "service/network/LinkTransport.h"
#include "service/network/NameLookups.h"
#include "service/network/NameRules.h"

namespace vexil {

// A way from this computer to an input of another one.
struct WantedWay {
    std::string computer;  // as it was set
    int port = 0;          // whose input is meant, 0 to 63
    int from = 0;          // a port, or kTestSourceBase + port
    bool operator==(const WantedWay&) const = default;
};

class RemoteTargets {
  public:
    // What is known of a computer that was set.
    enum class State : std::uint8_t {
        Waiting,       // a test output's, whose name may still be typed
        Impossible,    // neither a name nor an address of a computer
        ThisComputer,  // the resolver leads here
        LookedUp,      // the resolver has not answered yet
        Unknown,       // nobody announces it and the resolver does not know it
        Known,         // there are addresses to call
        TooMany,       // more computers are named than the link can have
    };
    struct Found {
        State state = State::Waiting;
        int number = 0;  // from 1 to LinkTransport::kMostComputers; 0 unless LookedUp, Unknown or Known
        bool operator==(const Found&) const = default;
    };
    // One computer, by whatever names it was set.
    struct Target {
        int number = 0;
        LinkTarget link;
        bool isSession = false;                 // by RTP-MIDI; else by the link
        std::optional<ComputerId> id;           // of one that is in the directory
        std::vector<std::pair<int, int>> ways;  // source and input, each once
        std::vector<std::string> texts;         // as it was set
    };

    // A panel sets a test output's target anew at every key.
    static constexpr std::uint64_t kTestDelay = 500'000;

    // `resolver` outlives it.
    explicit RemoteTargets(NameLookups& resolver) : lookups(resolver) {}

    // What is wanted from now on; `sources` are computers that inputs listen to.
    void Set(std::uint64_t now, std::vector<WantedWay> wanted, std::vector<std::string> sources);
    // Finds them anew: after Set, after an answer of the resolver, and when the directory, the pins, names or
    // interfaces have changed.
    void Find(std::uint64_t now, const NameSurroundings& surroundings, const AccessRules& access);

    // Who answered where the computer of a number was looked for: so that one which was set by two names is
    // found to be one.
    void Learn(int number, const ComputerId& id);

    // As of the last Find, by number.
    const std::vector<Target>& Targets() const { return targets; }
    Found Of(const std::string& computer) const;
    // A computer is wanted that nobody has announced.
    bool IsAnyUnannounced() const { return anyUnannounced; }
    // When Find is to be called although nothing happens; null: not before something does.
    std::optional<std::uint64_t> NextTime() const;

  private:
    struct Wanted {
        std::string text;
        bool needed = false;
        std::vector<std::pair<int, int>> ways;
    };
    struct Candidate {
        State state = State::Unknown;
        Target target;
    };

    bool IsHeldBack(std::uint64_t now, const WantedWay& way) const;
    std::vector<Wanted> Collect(std::uint64_t now) const;
    Candidate Look(const Wanted& wanted, const NameSurroundings& surroundings, const AccessRules& access);
    void Number();

    NameLookups& lookups;
    std::vector<WantedWay> ways;
    std::vector<std::string> listened;
    std::array<std::uint64_t, kMaxPorts> heldUntil{};  // of the test output of a port; 0: not held back
    std::vector<Target> targets;
    std::map<std::string, Found> found;         // by the computer as it was set
    std::map<std::string, int> numbers;         // the same, as it was numbered last
    std::vector<std::string> lookedUp;          // names that the resolver was asked for
    std::vector<std::string> newLookUps;        // the same, while Find goes on
    std::map<std::string, ComputerId> learned;  // by the computer as it was set
    bool anyUnannounced = false;
    std::uint64_t foundAt = 0;  // when Find was called last
};

}  // namespace vexil
