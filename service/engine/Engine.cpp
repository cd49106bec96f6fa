#include "service/engine/Engine.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <mutex>
#include <utility>
#include <vector>

#include "config/DriverConfiguration.h"
#include "service/engine/ByteRing.h"
#include "service/engine/SourceTable.h"
#include "service/engine/SpscQueue.h"
#include "service/engine/TappedSink.h"

namespace vexil {

namespace {

constexpr std::uint64_t kNanosecondsPerGranularity = 100'000;
constexpr std::size_t kCommands = 256;
// What has arrived and waits for the engine's next turn: 20,000 notes.
constexpr std::size_t kArrivalBytes = std::size_t{1} << 20;

struct Command {
    enum class Kind : std::uint8_t { Ways, Way, TestBytes, Quantization, WriterGone, ReleaseAll, Panic };

    Kind kind = Kind::Ways;
    int source = 0;
    Way way;
    std::uint32_t sendGranularity = 0;
    std::uint64_t inputs = 0;
    WayTable ways{};
    std::size_t length = 0;
    std::array<std::uint8_t, kLongestTestBytes> bytes{};
};

}  // namespace

class Engine::State {
  public:
    explicit State(std::size_t queueBytes) : sources(queueBytes, tap) {
        freeSources.reserve(kTakenSources);
        for (int source = kTakenSourceBase + kTakenSources; source-- > kTakenSourceBase;) {
            freeSources.push_back(source);
        }
    }

    // Control thread.
    bool Post(const Command& command) {
        if (!commands.TryPush(command)) {
            return false;
        }
        posted.Add(1);
        Wake();
        return true;
    }
    // Control thread, network's thread.
    void SetWaker(EngineWaker* next) {
        const std::lock_guard lock(wakerLock);
        waker = next;
    }
    void Wake() {
        const std::lock_guard lock(wakerLock);
        if (waker != nullptr) {
            waker->Wake();
        }
    }
    // Network's thread.
    void CollectSources() {
        while (const int* source = freedSources.Front()) {
            freeSources.push_back(*source);
            freedSources.Pop();
        }
    }

    // Engine thread.
    void CarryOut(const Command& command, std::uint64_t now);
    void Hear(const Arrival& arrival, std::uint64_t time, std::span<const std::uint8_t> bytes);
    void TellPassedOn();
    void EndTurn() {
        // There is room: no more are taken at a time.
        sources.FreeEnded([this](int source) { freedSources.TryPush(source); });
        // What had arrived when a command was posted may end a way, too.
        if (sources.OpenEnds() == 0 && arrivals.IsEmpty()) {
            done.store(taken, std::memory_order_release);
        }
        if (sources.TakeSuspicionsChanged() && suspicionWaker != nullptr) {
            suspicionWaker->Wake();
        }
        if (sources.TakeCarried() && trafficAwaited.load(std::memory_order_relaxed) &&
            trafficWaker != nullptr && trafficAwaited.exchange(false)) {
            trafficWaker->Wake();
        }
    }

    SpscQueue<Command, kCommands> commands;
    SpscQueue<int, kTakenSources> freedSources;
    ByteRing<Arrival> arrivals{kArrivalBytes};
    std::vector<int> freeSources;  // network's thread
    std::mutex wakerLock;          // never taken by the engine thread
    EngineWaker* waker = nullptr;  // under wakerLock
    Counter posted;
    std::atomic<std::uint64_t> done{0};
    std::atomic<std::int64_t> clockLead{0};
    std::array<std::atomic<std::uint32_t>, kTakenSources> passedOn{};

