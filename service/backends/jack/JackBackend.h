// The endpoints as MIDI ports of one JACK client, on a JACK server or on PipeWire through its own libjack.
// JACK's process thread is the engine thread. A server that is not there, goes, or comes back is waited for.
#pragma once

#include <jack/jack.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "service/backends/MidiBackend.h"
#include "service/backends/jack/JackProcess.h"
#include "service/backends/jack/JackServerWatch.h"
#include "shared/System/Descriptor.h"

namespace vexil {

inline constexpr const char* kJackClientName = "vexil3";

class JackBackend final : public MidiBackend {
  public:
    explicit JackBackend(std::vector<JackServerWatch::Place> serverPlaces = JackServerWatch::UsualPlaces());
    ~JackBackend() override;
    JackBackend(const JackBackend&) = delete;
    JackBackend& operator=(const JackBackend&) = delete;

    const char* Name() const override { return "jack"; }
    void Start(Engine& served) override;
    void Stop() override;
    bool IsRunning() const override { return client != nullptr; }
    std::string Problem() const override;
    bool CanHide() const override { return false; }
    void Publish(const std::vector<Endpoint>& endpoints) override;
    std::vector<PublishedEndpoint> Published() const override;
    int EventDescriptor() const override { return events.Number(); }
    int EventTimeout() const override;
    void HandleEvents() override;
    std::string RealtimeProblem() const override;

  private:
    // One side of one port of the service.
    struct Side {
        jack_port_t* port = nullptr;  // JACK's; null: there is none
        std::string problem;          // why not, although it is wanted and JACK is there
    };
    // What a side that is to go is waited for: an input until its readers have heard all, then until it is
    // empty; either then until the process thread does not use it any more.
    enum class Step : std::uint8_t { Heard, Empty, Unused };
    // A side that is to go. JACK has it until it has taken the last step.
    struct Leaving {
        int port = 0;
        bool output = false;
        jack_port_t* jackPort = nullptr;
        Step step = Step::Heard;
        unsigned since = 0;                            // JackProcess::Cycles() at its beginning
        unsigned cycles = 0;                           // that have to end from then on
        std::chrono::steady_clock::time_point latest;  // it is waited for no longer
    };
    // What JACK is to have: a side and its name, which is legal and no other's.
    struct Wanted {
        int port;
        bool output;
        std::string name;
    };

    Side& SideOf(int port, bool output) { return sides[output ? 1 : 0][static_cast<std::size_t>(port)]; }
    const Side& SideOf(int port, bool output) const {
        return sides[output ? 1 : 0][static_cast<std::size_t>(port)];
    }

    void TryToOpen();
    void CloseClient();
    void WaitUntilRead() const;
    void TakeUpLoss();
    std::vector<Wanted> Visible() const;
    static bool IsAmong(const std::vector<Wanted>& visible, int port, bool output);
    void TakeUpEndpoints();
    void BringBack(const std::vector<Wanted>& visible);
    void Withdraw(const std::vector<Wanted>& visible);
    unsigned CyclesUntilReleased() const;
    void Begin(Step step, Leaving& side) const;
    void LetGo();
    bool MayGoOn(const Leaving& side) const;
    std::set<std::string> LeavingNames() const;
    std::set<std::string> NamesInUse() const;
    void Rename(const std::vector<Wanted>& visible);
    void Register(const std::vector<Wanted>& visible);

    // JACK's threads.
    static void Shutdown(void* backend);
    static void ShutdownWithReason(jack_status_t code, const char* reason, void* backend);
    static void PortsConnected(jack_port_id_t a, jack_port_id_t b, int connected, void* backend);
    static int Process(jack_nframes_t frames, void* backend);

    JackServerWatch watch;
    const Descriptor wake;    // raised when the server has gone or messages were lost
    const Descriptor events;  // readable when `wake` or the watch is
    std::atomic<bool> serverHasGone{false};

    Engine* engine = nullptr;              // null: not started, or stopped
    jack_client_t* client = nullptr;       // null: not running
    std::unique_ptr<JackProcess> process;  // as long as there is a client
    std::string problem = "JACK is being started.";
    std::vector<Endpoint> wanted;
    std::array<std::array<Side, kMaxPorts>, 2> sides;
    std::vector<Leaving> leaving;
};

}  // namespace vexil
