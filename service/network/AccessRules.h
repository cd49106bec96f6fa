// Who may send to this computer: by address, by key, by name. What is remembered of others is a value that
// NetworkSettings stores. Pure; one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "service/network/Interfaces.h"
#include "service/network/LinkCodec.h"
#include "service/network/LinkSealing.h"

namespace vexil {

// Who is let in, of those whose address is.
enum class Allowed : std::uint8_t {
    Any,     // anybody who is not blocked
    Known,   // only keys that are pinned
    Secret,  // only who proves the secret; while no secret is set, nobody
};

// A key that is remembered under a name, or that is blocked.
struct RememberedKey {
    KeyHash key{};
    std::string name;         // of the computer, as it announced itself; an IsComputerName
    std::uint64_t since = 0;  // seconds since 1970
    bool operator==(const RememberedKey&) const = default;
};

struct AccessList {
    Allowed allowed = Allowed::Any;
    std::vector<RememberedKey> pins;     // several keys of one name (FoldHostName) are its set
    std::vector<RememberedKey> blocked;  // a key stands here once
    bool operator==(const AccessList&) const = default;
};
// Entries of each of the two, at most: strangers who come and go fill no disk.
inline constexpr std::size_t kMostRememberedKeys = 1024;

// "ab12cd34ef56ab78": the first 8 bytes of a key, as people compare it.
std::string ShortKeyText(const KeyHash& key);

class AccessRules {
  public:
    // `own`: of this computer.
    explicit AccessRules(const KeyHash& own) : ownKey(own) {}

    void SetOwnKey(const KeyHash& own) { ownKey = own; }
    void Set(AccessList remembered) { list = std::move(remembered); }
    const AccessList& List() const { return list; }
    // Those that are up.
    void SetInterfaces(std::vector<NetworkInterface> up) { interfaces = std::move(up); }
    void SetHasSecret(bool has) { hasSecret = has; }

    // Whether what comes from an address is looked at at all: on a network of this computer's own, private
    // (10/8, 172.16/12, 192.168/16, 100.64/10, fc00::/7), link-local, or loopback. Whoever was called from
    // here is not asked for.
    bool AdmitsAddress(const NetworkAddress& from) const;

    // Whether a peer with this key is let in. SameKey for this computer's own key.
    Refusal JudgeKey(const KeyHash& key) const;
    // Whether a key may go under a name: OtherKey when others are pinned under it.
    Refusal JudgeName(std::string_view name, const KeyHash& key) const;

    bool IsPinned(std::string_view name, const ComputerId& id) const;
    // Whether any key is pinned under a name.
    bool HasPin(std::string_view name) const;
    bool IsBlocked(const KeyHash& key) const;

    // An association with a name has begun: remembers its key where none is pinned under the name. True when
    // it was remembered now, which is to be told and stored. False also when there is no room.
    bool PinFirst(std::string_view name, const KeyHash& key, std::uint64_t since);

    // Somebody accepts a key under a name, beside those pinned already. False when there is no room, the
    // key is pinned already, or the name is not a computer's.
    bool Pin(std::string_view name, const KeyHash& key, std::uint64_t since);
    // Removes all pins of a name; false when it has no pin.
    bool Forget(std::string_view name);
    // Blocks a key and removes its pins; false when it was blocked or there is no room. `name` is for people.
    bool Block(std::string_view name, const KeyHash& key, std::uint64_t since);
    bool Unblock(const KeyHash& key);
    void Allow(Allowed who) { list.allowed = who; }

  private:
    KeyHash ownKey;
    AccessList list;
    std::vector<NetworkInterface> interfaces;
    bool hasSecret = false;
};

}  // namespace vexil