    MessageTap tap;
    SourceTable sources;
    SilentSink silence;
    EngineSink* remoteSink = &silence;
    EngineWaker* suspicionWaker = nullptr;
    EngineWaker* trafficWaker = nullptr;
    std::atomic<bool> trafficAwaited{false};
    std::uint64_t taken = 0;  // commands
    // Bytes of system exclusive that arrived for each taken source, and bit s: not all of them are passed on.
    std::array<std::uint32_t, kTakenSources> arrived{};
    std::array<std::uint64_t, kTakenSources / 64> unpassed{};
};

void Engine::State::CarryOut(const Command& command, std::uint64_t now) {
    switch (command.kind) {
        case Command::Kind::Ways:
            sources.SetWays(command.ways, now);
            break;
        case Command::Kind::Way:
            sources.SetWay(command.source, command.way, now);
            break;
        case Command::Kind::TestBytes:
            sources.EndRunningStatus(command.source);
            sources.Write(command.source, now,
                          std::span<const std::uint8_t>(command.bytes).first(command.length));
            break;
        case Command::Kind::Quantization:
            sources.SetQuantum(std::min(command.sendGranularity, kMaxSendGranularity) *
                               kNanosecondsPerGranularity);
            break;
        case Command::Kind::WriterGone:
            sources.EndStream(command.source, now);
            break;
        case Command::Kind::ReleaseAll:
            sources.EndAllStreams(now);
            break;
        case Command::Kind::Panic:
            sources.Silence(command.inputs, now);
            break;
    }
}

void Engine::State::Hear(const Arrival& arrival, std::uint64_t time, std::span<const std::uint8_t> bytes) {
    switch (arrival.kind) {
        case Arrival::Kind::Message:
            sources.WriteMessage(arrival.source, time, bytes);
            break;
        case Arrival::Kind::Exclusive: {
            sources.WriteExclusive(arrival.source, time, bytes);
            const auto index = static_cast<std::size_t>(arrival.source - kTakenSourceBase);
            arrived[index] += static_cast<std::uint32_t>(bytes.size());
            unpassed[index / 64] |= std::uint64_t{1} << index % 64;
            break;
        }
        case Arrival::Kind::Way:
            sources.SetWay(arrival.source, arrival.way, time);
            break;
        case Arrival::Kind::GiveBack:
            sources.GiveBack(arrival.source, time);
            break;
    }
}

void Engine::State::TellPassedOn() {
    for (std::size_t word = 0; word < unpassed.size(); ++word) {
        for (std::uint64_t left = unpassed[word]; left != 0; left &= left - 1) {
            const std::size_t index = word * 64 + static_cast<std::size_t>(std::countr_zero(left));
            const std::size_t queued = sources.QueuedExclusive(kTakenSourceBase + static_cast<int>(index));
            passedOn[index].store(arrived[index] - static_cast<std::uint32_t>(queued),
                                  std::memory_order_release);
            if (queued == 0) {
                unpassed[word] &= ~(std::uint64_t{1} << index % 64);
            }
        }
    }
}

Engine::Engine(std::size_t queueBytes) : state(std::make_unique<State>(queueBytes)) {}

Engine::~Engine() = default;

void Engine::SetRemoteSink(EngineSink* sink) {
    state->remoteSink = sink != nullptr ? sink : &state->silence;
}

void Engine::SetSuspicionWaker(EngineWaker* waker) {
    state->suspicionWaker = waker;
}

void Engine::SetTrafficWaker(EngineWaker* waker) {
    state->trafficWaker = waker;
}

void Engine::AwaitTraffic() {
    state->trafficAwaited.store(true);
}

bool Engine::PostWays(const WayTable& outputs) {
    Command command;
    command.kind = Command::Kind::Ways;
    command.ways = outputs;
    return state->Post(command);
}

bool Engine::PostWay(int source, const Way& way) {
    Command command;
    command.kind = Command::Kind::Way;
    command.source = source;
    command.way = way;
    return state->Post(command);
}

bool Engine::PostTestBytes(int port, std::span<const std::uint8_t> bytes) {
    if (bytes.size() > kLongestTestBytes) {
        return false;
    }
    Command command;
    command.kind = Command::Kind::TestBytes;
    command.source = kTestSourceBase + port;
    command.length = bytes.size();
    std::copy(bytes.begin(), bytes.end(), command.bytes.begin());
    return state->Post(command);
}

bool Engine::PostQuantization(std::uint32_t sendGranularity) {
    Command command;
    command.kind = Command::Kind::Quantization;
    command.sendGranularity = sendGranularity;
    return state->Post(command);
}

bool Engine::PostWriterGone(int port) {
    Command command;
    command.kind = Command::Kind::WriterGone;
    command.source = port;
    return state->Post(command);
}

bool Engine::PostReleaseAll() {
    Command command;
    command.kind = Command::Kind::ReleaseAll;
    return state->Post(command);
}

bool Engine::PostPanic(std::uint64_t inputs) {
    Command command;
    command.kind = Command::Kind::Panic;
    command.inputs = inputs;
    return state->Post(command);
}

void Engine::SetWaker(EngineWaker* waker) {
    state->SetWaker(waker);
}

std::uint64_t Engine::Posted() const {
    return state->posted.Read();
}

std::uint64_t Engine::Done() const {
    return state->done.load(std::memory_order_acquire);
}

SourceCounters Engine::CountersOfSource(int source) const {
    return state->sources.CountersOf(source);
}

InputCounters Engine::CountersOfInput(int port) const {
    return state->sources.CountersOfInput(port);
}

std::uint64_t Engine::SuspectedRate(int source) const {
    return state->sources.SuspectedRate(source);
}

MessageTap& Engine::Tap() {
    return state->tap;
}

std::optional<int> Engine::TakeSource(const Way& way, std::uint64_t time) {
    state->CollectSources();
    if (state->freeSources.empty()) {
        return std::nullopt;
    }
    const int source = state->freeSources.back();
    if (!PostArrival({Arrival::Kind::Way, source, time, way})) {
        return std::nullopt;
    }
    state->freeSources.pop_back();
    return source;
}

bool Engine::PostArrival(const Arrival& arrival, std::span<const std::uint8_t> bytes) {
    if (!state->arrivals.Fits(bytes.size())) {
        return false;
    }
    if (state->arrivals.Put(arrival, bytes)) {
        state->Wake();
    }
    return true;
}

std::uint32_t Engine::ExclusivePassedOn(int source) const {
    return state->passedOn[static_cast<std::size_t>(source - kTakenSourceBase)].load(
        std::memory_order_acquire);
}

std::int64_t Engine::ClockLead() const {
    return state->clockLead.load(std::memory_order_relaxed);
}

void Engine::SetClockLead(std::int64_t nanoseconds) {
    state->clockLead.store(nanoseconds, std::memory_order_relaxed);
}

void Engine::TakeArrivals(std::uint64_t delay) {
    const auto shift = static_cast<std::uint64_t>(ClockLead()) + delay;
    Arrival arrival;
    for (std::span<const std::uint8_t> bytes; state->arrivals.Take(arrival, bytes);) {
        state->Hear(arrival, arrival.time + shift, bytes);
    }
}

void Engine::TakeCommands(std::uint64_t now) {
    while (const Command* command = state->commands.Front()) {
        state->CarryOut(*command, now);
        state->commands.Pop();
        ++state->taken;
    }
    state->EndTurn();
}

void Engine::Write(int source, std::uint64_t time, std::span<const std::uint8_t> bytes) {
    state->sources.Write(source, time, bytes);
}

void Engine::WriteMessage(int source, std::uint64_t time, std::span<const std::uint8_t> message) {
    state->sources.WriteMessage(source, time, message);
}

void Engine::WriteExclusive(int source, std::uint64_t time, std::span<const std::uint8_t> bytes) {
    state->sources.WriteExclusive(source, time, bytes);
}

void Engine::WriterGone(int source, std::uint64_t time) {
    state->sources.EndStream(source, time);
}

void Engine::OneWriterGone(int source, std::uint64_t time) {
    state->sources.OneWriterGone(source, time);
}

void Engine::MessagesLost(int source, std::uint64_t time, std::uint64_t messages) {
    state->sources.MessagesLost(source, time, messages);
}

std::optional<int> Engine::TakeWriter(int port) {
    return state->sources.TakeWriter(port);
}

void Engine::GiveBackWriter(int source, std::uint64_t time) {
    state->sources.GiveBack(source, time);
}

void Engine::Run(std::uint64_t end, EngineSink& sink, TurnLimit* limit) {
    if (state->tap.IsOpen()) {
        TappedSink seen(state->tap, sink);
        state->sources.Run(end, seen, *state->remoteSink, limit);
    } else {
        state->sources.Run(end, sink, *state->remoteSink, limit);
    }
    state->remoteSink->EndTurn();
    state->TellPassedOn();
    state->EndTurn();
}

void Engine::ForgetTimes() {
    state->sources.ForgetTimes();
}

std::optional<std::uint64_t> Engine::NextDue() const {
    return state->sources.NextDue();
}

void Engine::Forget() {
    state->sources.Forget();
    state->EndTurn();
}

}  // namespace vexil
