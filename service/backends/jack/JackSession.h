// The service as one client of a JACK server, from its opening to its closing: registers, renames and
// withdraws its ports, and connects them again to what they were connected to. JACK's process thread is the
// engine thread while it is active.
//
// Each operation waits for JACK as long as JACK takes, without limit. One thread, that of JackControlThread;
// JACK's own threads only raise flags.
#pragma once

#include <jack/jack.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "service/backends/ConnectionMemory.h"
#include "service/backends/Endpoint.h"
#include "service/backends/jack/JackProcess.h"
#include "service/backends/jack/JackPulse.h"
#include "service/backends/jack/NotificationGate.h"

namespace vexil {

class JackSession {
  public:
    using Clock = std::chrono::steady_clock;

    // What it works with; all must outlive it.
    struct Parts {
        Engine& engine;
        int wake;  // an eventfd, raised when Continue has something to do
        JackPulse& pulse;
        ConnectionMemory& memory;
        std::uint64_t& unreleased;  // bit p: the first readers of input p are to be told to end what sounds
    };

    // A client that does not take part in cycles yet. Null, with a sentence in `problem`, when there is no
    // server or it does not take one.
    static std::unique_ptr<JackSession> Open(const Parts& parts, std::string& problem);
    // Ends and joins JACK's threads of this client, also when the server has gone.
    ~JackSession();
    JackSession(const JackSession&) = delete;
    JackSession& operator=(const JackSession&) = delete;

    // Takes part in cycles: the process thread drives the engine from now on. False when JACK does not let
    // it.
    bool Activate();
    bool IsActive() const { return isActive; }
    // The server has gone; only the destructor is of use now.
    bool HasGone() const { return serverHasGone; }

    // Replaces the set of endpoints, as MidiBackend::Publish.
    void Publish(const std::vector<Endpoint>& endpoints);
    // When to call Continue, in milliseconds from now; -1: when `wake` is raised.
    int Timeout() const;
    // Goes on with what Publish has begun.
    void Continue();
    // Everything that Publish asked for has been done or refused.
    bool IsSettled() const { return leaving.empty(); }
    // Until what was delivered has been read, 500 ms at most.
    void WaitUntilRead() const;

    // One for each endpoint that is shown, in the order of Publish.
    std::vector<PublishedEndpoint> Published() const;
    std::string RealtimeProblem() const;
    // Messages that JACK had no room for, since the last call.
    std::uint64_t TakeLost() { return process->TakeLost(); }

  private:
    // One side of one port of the service.
    struct Side {
        jack_port_t* port = nullptr;  // JACK's; null: not registered
        std::string name;             // by which JACK knows it, without the client's
        std::string formerName;       // by which saved sessions may know it, with the client's
        std::string problem;          // why there is no port, although it is wanted
        int connections = 0;          // when last looked at
        std::string describedAs{};    // the title in its properties
    };
    // What a port that is to go is waited for: one that another follows until that one's connections carry;
    // an input until its readers have heard all, then until it is empty; either then until the process thread
    // does not use it any more.
    enum class Step : std::uint8_t { Followed, Heard, Empty, Unused };
    // A port that is to go. JACK has it until it has taken the last step.
    struct Leaving {
        int port = 0;
        bool output = false;
        jack_port_t* jackPort = nullptr;
        std::string name;
        std::string formerName;
        std::string describedAs;
        jack_port_t* follower = nullptr;  // of the same side; null: the side goes
        Step step = Step::Heard;
        unsigned since = 0;        // JackProcess::Cycles() at its beginning
        unsigned cycles = 0;       // that have to end from then on
        Clock::time_point latest;  // it is waited for no longer
    };
    // What JACK is to have: a side and its name, which is legal and no other's.
    struct Wanted {
        int port;
        bool output;
        std::string name;
        std::string title;       // what the user calls it
        std::string formerName;  // with the client's; empty: none
    };

    JackSession(const Parts& sessionParts, jack_client_t* jackClient);

    Side& SideOf(int port, bool output) { return sides[output ? 1 : 0][static_cast<std::size_t>(port)]; }
    const Side& SideOf(int port, bool output) const {
        return sides[output ? 1 : 0][static_cast<std::size_t>(port)];
    }

    void MakeVisible();
    bool IsVisible(int port, bool output) const;
    void TakeUpEndpoints();
    void BringBack();
    void Withdraw();
    unsigned CyclesUntilReleased() const;
    void Begin(Step step, Leaving& side) const;
    bool MayGoOn(const Leaving& side) const;
    void Unregister(const Leaving& side);
    int UnregisterAtJack(const Leaving& side);
    bool MayUnregister() const;
    std::set<std::string> LeavingNames() const;
    std::set<std::string> NamesInUse() const;
    void Rename();
    bool Rename(Side& side, const std::string& name);
    void Reregister();
    bool Replace(int port, bool output, const std::string& name);
    void Follow(Leaving& before);
    void FollowNow(int port, bool output);
    void Register();
    jack_port_t* Register(const std::string& name, bool output);
    void Describe(const Wanted& one);
    void DescribeAll();
    void SetProperty(jack_port_t* port, const char* key, const std::string& value, const char* type);
    void ForgetProperties(jack_port_t* port);

    void LookAtConnections();
    std::set<std::string> ConnectionsOf(const Side& side) const;
    void Connect(int port, bool output, const std::string& name);
    void SilenceFirstReaders();

    // JACK's threads.
    static void Shutdown(void* session);
    static void ShutdownWithReason(jack_status_t code, const char* reason, void* session);
    static void PortsConnected(jack_port_id_t a, jack_port_id_t b, int connected, void* session);
    static void PortRegistered(jack_port_id_t port, int registered, void* session);
    static void PortRenamed(jack_port_id_t port, const char* before, const char* now, void* session);
    static int GraphOrdered(void* session);
    static int Process(jack_nframes_t frames, void* session);
    void WakeForConnections();

    jack_client_t* client;
    const Parts parts;
    JackPulse& pulse;
    const std::string address;  // that all its ports' names begin with
    std::unique_ptr<JackProcess> process;
    NotificationGate gate;
    std::vector<Endpoint> wanted;
    std::vector<Wanted> visible;
    std::array<std::array<Side, kMaxPorts>, 2> sides;
    std::vector<Leaving> leaving;
    std::optional<Clock::time_point> lookAgain;  // at the connections
    std::map<int, Clock::time_point> silenceAt;  // by input
    const bool isPipeWire;
    bool isActive = false;
    std::atomic<bool> serverHasGone{false};
    std::atomic<bool> connectionsChanged{true};
    std::atomic<unsigned> orders{0};             // of the graph, which JACK has told of
    std::atomic<unsigned> orderedAt{0};          // JackProcess::Cycles() when it told of the last
    unsigned ordersBefore = 0;                   // the last unregistration
    std::optional<Clock::time_point> orderedBy;  // its order is not waited for any longer
    bool isSoon = false;                         // lookAgain is the first of the two looks after a change
    bool takesProperties = true;                 // none of them was refused
    bool takesAliases = true;
};

}  // namespace vexil
