// The engine's thread on the ALSA sequencer: sleeps until a program writes, something is posted to the engine
// or something is due; then lets the engine run and sends what it delivers.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

#include "service/backends/alsa/AlsaClient.h"
#include "service/backends/alsa/AlsaCodec.h"
#include "service/backends/alsa/AlsaDelivery.h"
#include "service/backends/alsa/AlsaWriters.h"
#include "service/backends/alsa/WorkLimit.h"
#include "service/engine/Engine.h"

namespace vexil {

class AlsaThread final : private EngineWaker {
  public:
    // Begins. Both must outlive this object; its owner is the engine's control thread. `changed` is a
    // descriptor of an event counter that is raised when the sequencer fails and the thread ends by itself,
    // and when Lateness, Overflows or connections have changed.
    AlsaThread(Engine& engine, AlsaClient& client, int changed);
    // Ends; what the engine has delivered is sent.
    ~AlsaThread() override;
    AlsaThread(const AlsaThread&) = delete;
    AlsaThread& operator=(const AlsaThread&) = delete;

    // Why it ended by itself, as a negative errno value; 0 while it runs.
    int Failure() const { return failure.load(std::memory_order_acquire); }
    // Why the thread has no realtime priority; empty when it has.
    const std::string& RealtimeProblem() const { return realtimeProblem; }
    // Waits until what the engine has delivered by now is sent: while a cycle is under way, and at most 1 s,
    // for a thread without realtime priority may be kept from its processor for a while.
    void WaitForCycle() const;
    // All readers of an input are to end what they may have been left with.
    void Silence(int port);
    // Whether connections or programs may have changed since the last call.
    bool TakeConnectionsChanged() { return connectionsChanged.exchange(false); }
    // How often more was sent than there was room for.
    std::uint64_t Overflows() const { return overflows.Read(); }
    // Which programs read too slowly, by client.
    const AlsaLateness& Lateness() const { return delivery.Lateness(); }

  private:
    void Wake() override;

    void Main();
    void Cycle();
    void TakeEvents();
    void TakeEvent(const snd_seq_event_t& event, std::uint64_t now);
    void TakeNotice(const snd_seq_event_t& event, std::uint64_t now);
    void PortGone(int number, std::uint64_t now);
    std::int64_t NextTimeout();
    void Wait();
    void Poll(std::int64_t timeout);
    void Read();
    void GiveUp(int error);
    void RaiseChanged() const;
    void NoteConnections();

    Engine& engine;
    AlsaClient& client;
    const int changedEvent;
    AlsaCodec codec;
    AlsaWriters writers;
    AlsaDelivery delivery;
    WorkLimit limit;
    bool lostEvents = false;        // before those that were read
    std::uint64_t cycleTime = 0;    // of this cycle
    std::uint64_t takenUntil = 0;   // time of the last event that this cycle took, or cycleTime
    std::uint64_t waitForRoom = 0;  // nanoseconds of the last such wait
    std::atomic<bool> ending{false};
    // A wake counts from the beginning of the cycle that sees it.
    std::atomic<std::uint32_t> wakes{0};
    std::uint32_t seenWakes = 0;
    std::atomic<bool> isWaiting{false};
    Counter overflows;
    std::atomic<bool> connectionsChanged{false};
    std::atomic<int> failure{0};
    std::atomic<std::uint64_t> cycles{0};  // odd: one is under way
    std::string realtimeProblem;
    std::thread thread;  // last: it uses the others
};

}  // namespace vexil
