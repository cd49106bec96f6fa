// What the network's thread works with: the socket, the computers that are found and named, who may send, the
// link, and a second door where there is one. Whoever holds the thread's lock may use it.
#pragma once

#include <array>
#include <atomic>
#include <bitset>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "config/DriverConfiguration.h"
#include "service/network/AccessRules.h"
#include "service/network/ComputerDirectory.h"
#include "service/network/Discovery.h"
#include "service/network/LinkTransport.h"
#include "service/network/NetworkThread.h"
#include "service/network/Transport.h"
#include "service/routes/HostNames.h"
#include "shared/System/Descriptor.h"

namespace vexil {

// What the inputs of this computer let in.
struct InputRules {
    DriverConfiguration configuration;
    std::uint64_t heard = 0;  // bit p: programs can hear the input of port p
};

// A key that was not let in because another one is pinned under the name.
struct RefusedKey {
    KeyHash key{};
    std::string name;
};

class NetworkHub : public NetworkWork, private LinkTransport::Gate, private Discovery::Mediator {
  public:
    // What it works with; all outlive it.
    struct Parts {
        Engine& engine;
        RemoteRing& ring;
        DatagramSocket& socket;
        LinkSealing& sealing;
    };
    // This computer as others see it.
    struct Self {
        KeyHash key{};
        std::vector<std::string> names;  // the first is announced
    };

    NetworkHub(const Parts& hubParts, const Self& itself);

    // From Start, which announces this computer, to Stop, which says bye to all.
    void Start();
    void Stop();
    void SetInputs(const InputRules& rules);
    // Those by which it speaks.
    void SetInterfaces(const std::vector<NetworkInterface>& interfaces);

    // Where other computers may be, as DNS-SD says (Discovery::SetHints).
    void SetHints(std::vector<NetworkAddress> hints);

    // The door beside the link; null, as at first: computers are reached by the link alone. The caller keeps
    // the door until another is set.
    void SetSecondDoor(OwnSocketsTransport* door);
    // By which door the computer of a number is reached; at first by the link.
    void SetDoor(int number, bool isSecond);
    Transport& DoorOf(int number);
    // Who may come in, for the second door.
    TransportGate& Gate() { return *this; }
    // Of all doors.
    std::vector<LinkPeerState> States() const;

    // What callers have to prove; null: nothing.
    void SetSecret(const std::optional<StretchedSecret>& secret);
    // A computer has a route or an association here.
    void Keep(const ComputerId& id, bool kept, bool connected) { directory.SetKept(id, kept, connected); }
    // What Access remembers was changed: who is no longer let in goes, and who was refused is called again.
    void AccessChanged();
    // The same, by the user: those that were refused here are told that they may call again.
    void AccessChangedByUser();
    // The last ones, each once.
    const std::vector<RefusedKey>& RefusedKeys() const { return refused; }

    LinkTransport& Link() { return link; }
    Discovery& Finder() { return discovery; }
    AccessRules& Access() { return access; }
    const ComputerDirectory& Directory() const { return directory; }

    // Of NetworkWork.
    int EventDescriptor() const override { return waited; }
    bool Read() override;
    void Act() override;
    void Deliver() override;
    std::optional<std::uint64_t> NextTime() const override;
    bool TakeChanged() override;

  private:
    bool MayCall(const NetworkAddress& from) override { return access.AdmitsAddress(from); }
    Refusal Judge(const KeyHash& key, std::string_view name) override;
    WayVerdict JudgeWay(std::string_view name, const NetworkAddress& from, int source, int input) override;
    void NoteRefused(std::string_view name, const KeyHash& key);
    std::uint64_t Random() override;
    void SendFound();
    void SendDelivered();

    const Parts parts;
    const LocalNames names;
    AccessRules access;
    ComputerDirectory directory;
    Discovery discovery;
    LinkTransport link;
    OwnSocketsTransport* second = nullptr;
    std::bitset<Transport::kMostComputers + 1> bySecond;
    Descriptor sockets;       // of both doors; none while there is one door
    std::atomic<int> waited;  // the thread reads it without the lock
    InputRules inputs;
    bool changed = false;
    const std::string ownName;
    ComputerAnswer self;  // what it says of itself
    static constexpr std::size_t kMostRefused = 16;
    std::vector<RefusedKey> refused;
    std::array<std::uint8_t, kLongestDatagram> buffer{};
};

}  // namespace vexil
