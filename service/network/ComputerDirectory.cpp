#include "service/network/ComputerDirectory.h"

#include <algorithm>
#include <set>
#include <utility>

#include "shared/System/Utf8.h"

namespace vexil {

namespace {

constexpr int kBrowses = 2;  // that may go unanswered

}  // namespace

ComputerDirectory::ComputerDirectory(const LocalNames& names, const AccessRules& rules)
    : localNames(names), access(rules) {}

void ComputerDirectory::SetOwn(OwnEntry itself) {
    own = std::move(itself);
    computers.erase(own.id);
    Rename();
}

bool ComputerDirectory::IsListedName(std::string_view name) {
    if (!IsComputerName(name) || FoldHostName(name).empty()) {
        return false;
    }
    // Bytes that are no UTF-8 are shown as they are; U+0080 to U+009F act on terminals.
    while (!name.empty()) {
        const std::optional<char32_t> character = TakeUtf8(name);
        if (character && *character >= 0x80 && *character < 0xA0) {
            return false;
        }
        if (!character) {
            name.remove_prefix(1);
        }
    }
    return true;
}

bool ComputerDirectory::IsLost(const Known& known, std::uint64_t now) {
    return known.unanswered >= kBrowses && now - known.missedFrom >= kPatience;
}

// Of those that nobody needs, the one that was not heard for the longest time makes room.
bool ComputerDirectory::MakeRoom() {
    if (computers.size() < kMostComputers) {
        return true;
    }
    auto oldest = computers.end();
    for (auto each = computers.begin(); each != computers.end(); ++each) {
        const bool isOlder =
            oldest == computers.end() || each->second.entry.lastHeard < oldest->second.entry.lastHeard;
        if (isOlder && !IsNeeded(each->second.entry)) {
            oldest = each;
        }
    }
    if (oldest == computers.end()) {
        return false;
    }
    computers.erase(oldest);
    return true;
}

bool ComputerDirectory::IsNeeded(const ComputerEntry& entry) const {
    return entry.kept || entry.connected || access.IsPinned(entry.name, entry.id);
}

bool ComputerDirectory::Hear(std::uint64_t now, const NetworkAddress& from, const ComputerAnswer& said,
                             const Nonce& question) {
    if (said.id == own.id || !IsListedName(said.name)) {
        return false;
    }
    auto place = computers.find(said.id);
    const bool isNew = place == computers.end();
    if (isNew) {
        if (!MakeRoom()) {
            return false;
        }
        place = computers.emplace(said.id, Known()).first;
        place->second.entry.id = said.id;
        const auto state = kept.find(said.id);
        if (state != kept.end()) {
            place->second.entry.kept = state->second.kept;
            place->second.entry.connected = state->second.connected;
        }
    }
    Known& known = place->second;
    ComputerEntry& entry = known.entry;
    bool hasChanged = isNew || !entry.reachable || entry.port != said.port ||
                      entry.hardware != said.hardwareAddress || entry.secretNeeded != said.secretNeeded;
    hasChanged = TakeAddress(known, from.WithPort(said.port)) || hasChanged;
    const bool wasTwin = entry.twin;
    LookForTwin(known, said.hardwareAddress, question);
    entry.port = said.port;
    entry.hardware = said.hardwareAddress;
    entry.secretNeeded = said.secretNeeded;
    entry.lastHeard = now;
    entry.reachable = true;
    known.unanswered = 0;
    known.going = false;
    if (isNew || entry.name != said.name) {
        entry.name = said.name;
        Rename();
        hasChanged = true;
    }
    return hasChanged || entry.twin != wasTwin;
}

// An address that two browses did not bring again goes when another one did.
bool ComputerDirectory::TakeAddress(Known& known, const NetworkAddress& from) {
    std::vector<NetworkAddress>& addresses = known.entry.addresses;
    const auto found = std::find(addresses.begin(), addresses.end(), from);
    const bool isNew = found == addresses.end();
    if (isNew) {
        addresses.insert(addresses.begin(), from);
        known.silent.insert(known.silent.begin(), 0);
    } else {
        known.silent[static_cast<std::size_t>(found - addresses.begin())] = 0;
    }
    bool hasChanged = isNew;
    for (std::size_t place = addresses.size(); place-- > 0;) {
        if (known.silent[place] > kBrowses || place >= ComputerEntry::kMostAddresses) {
            addresses.erase(addresses.begin() + static_cast<std::ptrdiff_t>(place));
            known.silent.erase(known.silent.begin() + static_cast<std::ptrdiff_t>(place));
            hasChanged = true;
        }
    }
    return hasChanged;
}

// A computer tells one hardware address in all its answers to one question. Two of them are two computers.
void ComputerDirectory::LookForTwin(Known& known, const HardwareAddress& hardware, const Nonce& question) {
    if (question == Nonce{}) {
        return;
    }
    if (question != known.question) {
        known.entry.twin = std::exchange(known.hadTwin, false);
        known.question = question;
        known.answered = hardware;
    } else if (hardware != known.answered && hardware != HardwareAddress{} &&
               known.answered != HardwareAddress{}) {
        known.hadTwin = true;
        known.entry.twin = true;
    }
}

bool ComputerDirectory::HearGoing(const NetworkAddress& from, const ComputerId& id) {
    const auto place = computers.find(id);
    if (place == computers.end()) {
        return false;
    }
    ComputerEntry& entry = place->second.entry;
    const bool isFromThere =
        std::any_of(entry.addresses.begin(), entry.addresses.end(),
                    [&from](const NetworkAddress& address) { return address.IsSameHost(from); });
    if (!isFromThere) {
        return false;
    }
    if (!entry.kept && !entry.connected) {
        computers.erase(place);
        Rename();
        return true;
    }
    place->second.going = true;
    place->second.unanswered = kBrowses;
    place->second.missedFrom = 0;
    entry.reachable = entry.connected;
    return true;
}

bool ComputerDirectory::BeginBrowse(std::uint64_t now) {
    const bool hasChanged = DropUnanswering(now);
    for (auto& [id, known] : computers) {
        ++known.unanswered;
        if (known.unanswered <= kBrowses) {
            known.missedFrom = now;
        }
        for (int& silent : known.silent) {
            ++silent;
        }
    }
    return hasChanged;
}

bool ComputerDirectory::DropUnanswering(std::uint64_t now) {
    bool hasChanged = false;
    const std::size_t gone = std::erase_if(computers, [now](const auto& each) {
        const ComputerEntry& entry = each.second.entry;
        return !entry.kept && !entry.connected && IsLost(each.second, now);
    });
    if (gone > 0) {
        Rename();
        hasChanged = true;
    }
    for (auto& [id, known] : computers) {
        const bool isReachable = known.entry.connected || !IsLost(known, now);
        hasChanged = hasChanged || isReachable != known.entry.reachable;
        known.entry.reachable = isReachable;
    }
    return hasChanged;
}

void ComputerDirectory::SetKept(const ComputerId& id, bool isKept, bool isConnected) {
    if (isKept || isConnected) {
        kept[id] = {isKept, isConnected};
    } else {
        kept.erase(id);
    }
    const auto place = computers.find(id);
    if (place == computers.end()) {
        return;
    }
    ComputerEntry& entry = place->second.entry;
    if (place->second.going && !isKept && !isConnected) {
        computers.erase(place);
        Rename();
        return;
    }
    entry.kept = isKept;
    entry.connected = isConnected;
    entry.reachable = isConnected || (entry.reachable && !place->second.going);
}

// Everywhere by the same rule: a pinned computer keeps its name, else the one with the smaller id. This
// computer keeps its own names here, for whoever sets one of them as a target means it.
void ComputerDirectory::Rename() {
    std::map<std::string, std::vector<ComputerEntry*>> groups;
    for (auto& [id, known] : computers) {
        groups[FoldHostName(known.entry.name)].push_back(&known.entry);
    }
    byName.clear();
    for (auto& [folded, group] : groups) {
        // The map is in the order of the ids.
        std::stable_partition(group.begin(), group.end(), [this](const ComputerEntry* entry) {
            return access.IsPinned(entry->name, entry->id);
        });
        if (!localNames.Contains(folded)) {
            group.front()->shown = group.front()->name;
            byName[folded] = group.front()->id;
            group.erase(group.begin());
        }
    }
    for (auto& [folded, group] : groups) {
        int number = 2;
        for (ComputerEntry* entry : group) {
            const auto numbered = [&] { return entry->name + "-" + std::to_string(number++); };
            entry->shown = numbered();
            while (byName.count(FoldHostName(entry->shown)) > 0 || localNames.Contains(entry->shown)) {
                entry->shown = numbered();
            }
            byName[FoldHostName(entry->shown)] = entry->id;
        }
    }
}

const ComputerEntry* ComputerDirectory::Find(std::string_view name) const {
    const auto found = byName.find(FoldHostName(name));
    return found == byName.end() ? nullptr : FindId(found->second);
}

const ComputerEntry* ComputerDirectory::FindId(const ComputerId& id) const {
    const auto found = computers.find(id);
    return found == computers.end() ? nullptr : &found->second.entry;
}

std::vector<const ComputerEntry*> ComputerDirectory::All() const {
    std::vector<const ComputerEntry*> all;
    for (const auto& [name, id] : byName) {
        all.push_back(FindId(id));
    }
    return all;
}

std::vector<const ComputerEntry*> ComputerDirectory::List(std::size_t bytes, std::size_t overhead) const {
    const std::vector<const ComputerEntry*> all = All();
    std::set<const ComputerEntry*> chosen;
    for (const bool needed : {true, false}) {
        for (const ComputerEntry* entry : all) {
            const std::size_t size = entry->shown.size() + overhead;
            if (IsNeeded(*entry) == needed && size <= bytes) {
                bytes -= size;
                chosen.insert(entry);
            }
        }
    }
    std::vector<const ComputerEntry*> list;
    std::copy_if(all.begin(), all.end(), std::back_inserter(list),
                 [&chosen](const ComputerEntry* entry) { return chosen.count(entry) > 0; });
    return list;
}

std::vector<std::string> ComputerDirectory::SharedNames() const {
    std::map<std::string, std::pair<std::string, int>> counts;
    if (!own.name.empty()) {
        counts[FoldHostName(own.name)] = {own.name, 1};
    }
    for (const auto& [id, known] : computers) {
        auto& count = counts[FoldHostName(known.entry.name)];
        count.first = known.entry.name;
        ++count.second;
    }
    std::vector<std::string> shared;
    for (const auto& [folded, count] : counts) {
        if (count.second > 1) {
            shared.push_back(count.first);
        }
    }
    return shared;
}

}  // namespace vexil
