#include "tests/system/music/MusicClient.h"

#include <jack/midiport.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>

namespace vexil {

namespace {

// What a late program plays at once at the most, in messages.
constexpr double kMostDue = 400;
// JACK carries nothing over a connection before the next cycle in time, which on a busy computer is many
// cycles later.
constexpr std::chrono::seconds kLongestConnecting{10};
constexpr std::chrono::milliseconds kLook{1};

std::uint64_t Now() {
    return static_cast<std::uint64_t>(
        std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count());
}

}  // namespace

MusicClient::MusicClient(const std::string& name, std::size_t writerCount, std::size_t readerCount,
                         int wakeDescriptor)
    : wake(wakeDescriptor), writers(writerCount), readers(readerCount) {
    // JACK on a busy computer now and then opens none while another program comes.
    constexpr int kAttempts = 20;
    for (int attempt = 0; client == nullptr && attempt < kAttempts; ++attempt) {
        std::this_thread::sleep_for(10 * attempt * kLook);
        client = jack_client_open(name.c_str(), JackNoStartServer, nullptr);
    }
    if (client == nullptr) {
        return;
    }
    sampleRate = jack_get_sample_rate(client);
    for (std::size_t i = 0; i < writers.size(); ++i) {
        writers[i].port = jack_port_register(client, ("out-" + std::to_string(i)).c_str(),
                                             JACK_DEFAULT_MIDI_TYPE, JackPortIsOutput, 0);
    }
    for (std::size_t i = 0; i < readers.size(); ++i) {
        readers[i].port = jack_port_register(client, ("in-" + std::to_string(i)).c_str(),
                                             JACK_DEFAULT_MIDI_TYPE, JackPortIsInput, 0);
    }
    jack_set_process_callback(client, Process, this);
    jack_on_shutdown(client, Shutdown, this);
    jack_activate(client);
}

MusicClient::~MusicClient() {
    if (client != nullptr) {
        jack_client_close(client);
    }
}

bool MusicClient::ServerHasGone() const {
    const std::lock_guard lock(mutex);
    return serverHasGone;
}

bool MusicClient::Connect(const std::string& from, const std::string& to) {
    const auto latest = std::chrono::steady_clock::now() + kLongestConnecting;
    // JACK refuses a port of a client that has only just come, and carries nothing over a connection before
    // it is told of.
    while (jack_port_t* source = jack_port_by_name(client, from.c_str())) {
        if (jack_port_by_name(client, to.c_str()) == nullptr || std::chrono::steady_clock::now() > latest) {
            return false;
        }
        const int result = jack_connect(client, from.c_str(), to.c_str());
        if ((result == 0 || result == EEXIST) && jack_port_connected_to(source, to.c_str()) == 1) {
            return true;
        }
        std::this_thread::sleep_for(kLook);
    }
    return false;
}

bool MusicClient::Disconnect(const std::string& from, const std::string& to) {
    return jack_disconnect(client, from.c_str(), to.c_str()) == 0;
}

std::vector<std::string> MusicClient::Ports(const std::string& pattern, bool written) const {
    std::vector<std::string> found;
    const char** ports = jack_get_ports(client, pattern.c_str(), JACK_DEFAULT_MIDI_TYPE,
                                        written ? JackPortIsInput : JackPortIsOutput);
    for (const char** port = ports; port != nullptr && *port != nullptr; ++port) {
        found.emplace_back(*port);
    }
    jack_free(ports);
    return found;
}

void MusicClient::Write(std::size_t writer, const MidiBytes& message) {
    const std::lock_guard lock(mutex);
    writers.at(writer).given.push_back(message);
}

void MusicClient::PlayPattern(std::size_t writer, std::uint32_t seed, double rate) {
    const std::lock_guard lock(mutex);
    writers.at(writer).pattern.emplace(seed);
    writers[writer].perSecond = rate;
}

void MusicClient::ExpectPattern(std::size_t reader, std::uint32_t seed) {
    const std::lock_guard lock(mutex);
    readers.at(reader).pattern.emplace(seed);
}

void MusicClient::PlayWildly(std::size_t writer, std::uint32_t seed, double rate) {
    const std::lock_guard lock(mutex);
    writers.at(writer).wild.emplace(seed);
    writers[writer].perSecond = rate;
}

void MusicClient::Rest(bool release) {
    const std::lock_guard lock(mutex);
    rests = true;
    releases = release;
}

void MusicClient::GoOn() {
    const std::lock_guard lock(mutex);
    rests = false;
}

std::vector<MusicClient::Heard> MusicClient::TakeHeard() {
    const std::lock_guard lock(mutex);
    return std::exchange(heard, {});
}

std::vector<MusicClient::WriterReport> MusicClient::Writers() const {
    const std::lock_guard lock(mutex);
    std::vector<WriterReport> reports;
    for (const Writer& writer : writers) {
        reports.push_back(writer.report);
    }
    return reports;
}

std::vector<MusicClient::ReaderReport> MusicClient::Readers() const {
    const std::lock_guard lock(mutex);
    std::vector<ReaderReport> reports;
    for (const Reader& reader : readers) {
        ReaderReport report;
        report.messages = reader.messages;
        report.sounding = reader.sounding.Rest();
        if (reader.pattern) {
            report.patternMessages = reader.pattern->Messages();
            report.realtime = reader.pattern->Realtime();
            report.fault = reader.pattern->Fault();
        }
        report.connections = jack_port_connected(reader.port);
        reports.push_back(report);
    }
    return reports;
}

void MusicClient::Shutdown(void* client) {
    auto* self = static_cast<MusicClient*>(client);
    const std::lock_guard lock(self->mutex);
    self->serverHasGone = true;
    static_cast<void>(::eventfd_write(self->wake, 1));  // a full counter wakes as well
}

int MusicClient::Process(jack_nframes_t frames, void* client) {
    auto* self = static_cast<MusicClient*>(client);
    const std::lock_guard lock(self->mutex);
    for (Writer& writer : self->writers) {
        self->WriteCycle(writer, frames);
    }
    for (std::size_t number = 0; number < self->readers.size(); ++number) {
        self->ReadCycle(number, frames);
    }
    if (!self->heard.empty()) {
        static_cast<void>(::eventfd_write(self->wake, 1));
    }
    return 0;
}

void MusicClient::WriteCycle(Writer& writer, jack_nframes_t frames) {
    void* buffer = jack_port_get_buffer(writer.port, frames);
    jack_midi_clear_buffer(buffer);
    if (jack_port_connected(writer.port) == 0) {
        // What is given waits until somebody can hear it.
        if (writer.wild) {
            writer.wild->Forget();
            writer.next.clear();
        }
        writer.report.isIdle = writer.given.empty();
        return;
    }
    writer.due = std::min(writer.due + writer.perSecond * frames / sampleRate, kMostDue);
    for (;;) {
        if (writer.next.empty()) {
            writer.next = NextOf(writer);
        }
        if (writer.next.empty() ||
            jack_midi_event_write(buffer, 0, writer.next.data(), writer.next.size()) != 0) {
            break;
        }
        if (writer.pattern) {
            (writer.next[0] >= 0xF8 ? writer.report.realtime : writer.report.messages)++;
        }
        writer.next.clear();
    }
    writer.report.isIdle = writer.next.empty() && writer.given.empty();
}

MidiBytes MusicClient::NextOf(Writer& writer) {
    if (!writer.given.empty()) {
        MidiBytes message = writer.given.front();
        writer.given.pop_front();
        return message;
    }
    if (rests) {
        return releases && writer.wild ? writer.wild->NextRelease() : MidiBytes{};
    }
    if (writer.due < 1) {
        return {};
    }
    writer.due -= 1;
    if (writer.wild) {
        return writer.wild->Next();
    }
    // A clock tick among the messages, as sequencers send them.
    if (writer.report.messages % 24 == 23 && writer.report.realtime < writer.report.messages / 24 + 1) {
        return {0xF8};
    }
    return writer.pattern->Next();
}

void MusicClient::ReadCycle(std::size_t number, jack_nframes_t frames) {
    Reader& reader = readers[number];
    void* buffer = jack_port_get_buffer(reader.port, frames);
    const std::uint32_t count = jack_midi_get_event_count(buffer);
    for (std::uint32_t i = 0; i < count; ++i) {
        jack_midi_event_t event{};
        if (jack_midi_event_get(&event, buffer, i) != 0) {
            continue;
        }
        ++reader.messages;
        reader.sounding.Hear(event.buffer, event.size);
        if (reader.pattern) {
            reader.pattern->Hear(event.buffer, event.size);
        }
        if (listens) {
            heard.push_back({number, Now(), MidiBytes(event.buffer, event.buffer + event.size)});
        }
    }
}

}  // namespace vexil
