// Seam: turns the names of hosts into addresses, as this computer's system does it (its hosts file, DNS,
// mDNS). That can take many seconds; nobody waits for it. NameLookups is what asks it.
//
// One thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "service/network/NetworkAddress.h"

namespace vexil {

struct ResolverAnswer {
    std::uint64_t ticket = 0;  // of Begin
    // Without port, at most kMostResolvedAddresses, in the order of the system; empty: the name is not known.
    std::vector<NetworkAddress> addresses;
};
inline constexpr std::size_t kMostResolvedAddresses = 6;

class Resolver {
  public:
    virtual ~Resolver() = default;

    // Readable when Take has something to take.
    virtual int EventDescriptor() const = 0;

    // Begins to look a name up, one that IsHostName takes; any number may be under way. False: the system has
    // no room for another one now, and no answer comes.
    virtual bool Begin(std::uint64_t ticket, const std::string& name) = 0;

    // The next answer; null when no answer waits. Answers come in any order; one may never come.
    virtual std::optional<ResolverAnswer> Take() = 0;
};

}  // namespace vexil
