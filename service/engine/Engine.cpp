#include "service/engine/Engine.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <utility>
#include <vector>

#include "config/DriverConfiguration.h"
#include "service/engine/SourceTable.h"
#include "service/engine/SpscQueue.h"

namespace vexil {

namespace {

constexpr std::uint64_t kNanosecondsPerGranularity = 100'000;
constexpr std::size_t kCommands = 256;

struct Command {
    enum class Kind : std::uint8_t { Ways, Way, TestBytes, Quantization, WriterGone, ReleaseAll, GiveBack };

    Kind kind = Kind::Ways;
    int source = 0;
    Way way;
    std::uint32_t sendGranularity = 0;
    WayTable ways{};
    std::size_t length = 0;
    std::array<std::uint8_t, kLongestTestBytes> bytes{};
};

}  // namespace

class Engine::State {
  public:
    explicit State(std::size_t queueBytes) : sources(queueBytes) {
        freeSources.reserve(kTakenSources);
        for (int source = kTakenSourceBase + kTakenSources; source-- > kTakenSourceBase;) {
            freeSources.push_back(source);
        }
    }

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
    void CollectSources() {
        while (const int* source = freedSources.Front()) {
            freeSources.push_back(*source);
            freedSources.Pop();
        }
    }

    // Engine thread.
    void CarryOut(const Command& command, std::uint64_t now);
    void EndTurn() {
        // There is room: no more are taken at a time.
        sources.FreeEnded([this](int source) { freedSources.TryPush(std::move(source)); });
        if (sources.OpenEnds() == 0) {
            done.store(taken, std::memory_order_release);
        }
        if (sources.TakeSuspicionsChanged() && suspicionWaker != nullptr) {
            suspicionWaker->Wake();
        }
    }

    SpscQueue<Command, kCommands> commands;
    SpscQueue<int, kTakenSources> freedSources;
    std::vector<int> freeSources;  // control thread
    EngineWaker* waker = nullptr;  // control thread
    Counter posted;
    std::atomic<std::uint64_t> done{0};

    SourceTable sources;
    SilentSink silence;
    EngineSink* remoteSink = &silence;
    EngineWaker* suspicionWaker = nullptr;
    std::uint64_t taken = 0;  // commands
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
        case Command::Kind::GiveBack:
            sources.GiveBack(command.source, now);
            break;
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

bool Engine::PostWays(const WayTable& outputs) {
    Command command;
    command.kind = Command::Kind::Ways;
    command.ways = outputs;
    return state->Post(std::move(command));
}

bool Engine::PostWay(int source, const Way& way) {
    Command command;
    command.kind = Command::Kind::Way;
    command.source = source;
    command.way = way;
    return state->Post(std::move(command));
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
    command.source = port;
    return state->Post(std::move(command));
}

bool Engine::PostReleaseAll() {
    Command command;
    command.kind = Command::Kind::ReleaseAll;
    return state->Post(std::move(command));
}

std::optional<int> Engine::TakeSource(const Way& way) {
    state->CollectSources();
    if (state->freeSources.empty() || !PostWay(state->freeSources.back(), way)) {
        return std::nullopt;
    }
    const int source = state->freeSources.back();
    state->freeSources.pop_back();
    return source;
}

bool Engine::GiveBackSource(int source) {
    Command command;
    command.kind = Command::Kind::GiveBack;
    command.source = source;
    return state->Post(std::move(command));
}

void Engine::SetWaker(EngineWaker* waker) {
    state->waker = waker;
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
    state->sources.Run(end, sink, *state->remoteSink, limit);
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
