#include "service/network/RemoteTargets.h"

#include <algorithm>
#include <iterator>
#include <set>

#include "service/engine/SourceNumbers.h"

namespace vexil {

namespace {

bool IsTest(const WantedWay& way) {
    return way.from >= kTestSourceBase;
}

std::size_t TestIndex(const WantedWay& way) {
    return static_cast<std::size_t>(way.from - kTestSourceBase);
}

bool IsByWireless(const NetworkAddress& address, const std::vector<NetworkInterface>& interfaces) {
    if (const NetworkInterface* named = FindInterface(interfaces, address.interface)) {
        return named->wireless;
    }
    return std::any_of(interfaces.begin(), interfaces.end(), [&address](const NetworkInterface& interface) {
        return interface.wireless && IsOnLink({interface}, address);
    });
}

bool IsSamePlace(const LinkCandidate& one, const LinkCandidate& other) {
    return one.address.IsSameHost(other.address) && one.address.port == other.address.port;
}

bool IsSameComputer(const RemoteTargets::Target& one, const RemoteTargets::Target& other) {
    if (one.isSession != other.isSession) {
        return false;
    }
    if (one.id && other.id) {
        return *one.id == *other.id;
    }
    return std::any_of(
        one.link.candidates.begin(), one.link.candidates.end(), [&other](const LinkCandidate& candidate) {
            return std::any_of(other.link.candidates.begin(), other.link.candidates.end(),
                               [&](const LinkCandidate& theirs) { return IsSamePlace(candidate, theirs); });
        });
}

// What was found first stands: names come before addresses.
void Join(RemoteTargets::Target& target, RemoteTargets::Target&& other) {
    for (LinkCandidate& candidate : other.link.candidates) {
        const bool isKnown =
            std::any_of(target.link.candidates.begin(), target.link.candidates.end(),
                        [&](const LinkCandidate& known) { return IsSamePlace(known, candidate); });
        if (!isKnown) {
            target.link.candidates.push_back(candidate);
        }
    }
    target.id = target.id ? target.id : other.id;
    target.link.needed = target.link.needed || other.link.needed;
    if (target.link.name.empty()) {
        target.link.name = std::move(other.link.name);
    }
    if (target.link.pinned.empty()) {
        target.link.pinned = std::move(other.link.pinned);
    }
    target.ways.insert(target.ways.end(), other.ways.begin(), other.ways.end());
    std::move(other.texts.begin(), other.texts.end(), std::back_inserter(target.texts));
}

bool LeadsHere(const std::vector<NetworkAddress>& addresses, const NameSurroundings& surroundings) {
    return std::any_of(addresses.begin(), addresses.end(), [&](const NetworkAddress& address) {
        return address.port == surroundings.ownPort &&
               (address.IsLoopback() || IsOwnAddress(surroundings.interfaces, address));
    });
}

// Who was heard at one of these addresses.
std::optional<ComputerId> IdAt(const std::vector<NetworkAddress>& addresses,
                               const ComputerDirectory& directory) {
    for (const ComputerEntry* entry : directory.All()) {
        for (const NetworkAddress& heard : entry->addresses) {
            for (const NetworkAddress& address : addresses) {
                if (heard.IsSameHost(address) && heard.port == address.port) {
                    return entry->id;
                }
            }
        }
    }
    return std::nullopt;
}

// Set by name, and nobody knows where it is. Who answered before does not help: a directory that begins anew
// has nobody in it.
bool IsUnannounced(const RemoteTargets::Target& target, const ComputerDirectory& directory) {
    if (target.isSession) {
        return false;  // it is set with its port, and does not answer to the link's questions
    }
    const bool isPlaced = target.id && (!target.link.candidates.empty() || directory.FindId(*target.id));
    return !target.link.name.empty() && !isPlaced;
}

std::vector<KeyHash> PinnedUnder(const std::string& name, const AccessRules& access) {
    std::vector<KeyHash> keys;
    const std::string folded = FoldHostName(name);
    for (const RememberedKey& pin : access.List().pins) {
        if (FoldHostName(pin.name) == folded) {
            keys.push_back(pin.key);
        }
    }
    return keys;
}

}  // namespace

void RemoteTargets::Set(std::uint64_t now, std::vector<WantedWay> wanted, std::vector<std::string> sources) {
    std::array<std::string, kMaxPorts> before;
    for (const WantedWay& way : ways) {
        if (IsTest(way)) {
            before[TestIndex(way)] = way.computer;
        }
    }
    for (const WantedWay& way : wanted) {
        if (IsTest(way) && before[TestIndex(way)] != way.computer) {
            heldUntil[TestIndex(way)] = now + kTestDelay;
        }
    }
    ways = std::move(wanted);
    listened = std::move(sources);
}

bool RemoteTargets::IsHeldBack(std::uint64_t now, const WantedWay& way) const {
    return IsTest(way) && now < heldUntil[TestIndex(way)];
}

std::optional<std::uint64_t> RemoteTargets::NextTime() const {
    std::optional<std::uint64_t> first;
    for (const WantedWay& way : ways) {
        if (IsHeldBack(foundAt, way)) {
            const std::uint64_t until = heldUntil[TestIndex(way)];
            first = first ? std::min(*first, until) : until;
        }
    }
    return first;
}

// One for each name, in the order in which they were set.
std::vector<RemoteTargets::Wanted> RemoteTargets::Collect(std::uint64_t now) const {
    std::vector<Wanted> all;
    const auto of = [&all](const std::string& text) -> Wanted& {
        const auto place = std::find_if(all.begin(), all.end(),
                                        [&text](const Wanted& wanted) { return wanted.text == text; });
        return place != all.end() ? *place : all.emplace_back(Wanted{text, false, {}});
    };
    for (const WantedWay& way : ways) {
        if (!IsHeldBack(now, way)) {
            of(way.computer).ways.emplace_back(way.from, way.port);
        }
    }
    for (const std::string& source : listened) {
        of(source).needed = true;
    }
    return all;
}

RemoteTargets::Candidate RemoteTargets::Look(const Wanted& wanted, const NameSurroundings& surroundings,
                                             const AccessRules& access) {
    const NamedTarget named = FindTarget(wanted.text, surroundings);
    Candidate candidate;
    Target& target = candidate.target;
    target.texts = {wanted.text};
    target.ways = wanted.ways;
    target.link.needed = wanted.needed;
    target.isSession = named.isSession;
    std::vector<NetworkAddress> addresses = named.addresses;
    switch (named.kind) {
        case TargetKind::None:
        case TargetKind::Local:
        case TargetKind::Impossible:
            candidate.state = State::Impossible;
            return candidate;
        case TargetKind::Directory:
            target.id = named.id;
            if (const ComputerEntry* entry = surroundings.directory.FindId(named.id)) {
                target.link.name = entry->name;
            }
            break;
        case TargetKind::Session:
            target.link.name = named.sessionName;
            break;
        case TargetKind::Literal:
            break;
        case TargetKind::Resolvable: {
            target.link.name = wanted.text;
            bool isAnswered = true;
            for (const std::string& name : named.hostNames) {
                newLookUps.push_back(name);
                const std::vector<NetworkAddress>* known = lookups.Find(name);
                isAnswered = isAnswered && known != nullptr;
                for (std::size_t i = 0; known != nullptr && i < known->size(); ++i) {
                    addresses.push_back((*known)[i].WithPort(named.port));
                }
            }
            candidate.state = isAnswered ? State::Unknown : State::LookedUp;
            break;
        }
    }
    if (named.kind == TargetKind::Resolvable && LeadsHere(addresses, surroundings)) {
        candidate.state = State::ThisComputer;
        return candidate;
    }
    for (const NetworkAddress& address : addresses) {
        target.link.candidates.push_back({address, IsByWireless(address, surroundings.interfaces)});
    }
    target.link.pinned =
        target.link.name.empty() ? std::vector<KeyHash>() : PinnedUnder(target.link.name, access);
    if (!target.id && !target.isSession) {
        const auto who = learned.find(wanted.text);
        target.id = who == learned.end() ? IdAt(addresses, surroundings.directory) : who->second;
    }
    if (!target.link.candidates.empty()) {
        candidate.state = State::Known;
    }
    return candidate;
}

void RemoteTargets::Find(std::uint64_t now, const NameSurroundings& surroundings, const AccessRules& access) {
    foundAt = now;
    newLookUps.clear();
    found.clear();
    targets.clear();
    anyUnannounced = false;
    for (const Wanted& wanted : Collect(now)) {
        Candidate candidate = Look(wanted, surroundings, access);
        found[wanted.text] = {candidate.state, 0};
        if (candidate.state == State::Impossible || candidate.state == State::ThisComputer) {
            continue;
        }
        anyUnannounced = anyUnannounced || IsUnannounced(candidate.target, surroundings.directory);
        const auto same = std::find_if(targets.begin(), targets.end(), [&](const Target& target) {
            return IsSameComputer(target, candidate.target);
        });
        if (same == targets.end()) {
            targets.push_back(std::move(candidate.target));
        } else {
            Join(*same, std::move(candidate.target));
        }
    }
    Number();
    std::erase_if(learned, [this](const auto& each) { return !found.contains(each.first); });
    for (const std::string& name : newLookUps) {
        lookups.Want(now, name);
    }
    for (const std::string& name : lookedUp) {
        if (std::find(newLookUps.begin(), newLookUps.end(), name) == newLookUps.end()) {
            lookups.Drop(now, name);
        }
    }
    lookedUp = newLookUps;
}

void RemoteTargets::Learn(int number, const ComputerId& id) {
    for (const Target& target : targets) {
        if (target.number == number) {
            for (const std::string& text : target.texts) {
                learned[text] = id;
            }
        }
    }
}

// Whoever has a number keeps it: a way goes on when its computer is found by another name or address.
void RemoteTargets::Number() {
    std::set<int> taken;
    for (Target& target : targets) {
        for (const std::string& text : target.texts) {
            const auto before = numbers.find(text);
            if (before != numbers.end() && taken.insert(before->second).second) {
                target.number = before->second;
                break;
            }
        }
    }
    numbers.clear();
    int next = 1;
    for (Target& target : targets) {
        while (target.number == 0 && next <= LinkTransport::kMostComputers) {
            if (taken.insert(next).second) {
                target.number = next;
            }
            ++next;
        }
        for (const std::string& text : target.texts) {
            Found& entry = found[text];
            entry.number = target.number;
            if (target.number == 0) {
                entry.state = State::TooMany;
            } else {
                numbers[text] = target.number;
            }
        }
    }
    std::erase_if(targets, [](const Target& target) { return target.number == 0; });
    std::sort(targets.begin(), targets.end(),
              [](const Target& one, const Target& other) { return one.number < other.number; });
}

RemoteTargets::Found RemoteTargets::Of(const std::string& computer) const {
    const auto place = found.find(computer);
    return place == found.end() ? Found() : place->second;
}

}  // namespace vexil
