#include "service/network/NetworkHub.h"

#include <sys/epoll.h>
#include <sys/random.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

#include "service/routes/SourceFilter.h"

namespace vexil {

namespace {

constexpr int kMostAtATime = 64;
constexpr std::size_t kDeliveriesAtATime = 1024;

// As it stands on the wire.
WayProblem WayProblemOf(RouteProblem problem) {
    switch (problem) {
        case RouteProblem::None:
            return WayProblem::None;
        case RouteProblem::TargetPortUnused:
            return WayProblem::TargetPortUnused;
        case RouteProblem::TargetIsPipe:
            return WayProblem::TargetIsPipe;
        case RouteProblem::WrongSourceComputer:
            return WayProblem::WrongSourceComputer;
        case RouteProblem::WrongSourcePort:
            return WayProblem::WrongSourcePort;
        default:
            return WayProblem::TargetNotInput;
    }
}

ComputerAnswer AnswerOf(const NetworkHub::Self& self, std::string_view name, std::uint16_t port) {
    ComputerAnswer answer;
    answer.id = ComputerIdOf(self.key);
    answer.port = port;
    answer.name = name;
    return answer;
}

}  // namespace

NetworkHub::NetworkHub(const Parts& hubParts, const Self& itself)
    : parts(hubParts),
      names(itself.names),
      access(itself.key),
      directory(names, access),
      discovery(*this, directory, access),
      link({parts.engine, parts.ring, parts.socket, parts.sealing, *this}, ComputerIdOf(itself.key),
           itself.names.front()),
      waited(hubParts.socket.EventDescriptor()),
      ownName(itself.names.front()),
      self(AnswerOf(itself, ownName, hubParts.socket.Port())) {
    directory.SetOwn({self.id, ownName, {}, {}});
    discovery.SetComputer(BootMicroseconds(), self);
}

void NetworkHub::Start() {
    discovery.Start(BootMicroseconds());
    SendFound();
}

void NetworkHub::SetSecondDoor(OwnSocketsTransport* door) {
    const auto watch = [this](int operation, int descriptor) {
        epoll_event event{};
        event.events = EPOLLIN;
        epoll_ctl(sockets.Number(), operation, descriptor, &event);
    };
    if (door != nullptr && sockets.Number() == -1) {
        sockets = Descriptor(epoll_create1(EPOLL_CLOEXEC));
        watch(EPOLL_CTL_ADD, parts.socket.EventDescriptor());
    }
    if (second != nullptr) {
        watch(EPOLL_CTL_DEL, second->EventDescriptor());
    }
    second = door;
    if (second != nullptr) {
        watch(EPOLL_CTL_ADD, second->EventDescriptor());
    }
    // The descriptor of both stays open: the thread may be waiting for it at this moment.
    waited = second != nullptr ? sockets.Number() : parts.socket.EventDescriptor();
    changed = true;
}

void NetworkHub::SetDoor(int number, bool isSecond) {
    bySecond[static_cast<std::size_t>(number)] = isSecond;
}

Transport& NetworkHub::DoorOf(int number) {
    if (second != nullptr && number >= 1 && number <= Transport::kMostComputers &&
        bySecond[static_cast<std::size_t>(number)]) {
        return *second;
    }
    return link;
}

std::vector<LinkPeerState> NetworkHub::States() const {
    std::vector<LinkPeerState> states = link.States();
    if (second != nullptr) {
        std::vector<LinkPeerState> others = second->States();
        std::move(others.begin(), others.end(), std::back_inserter(states));
    }
    return states;
}

void NetworkHub::Stop() {
    link.SayBye(BootMicroseconds());
    if (second != nullptr) {
        second->SayBye(BootMicroseconds());
    }
    discovery.Stop(BootMicroseconds());
    SendFound();
}

void NetworkHub::SetInputs(const InputRules& rules) {
    inputs = rules;
    link.JudgeWaysAgain(BootMicroseconds());
    if (second != nullptr) {
        second->JudgeWaysAgain(BootMicroseconds());
    }
}

void NetworkHub::SetInterfaces(const std::vector<NetworkInterface>& interfaces) {
    const auto ethernet = std::find_if(interfaces.begin(), interfaces.end(), [](const auto& interface) {
        return !interface.loopback && interface.hardware != HardwareAddress{};
    });
    self.hardwareAddress = ethernet == interfaces.end() ? HardwareAddress{} : ethernet->hardware;
    discovery.SetComputer(BootMicroseconds(), self);
    access.SetInterfaces(interfaces);
    discovery.SetInterfaces(BootMicroseconds(), interfaces);
    SendFound();
}

void NetworkHub::SetHints(std::vector<NetworkAddress> hints) {
    discovery.SetHints(BootMicroseconds(), std::move(hints));
    SendFound();
}

void NetworkHub::SetSecret(const std::optional<StretchedSecret>& secret) {
    access.SetHasSecret(secret.has_value());
    link.SetSecret(secret);
    self.secretNeeded = secret.has_value();
    discovery.SetComputer(BootMicroseconds(), self);
}

void NetworkHub::AccessChanged() {
    std::erase_if(refused, [this](const RefusedKey& each) {
        return access.JudgeName(each.name, each.key) == Refusal::None || access.IsBlocked(each.key);
    });
    directory.Rename();
    link.JudgePeersAgain(BootMicroseconds());
    changed = true;
}

void NetworkHub::AccessChangedByUser() {
    AccessChanged();
    discovery.AnnounceAgain(BootMicroseconds());
    SendFound();
}

bool NetworkHub::Read() {
    link.SetSteadyLead(SteadyLeadNanoseconds());
    for (int count = 0; count < kMostAtATime; ++count) {
        const std::optional<ReceivedDatagram> received = parts.socket.Receive(buffer);
        if (!received) {
            if (second != nullptr) {
                second->SetSteadyLead(SteadyLeadNanoseconds());
                second->Read(BootMicroseconds());
            }
            return false;
        }
        const ByteView datagram = ByteView(buffer).first(received->size);
        const std::uint64_t now = BootMicroseconds();
        if (KindOfDatagram(datagram) == DatagramKind::Plain) {
            discovery.HandleDatagram(now, *received, datagram);
        }
        link.HandleDatagram(now, *received, datagram);
    }
    return true;
}

void NetworkHub::Act() {
    const std::uint64_t now = BootMicroseconds();
    discovery.HandleTimeout(now);
    SendFound();
    while (const std::optional<DiscoveryEvent> event = discovery.PollEvent()) {
        changed = changed || event->kind == DiscoveryEvent::Kind::ListChanged;
        if (event->kind == DiscoveryEvent::Kind::Heard && event->announced) {
            link.CallSoonAt(now, event->from);
        }
    }
    link.HandleTimeout(now);
    if (second != nullptr) {
        second->HandleTimeout(now);
    }
}

void NetworkHub::Deliver() {
    link.SetSteadyLead(SteadyLeadNanoseconds());
    if (second != nullptr) {
        second->SetSteadyLead(SteadyLeadNanoseconds());
    }
    RemoteRing::Delivery delivery;
    for (std::size_t count = 1; parts.ring.Take(delivery); ++count) {
        DoorOf(delivery.to.computer).Deliver(delivery);
        // A thread that had to wait may find more than a door keeps before it sends.
        if (count % kDeliveriesAtATime == 0) {
            SendDelivered();
        }
    }
    SendDelivered();
}

void NetworkHub::SendDelivered() {
    link.SendDelivered(BootMicroseconds());
    if (second != nullptr) {
        second->SendDelivered(BootMicroseconds());
    }
}

std::optional<std::uint64_t> NetworkHub::NextTime() const {
    std::optional<std::uint64_t> first = discovery.PollTimeout();
    const auto at = [&first](std::optional<std::uint64_t> time) {
        first = first && time ? std::min(*first, *time) : first ? first : time;
    };
    at(link.PollTimeout(BootMicroseconds()));
    if (second != nullptr) {
        at(second->PollTimeout(BootMicroseconds()));
    }
    return first;
}

bool NetworkHub::TakeChanged() {
    const bool linkChanged = link.TakeChanged();
    const bool secondChanged = second != nullptr && second->TakeChanged();
    return std::exchange(changed, false) || linkChanged || secondChanged;
}

void NetworkHub::SendFound() {
    while (const std::optional<Discovery::Transmit> transmit = discovery.PollTransmit(buffer)) {
        parts.socket.Send(transmit->to, transmit->own, ByteView(buffer).first(transmit->size));
    }
}

Refusal NetworkHub::Judge(const KeyHash& key, std::string_view name) {
    const Refusal refusal = access.JudgeKey(key);
    if (refusal != Refusal::None || name.empty()) {
        return refusal;
    }
    const Refusal ofName = access.JudgeName(name, key);
    if (ofName == Refusal::OtherKey) {
        NoteRefused(name, key);
    }
    return ofName;
}

void NetworkHub::NoteRefused(std::string_view name, const KeyHash& key) {
    const bool isKnown = std::any_of(refused.begin(), refused.end(),
                                     [&key](const RefusedKey& each) { return each.key == key; });
    if (!isKnown) {
        if (refused.size() == kMostRefused) {
            refused.erase(refused.begin());
        }
        refused.push_back({key, std::string(name)});
        changed = true;
    }
}

WayVerdict NetworkHub::JudgeWay(std::string_view name, const NetworkAddress& from, int source, int input) {
    const ComputerNames computer({std::string(name), from.Text()});
    const RouteProblem problem = ProblemAtInput(inputs.configuration, input, computer, source % kMaxPorts);
    return {WayProblemOf(problem), (inputs.heard >> input & 1) != 0};
}

std::uint64_t NetworkHub::Random() {
    std::uint64_t random = 0;
    // So few bytes come whole once the system has gathered randomness.
    while (getrandom(&random, sizeof random, 0) != static_cast<ssize_t>(sizeof random)) {
    }
    return random;
}

}  // namespace vexil
