// A music program on the ALSA sequencer. No thread of its own: what it writes leaves in Pump, as fast as
// the reader takes it.
#pragma once

#include <alsa/asoundlib.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <deque>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "service/backends/alsa/AlsaCodec.h"
#include "service/backends/alsa/AlsaRoom.h"
#include "tests/doubles/MidiProgram.h"

namespace vexil {

class AlsaProgram : public MidiProgram {
  public:
    explicit AlsaProgram(const char* name = "program") {
        if (snd_seq_open(&sequencer, "hw", SND_SEQ_OPEN_DUPLEX, SND_SEQ_NONBLOCK) < 0) {
            throw std::runtime_error("no sequencer");
        }
        snd_seq_set_client_name(sequencer, name);
        writePort =
            snd_seq_create_simple_port(sequencer, "out", SND_SEQ_PORT_CAP_READ | SND_SEQ_PORT_CAP_SUBS_READ,
                                       SND_SEQ_PORT_TYPE_MIDI_GENERIC);
        readPort =
            snd_seq_create_simple_port(sequencer, "in", SND_SEQ_PORT_CAP_WRITE | SND_SEQ_PORT_CAP_SUBS_WRITE,
                                       SND_SEQ_PORT_TYPE_MIDI_GENERIC);
    }
    ~AlsaProgram() override { snd_seq_close(sequencer); }
    AlsaProgram(const AlsaProgram&) = delete;
    AlsaProgram& operator=(const AlsaProgram&) = delete;

    std::vector<std::string> Listed(bool outputs) override {
        constexpr unsigned kWritable = SND_SEQ_PORT_CAP_WRITE | SND_SEQ_PORT_CAP_SUBS_WRITE;
        constexpr unsigned kReadable = SND_SEQ_PORT_CAP_READ | SND_SEQ_PORT_CAP_SUBS_READ;
        const unsigned wanted = outputs ? kWritable : kReadable;
        std::vector<std::string> listed;
        snd_seq_client_info_t* client = nullptr;
        snd_seq_client_info_alloca(&client);
        snd_seq_port_info_t* port = nullptr;
        snd_seq_port_info_alloca(&port);
        snd_seq_client_info_set_client(client, -1);
        while (snd_seq_query_next_client(sequencer, client) >= 0) {
            if (snd_seq_client_info_get_name(client) != std::string("Vexil III")) {
                continue;
            }
            const int id = snd_seq_client_info_get_client(client);
            snd_seq_port_info_set_client(port, id);
            snd_seq_port_info_set_port(port, -1);
            while (snd_seq_query_next_port(sequencer, port) >= 0) {
                if ((snd_seq_port_info_get_capability(port) & wanted) == wanted) {
                    listed.push_back(std::to_string(id) + ":" +
                                     std::to_string(snd_seq_port_info_get_port(port)) + " " +
                                     snd_seq_port_info_get_name(port));
                }
            }
        }
        return listed;
    }
    bool WriteTo(const std::string& address) override {
        const snd_seq_addr_t other = Parse(address);
        service = other.client;
        return Connect({Id(), static_cast<unsigned char>(writePort)}, other);
    }
    // Connects two ports of others, as a patchbay does.
    bool Connect(const std::string& sender, const std::string& receiver) {
        return Connect(Parse(sender), Parse(receiver));
    }
    bool ReadFrom(const std::string& address) override {
        return Connect(Parse(address), {Id(), static_cast<unsigned char>(readPort)});
    }
    void Disconnect() override {
        for (const auto& [sender, receiver] : connections) {
            snd_seq_port_subscribe_t* subscription = Subscription(sender, receiver);
            snd_seq_unsubscribe_port(sequencer, subscription);
            snd_seq_port_subscribe_free(subscription);
        }
        connections.clear();
    }
    void Write(const Bytes& bytes) override { WriteTo(bytes, ""); }
    // Leaves with the next Pump.
    void Queue(const Bytes& bytes) { written.emplace_back(bytes, ""); }
    // To one endpoint, without a connection.
    void WriteTo(const Bytes& bytes, const std::string& address) {
        if (!address.empty()) {
            service = Parse(address).client;
        }
        written.emplace_back(bytes, address);
        Pump();
    }
    Bytes Read() override {
        Pump();
        snd_seq_event_t* event = nullptr;
        while (snd_seq_event_input(sequencer, &event) >= 0) {
            if (event->dest.port == readPort) {
                const AlsaBytes bytes = codec.Decode(*event);
                heard.insert(heard.end(), bytes.bytes.begin(), bytes.bytes.end());
            }
        }
        return std::exchange(heard, {});
    }

