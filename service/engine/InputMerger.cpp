#include "service/engine/InputMerger.h"

#include <algorithm>
#include <limits>

#include "service/engine/MidiStatus.h"

namespace vexil {

namespace {

constexpr std::uint64_t kNever = std::numeric_limits<std::uint64_t>::max();

int InputAfter(const Record& endOfWay) {
    return endOfWay.nextInput == kNoInput ? -1 : endOfWay.nextInput;
}

}  // namespace

bool InputMerger::Push(int source, std::uint64_t due, const MidiPiece& piece) {
    if (!queues.PushPiece(source, due, piece)) {
        return false;
    }
    waiting.Add(source);
    return true;
}

void InputMerger::EndWay(int source, std::uint64_t due, int nextInput) {
    Source& way = Of(source);
    if (queues.IsEmpty(source) && way.sounding.IsAtRest() && !way.inExclusive) {
        Connect(source, nextInput);
        return;
    }
    if (queues.PushEndOfWay(source, due, nextInput < 0 ? kNoInput : static_cast<std::uint8_t>(nextInput))) {
        ++openEnds;
        waiting.Add(source);
    }
}

void InputMerger::Connect(int source, int input) {
    Source& way = Of(source);
    if (way.input >= 0) {
        inputs[static_cast<std::size_t>(way.input)].sources.Remove(source);
    }
    way.input = input;
    if (input >= 0) {
        inputs[static_cast<std::size_t>(input)].sources.Add(source);
    }
}

void InputMerger::NoteEmptied(int source) {
    if (queues.IsEmpty(source)) {
        waiting.Remove(source);
    }
}

// The sources that may deliver to an input now: while a system exclusive is under way, only its own.
SourceSet InputMerger::Ready(const Input& input) const {
    if (input.owner < 0) {
        return input.sources.And(waiting);
    }
    SourceSet owner;
    owner.Add(input.owner);
    return owner.And(waiting);
}

void InputMerger::Run(std::uint64_t end, EngineSink& sink) {
    // A way that ends may go on at an input that has had its turn.
    for (bool again = true; again;) {
        again = false;
        for (int port = 0; port < kMaxPorts && !waiting.IsEmpty(); ++port) {
            again |= RunInput(port, end, sink);
        }
    }
}

// Returns whether a way has moved from this input to another.
bool InputMerger::RunInput(int port, std::uint64_t end, EngineSink& sink) {
    const Input& input = inputs[static_cast<std::size_t>(port)];
    bool moved = false;
    for (bool isFirst = true;;) {
        const int owner = input.owner;
        // The source that is due first, and how long it stays so.
        int source = -1;
        std::uint64_t due = end;
        std::uint64_t until = end;
        for (SourceSet ready = Ready(input); !ready.IsEmpty();) {
            const int candidate = ready.TakeFirst();
            const std::uint64_t when = queues.Front(candidate).due;
            if (when < due) {
                until = due;
                due = when;
                source = candidate;
            } else {
                until = std::min(until, when);
            }
        }
        if (source < 0) {
            if (owner < 0 || !CutSilentExclusive(port, end, sink)) {
                return moved;
            }
            continue;
        }
        do {
            if (!DeliverFront(source, port, end, isFirst, sink)) {
                return moved;
            }
            isFirst = false;
            if (Of(source).input != port) {
                moved = moved || !queues.IsEmpty(source);
                break;
            }
        } while (!queues.IsEmpty(source) && queues.Front(source).due < until && input.owner == owner);
    }
}

// False when the input has no room for the front of a source's queue.
bool InputMerger::DeliverFront(int source, int port, std::uint64_t end, bool mayBegin, EngineSink& sink) {
    const Record& record = queues.Front(source);
    if (record.kind == RecordKind::Exclusive) {
        return DeliverExclusive(source, port, end, mayBegin, sink);
    }
    if (record.kind == RecordKind::EndOfWay) {
        return FinishWay(source, port, sink);
    }
    const std::span<const std::uint8_t> bytes = queues.FrontBytes(source);
    if (sink.Room(Destination::Input(port)) < bytes.size()) {
        return false;
    }
    Of(source).sounding.Heard(bytes);
    Deliver(port, record.due, bytes, sink);
    inputs[static_cast<std::size_t>(port)].messages.Add(1);
    queues.TakeRecord(source);
    NoteEmptied(source);
    return true;
}

// Delivers as many pieces of one message at once as are there and due: most programs want a message whole.
// For the same reason a message is not begun in the rest of a room that has been used, unless `mayBegin`.
bool InputMerger::DeliverExclusive(int source, int port, std::uint64_t end, bool mayBegin, EngineSink& sink) {
    Source& way = Of(source);
    Input& input = inputs[static_cast<std::size_t>(port)];
    const std::size_t room = std::min(sink.Room(Destination::Input(port)), kLongestDelivery);
    if (room == 0) {
        return false;
    }
    const std::uint64_t due = queues.Front(source).due;
    const std::span<const std::uint8_t> front = queues.FrontBytes(source);
    if (!way.inExclusive && !mayBegin && front.size() > room) {
        return false;
    }
    const bool begins = !way.inExclusive;
    std::size_t length = 0;
    bool last = false;
    while (length < room && !last && !queues.IsEmpty(source) &&
           queues.Front(source).kind == RecordKind::Exclusive && queues.Front(source).due < end) {
        const std::span<const std::uint8_t> bytes = queues.FrontBytes(source);
        const std::size_t count = std::min(bytes.size(), room - length);
        std::copy_n(bytes.begin(), count, gathered.begin() + static_cast<std::ptrdiff_t>(length));
        length += count;
        last = count == bytes.size() && queues.Front(source).last;
        queues.Take(source, count);
    }
    NoteEmptied(source);
    way.inExclusive = !last;
    input.owner = last ? -1 : source;
    input.ownerHeard = due;
    if (begins) {
        input.messages.Add(1);
    }
    Deliver(port, due, std::span<const std::uint8_t>(gathered).first(length), sink);
    return true;
}

// When a system exclusive of which nothing comes is over for those who wait behind it; none while there is
// none or nobody waits.
std::optional<std::uint64_t> InputMerger::EndOfSilence(const Input& input) const {
    if (input.owner < 0 || !queues.IsEmpty(input.owner)) {
        return std::nullopt;
    }
    std::uint64_t due = kNever;
    for (SourceSet others = input.sources.And(waiting); !others.IsEmpty();) {
        due = std::min(due, queues.Front(others.TakeFirst()).due);
    }
    return due == kNever ? std::nullopt : std::optional(std::max(due, input.ownerHeard + kLongestSilence));
}

bool InputMerger::CutSilentExclusive(int port, std::uint64_t end, EngineSink& sink) {
    Input& input = inputs[static_cast<std::size_t>(port)];
    const std::optional<std::uint64_t> due = EndOfSilence(input);
    if (!due || *due >= end || sink.Room(Destination::Input(port)) < sizeof kEndBytes) {
        return false;
    }
    Of(input.owner).inExclusive = false;
    cutSources.Add(input.owner);
    input.owner = -1;
    Deliver(port, *due, kEndBytes, sink);
    return true;
}

bool InputMerger::FinishWay(int source, int port, EngineSink& sink) {
    Source& way = Of(source);
    const Record end = queues.Front(source);
    if (way.inExclusive) {
        if (sink.Room(Destination::Input(port)) < sizeof kEndBytes) {
            return false;
        }
        way.inExclusive = false;
        inputs[static_cast<std::size_t>(port)].owner = -1;
        Deliver(port, end.due, kEndBytes, sink);
    }
    while (const std::optional<std::array<std::uint8_t, 3>> release = way.sounding.NextRelease()) {
        if (!IsHeldByAnother(source, port, *release)) {
            if (sink.Room(Destination::Input(port)) < release->size()) {
                return false;
            }
            Deliver(port, end.due, *release, sink);
            inputs[static_cast<std::size_t>(port)].messages.Add(1);
        }
        way.sounding.Heard(*release);
    }
    queues.TakeRecord(source);
    NoteEmptied(source);
    --openEnds;
    Connect(source, InputAfter(end));
    return true;
}

bool InputMerger::IsHeldByAnother(int source, int port, const std::array<std::uint8_t, 3>& release) const {
    SourceSet others = inputs[static_cast<std::size_t>(port)].sources;
    others.Remove(source);
    while (!others.IsEmpty()) {
        if (sources[static_cast<std::size_t>(others.TakeFirst())].sounding.Holds(release)) {
            return true;
        }
    }
    return false;
}

void InputMerger::Deliver(int port, std::uint64_t due, std::span<const std::uint8_t> bytes,
                          EngineSink& sink) {
    Input& input = inputs[static_cast<std::size_t>(port)];
    input.lastTime = std::max(input.lastTime, due);
    input.bytes.Add(bytes.size());
    sink.Deliver(Destination::Input(port), input.lastTime, bytes);
}

std::optional<std::uint64_t> InputMerger::NextDue() const {
    std::uint64_t due = kNever;
    if (!waiting.IsEmpty()) {
        for (const Input& input : inputs) {
            for (SourceSet ready = Ready(input); !ready.IsEmpty();) {
                due = std::min(due, queues.Front(ready.TakeFirst()).due);
            }
            due = std::min(due, EndOfSilence(input).value_or(kNever));
        }
    }
    return due == kNever ? std::nullopt : std::optional(due);
}

std::uint64_t InputMerger::Forget(int source) {
    Source& way = Of(source);
    if (way.inExclusive) {
        inputs[static_cast<std::size_t>(way.input)].owner = -1;
        way.inExclusive = false;
    }
    way.sounding.Clear();
    std::uint64_t lost = 0;
    int nextInput = way.input;
    while (!queues.IsEmpty(source)) {
        const Record& record = queues.Front(source);
        if (record.kind == RecordKind::EndOfWay) {
            nextInput = InputAfter(record);
            --openEnds;
        } else {
            lost += record.last ? 1 : 0;
        }
        queues.TakeRecord(source);
    }
    waiting.Remove(source);
    Connect(source, nextInput);
    return lost;
}

void InputMerger::ForgetTimes() {
    for (Input& input : inputs) {
        input.lastTime = 0;
    }
}

InputCounters InputMerger::CountersOf(int input) const {
    const Input& counted = inputs[static_cast<std::size_t>(input)];
    return {counted.messages.Read(), counted.bytes.Read()};
}

}  // namespace vexil
