#include "tests/service/backends/jack/JackProgram.h"

#include <gtest/gtest.h>
#include <jack/midiport.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <limits>
#include <thread>
#include <utility>

#include "tests/service/backends/jack/JackTestServer.h"

namespace vexil {

namespace {

// PipeWire gives one name to several clients that ask for it.
std::string UnusedName() {
    static std::atomic<int> programs{0};
    return "program-" + std::to_string(::getpid()) + "-" + std::to_string(++programs);
}

}  // namespace

JackProgram::JackProgram() {
    jack_status_t status{};
    // PipeWire's library, and JACK's on a busy computer, now and then open none while another thread of the
    // process asks for something.
    constexpr int kAttempts = 5;
    for (int attempt = 0; client == nullptr && attempt < kAttempts; ++attempt) {
        client = jack_client_open(UnusedName().c_str(), JackNoStartServer, &status);
    }
    if (client == nullptr) {
        ADD_FAILURE() << "no client can be opened: status " << status;
        return;
    }
    out = jack_port_register(client, "out", JACK_DEFAULT_MIDI_TYPE, JackPortIsOutput, 0);
    in = jack_port_register(client, "in", JACK_DEFAULT_MIDI_TYPE, JackPortIsInput, 0);
    jack_set_process_callback(client, Process, this);
    EXPECT_EQ(jack_activate(client), 0);
}

JackProgram::~JackProgram() {
    if (client != nullptr) {
        jack_client_close(client);
    }
}

std::vector<std::string> JackProgram::Listed(bool outputs) {
    std::vector<std::string> listed;
    const char** ports = jack_get_ports(client, "^Vexil III:", JACK_DEFAULT_MIDI_TYPE,
                                        outputs ? JackPortIsInput : JackPortIsOutput);
    for (const char** port = ports; port != nullptr && *port != nullptr; ++port) {
        listed.emplace_back(*port);
    }
    jack_free(ports);
    return listed;
}

bool JackProgram::WriteTo(const std::string& address) {
    return ConnectByName(jack_port_name(out), address.c_str());
}

bool JackProgram::ReadFrom(const std::string& address) {
    return ConnectByName(address.c_str(), jack_port_name(in));
}

bool JackProgram::ConnectByName(const char* source, const char* destination) {
    // A busy server may not answer in time, and may by then have made the connection.
    constexpr int kAttempts = 5;
    int result = -1;
    for (int attempt = 0; result != 0 && result != EEXIST && attempt < kAttempts; ++attempt) {
        result = jack_connect(client, source, destination);
    }
    if (IsPipeWire()) {
        // It makes a connection in its own time and loses what is written before; nothing tells when it is
        // there.
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
    } else if (result == 0) {
        WaitUntilConnected();
    }
    return result == 0 || result == EEXIST;
}

// Where programs have no realtime priority, JACK now and then loses what is written in the first cycle after
// a connection.
void JackProgram::WaitUntilConnected() const {
    constexpr unsigned kCycles = 4;
    const unsigned start = cycles;
    const auto latest = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    while (cycles - start < kCycles && std::chrono::steady_clock::now() < latest) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

void JackProgram::Disconnect() {
    jack_port_disconnect(client, out);
    jack_port_disconnect(client, in);
}

void JackProgram::Write(const Bytes& bytes) {
    const std::lock_guard lock(mutex);
    toWrite.push_back(bytes);
}

MidiProgram::Bytes JackProgram::Read() {
    const std::lock_guard lock(mutex);
    return std::exchange(heard, {});
}

void JackProgram::WriteAtMostInACycle(std::size_t messages) {
    const std::lock_guard lock(mutex);
    mostInACycle = messages;
}

void JackProgram::BeLateWhenHeard(std::chrono::milliseconds time) {
    const std::lock_guard lock(mutex);
    late = time;
}

int JackProgram::Process(jack_nframes_t frames, void* program) {
    auto* self = static_cast<JackProgram*>(program);
    ++self->cycles;
    // A late cycle of a test's program harms nobody.
    const std::lock_guard lock(self->mutex);
    self->WriteCycle(frames);
    self->ReadCycle(frames);
    return 0;
}

void JackProgram::WriteCycle(jack_nframes_t frames) {
    void* buffer = jack_port_get_buffer(out, frames);
    jack_midi_clear_buffer(buffer);
    // PipeWire takes more than it carries.
    std::size_t left = IsPipeWire() ? 30000 : std::numeric_limits<std::size_t>::max();
    const auto takesNext = [&] {
        const std::size_t packed = toWrite.front().size() + 24;
        const bool takes = packed <= left;
        left -= takes ? packed : 0;
        return takes;
    };
    const auto takesNextNow = [&] {
        const Bytes& next = toWrite.front();
        return takesNext() && next.size() <= jack_midi_max_event_size(buffer) &&
               jack_midi_event_write(buffer, 0, next.data(), next.size()) == 0;
    };
    // What nobody is connected to hear waits until somebody is.
    for (std::size_t written = 0;
         written < mostInACycle && !toWrite.empty() && jack_port_connected(out) != 0 && takesNextNow();
         ++written) {
        toWrite.pop_front();
    }
}

void JackProgram::ReadCycle(jack_nframes_t frames) {
    void* buffer = jack_port_get_buffer(in, frames);
    if (late.count() != 0 && jack_midi_get_event_count(buffer) != 0) {
        std::this_thread::sleep_for(std::exchange(late, {}));
        buffer = jack_port_get_buffer(in, frames);
    }
    const std::uint32_t count = jack_midi_get_event_count(buffer);
    for (std::uint32_t i = 0; i < count; ++i) {
        jack_midi_event_t event{};
        if (jack_midi_event_get(&event, buffer, i) == 0) {
            heard.insert(heard.end(), event.buffer, event.buffer + event.size);
        }
    }
}

}  // namespace vexil
