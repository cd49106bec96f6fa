#include "service/backends/alsa/AlsaDelivery.h"

#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <bit>

#include "service/engine/Silencing.h"

namespace vexil {

namespace {

// How often it is looked at whether a reader has caught up that is owed something: at first, and at last.
constexpr std::uint64_t kFirstLook = 2'000'000;
constexpr std::uint64_t kLastLook = 1'000'000'000;
// The most that a message takes which puts a reader right: the end of a system exclusive.
constexpr std::size_t kCellsOfEnd = 2;

// The first piece of a system exclusive, or another message.
bool BeginsMessage(std::span<const std::uint8_t> bytes) {
    return bytes.front() >= 0x80 && bytes.front() != kEndOfExclusive;
}

}  // namespace

AlsaDelivery::AlsaDelivery(AlsaClient& opened, int changed)
    : client(opened), changedEvent(changed), readers(*this) {}

std::optional<AlsaRoom> AlsaDelivery::RoomOf(int reader) const {
    return AskAlsaRoom(client.Descriptor(), reader);
}

std::size_t AlsaDelivery::Room(const Destination& to) const {
    const std::size_t room = readers.Room(to.port);
    NoteLeftBehind();
    return room;
}

void AlsaDelivery::Deliver(const Destination& to, std::uint64_t, std::span<const std::uint8_t> bytes) {
    hasDelivered = true;
    while (!bytes.empty()) {
        const std::span<const std::uint8_t> piece = bytes.first(std::min(bytes.size(), kAlsaPieceBytes));
        bytes = bytes.subspan(piece.size());
        owed.Heard(to.port, piece);
        snd_seq_event_t event;
        if (readers.HasReaders(to.port) && codec.Encode(piece, event)) {
            Send(to.port, event, BeginsMessage(piece));
        }
    }
}

// To all at once, for that is one copy less; one by one while somebody is to be left out.
void AlsaDelivery::Send(int port, snd_seq_event_t& event, bool begins) {
    if (!readers.HasLeftBehind(port)) {
        client.Send(event, kFirstInputPort + port);
    } else {
        for (const AlsaAddress& address : readers.ReadersOf(port)) {
            if (!readers.IsLeftBehind(address.client)) {
                client.SendTo(event, kFirstInputPort + port, address);
            }
        }
        AlsaReaders::ForEachIn(readers.LeftBehind(), [&](std::size_t reader) {
            if (begins && readers.Reads(port, static_cast<int>(reader))) {
                lateness.Miss(reader);
            }
        });
    }
    readers.Sent(port, snd_seq_ev_is_variable(&event) ? event.data.ext.len : 0);
}

void AlsaDelivery::AskForReaders(int port) {
    std::array<AlsaAddress, AlsaReaders::kMostReaders> found;
    std::size_t count = 0;
    client.ForEachConnection(kFirstInputPort + port, [&](AlsaAddress address) {
        if (count < found.size()) {
            found[count++] = address;
        }
    });
    readers.SetReaders(port, std::span(found).first(count));
    NoteLeftBehind();
    if (payee != kNobody && !readers.IsLeftBehind(payee)) {
        payee = kNobody;
    }
}

// Called before anything else is sent: what sounds now is what a reader that has just been left behind heard.
void AlsaDelivery::NoteLeftBehind() const {
    const AlsaReaders::Clients changed = readers.LeftBehind() ^ known;
    if (changed.none()) {
        return;
    }
    known = readers.LeftBehind();
    AlsaReaders::ForEachIn(changed, [this](std::size_t reader) {
        const bool isLeft = known.test(reader);
        if (isLeft) {
            lateness.Leave(reader);
            lookInterval = kFirstLook;
        } else {
            lateness.TakeUp(reader);
        }
        for (int port = 0; isLeft && port < kMaxPorts; ++port) {
            if (readers.Reads(port, static_cast<int>(reader))) {
                owed.Leave(port);
            }
        }
    });
    for (int port = 0; port < kMaxPorts; ++port) {
        if (!readers.HasLeftBehind(port)) {
            owed.Settle(port);
        }
    }
    // A counter that is full is readable already.
    static_cast<void>(::eventfd_write(changedEvent, 1));
}

void AlsaDelivery::BeginCycle(std::uint64_t now) {
    cycle = now;
    hasDelivered = false;
    readers.BeginCycle(now);
    if (known.any()) {
        TakeUpReaders();
    }
    SilenceReaders();
}

// As far as the readers have room.
void AlsaDelivery::SilenceReaders() {
    silencing |= toSilence.exchange(0);
    for (std::uint64_t left = silencing; left != 0; left &= left - 1) {
        const int port = std::countr_zero(left);
        std::size_t& done = silenced[static_cast<std::size_t>(port)];
        for (; done < kSilencingMessages && Room(Destination::Input(port)) >= 3; ++done) {
            const std::array message = SilencingMessage(done);
            snd_seq_event_t event;
            if (readers.HasReaders(port) && codec.Encode(message, event)) {
                Send(port, event, true);
            }
        }
        if (done == kSilencingMessages) {
            done = 0;
            silencing &= ~(std::uint64_t{1} << port);
        }
    }
}

// One is paid at a time. Who cannot be sent anything gives way.
void AlsaDelivery::TakeUpReaders() {
    const AlsaReaders::Clients before = known;
    hasPaid = false;
    if (payee != kNobody) {
        TakeUp(payee);
    }
    AlsaReaders::ForEachIn(before, [this](std::size_t reader) {
        const auto number = static_cast<int>(reader);
        if (!hasPaid && number != payee && readers.IsLeftBehind(number) && readers.HasCaughtUp(number)) {
            TakeUp(number);
        }
    });
    NoteLeftBehind();
    lookInterval = hasPaid ? kFirstLook : std::min(lookInterval * 2, kLastLook);
}

// False when it hears nothing yet.
bool AlsaDelivery::TakeUp(int reader) {
    for (int port = 0; port < kMaxPorts; ++port) {
        if (readers.Reads(port, reader) && owed.IsInExclusive(port)) {
            return false;
        }
    }
    if (payee != reader) {
        payee = reader;
        debt = owed.All();
    }
    for (int port = 0; port < kMaxPorts; ++port) {
        const auto send = [&](std::span<const std::uint8_t> bytes) { return SendTo(reader, port, bytes); };
        if (readers.Reads(port, reader) && !owed.Pay(debt, port, send)) {
            return false;
        }
    }
    payee = kNobody;
    readers.TakeUp(reader);
    return true;
}

bool AlsaDelivery::SendTo(int reader, int port, std::span<const std::uint8_t> bytes) {
    const auto isTheirs = [&](const AlsaAddress& address) { return address.client == reader; };
    const std::vector<AlsaAddress>& all = readers.ReadersOf(port);
    snd_seq_event_t event;
    const auto times = static_cast<std::size_t>(std::count_if(all.begin(), all.end(), isTheirs));
    if (times * kCellsOfEnd > readers.CellsOf(reader) || !codec.Encode(bytes, event)) {
        return false;
    }
    for (const AlsaAddress& address : all) {
        if (isTheirs(address)) {
            client.SendTo(event, kFirstInputPort + port, address);
            readers.SentTo(reader, kCellsOfEnd);
        }
    }
    hasPaid = true;
    return true;
}

bool AlsaDelivery::IsAnybodyOwed() const {
    for (int port = 0; port < kMaxPorts; ++port) {
        if (owed.IsOwed(port)) {
            return true;
        }
    }
    return false;
}

std::optional<std::uint64_t> AlsaDelivery::NextLook() const {
    if (silencing != 0) {
        return cycle + kFirstLook;
    }
    return known.any() && IsAnybodyOwed() ? std::optional(cycle + lookInterval) : std::nullopt;
}

}  // namespace vexil
