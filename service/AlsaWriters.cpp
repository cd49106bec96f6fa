#include "service/AlsaWriters.h"

#include <algorithm>
#include <cstring>

namespace vexil {

namespace {

constexpr std::uint8_t kStartOfExclusive = 0xF0;
constexpr std::uint8_t kEndOfExclusive = 0xF7;
constexpr std::uint8_t kFirstRealtime = 0xF8;
constexpr std::uint8_t kEndBytes[] = {kEndOfExclusive};

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
    : engine(served), sounding(kWriters), storage(heldBytes / sizeof(std::uint64_t)) {
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
    if (MustWait(port, writer)) {
        if (Hold(port, writer, false, messages)) {
            return;
        }
        EndExclusive(port, now);
        TakeHeld(port, now);
    }
    Pass(port, writer, now, messages);
    TakeHeld(port, now);
}

void AlsaWriters::HearExclusive(int port, WriterAddress writer, std::uint64_t now,
                                std::span<const std::uint8_t> bytes) {
    if (MustWait(port, writer)) {
        if (Hold(port, writer, true, bytes)) {
            return;
        }
        EndExclusive(port, now);
        TakeHeld(port, now);
    }
    PassExclusive(port, writer, now, bytes);
    TakeHeld(port, now);
}

void AlsaWriters::Gone(int port, WriterAddress writer, std::uint64_t now) {
    ForgetHeld(port, writer);
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
    for (std::size_t at = 0; at < used && waiting != 0; at += At(at).size) {
        const Held& held = At(at);
        if (held.port >= 0 && held.writer.client == client) {
            ForgetHeld(held.port, held.writer);
        }
    }
}

void AlsaWriters::OutputGone(int port, std::uint64_t now) {
    for (std::size_t at = 0; at < used && Of(port).held != 0; at += At(at).size) {
        if (At(at).port == port) {
            Drop(At(at));
        }
    }
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
    for (int port = 0; port < kMaxPorts && waiting != 0; ++port) {
        if (Of(port).exclusive && Of(port).held != 0 && now >= Of(port).lastHeard + kLongestSilence) {
            EndExclusive(port, now);
            TakeHeld(port, now);
        }
    }
}

std::optional<std::uint64_t> AlsaWriters::NextDue() const {
    std::optional<std::uint64_t> due;
    for (int port = 0; port < kMaxPorts && waiting != 0; ++port) {
        if (Of(port).exclusive && Of(port).held != 0) {
            const std::uint64_t end = Of(port).lastHeard + kLongestSilence;
            due = due ? std::min(*due, end) : end;
        }
    }
    return due;
}

AlsaWriters::Held& AlsaWriters::At(std::size_t offset) {
    return *static_cast<Held*>(static_cast<void*>(&storage[offset / sizeof(std::uint64_t)]));
}

std::uint8_t* AlsaWriters::BytesOf(std::size_t offset) {
    return static_cast<std::uint8_t*>(static_cast<void*>(storage.data())) + offset + sizeof(Held);
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
        if (MustWait(port, kReleases) && Hold(port, kReleases, false, *release)) {
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

// False when there is no room for it.
bool AlsaWriters::Hold(int port, WriterAddress writer, bool exclusive, std::span<const std::uint8_t> bytes) {
    const std::size_t size = (sizeof(Held) + bytes.size() + sizeof(std::uint64_t) - 1) /
                             sizeof(std::uint64_t) * sizeof(std::uint64_t);
    const std::size_t capacity = storage.size() * sizeof(std::uint64_t);
    if (used + size > capacity) {
        Compact();
        if (used + size > capacity) {
            return false;
        }
    }
    At(used) = {static_cast<std::uint32_t>(size), static_cast<std::uint32_t>(bytes.size()),
                static_cast<std::int16_t>(port), writer, exclusive};
    std::copy(bytes.begin(), bytes.end(), BytesOf(used));
    used += size;
    ++waiting;
    ++Of(port).held;
    return true;
}

void AlsaWriters::Compact() {
    std::size_t end = 0;
    for (std::size_t at = 0; at < used;) {
        const std::size_t size = At(at).size;
        if (At(at).port >= 0) {
            std::memmove(&At(end), &At(at), size);
            end += size;
        }
        at += size;
    }
    used = end;
}

void AlsaWriters::Drop(Held& held) {
    --Of(held.port).held;
    --waiting;
    held.port = -1;
}

void AlsaWriters::ForgetHeld(int port, WriterAddress writer) {
    for (std::size_t at = 0; at < used && Of(port).held != 0; at += At(at).size) {
        Held& held = At(at);
        if (held.port == port && held.writer == writer) {
            Drop(held);
        }
    }
}

void AlsaWriters::TakeHeld(int port, std::uint64_t now) {
    while (Of(port).held != 0 && !Of(port).exclusive && TakeHeldOnce(port, now)) {
    }
    if (waiting == 0) {
        used = 0;
    }
}

// Passes what may pass, in the order in which it came. True when the rest is to be gone through once more: a
// system exclusive has ended that kept something waiting.
bool AlsaWriters::TakeHeldOnce(int port, std::uint64_t now) {
    bool skipped = false;
    for (std::size_t at = 0; at < used && Of(port).held != 0; at += At(at).size) {
        Held& held = At(at);
        if (held.port != port) {
            continue;
        }
        if (MustWait(port, held.writer)) {
            skipped = true;
            continue;
        }
        Drop(held);
        const std::span<const std::uint8_t> bytes(BytesOf(at), held.length);
        if (held.exclusive) {
            PassExclusive(port, held.writer, now, bytes);
        } else {
            Pass(port, held.writer, now, bytes);
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
