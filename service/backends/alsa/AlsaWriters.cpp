#include "service/backends/alsa/AlsaWriters.h"

#include <algorithm>

#include "service/engine/MidiStatus.h"

namespace vexil {

namespace {

// Whose releases wait: no client has this address.
constexpr WriterAddress kReleases{255, 255};

bool IsInsideExclusive(std::uint8_t byte) {
    return byte < 0x80 || byte >= kFirstRealtime;
}

// Calls `each` for each whole message of several.
template <class Each>
void ForEachMessage(std::span<const std::uint8_t> messages, Each each) {
    while (!messages.empty()) {
        std::size_t length = 1;
        while (length < messages.size() && messages[length] < 0x80) {
            ++length;
        }
        each(messages.first(length));
        messages = messages.subspan(length);
    }
}

}  // namespace

AlsaWriters::AlsaWriters(Engine& served, std::size_t heldBytes)
    : engine(served), sounding(kWriters), held(heldBytes) {
    keys.fill(kNobody);
}

void AlsaWriters::Hear(int port, WriterAddress writer, std::uint64_t now,
                       std::span<const std::uint8_t> messages) {
    if (messages.empty()) {
        return;
    }
    if (messages[0] >= kFirstRealtime) {
        engine.Write(port, now, messages);
        return;
    }
    if (MustWait(port, writer) && HoldOrEnd(port, {writer, false, messages}, now)) {
        return;
    }
    Pass(port, writer, now, messages);
    TakeHeld(port, now);
}

void AlsaWriters::HearExclusive(int port, WriterAddress writer, std::uint64_t now,
                                std::span<const std::uint8_t> bytes) {
    if (MustWait(port, writer) && HoldOrEnd(port, {writer, true, bytes}, now)) {
        return;
    }
    PassExclusive(port, writer, now, bytes);
    TakeHeld(port, now);
}

void AlsaWriters::Gone(int port, WriterAddress writer, std::uint64_t now) {
    held.TakeAll(port, [&](WriterAddress who) { return who == writer; });
    if (Of(port).exclusive == writer) {
        EndExclusive(port, now);
    }
    const std::size_t place = Find(KeyOf(port, writer));
    if (place < kWriters) {
        Remove(place, now);
    } else if (Of(port).untracked) {
        engine.WriterGone(port, now);
    }
    TakeHeld(port, now);
}

void AlsaWriters::ClientGone(std::uint8_t client, std::uint64_t now) {
    for (int port = 0; port < kMaxPorts; ++port) {
        const std::optional<WriterAddress> writer = Of(port).exclusive;
        if (writer && writer->client == client) {
            Gone(port, *writer, now);
        }
    }
    for (const std::uint32_t key : keys) {
        if (key != kNobody && (key >> 8 & 0xFF) == client) {
            Gone(PortOf(key), {client, static_cast<std::uint8_t>(key)}, now);
        }
    }
    // What only waited.
    for (int port = 0; port < kMaxPorts; ++port) {
        held.TakeAll(port, [&](WriterAddress who) { return who.client == client; });
    }
}

void AlsaWriters::OutputGone(int port, std::uint64_t now) {
    held.TakeAll(port, [](WriterAddress) { return true; });
    for (std::size_t place = 0; place < kWriters; ++place) {
        if (keys[place] != kNobody && PortOf(keys[place]) == port) {
            keys[place] = kNobody;
            sounding[place].Clear();
        }
    }
    Of(port) = {};
    engine.WriterGone(port, now);
}

void AlsaWriters::AllGone(std::uint64_t now) {
    for (int port = 0; port < kMaxPorts; ++port) {
        OutputGone(port, now);
    }
}

void AlsaWriters::Run(std::uint64_t now) {
    for (int port = 0; port < kMaxPorts && !held.IsEmpty(); ++port) {
        if (Of(port).exclusive && !held.IsEmpty(port) && now >= Of(port).lastHeard + kLongestSilence) {
            EndExclusive(port, now);
            TakeHeld(port, now);
        }
    }
}

std::optional<std::uint64_t> AlsaWriters::NextDue() const {
    std::optional<std::uint64_t> due;
    for (int port = 0; port < kMaxPorts && !held.IsEmpty(); ++port) {
        if (Of(port).exclusive && !held.IsEmpty(port)) {
            const std::uint64_t end = Of(port).lastHeard + kLongestSilence;
            due = due ? std::min(*due, end) : end;
        }
    }
    return due;
}

std::size_t AlsaWriters::Find(std::uint32_t key) const {
    return static_cast<std::size_t>(std::find(keys.begin(), keys.end(), key) - keys.begin());
}

// Null when there is no place for one more writer.
NoteTracker* AlsaWriters::TrackerOf(int port, WriterAddress writer) {
    const std::uint32_t key = KeyOf(port, writer);
    Output& output = Of(port);
    if (keys[output.last] == key) {
        return &sounding[output.last];
    }
    std::size_t place = Find(key);
    if (place == kWriters) {
        place = Find(kNobody);
        if (place == kWriters) {
            output.untracked = true;
            return nullptr;
        }
        keys[place] = key;
        ++output.writers;
    }
    output.last = place;
    return &sounding[place];
}

void AlsaWriters::Remove(std::size_t place, std::uint64_t now) {
    const int port = PortOf(keys[place]);
    const NoteTracker gone = sounding[place];
    keys[place] = kNobody;
    sounding[place].Clear();
    if (--Of(port).writers == 0 || Of(port).untracked) {
        Of(port).untracked = Of(port).untracked && Of(port).writers != 0;
        engine.WriterGone(port, now);
    } else {
        Release(port, gone, now);
    }
}

// What nobody else on the output holds down.
void AlsaWriters::Release(int port, const NoteTracker& gone, std::uint64_t now) {
    NoteTracker left = gone;
    while (const std::optional<std::array<std::uint8_t, 3>> release = left.NextRelease()) {
        left.Heard(*release);
        if (IsHeldByAnother(port, *release)) {
            continue;
        }
        if (MustWait(port, kReleases) && HoldOrEnd(port, {kReleases, false, *release}, now)) {
            continue;
        }
        engine.Write(port, now, *release);
    }
}

bool AlsaWriters::IsHeldByAnother(int port, const std::array<std::uint8_t, 3>& release) const {
    for (std::size_t place = 0; place < kWriters; ++place) {
        if (keys[place] != kNobody && PortOf(keys[place]) == port && sounding[place].Holds(release)) {
            return true;
        }
    }
    return false;
}

bool AlsaWriters::MustWait(int port, WriterAddress writer) const {
    const std::optional<WriterAddress>& owner = Of(port).exclusive;
    return owner && *owner != writer;
}

// False when there is no room for it; then what it would have waited for ends.
bool AlsaWriters::HoldOrEnd(int port, const HeldMessage& message, std::uint64_t now) {
    if (held.Add(port, message)) {
        return true;
    }
    EndExclusive(port, now);
    TakeHeld(port, now);
    // Of what waited, another system exclusive may have begun.
    if (MustWait(port, message.writer)) {
        EndExclusive(port, now);
    }
    return false;
}

void AlsaWriters::TakeHeld(int port, std::uint64_t now) {
    while (!held.IsEmpty(port) && !Of(port).exclusive && TakeHeldOnce(port, now)) {
    }
}

// Passes what may pass, in the order in which it came. True when the rest is to be gone through once more: a
// system exclusive has ended that kept something waiting.
bool AlsaWriters::TakeHeldOnce(int port, std::uint64_t now) {
    bool skipped = false;
    for (auto place = held.First(port); place != AlsaHeldMessages::kEnd; place = held.Next(port, place)) {
        const HeldMessage message = held.Get(place);
        if (MustWait(port, message.writer)) {
            skipped = true;
            continue;
        }
        held.Take(place);
        if (message.exclusive) {
            PassExclusive(port, message.writer, now, message.bytes);
        } else {
            Pass(port, message.writer, now, message.bytes);
        }
        if (skipped && !Of(port).exclusive) {
            return true;
        }
    }
    return false;
}

void AlsaWriters::EndExclusive(int port, std::uint64_t now) {
    Of(port).exclusive.reset();
    engine.Write(port, now, kEndBytes);
}

void AlsaWriters::Pass(int port, WriterAddress writer, std::uint64_t now,
                       std::span<const std::uint8_t> messages) {
    // Its own message ends its system exclusive.
    if (Of(port).exclusive) {
        EndExclusive(port, now);
    }
    NoteTracker* tracker = writer == kReleases ? nullptr : TrackerOf(port, writer);
    if (tracker != nullptr) {
        ForEachMessage(messages, [&](std::span<const std::uint8_t> message) { tracker->Heard(message); });
    }
    engine.Write(port, now, messages);
}

void AlsaWriters::PassExclusive(int port, WriterAddress writer, std::uint64_t now,
                                std::span<const std::uint8_t> bytes) {
    Output& output = Of(port);
    output.lastHeard = now;
    while (!bytes.empty()) {
        std::size_t length = 0;
        if (!output.exclusive) {
            const auto start = std::find(bytes.begin(), bytes.end(), kStartOfExclusive);
            bytes = bytes.subspan(static_cast<std::size_t>(start - bytes.begin()));
            if (bytes.empty()) {
                return;
            }
            output.exclusive = writer;
            TrackerOf(port, writer);
            length = 1;
        }
        while (length < bytes.size() && IsInsideExclusive(bytes[length])) {
            ++length;
        }
        const bool isCut = length < bytes.size();
        engine.Write(port, now, bytes.first(length));
        bytes = bytes.subspan(length);
        if (isCut) {
            EndExclusive(port, now);
            bytes = bytes.subspan(bytes.front() == kEndOfExclusive ? 1 : 0);
        }
    }
}

}  // namespace vexil
