#include "tests/service/backends/jack/DirectPair.h"

#include <jack/midiport.h>

#include <array>

namespace vexil {

namespace {

constexpr std::uint8_t kPitchBend = 0xE0;

}  // namespace

DirectPair::DirectPair()
    : player(jack_client_open("direct player", JackNoStartServer, nullptr)),
      listener(jack_client_open("direct listener", JackNoStartServer, nullptr)) {
    if (player == nullptr || listener == nullptr) {
        return;  // nothing is seen
    }
    out = jack_port_register(player, "out", JACK_DEFAULT_MIDI_TYPE, JackPortIsOutput, 0);
    in = jack_port_register(listener, "in", JACK_DEFAULT_MIDI_TYPE, JackPortIsInput, 0);
    jack_set_process_callback(player, Play, this);
    jack_set_process_callback(listener, Hear, this);
    jack_activate(player);
    jack_activate(listener);
    jack_connect(player, jack_port_name(out), jack_port_name(in));
}

DirectPair::~DirectPair() {
    for (jack_client_t* client : {player, listener}) {
        if (client != nullptr) {
            jack_client_close(client);
        }
    }
}

int DirectPair::Play(jack_nframes_t frames, void* pair) {
    auto* self = static_cast<DirectPair*>(pair);
    void* buffer = jack_port_get_buffer(self->out, frames);
    jack_midi_clear_buffer(buffer);
    self->played = (self->played + 1) % kNumbers;
    const std::array message{kPitchBend, static_cast<std::uint8_t>(self->played & 0x7F),
                             static_cast<std::uint8_t>(self->played >> 7)};
    return jack_midi_event_write(buffer, 0, message.data(), message.size());
}

int DirectPair::Hear(jack_nframes_t frames, void* pair) {
    auto* self = static_cast<DirectPair*>(pair);
    void* buffer = jack_port_get_buffer(self->in, frames);
    if (!self->watches) {
        self->heard.reset();
        return 0;
    }
    jack_midi_event_t event{};
    const bool isThere = jack_midi_event_get(&event, buffer, 0) == 0 && event.size == 3;
    if (!isThere) {
        faults += self->heard ? 1 : 0;  // before the first there is no connection yet
        return 0;
    }
    const unsigned number = event.buffer[1] | static_cast<unsigned>(event.buffer[2]) << 7;
    if (self->heard && number != (*self->heard + 1) % kNumbers) {
        ++faults;
    }
    self->heard = number;
    return 0;
}

}  // namespace vexil
