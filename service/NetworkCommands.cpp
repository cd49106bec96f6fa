#include "service/NetworkCommands.h"

#include <algorithm>
#include <charconv>

#include "service/control/NetworkAnswers.h"
#include "service/control/RouteText.h"
#include "service/network/PlainDatagram.h"

namespace vexil {

namespace {

constexpr const char* kNotStored = "That could not be stored; nothing has changed.";

std::string Quoted(const std::string& name) {
    return "\"" + NameText(name) + "\"";
}

bool IsSameName(const std::string& one, const std::string& other) {
    return FoldHostName(one) == FoldHostName(other);
}

// At least 4 hexadecimal digits, with which the short form of a key begins.
bool IsKeyText(const KeyHash& key, const std::string& text) {
    std::string digits = text;
    std::transform(digits.begin(), digits.end(), digits.begin(), [](char each) {
        return each >= 'A' && each <= 'F' ? static_cast<char>(each - 'A' + 'a') : each;
    });
    return digits.size() >= 4 && ShortKeyText(key).starts_with(digits);
}

}  // namespace

std::string NetworkCommands::Run(const std::vector<std::string>& words) {
    const std::string command = words.empty() ? "" : words[0];
    const std::string first = words.size() > 1 ? words[1] : "";
    const std::string second = words.size() > 2 ? words[2] : "";
    if (command == "list") {
        return List(first);
    }
    if (command == "speak") {
        return Speak(first);
    }
    if (command == "pin" && !first.empty()) {
        return Pin(first, second);
    }
    if (command == "forget" && !first.empty()) {
        return Forget(first);
    }
    if (command == "block" && !first.empty()) {
        return Block(first);
    }
    if (command == "unblock" && !first.empty()) {
        return Unblock(first);
    }
    if (command == "secret" && !first.empty()) {
        return SetSecret(first);
    }
    if (command == "no-secret") {
        return SetSecret(std::nullopt);
    }
    if (command == "allow") {
        return Allow(first);
    }
    if (command == "rtp") {
        return SetRtp(first);
    }
    if (command == "new-key") {
        return MakeNewKey();
    }
    return NetworkProblem("The service does not know this command.");
}

std::string NetworkCommands::List(const std::string& first) const {
    std::size_t from = 0;
    const char* const end = first.data() + first.size();
    const auto read = std::from_chars(first.data(), end, from);
    if (!first.empty() && (read.ec != std::errc() || read.ptr != end)) {
        return NetworkProblem("A list goes on from a number.");
    }
    const NetworkSettings& settings = service.parts.store.Settings();
    const RemoteStatus status = service.Status();
    NetworkOverview overview;
    overview.speaks = status.speaks;
    overview.port = status.port;
    overview.key = status.key;
    overview.allow = AllowedText(settings.access.allowed);
    overview.secret = settings.secret.has_value();
    overview.rtp = settings.rtp && MaySpeakRtp(settings);
    overview.problem = status.problem;
    overview.avahi = status.avahi;
    overview.computers = Computers(settings.access, status);
    return NetworkList(overview, from);
}

std::vector<NetworkComputer> NetworkCommands::Computers(const AccessList& access,
                                                        const RemoteStatus& status) const {
    std::vector<NetworkComputer> computers;
    const auto isShown = [&computers](const std::string& key) {
        return std::any_of(computers.begin(), computers.end(),
                           [&key](const NetworkComputer& each) { return each.key == key; });
    };
    const auto since = [&access](const std::string& key) {
        const auto pin =
            std::find_if(access.pins.begin(), access.pins.end(),
                         [&key](const RememberedKey& each) { return ShortKeyText(each.key) == key; });
        return pin == access.pins.end() ? 0 : pin->since;
    };
    for (const RemoteSession& session : status.sessions) {
        if (session.up) {
            computers.push_back({session.computer, session.address, session.key, since(session.key), "up"});
        }
    }
    for (const RememberedKey& pin : access.pins) {
        if (!isShown(ShortKeyText(pin.key))) {
            computers.push_back({pin.name, "", ShortKeyText(pin.key), pin.since, "pinned"});
        }
    }
    for (const RememberedKey& blocked : access.blocked) {
        computers.push_back({blocked.name, "", ShortKeyText(blocked.key), blocked.since, "blocked"});
    }
    for (const KnownKey& refused : service.refused) {
        if (!isShown(ShortKeyText(refused.key))) {
            computers.push_back({refused.name, "", ShortKeyText(refused.key), 0, "refused"});
        }
    }
    for (const HostRecord& computer : service.computers) {
        const bool isNamed =
            std::any_of(computers.begin(), computers.end(),
                        [&](const NetworkComputer& each) { return IsSameName(each.name, computer.name); });
        if (!isNamed) {
            computers.push_back(
                {computer.name, AddressText(computer), "", 0, computer.enabled ? "seen" : "silent"});
        }
    }
    return computers;
}

std::string NetworkCommands::StoreAccess(const AccessRules& access, const std::string& done) {
    NetworkSettings settings = service.parts.store.Settings();
    settings.access = access.List();
    if (!service.parts.store.Save(settings)) {
        return NetworkProblem(kNotStored);
    }
    service.TakeUpAccess();
    return NetworkDone(done);
}

AccessRules NetworkCommands::StoredAccess() const {
    AccessRules access(KeyHash{});
    access.Set(service.parts.store.Settings().access);
    return access;
}

std::string NetworkCommands::Speak(const std::string& where) {
    const std::optional<InterfaceChoice> choice = InterfaceChoice::FromText(where);
    if (!choice) {
        return NetworkProblem(
            "\"on\", \"off\", \"lo\" or names of interfaces with commas between them are needed.");
    }
    NetworkSettings settings = service.parts.store.Settings();
    settings.speaks = *choice;
    if (!service.parts.store.Save(settings)) {
        return NetworkProblem(kNotStored);
    }
    service.speaks = *choice;
    service.TurnAnew();
    if (!service.problem.empty()) {
        return NetworkProblem(service.problem);
    }
    return NetworkDone(choice->IsOff() ? "MIDI between computers is off." : "MIDI between computers is on.");
}

std::vector<NetworkCommands::KnownKey> NetworkCommands::KnownKeys() const {
    std::vector<KnownKey> keys;
    const auto add = [&keys](const KeyHash& key, const std::string& name) {
        const bool isKnown = std::any_of(keys.begin(), keys.end(), [&](const KnownKey& each) {
            return each.key == key && IsSameName(each.name, name);
        });
        if (!isKnown) {
            keys.push_back({key, name});
        }
    };
    for (const LinkPeerState& state : service.states) {
        if (state.key && !state.peerName.empty()) {
            add(*state.key, state.peerName);
        }
    }
    for (const auto& refused : service.refused) {
        add(refused.key, refused.name);
    }
    const AccessList& access = service.parts.store.Settings().access;
    for (const std::vector<RememberedKey>* list : {&access.pins, &access.blocked}) {
        for (const RememberedKey& each : *list) {
            add(each.key, each.name);
        }
    }
    return keys;
}

std::vector<NetworkCommands::KnownKey> NetworkCommands::Named(const std::string& nameOrKey) const {
    std::vector<KnownKey> named = KnownKeys();
    std::erase_if(named, [&](const KnownKey& each) {
        return !IsSameName(each.name, nameOrKey) && !IsKeyText(each.key, nameOrKey);
    });
    return named;
}

std::string NetworkCommands::Pin(const std::string& name, const std::string& keyText) {
    AccessRules access = StoredAccess();
    std::vector<KeyHash> accepted;
    for (const KnownKey& known : KnownKeys()) {
        const bool isMeant = keyText.empty() ? IsSameName(known.name, name) : IsKeyText(known.key, keyText);
        if (isMeant && !access.IsBlocked(known.key)) {
            accepted.push_back(known.key);
        }
    }
    std::sort(accepted.begin(), accepted.end());
    accepted.erase(std::unique(accepted.begin(), accepted.end()), accepted.end());
    if (!keyText.empty() && accepted.size() != 1) {
        return NetworkProblem(accepted.empty()
                                  ? "No computer is known with the key \"" + NameText(keyText) + "\"."
                                  : "More than one key begins so.");
    }
    std::string added;
    for (const KeyHash& key : accepted) {
        if (access.Pin(name, key, NetworkService::SecondsSince1970())) {
            added += (added.empty() ? "" : ", ") + ShortKeyText(key);
        }
    }
    if (!added.empty()) {
        return StoreAccess(access, "The key " + added + " of " + Quoted(name) + " is accepted.");
    }
    const bool isConnected =
        std::any_of(service.states.begin(), service.states.end(), [&name](const LinkPeerState& state) {
            return state.kind == LinkPeerState::Kind::Up && IsSameName(state.peerName, name);
        });
    if (!keyText.empty() || isConnected) {
        return NetworkDone("That key is accepted already.");
    }
    // The key that the name has now is not known before it calls or answers.
    return access.Forget(name)
               ? StoreAccess(access, "The next key that " + Quoted(name) + " has is accepted.")
               : NetworkProblem("No computer called " + Quoted(name) + " is known.");
}

std::string NetworkCommands::Forget(const std::string& name) {
    AccessRules access = StoredAccess();
    if (!access.Forget(name)) {
        return NetworkProblem("No key of " + Quoted(name) + " is remembered.");
    }
    return StoreAccess(access, "The keys of " + Quoted(name) + " are forgotten.");
}

std::string NetworkCommands::Block(const std::string& nameOrKey) {
    const std::vector<KnownKey> named = Named(nameOrKey);
    if (named.empty()) {
        return NetworkProblem("No key of " + Quoted(nameOrKey) + " is known.");
    }
    AccessRules access = StoredAccess();
    for (const KnownKey& each : named) {
        access.Block(each.name, each.key, NetworkService::SecondsSince1970());
    }
    return StoreAccess(access, Quoted(named.front().name) + " is blocked.");
}

std::string NetworkCommands::Unblock(const std::string& nameOrKey) {
    AccessRules access = StoredAccess();
    bool hasChanged = false;
    for (const RememberedKey& blocked : service.parts.store.Settings().access.blocked) {
        if (IsSameName(blocked.name, nameOrKey) || IsKeyText(blocked.key, nameOrKey)) {
            hasChanged = access.Unblock(blocked.key) || hasChanged;
        }
    }
    if (!hasChanged) {
        return NetworkProblem(Quoted(nameOrKey) + " is not blocked.");
    }
    return StoreAccess(access, Quoted(nameOrKey) + " is no longer blocked.");
}

std::string NetworkCommands::SetSecret(const std::optional<std::string>& secret) {
    NetworkSettings settings = service.parts.store.Settings();
    settings.secret.reset();
    if (secret) {
        settings.secret = StretchSecret(*secret);
        if (!settings.secret) {
            return NetworkProblem("A secret needs at least " + std::to_string(kShortestSecret) +
                                  " characters.");
        }
    }
    if (!service.parts.store.Save(settings)) {
        return NetworkProblem(kNotStored);
    }
    service.TurnAnew();
    return NetworkDone(!secret ? "No secret is needed any more."
                       : settings.rtp
                           ? "The secret is set. RTP-MIDI, which knows no secrets, is off meanwhile."
                           : "The secret is set.");
}

std::string NetworkCommands::Allow(const std::string& who) {
    const std::optional<Allowed> allowed = ReadAllowed(who);
    if (!allowed) {
        return NetworkProblem("\"any\", \"known\" or \"secret\" is needed.");
    }
    AccessRules access = StoredAccess();
    access.Allow(*allowed);
    return StoreAccess(access, *allowed == Allowed::Any     ? "Every computer that is not blocked is let in."
                               : *allowed == Allowed::Known ? "Computers whose key is remembered are let in."
                                                            : "Computers that know the secret are let in.");
}

std::string NetworkCommands::SetRtp(const std::string& onOrOff) {
    if (onOrOff != "on" && onOrOff != "off") {
        return NetworkProblem("\"on\" or \"off\" is needed.");
    }
    NetworkSettings settings = service.parts.store.Settings();
    settings.rtp = onOrOff == "on";
    if (settings.rtp && !MaySpeakRtp(settings)) {
        return NetworkProblem(
            settings.secret ? "RTP-MIDI knows no secrets; \"vexil3ctl network no-secret\" removes the one "
                              "that is set."
                            : "By RTP-MIDI nobody proves who he is; \"vexil3ctl network allow any\" lets "
                              "every computer in.");
    }
    if (!service.parts.store.Save(settings)) {
        return NetworkProblem(kNotStored);
    }
    service.TurnAnew();
    if (!service.problem.empty()) {
        return NetworkProblem(service.problem);
    }
    return NetworkDone(!settings.rtp            ? "RTP-MIDI is off."
                       : service.speaks.IsOff() ? "RTP-MIDI is on as soon as MIDI between computers is."
                                                : "RTP-MIDI is on.");
}

std::string NetworkCommands::MakeNewKey() {
    if (!service.parts.store.MakeNewKey()) {
        return NetworkProblem("The new key could not be stored; the old one stays.");
    }
    service.TurnAnew();
    return NetworkDone("This computer has a new key: " + ShortKeyText(service.parts.store.Key()->Hash()) +
                       ".");
}

}  // namespace vexil
