// The computers that are known to speak the link, by what they say of themselves, and the names under which
// they are shown and found. What they say is not proved.
//
// Pure; times are microseconds; one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "service/network/AccessRules.h"
#include "service/network/NetworkAddress.h"
#include "service/network/PlainDatagram.h"
#include "service/routes/HostNames.h"

namespace vexil {

struct ComputerEntry {
    ComputerId id{};
    std::string name;   // as announced
    std::string shown;  // under which it is listed and found: the name, or the name with "-2" and on
    std::uint16_t port = 0;
    HardwareAddress hardware{};
    bool secretNeeded = false;
    // Where it was heard, with interface and port, the last one first; at most kMostAddresses. Empty when it
    // is only known by a route.
    std::vector<NetworkAddress> addresses;
    std::uint64_t lastHeard = 0;
    bool kept = false;       // it has an association, or a route needs it: it does not go
    bool connected = false;  // it has an association
    bool reachable = false;  // it has an association, or answered one of the last two browses
    bool twin = false;       // two living computers use its key

    static constexpr std::size_t kMostAddresses = 4;
};

// This computer, as it is shown in the list.
struct OwnEntry {
    ComputerId id{};
    std::string name;
    NetworkAddress address;
    HardwareAddress hardware{};
};

class ComputerDirectory {
  public:
    static constexpr std::size_t kMostComputers = 256;
    // The answer to a browse may take so long.
    static constexpr std::uint64_t kPatience = 500'000;

    // Both outlive the directory. `rules`: which computer has a name pinned.
    ComputerDirectory(const LocalNames& names, const AccessRules& rules);

    // Of this computer; its names belong to it here, whoever else announces them.
    void SetOwn(OwnEntry itself);
    const OwnEntry& Own() const { return own; }

    // A computer said who it is; `from` with the interface by which it came. `question`: of the browse that
    // it answers; zeros: an announcement. True when what is listed has changed by it. Names that cannot be
    // listed (see IsListedName) and this computer's own id are passed over.
    bool Hear(std::uint64_t now, const NetworkAddress& from, const ComputerAnswer& said,
              const Nonce& question);
    // It said that it goes; counts only from an address at which it was heard. True when it was known.
    bool HearGoing(const NetworkAddress& from, const ComputerId& id);

    // A browse begins: who did not answer the last two, and is not kept, goes. True when the list has
    // changed.
    bool BeginBrowse(std::uint64_t now);
    // The same without a browse, for a reader of the list.
    bool DropUnanswering(std::uint64_t now);

    // Which computers have a route or an association. Of one that was never heard nothing is listed; one that
    // said that it goes is no longer listed as soon as it has neither.
    void SetKept(const ComputerId& id, bool kept, bool connected);

    // The names have to be worked out anew: this computer's names or the pins have changed.
    void Rename();

    // By name (FoldHostName) as it is shown; null when no computer has it. This computer is not found here.
    const ComputerEntry* Find(std::string_view name) const;
    const ComputerEntry* FindId(const ComputerId& id) const;
    std::vector<const ComputerEntry*> All() const;

    // What is listed, by name: as much as fits `bytes` when each takes its name and `overhead` bytes. Pinned
    // and kept ones are never left out for others.
    std::vector<const ComputerEntry*> List(std::size_t bytes, std::size_t overhead) const;

    // Names that two or more computers announce, as one of them does; this computer counts.
    std::vector<std::string> SharedNames() const;

    // How the name of a computer may be: an IsComputerName without any control character of Unicode that is
    // not empty when folded.
    static bool IsListedName(std::string_view name);

  private:
    struct Known {
        ComputerEntry entry;
        std::vector<int> silent;       // browses since each address was heard
        int unanswered = 0;            // browses since it was heard
        std::uint64_t missedFrom = 0;  // when the second of those began, or the first
        Nonce question{};              // of the last browse that it answered
        HardwareAddress answered{};    // the hardware address of its first answer to it
        bool hadTwin = false;          // another answer to it told another one
        bool going = false;            // it said so, and was not heard since
    };
    struct Kept {
        bool kept = false;
        bool connected = false;
    };

    static bool IsLost(const Known& known, std::uint64_t now);
    static bool TakeAddress(Known& known, const NetworkAddress& from);
    static void LookForTwin(Known& known, const HardwareAddress& hardware, const Nonce& question);
    bool IsNeeded(const ComputerEntry& entry) const;
    bool MakeRoom();

    const LocalNames& localNames;
    const AccessRules& access;
    OwnEntry own;
    std::map<ComputerId, Known> computers;
    std::map<ComputerId, Kept> kept;
    std::map<std::string, ComputerId> byName;  // folded
};

}  // namespace vexil
