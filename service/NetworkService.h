// MIDI between this computer and others: brings together the stored settings, the interfaces, the resolver,
// the socket, the network's thread and what it works with, and does with them what DriverService wishes.
//
// Off, it has neither socket nor thread nor timer. On, the thread works under a lock that this object takes
// for short moments.
//
// Control thread, but for what it gives to the network's thread and the engine's.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "platform/linux/network/KeyStore.h"
#include "platform/linux/network/SpeakerTurn.h"
#include "platform/linux/network/UdpSocket.h"
#include "service/ConnectionReport.h"
#include "service/ServiceHints.h"
#include "service/control/RemoteNetwork.h"
#include "service/engine/RemoteRing.h"
#include "service/network/Interfaces.h"
#include "service/network/NameLookups.h"
#include "service/network/NetworkDriver.h"
#include "service/network/NetworkHub.h"
#include "service/network/NetworkThread.h"
#include "service/network/PriorityMutex.h"
#include "service/network/RemoteTargets.h"
#include "service/network/ServiceDiscovery.h"
#include "service/network/rtp/RtpTransport.h"
#include "shared/System/Descriptor.h"

namespace vexil {

class NetworkService : public RemoteNetwork {
  public:
    // What it works with; all outlive it.
    struct Parts {
        Engine& engine;
        NetworkDriver& driver;
        KeyStore& store;
        Resolver& resolver;
        std::function<std::unique_ptr<Interfaces>()> makeInterfaces;
        std::uint16_t port = kLinkPort;  // UDP; 0: any that is free
        SpeakerTurn* turn = nullptr;     // of the drivers of this computer; null: it need not wait for others
        // Makes the system's DNS-SD; empty: other computers are found without it.
        std::function<std::unique_ptr<ServiceDiscovery>()> makeServiceDiscovery = {};
        std::uint16_t rtpPort = kRtpPort;  // UDP, of the first port's sessions
    };

    // While no thread drives the engine. Off until the first wishes. `speaks`: instead of what is stored, for
    // as long as this program runs or until the user says something else.
    NetworkService(Parts networkParts, const std::optional<InterfaceChoice>& speaks);
    // After the MIDI system's end.
    ~NetworkService() override;
    NetworkService(const NetworkService&) = delete;
    NetworkService& operator=(const NetworkService&) = delete;

    // Of RemoteNetwork.
    void SetWishes(const RemoteWishes& wanted) override;
    RemoteAnswer Find(const RemoteWish& wish) const override;
    bool IsThisComputer(const std::string& text) const override;
    std::uint16_t Port() const override;
    std::vector<HostRecord> Computers() const override;
    void Browse() override;
    RemoteStatus Status() const override;
    std::string Command(const std::vector<std::string>& words) override;
    int EventDescriptor() const override { return events.Number(); }
    int Timeout() const override;
    bool Serve() override;
    void Stop() override;

  private:
    friend class NetworkCommands;

    static std::uint64_t SecondsSince1970();
    // Wakes the network's thread, if there is one, from the engine's.
    class RingWaker : public EngineWaker {
      public:
        void Wake() override;
        void SetThread(NetworkThread* woken);

      private:
        PriorityMutex mutex;
        NetworkThread* thread = nullptr;
    };
    // What exists while this computer speaks to the network.
    struct Running {
        std::unique_ptr<LinkSealing> sealing;
        std::unique_ptr<UdpSocket> socket;
        std::unique_ptr<Interfaces> interfaces;
        std::unique_ptr<NetworkHub> hub;
        std::unique_ptr<RtpTransport> rtp;  // null: it does not speak RTP-MIDI
        std::unique_ptr<NetworkThread> thread;
        std::unique_ptr<ServiceHints> services;
        std::unique_ptr<ServiceHints> sessions;  // of RTP-MIDI; null: it does not speak that
    };

    std::vector<NetworkInterface> SpokenInterfaces() const;
    // DNS-SD: what it is told, and what it tells.
    void StartServices();
    void TellServices();
    void TellSessions();
    void ListSessions();
    // What DNS-SD says of sessions now.
    void TakeSessions();
    void TakeHints();
    // Opens the socket and starts the thread, and the opposite. Anew: with other settings.
    void TurnOn();
    void TurnOff();
    void End();
    void TurnAnew();
    // Another driver of this computer speaks; false when this one may.
    bool MustWait();
    void Watch(int descriptor) const;
    // With the lock held.
    void TellInterfaces();
    void FindTargets(std::uint64_t now);
    void TellTargets(std::uint64_t now);
    // Opens the UDP ports of the ports that take or make sessions.
    void OfferSessions(std::uint64_t now);
    bool SpeaksRtp() const;
    void NotePins();
    void KeepInDirectory();
    // Works out anew who is wanted, tells the thread, and takes what it has to tell.
    void Refresh();
    void Report(std::uint64_t now);
    // The stored list of keys was changed by the user.
    void TakeUpAccess();

    const LinkPeerState* StateOf(int number) const;
    std::string ConnectionProblem(const RemoteTargets::Found& found, const std::string& computer) const;
    std::string NameOf(const LinkPeerState& state) const;
    RemoteSession SessionOf(const LinkPeerState& state) const;
    // When a key was remembered: seconds since 1970, or 0.
    std::uint64_t RememberedSince(const KeyHash& key) const;
    const NetworkInterface* InterfaceToward(const NetworkAddress& address) const;
    static const std::vector<NetworkInterface>& ListOf(const Running& running);

    Parts parts;
    InterfaceChoice speaks;
    RingWaker ringWaker;
    RemoteRing ring;
    Descriptor events;
    NameLookups lookups;
    RemoteTargets targets;
    RemoteWishes wishes;
    bool hasWishes = false;
    bool stopped = false;
    std::string problem;
    std::string remark;  // of the socket
    std::string rtpRemark;
    std::unique_ptr<Running> running;
    // As they were told to the thread.
    std::map<int, RemoteTargets::Target> told;
    std::map<ComputerId, std::pair<bool, bool>> marks;
    // As the thread told them last.
    std::vector<LinkPeerState> states;
    std::vector<HostRecord> computers;
    std::vector<AnnouncedSession> announced;  // sessions of others
    std::vector<std::string> sharedNames;
    std::vector<RefusedKey> refused;
    ConnectionReport report;
    std::uint64_t browseAt = 0;  // when to ask for those that nobody announced; 0: never
};

}  // namespace vexil
