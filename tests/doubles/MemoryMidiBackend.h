// A MIDI system in memory that a test drives cycle by cycle, and programs on it. No thread of its own: the
// test's thread is the control thread, and during Cycle the engine thread.
#pragma once

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <deque>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "service/backends/EndpointNames.h"
#include "service/backends/MidiBackend.h"
#include "shared/System/Descriptor.h"
#include "tests/doubles/MidiProgram.h"

namespace vexil {

class MemoryMidiBackend : public MidiBackend {
  public:
    class Program;

    static constexpr std::uint64_t kCycle = 1'000'000;  // nanoseconds

    MemoryMidiBackend() : event(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
    ~MemoryMidiBackend() override { Stop(); }
    MemoryMidiBackend(const MemoryMidiBackend&) = delete;
    MemoryMidiBackend& operator=(const MemoryMidiBackend&) = delete;

    // What the test sets.

    // One cycle: programs write, the engine runs, programs hear. Nothing happens while not running.
    void Cycle() {
        if (!running) {
            return;
        }
        engine->TakeCommands(now);
        for (Node& node : nodes) {
            while (node.endpoint.output && !node.written.empty()) {
                engine->Write(node.endpoint.port, now, node.written.front());
                node.written.pop_front();
            }
            if (std::exchange(node.writerGone, false)) {
                engine->WriterGone(node.endpoint.port, now);
            }
            node.room = roomOfCycle;
        }
        now += kCycle;
        Sink sink(*this);
        engine->Run(now, sink);
    }
    // The system goes, with every connection, or comes back; the back end sees it in HandleEvents.
    void LoseSystem() { SetSystem(false); }
    void ReturnSystem() { SetSystem(true); }
    std::unique_ptr<MidiProgram> NewProgram();

    std::uint64_t now = 1'000'000'000;  // nanoseconds; the time of the next cycle
    std::size_t roomOfCycle = 32768;    // bytes that each input takes in one cycle
    std::string realtimeProblem;
    bool canHide = true;  // set before Start
    // How often each was called.
    int starts = 0;
    int stops = 0;
    int publishes = 0;

    // The seam.

    const char* Name() const override { return "memory"; }
    void Start(Engine& served) override {
        ++starts;
        engine = &served;
        TakeUp();
    }
    void Stop() override {
        stops += engine != nullptr ? 1 : 0;
        engine = nullptr;
        running = false;
        nodes.clear();
    }
    bool IsStuck() const override { return false; }
    bool IsRunning() const override { return running; }
    std::string Problem() const override {
        return running ? "" : engine == nullptr ? "It is not started." : "The MIDI system in memory is away.";
    }
    bool CanHide() const override { return canHide; }
    void Publish(const std::vector<Endpoint>& endpoints) override {
        ++publishes;
        wanted = endpoints;
        TakeUp();
    }
    std::vector<PublishedEndpoint> Published() const override {
        std::vector<PublishedEndpoint> published;
        for (const Endpoint& endpoint : wanted) {
            const Node* node = Find(endpoint.port, endpoint.output);
            published.push_back({endpoint.port, endpoint.output, node != nullptr ? node->address : "",
                                 node != nullptr ? static_cast<int>(node->programs.size()) : 0,
                                 node != nullptr ? ""
                                 : running       ? "It is hidden."
                                                 : Problem()});
        }
        return published;
    }
    int EventDescriptor() const override { return event.Number(); }
    int EventTimeout() const override { return -1; }
    void HandleEvents() override {
        std::uint64_t count = 0;
        [[maybe_unused]] const ssize_t ignored =
            ::read(event.Number(), &count, sizeof count);  // nothing to read is fine
        if (running && !systemIsThere) {
            engine->Forget();
            running = false;
            nodes.clear();
        }
        TakeUp();
    }
    std::string RealtimeProblem() const override { return realtimeProblem; }

  private:
    struct Node {
        Endpoint endpoint{-1, false, "", false};  // of no port: taken over by its successor
        std::string address;
        std::vector<Program*> programs;  // connected
        std::deque<MidiProgram::Bytes> written;
        bool writerGone = false;
        std::size_t room = 0;
    };

    class Sink : public EngineSink {
      public:
        explicit Sink(MemoryMidiBackend& backend) : owner(backend) {}
        std::size_t Room(const Destination& to) const override {
            const Node* node = owner.Find(to.port, false);
            // An input that nobody sees takes everything.
            return node != nullptr ? node->room : std::numeric_limits<std::size_t>::max();
        }
        void Deliver(const Destination& to, std::uint64_t time, std::span<const std::uint8_t> bytes) override;

      private:
        MemoryMidiBackend& owner;
    };

    void SetSystem(bool isThere) {
        systemIsThere = isThere;
        const std::uint64_t one = 1;
        [[maybe_unused]] const ssize_t ignored =
            ::write(event.Number(), &one, sizeof one);  // readable already is fine
    }
    void TakeUp();
    // A program has disconnected from an endpoint.
    static void Part(Node& node, const Program* program) {
        const auto last = std::remove(node.programs.begin(), node.programs.end(), program);
        if (last != node.programs.end()) {
            node.programs.erase(last, node.programs.end());
            node.writerGone = node.endpoint.output && node.programs.empty();
        }
    }
    Node* Find(int port, bool output) {
        const auto found = std::find_if(nodes.begin(), nodes.end(), [&](const Node& node) {
            return node.endpoint.port == port && node.endpoint.output == output;
        });
        return found == nodes.end() ? nullptr : &*found;
    }
    const Node* Find(int port, bool output) const {
        return const_cast<MemoryMidiBackend*>(this)->Find(port, output);
    }

    const Descriptor event;
    Engine* engine = nullptr;
    bool running = false;
    bool systemIsThere = true;
    std::vector<Endpoint> wanted;
    std::vector<Node> nodes;  // endpoints that are there
};

class MemoryMidiBackend::Program : public MidiProgram {
  public:
    // The back end must outlive the program.
    explicit Program(MemoryMidiBackend& backend) : system(backend) {}
    ~Program() override { Program::Disconnect(); }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    std::vector<std::string> Listed(bool outputs) override {
        std::vector<std::string> listed;
        for (const Node& node : system.nodes) {
            if (node.endpoint.output == outputs && !node.endpoint.hidden) {
                listed.push_back(node.address);
            }
        }
        return listed;
    }
    bool WriteTo(const std::string& address) override { return Connect(address, true); }
    bool ReadFrom(const std::string& address) override { return Connect(address, false); }
    void Disconnect() override {
        for (Node& node : system.nodes) {
            Part(node, this);
        }
    }
    void Write(const Bytes& bytes) override {
        for (Node& node : system.nodes) {
            if (node.endpoint.output && std::count(node.programs.begin(), node.programs.end(), this) != 0) {
                node.written.push_back(bytes);
            }
        }
    }
    Bytes Read() override { return std::exchange(heard, {}); }

