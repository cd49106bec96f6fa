// The names that are looked up: which of them now, and what is known of them. At most 4 look-ups are under
// way, the name that was wanted last goes first, and what nobody wants any longer is dropped. An answer
// counts for 60 s; that a name is not known, for 5 s; then it is looked up again while it is wanted, and the
// last answer stands until the next one.
//
// Times are microseconds. One thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "service/network/Resolver.h"

namespace vexil {

class NameLookups {
  public:
    static constexpr std::size_t kAtOnce = 4;
    static constexpr std::size_t kMostNames = 512;  // that are wanted; beyond them nothing is looked up
    static constexpr std::uint64_t kKnownFor = 60'000'000;
    static constexpr std::uint64_t kUnknownFor = 5'000'000;
    // A look-up that takes longer than this no longer holds a place of the 4; its answer still counts.
    static constexpr std::uint64_t kPatience = 20'000'000;

    // `system` outlives it.
    explicit NameLookups(Resolver& system) : resolver(system) {}

    // A name is of interest from now on. To want it again changes nothing.
    void Want(std::uint64_t now, const std::string& name);
    // It is no longer: what is known of it is forgotten.
    void Drop(std::uint64_t now, const std::string& name);
    // Interfaces have changed: every name is looked up anew. What is known stands until the answers come.
    void Renew(std::uint64_t now);

    // What the resolver said last; empty: the name is not known. Null while there is no answer yet.
    const std::vector<NetworkAddress>* Find(const std::string& name) const;

    // Takes what the resolver has answered; true when something that is wanted was answered.
    bool HandleAnswers(std::uint64_t now);
    void HandleTimeout(std::uint64_t now) { Serve(now); }
    std::optional<std::uint64_t> PollTimeout() const;

  private:
    struct Name {
        std::uint64_t wantedAs = 0;  // counts on: the later, the higher
        std::uint64_t due = 0;       // when it is to be looked up
        std::uint64_t ticket = 0;    // of the look-up under way; 0: no look-up
        std::optional<std::vector<NetworkAddress>> known;
    };
    struct UnderWay {
        std::string name;
        std::uint64_t begun = 0;
    };

    void Serve(std::uint64_t now);
    std::size_t Busy(std::uint64_t now) const;

    Resolver& resolver;
    std::map<std::string, Name> names;
    std::map<std::uint64_t, UnderWay> underWay;
    std::uint64_t lastTicket = 0;
    std::uint64_t lastWanted = 0;
    std::uint64_t retryAt = 0;  // the system had no room
};

}  // namespace vexil
