#include "tests/service/JackProgram.h"

#include <gtest/gtest.h>
#include <jack/midiport.h>

#include <cerrno>
#include <utility>

namespace vexil {

JackProgram::JackProgram() {
    jack_status_t status{};
    client = jack_client_open("program", JackNoStartServer, &status);
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
    const char** ports = jack_get_ports(client, "^vexil3:", JACK_DEFAULT_MIDI_TYPE,
                                        outputs ? JackPortIsInput : JackPortIsOutput);
    for (const char** port = ports; port != nullptr && *port != nullptr; ++port) {
        listed.emplace_back(*port);
    }
    jack_free(ports);
    return listed;
}

bool JackProgram::WriteTo(const std::string& address) {
    const int result = jack_connect(client, jack_port_name(out), address.c_str());
    return result == 0 || result == EEXIST;
}

bool JackProgram::ReadFrom(const std::string& address) {
    const int result = jack_connect(client, address.c_str(), jack_port_name(in));
    return result == 0 || result == EEXIST;
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

int JackProgram::Process(jack_nframes_t frames, void* program) {
    auto* self = static_cast<JackProgram*>(program);
    // Held for moments only, and a late cycle of a test's program harms nobody.
    const std::lock_guard lock(self->mutex);
    self->WriteCycle(frames);
    self->ReadCycle(frames);
    return 0;
}

void JackProgram::WriteCycle(jack_nframes_t frames) {
    void* buffer = jack_port_get_buffer(out, frames);
    jack_midi_clear_buffer(buffer);
    // What nobody is connected to hear waits until somebody is.
    while (!toWrite.empty() && jack_port_connected(out) != 0 &&
           toWrite.front().size() <= jack_midi_max_event_size(buffer) &&
           jack_midi_event_write(buffer, 0, toWrite.front().data(), toWrite.front().size()) == 0) {
        toWrite.pop_front();
    }
}

void JackProgram::ReadCycle(jack_nframes_t frames) {
    void* buffer = jack_port_get_buffer(in, frames);
    const std::uint32_t count = jack_midi_get_event_count(buffer);
    for (std::uint32_t i = 0; i < count; ++i) {
        jack_midi_event_t event{};
        if (jack_midi_event_get(&event, buffer, i) == 0) {
            heard.insert(heard.end(), event.buffer, event.buffer + event.size);
        }
    }
}

}  // namespace vexil