    Bytes heard;

  private:
    bool Connect(const std::string& address, bool output) {
        for (Node& node : system.nodes) {
            if (node.endpoint.output == output && node.address == address) {
                node.programs.push_back(this);
                return true;
            }
        }
        return false;
    }

    MemoryMidiBackend& system;
};

inline std::unique_ptr<MidiProgram> MemoryMidiBackend::NewProgram() {
    return std::make_unique<Program>(*this);
}

inline void MemoryMidiBackend::Sink::Deliver(const Destination& to, std::uint64_t,
                                             std::span<const std::uint8_t> bytes) {
    Node* node = owner.Find(to.port, false);
    if (node == nullptr) {
        return;
    }
    node->room -= bytes.size();
    for (Program* program : node->programs) {
        program->heard.insert(program->heard.end(), bytes.begin(), bytes.end());
    }
}

// Makes what is there the same as what is wanted, while there is a system.
inline void MemoryMidiBackend::TakeUp() {
    if (engine == nullptr || !systemIsThere) {
        return;
    }
    running = true;
    const std::vector<std::string> names = MakeEndpointNames(wanted, {.longest = 60, .separators = ":"});
    std::vector<Node> next;
    for (std::size_t i = 0; i < wanted.size(); ++i) {
        if (wanted[i].hidden && !canHide) {
            continue;
        }
        Node* there = Find(wanted[i].port, wanted[i].output);
        next.push_back(there != nullptr ? std::exchange(*there, Node{}) : Node{});
        next.back().endpoint = wanted[i];
        next.back().address = "vexil3:" + names[i];
    }
    for (const Node& withdrawn : nodes) {
        if (withdrawn.endpoint.output && !withdrawn.programs.empty()) {
            engine->WriterGone(withdrawn.endpoint.port, now);
        }
    }
    nodes = std::move(next);
}

}  // namespace vexil
