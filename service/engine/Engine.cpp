#include "service/engine/Engine.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <utility>

#include "config/DriverConfiguration.h"
#include "service/engine/InputMerger.h"
#include "service/engine/MidiParser.h"
#include "service/engine/SpscQueue.h"

namespace vexil {

namespace {

constexpr std::uint64_t kNanosecondsPerGranularity = 100'000;
constexpr std::size_t kCommands = 256;
constexpr std::size_t kTables = 16;  // that may be on their way to the engine thread and back

struct Command {
    enum class Kind : std::uint8_t { Routes, TestRoute, TestBytes, Quantization, WriterGone, ReleaseAll };

    Kind kind = Kind::Routes;
    int port = 0;
    Route route;
    std::uint32_t sendGranularity = 0;
    std::unique_ptr<const RouteTable> table;
    std::size_t length = 0;
    std::array<std::uint8_t, kLongestTestBytes> bytes{};
};

// What writes to one source, as the engine thread sees it.
struct Writer {
    MidiParser parser;
    Route route;
    std::uint64_t lastDue = 0;
    Counter messages;
    Counter bytes;
    Counter filtered;
    Counter dropped;
};

// Whether something would sound on, or sound wrong, if this were never heard.
bool LeavesSomethingBehind(const MidiPiece& piece) {
    if (piece.systemExclusive) {
        return !piece.first;
    }
    const std::uint8_t kind = piece.bytes[0] & 0xF0;
    const bool isNoteOff = kind == 0x80 || (kind == 0x90 && piece.bytes[2] == 0);
    const bool isPedalOrWheel = kind == 0xB0 && (piece.bytes[1] == 64 || piece.bytes[1] == 1);
    return isNoteOff || isPedalOrWheel || kind == 0xE0;
}

int InputOf(const Route& route) {
    return GetsThrough(route) ? route.inputPort : -1;
}

}  // namespace

class Engine::State {
  public:
    explicit State(std::size_t queueBytes) : merger(queueBytes) {}

    // Control thread.
    bool Post(Command&& command) {
        if (!commands.TryPush(std::move(command))) {
            return false;
        }
        posted.Add(1);
        if (waker != nullptr) {
            waker->Wake();
        }
        return true;
    }

    // Engine thread.
    void CarryOut(Command& command, std::uint64_t now);
    void TakeBytes(int source, std::uint64_t time, std::span<const std::uint8_t> bytes);
    void ChangeRoute(int source, const Route& route, std::uint64_t now);
    void EndWay(int source, std::uint64_t now);
    void EndWriters(int source, std::uint64_t now);
    void ReportDone() {
        if (merger.OpenEnds() == 0) {
            done.store(taken, std::memory_order_release);
        }
    }

    Writer& WriterOf(int source) { return writers[static_cast<std::size_t>(source)]; }

    SpscQueue<Command, kCommands> commands;
    SpscQueue<std::unique_ptr<const RouteTable>, kTables> usedTables;
    std::size_t tablesOut = 0;     // control thread: posted and not yet freed
    EngineWaker* waker = nullptr;  // control thread
    Counter posted;
    std::atomic<std::uint64_t> done{0};

    std::array<Writer, kSourceCount> writers;
    InputMerger merger;
    std::uint64_t quantum = 0;  // nanoseconds; 0: at once
    std::uint64_t taken = 0;    // commands