    // Sends what the service has room for.
    void Pump() {
        constexpr std::size_t kReserve = 32;
        while (!written.empty()) {
            const std::optional<AlsaRoom> room = AskAlsaRoom(Descriptor(), service);
            if (room && room->free < written.front().first.size() / kAlsaCellBytes + kReserve) {
                return;
            }
            Send(written.front().first, written.front().second);
            written.pop_front();
        }
    }
    // Sends at once, whether there is room or not; to who is connected, or to one port.
    void Send(const Bytes& bytes, const std::string& address = "") {
        snd_seq_event_t event;
        ASSERT_TRUE(codec.Encode(bytes, event));
        SendEvent(event, address);
    }
    void SendEvent(snd_seq_event_t& event, const std::string& address = "") {
        ASSERT_GE(TrySendEvent(event, address), 0);
    }
    // As the kernel answers.
    int TrySendEvent(snd_seq_event_t& event, const std::string& address = "") {
        snd_seq_ev_set_source(&event, static_cast<unsigned char>(writePort));
        snd_seq_ev_set_subs(&event);
        if (!address.empty()) {
            event.dest = Parse(address);
        }
        snd_seq_ev_set_direct(&event);
        return snd_seq_event_output_direct(sequencer, &event);
    }
    // The port that writes goes; the program and its other port stay.
    void DeleteWritePort() { snd_seq_delete_port(sequencer, writePort); }
    // Sends many at once, whether there is room or not.
    void Buffer(const Bytes& bytes) {
        snd_seq_event_t event;
        ASSERT_TRUE(codec.Encode(bytes, event));
        snd_seq_ev_set_source(&event, static_cast<unsigned char>(writePort));
        snd_seq_ev_set_subs(&event);
        snd_seq_ev_set_direct(&event);
        if (snd_seq_event_output_buffer(sequencer, &event) == -EAGAIN) {
            FlushBuffer();
            snd_seq_event_output_buffer(sequencer, &event);
        }
    }
    void FlushBuffer() {
        while (snd_seq_drain_output(sequencer) == -EAGAIN) {
            snd_seq_extract_output(sequencer, nullptr);
        }
    }
    // Makes what can be sent to it without being read smaller or larger; in cells.
    void SetReadPool(std::size_t cells) { snd_seq_set_client_pool_input(sequencer, cells); }

    snd_seq_t* Handle() { return sequencer; }
    unsigned char Id() { return static_cast<unsigned char>(snd_seq_client_id(sequencer)); }

  private:
    static snd_seq_addr_t Parse(const std::string& address) {
        unsigned client = 255;
        unsigned port = 255;
        if (std::sscanf(address.c_str(), "%u:%u", &client, &port) != 2) {
            ADD_FAILURE() << "no address: " << address;
        }
        return {static_cast<unsigned char>(client), static_cast<unsigned char>(port)};
    }
    static snd_seq_port_subscribe_t* Subscription(const snd_seq_addr_t& sender,
                                                  const snd_seq_addr_t& receiver) {
        snd_seq_port_subscribe_t* subscription = nullptr;
        snd_seq_port_subscribe_malloc(&subscription);
        snd_seq_port_subscribe_set_sender(subscription, &sender);
        snd_seq_port_subscribe_set_dest(subscription, &receiver);
        return subscription;
    }
    bool Connect(const snd_seq_addr_t& sender, const snd_seq_addr_t& receiver) {
        snd_seq_port_subscribe_t* subscription = Subscription(sender, receiver);
        const int result = snd_seq_subscribe_port(sequencer, subscription);
        snd_seq_port_subscribe_free(subscription);
        if (result >= 0) {
            connections.emplace_back(sender, receiver);
        }
        return result >= 0;
    }
    int Descriptor() {
        pollfd descriptor{};
        snd_seq_poll_descriptors(sequencer, &descriptor, 1, POLLIN);
        return descriptor.fd;
    }

    snd_seq_t* sequencer = nullptr;
    int writePort = 0;
    int readPort = 0;
    int service = 255;
    AlsaCodec codec;
    std::deque<std::pair<Bytes, std::string>> written;  // and where to
    Bytes heard;
    std::vector<std::pair<snd_seq_addr_t, snd_seq_addr_t>> connections;
};

}  // namespace vexil
