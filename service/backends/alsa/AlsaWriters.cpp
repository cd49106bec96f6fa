#include "service/backends/alsa/AlsaWriters.h"

#include <optional>

#include "service/engine/MidiStatus.h"

namespace vexil {

namespace {

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

bool IsWhole(std::span<const std::uint8_t> exclusive) {
    return exclusive.front() == kStartOfExclusive && exclusive.back() == kEndOfExclusive;
}

}  // namespace

AlsaWriters::AlsaWriters(Engine& served) : engine(served), writers(kWriterSources) {}

void AlsaWriters::Hear(int port, AlsaAddress writer, std::uint64_t now,
                       std::span<const std::uint8_t> messages) {
    if (messages.empty()) {
        return;
    }
    if (messages[0] >= kFirstRealtime) {
        // Of the output itself: it does not wait behind what the program has written.
        engine.WriteMessage(port, now, messages);
        return;
    }
    const int source = SourceOf(port, writer);
    ForEachMessage(messages,
                   [&](std::span<const std::uint8_t> message) { engine.WriteMessage(source, now, message); });
}

void AlsaWriters::HearExclusive(int port, AlsaAddress writer, std::uint64_t now,
                                std::span<const std::uint8_t> bytes) {
    if (bytes.empty()) {
        return;
    }
    const int source = SourceOf(port, writer);
    // Where several are mixed, pieces of one would get into another's.
    if (source != port || IsWhole(bytes)) {
        engine.WriteExclusive(source, now, bytes);
    }
}

void AlsaWriters::Gone(int port, AlsaAddress writer, std::uint64_t now) {
    Remove(port, now, [&](AlsaAddress address) { return address == writer; });
}

void AlsaWriters::ClientGone(std::uint8_t client, std::uint64_t now) {
    for (int port = 0; port < kMaxPorts; ++port) {
        Remove(port, now, [&](AlsaAddress address) { return address.client == client; });
    }
}

void AlsaWriters::PortGone(AlsaAddress writer, std::uint64_t now) {
    for (int port = 0; port < kMaxPorts; ++port) {
        Gone(port, writer, now);
    }
}

void AlsaWriters::OutputGone(int port, std::uint64_t now) {
    Remove(port, now, [](AlsaAddress) { return true; });
    Of(port).isMixed = false;
    engine.WriterGone(port, now);
}

void AlsaWriters::AllGone(std::uint64_t now) {
    for (int port = 0; port < kMaxPorts; ++port) {
        OutputGone(port, now);
    }
}

// The source of a program, or the output's own where all are taken.
int AlsaWriters::SourceOf(int port, AlsaAddress address) {
    Output& output = Of(port);
    int before = kNone;
    for (int place = output.first; place != kNone; before = place, place = At(place).next) {
        if (At(place).address == address) {
            if (before != kNone) {
                // Who writes now is likely to write on.
                At(before).next = At(place).next;
                At(place).next = output.first;
                output.first = place;
            }
            return kWriterSourceBase + place;
        }
    }
    return Add(port, address);
}

int AlsaWriters::Add(int port, AlsaAddress address) {
    Output& output = Of(port);
    const std::optional<int> source = engine.TakeWriter(port);
    if (!source) {
        output.isMixed = true;
        return port;
    }
    const int place = *source - kWriterSourceBase;
    At(place) = {address, output.first};
    output.first = place;
    return *source;
}

template <class Which>
void AlsaWriters::Remove(int port, std::uint64_t now, Which which) {
    Output& output = Of(port);
    int before = kNone;
    for (int place = output.first; place != kNone;) {
        const int next = At(place).next;
        if (which(At(place).address)) {
            (before == kNone ? output.first : At(before).next) = next;
            engine.GiveBackWriter(kWriterSourceBase + place, now);
        } else {
            before = place;
        }
        place = next;
    }
    if (output.isMixed) {
        engine.WriterGone(port, now);
        output.isMixed = output.first != kNone;
    }
}

}  // namespace vexil