  private:
    void TakePiece(int source, std::uint64_t time, const MidiPiece& piece);
    std::uint64_t DueTime(const Writer& writer, std::uint64_t time, const MidiPiece& piece) const;
};

void Engine::State::CarryOut(Command& command, std::uint64_t now) {
    const int test = kTestSourceBase + command.port;
    switch (command.kind) {
        case Command::Kind::Routes:
            for (int source = 0; source < kTestSourceBase; ++source) {
                ChangeRoute(source, command.table->routes[static_cast<std::size_t>(source)], now);
            }
            // There is room: no more than kTables are under way.
            usedTables.TryPush(std::move(command.table));
            break;
        case Command::Kind::TestRoute:
            WriterOf(test).route = command.route;
            EndWriters(test, now);
            break;
        case Command::Kind::TestBytes:
            WriterOf(test).parser.EndRunningStatus();
            TakeBytes(test, now, std::span<const std::uint8_t>(command.bytes).first(command.length));
            break;
        case Command::Kind::Quantization:
            quantum = std::min(command.sendGranularity, kMaxSendGranularity) * kNanosecondsPerGranularity;
            break;
        case Command::Kind::WriterGone:
            EndWriters(command.port, now);
            break;
        case Command::Kind::ReleaseAll:
            for (int source = 0; source < kSourceCount; ++source) {
                EndWriters(source, now);
            }
            break;
    }
}

void Engine::State::ChangeRoute(int source, const Route& route, std::uint64_t now) {
    Writer& writer = WriterOf(source);
    const int before = InputOf(std::exchange(writer.route, route));
    // The same way under other conditions goes on.
    if (InputOf(route) != before) {
        writer.parser.SkipSystemExclusive();
        EndWay(source, now);
    }
}

void Engine::State::EndWay(int source, std::uint64_t now) {
    Writer& writer = WriterOf(source);
    writer.lastDue = std::max(writer.lastDue, now);
    merger.EndWay(source, writer.lastDue, InputOf(writer.route));
}

void Engine::State::EndWriters(int source, std::uint64_t now) {
    WriterOf(source).parser.Reset();
    EndWay(source, now);
}

void Engine::State::TakeBytes(int source, std::uint64_t time, std::span<const std::uint8_t> bytes) {
    Writer& writer = WriterOf(source);
    writer.bytes.Add(bytes.size());
    while (const std::optional<MidiPiece> piece = writer.parser.Next(bytes)) {
        TakePiece(source, time, *piece);
    }
}

void Engine::State::TakePiece(int source, std::uint64_t time, const MidiPiece& piece) {
    Writer& writer = WriterOf(source);
    writer.messages.Add(piece.first ? 1 : 0);
    if (!GetsThrough(writer.route)) {
        writer.filtered.Add(piece.first ? 1 : 0);
        return;
    }
    const std::uint64_t due = DueTime(writer, time, piece);
    if (merger.Push(source, due, piece)) {
        writer.lastDue = due;
        return;
    }
    writer.dropped.Add(1);
    if (piece.systemExclusive) {
        writer.parser.SkipSystemExclusive();
    }
    // What cannot be put right by the message that was lost is put right by ending the way, for which there
    // is always room.
    if (LeavesSomethingBehind(piece)) {
        EndWay(source, due);
    }
}

std::uint64_t Engine::State::DueTime(const Writer& writer, std::uint64_t time, const MidiPiece& piece) const {
    // A message is held back once, where it begins.
    if (quantum != 0 && !writer.route.immediate && piece.first) {
        time = (time + quantum - 1) / quantum * quantum;
    }
    return std::max(time, writer.lastDue);
}

Engine::Engine(std::size_t queueBytes) : state(std::make_unique<State>(queueBytes)) {}

Engine::~Engine() = default;

bool Engine::PostRoutes(std::unique_ptr<const RouteTable> table) {
    Collect();
    if (state->tablesOut == kTables) {
        return false;
    }
    Command command;
    command.kind = Command::Kind::Routes;
    command.table = std::move(table);
    if (!state->Post(std::move(command))) {
        return false;
    }
    ++state->tablesOut;
    return true;
}

bool Engine::PostTestRoute(int port, const Route& route) {
    Command command;
    command.kind = Command::Kind::TestRoute;
    command.port = port;
    command.route = route;
    return state->Post(std::move(command));
}

bool Engine::PostTestBytes(int port, std::span<const std::uint8_t> bytes) {
    if (bytes.size() > kLongestTestBytes) {
        return false;
    }
    Command command;
    command.kind = Command::Kind::TestBytes;
    command.port = port;
    command.length = bytes.size();
    std::copy(bytes.begin(), bytes.end(), command.bytes.begin());
    return state->Post(std::move(command));
}

bool Engine::PostQuantization(std::uint32_t sendGranularity) {
    Command command;
    command.kind = Command::Kind::Quantization;
    command.sendGranularity = sendGranularity;
    return state->Post(std::move(command));
}

bool Engine::PostWriterGone(int port) {
    Command command;
    command.kind = Command::Kind::WriterGone;
    command.port = port;
    return state->Post(std::move(command));
}

bool Engine::PostReleaseAll() {
    Command command;
    command.kind = Command::Kind::ReleaseAll;
    return state->Post(std::move(command));
}

void Engine::SetWaker(EngineWaker* waker) {
    state->waker = waker;
}

void Engine::Collect() {
    while (std::unique_ptr<const RouteTable>* table = state->usedTables.Front()) {
        table->reset();
        state->usedTables.Pop();
        --state->tablesOut;
    }
}

std::uint64_t Engine::Posted() const {
    return state->posted.Read();
}

std::uint64_t Engine::Done() const {
    return state->done.load(std::memory_order_acquire);
}

SourceCounters Engine::CountersOfSource(int source) const {
    const Writer& writer = state->WriterOf(source);
    return {writer.messages.Read(), writer.bytes.Read(), writer.filtered.Read(), writer.dropped.Read()};
}

InputCounters Engine::CountersOfInput(int port) const {
    return state->merger.CountersOf(port);
}

void Engine::TakeCommands(std::uint64_t now) {
    while (Command* command = state->commands.Front()) {
        state->CarryOut(*command, now);
        state->commands.Pop();
        ++state->taken;
    }
    state->ReportDone();
}

void Engine::Write(int port, std::uint64_t time, std::span<const std::uint8_t> bytes) {
    state->TakeBytes(port, time, bytes);
}

void Engine::WriterGone(int port, std::uint64_t time) {
    state->EndWriters(port, time);
}

void Engine::Run(std::uint64_t end, EngineSink& sink) {
    state->merger.Run(end, sink);
    for (SourceSet cut = state->merger.TakeCut(); !cut.IsEmpty();) {
        Writer& writer = state->WriterOf(cut.TakeFirst());
        writer.parser.SkipSystemExclusive();
        writer.dropped.Add(1);
    }
    state->ReportDone();
}

std::optional<std::uint64_t> Engine::NextDue() const {
    return state->merger.NextDue();
}

void Engine::Forget() {
    for (int source = 0; source < kSourceCount; ++source) {
        Writer& writer = state->WriterOf(source);
        writer.parser.Reset();
        writer.lastDue = 0;
        writer.dropped.Add(state->merger.Forget(source));
    }
    state->merger.ForgetTimes();
    state->ReportDone();
}

}  // namespace vexil
