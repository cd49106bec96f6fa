#include "service/backends/alsa/AlsaClient.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <set>
#include <utility>

#include "service/backends/ClientName.h"
#include "service/backends/alsa/AlsaDeviceWatch.h"
#include "service/backends/alsa/AlsaRoom.h"

namespace vexil {

namespace {

// The most that the kernel gives a client.
constexpr std::size_t kPoolCells = 2000;
// More than the pool holds. A cell is as large as an event, in both.
constexpr std::size_t kInputBuffer = std::size_t{128} << 10;
constexpr std::size_t kOutputBuffer = std::size_t{64} << 10;

// Bytes of an event on its way to the kernel.
std::size_t LengthOf(const snd_seq_event_t& event) {
    return sizeof event + (snd_seq_ev_is_variable(&event) ? event.data.ext.len : 0);
}

unsigned CapabilitiesOf(int number, bool hidden) {
    const bool isOutput = number < kFirstInputPort;
    unsigned capabilities = isOutput ? SND_SEQ_PORT_CAP_WRITE : SND_SEQ_PORT_CAP_READ;
    if (hidden) {
        capabilities |= SND_SEQ_PORT_CAP_NO_EXPORT;
    } else {
        capabilities |= isOutput ? SND_SEQ_PORT_CAP_SUBS_WRITE : SND_SEQ_PORT_CAP_SUBS_READ;
    }
    return capabilities;
}

}  // namespace

std::unique_ptr<AlsaClient> AlsaClient::Open(int& error) {
    // Asked first, because the library writes what it finds to standard error.
    if (::access(kAlsaDevice, R_OK | W_OK) != 0) {
        error = -errno;
        return nullptr;
    }
    snd_seq_t* sequencer = nullptr;
    error = snd_seq_open(&sequencer, "hw", SND_SEQ_OPEN_DUPLEX, 0);
    if (error < 0) {
        return nullptr;
    }
    pollfd descriptor{};
    snd_seq_poll_descriptors(sequencer, &descriptor, 1, POLLIN);
    std::unique_ptr<AlsaClient> client(
        new AlsaClient(sequencer, snd_seq_client_id(sequencer), descriptor.fd));
    error = client->Prepare();
    return error < 0 ? nullptr : std::move(client);
}

AlsaClient::AlsaClient(snd_seq_t* opened, int client, int file)
    : sequencer(opened), id(client), descriptor(file), outgoing(kOutputBuffer), incoming(kInputBuffer) {}

int AlsaClient::Prepare() {
    const int results[] = {
        snd_seq_set_client_name(sequencer, FreeName().c_str()),
        snd_seq_set_client_pool_input(sequencer, kPoolCells),
        snd_seq_set_client_pool_output(sequencer, kPoolCells),
        Create(kAnnouncePort, "Announcements", SND_SEQ_PORT_CAP_WRITE | SND_SEQ_PORT_CAP_NO_EXPORT),
    };
    for (const int result : results) {
        if (result < 0) {
            return result;
        }
    }
    return snd_seq_connect_from(sequencer, kAnnouncePort, SND_SEQ_CLIENT_SYSTEM,
                                SND_SEQ_PORT_SYSTEM_ANNOUNCE);
}

AlsaClient::~AlsaClient() {
    snd_seq_close(sequencer);
}

snd_seq_addr_t AlsaClient::AddressOf(int number) const {
    return {static_cast<unsigned char>(id), static_cast<unsigned char>(number)};
}

int AlsaClient::CreatePort(int number, const std::string& name, bool hidden) {
    return Create(number, name, CapabilitiesOf(number, hidden));
}

int AlsaClient::Create(int number, const std::string& name, unsigned capabilities) {
    snd_seq_port_info_t* info = nullptr;
    snd_seq_port_info_alloca(&info);
    snd_seq_port_info_set_port(info, number);
    snd_seq_port_info_set_port_specified(info, 1);
    snd_seq_port_info_set_name(info, name.c_str());
    snd_seq_port_info_set_capability(info, capabilities);
    snd_seq_port_info_set_type(
        info, SND_SEQ_PORT_TYPE_MIDI_GENERIC | SND_SEQ_PORT_TYPE_SOFTWARE | SND_SEQ_PORT_TYPE_PORT);
    snd_seq_port_info_set_midi_channels(info, 16);
    return snd_seq_create_port(sequencer, info);
}

int AlsaClient::ChangePort(int number, const std::string& name, bool hidden) {
    snd_seq_port_info_t* info = nullptr;
    snd_seq_port_info_alloca(&info);
    if (const int result = snd_seq_get_port_info(sequencer, number, info); result < 0) {
        return result;
    }
    snd_seq_port_info_set_name(info, name.c_str());
    snd_seq_port_info_set_capability(info, CapabilitiesOf(number, hidden));
    return snd_seq_set_port_info(sequencer, number, info);
}

int AlsaClient::DeletePort(int number) {
    return snd_seq_delete_port(sequencer, number);
}

int AlsaClient::ConnectionsOf(int number) const {
    snd_seq_port_info_t* info = nullptr;
    snd_seq_port_info_alloca(&info);
    if (snd_seq_get_port_info(sequencer, number, info) < 0) {
        return 0;
    }
    return number < kFirstInputPort ? snd_seq_port_info_get_write_use(info)
                                    : snd_seq_port_info_get_read_use(info);
}

// The kernel marks that something found no room, and the next call of read() throws away what waits by then.
// A call that was waiting at that moment still gets what comes. So the only time that counts is between two
// calls; what waits just before the second is asked for. When it is nothing, what found no room was either
// too large for any room, or came when the room was full: then the call before has read as much as there is
// room.
int AlsaClient::Read(bool& lostOthers) {
    readAt = 0;
    readEnd = 0;
    const std::optional<AlsaRoom> room = AskAlsaRoom(descriptor, id);
    const ssize_t length = ::read(descriptor, incoming.data(), incoming.size());
    if (length >= 0) {
        readEnd = static_cast<std::size_t>(length);
        wasFull = readEnd / sizeof(snd_seq_event_t) >= kPoolCells;
        return 0;
    }
    const int error = -errno;
    if (error == -ENOSPC) {
        lostOthers = std::exchange(wasFull, false) || !room || room->free < room->total;
    }
    return error;
}

const snd_seq_event_t* AlsaClient::NextEvent() {
    if (readAt + sizeof current > readEnd) {
        return nullptr;
    }
    std::memcpy(&current, &incoming[readAt], sizeof current);
    readAt += sizeof current;
    if (snd_seq_ev_is_variable(&current)) {
        const std::size_t length = current.data.ext.len;
        if (length > readEnd - readAt) {
            return nullptr;
        }
        current.data.ext.ptr = &incoming[readAt];
        readAt += (length + sizeof current - 1) / sizeof current * sizeof current;
    }
    return &current;
}

void AlsaClient::WakeReader() {
    snd_seq_event_t event;
    snd_seq_ev_clear(&event);
    event.type = SND_SEQ_EVENT_ECHO;
    snd_seq_ev_set_source(&event, kAnnouncePort);
    snd_seq_ev_set_dest(&event, static_cast<unsigned char>(id), kAnnouncePort);
    snd_seq_ev_set_direct(&event);
    // Where there is no room for it, there is something to read.
    [[maybe_unused]] const ssize_t ignored = ::write(descriptor, &event, sizeof event);
}

template <class Each>
void AlsaClient::ForEachClient(Each each) const {
    snd_seq_client_info_t* info = nullptr;
    snd_seq_client_info_alloca(&info);
    snd_seq_client_info_set_client(info, -1);
    while (snd_seq_query_next_client(sequencer, info) >= 0) {
        each(snd_seq_client_info_get_client(info), std::string(snd_seq_client_info_get_name(info)));
    }
}

std::string AlsaClient::FreeName() const {
    std::set<std::string> taken;
    ForEachClient([&](int client, const std::string& name) {
        if (client != id) {
            taken.insert(name);
        }
    });
    return ChooseClientName(NameOfUser(), [&](const std::string& name) { return taken.contains(name); });
}

int AlsaClient::Connect(int number, AlsaAddress other) {
    const snd_seq_addr_t own = AddressOf(number);
    const snd_seq_addr_t others = {other.client, other.port};
    snd_seq_port_subscribe_t* subscription = nullptr;
    snd_seq_port_subscribe_alloca(&subscription);
    snd_seq_port_subscribe_set_sender(subscription, number < kFirstInputPort ? &others : &own);
    snd_seq_port_subscribe_set_dest(subscription, number < kFirstInputPort ? &own : &others);
    return snd_seq_subscribe_port(sequencer, subscription);
}

std::map<std::string, AlsaAddress> AlsaClient::Ports(bool toOutput) const {
    const unsigned wanted = toOutput ? SND_SEQ_PORT_CAP_READ | SND_SEQ_PORT_CAP_SUBS_READ
                                     : SND_SEQ_PORT_CAP_WRITE | SND_SEQ_PORT_CAP_SUBS_WRITE;
    std::map<std::string, AlsaAddress> ports;
    ForEachClient([&](int client, const std::string& clientName) {
        snd_seq_port_info_t* info = nullptr;
        snd_seq_port_info_alloca(&info);
        snd_seq_port_info_set_client(info, client);
        snd_seq_port_info_set_port(info, -1);
        while (snd_seq_query_next_port(sequencer, info) >= 0) {
            if ((snd_seq_port_info_get_capability(info) & wanted) != wanted) {
                continue;
            }
            const AlsaAddress address{static_cast<std::uint8_t>(client),
                                      static_cast<std::uint8_t>(snd_seq_port_info_get_port(info))};
            const std::string name = clientName + ":" + snd_seq_port_info_get_name(info);
            bool isNew = ports.emplace(name, address).second;
            for (int number = 2; !isNew; ++number) {
                isNew = ports.emplace(name + " (" + std::to_string(number) + ")", address).second;
            }
        }
    });
    return ports;
}

std::string AlsaClient::NameOf(int client) const {
    snd_seq_client_info_t* info = nullptr;
    snd_seq_client_info_alloca(&info);
    return snd_seq_get_any_client_info(sequencer, client, info) < 0 ? "" : snd_seq_client_info_get_name(info);
}

void AlsaClient::Send(snd_seq_event_t& event, int number) {
    snd_seq_ev_set_subs(&event);
    Queue(event, number);
}

void AlsaClient::SendTo(snd_seq_event_t& event, int number, AlsaAddress reader) {
    snd_seq_ev_set_dest(&event, reader.client, reader.port);
    Queue(event, number);
}

void AlsaClient::Queue(snd_seq_event_t& event, int number) {
    snd_seq_ev_set_source(&event, static_cast<unsigned char>(number));
    snd_seq_ev_set_direct(&event);
    const std::size_t length = LengthOf(event);
    if (used + length > outgoing.size()) {
        Flush();
    }
    std::memcpy(&outgoing[used], &event, sizeof event);
    if (length > sizeof event) {
        std::memcpy(&outgoing[used + sizeof event], event.data.ext.ptr, length - sizeof event);
    }
    used += length;
}

void AlsaClient::Flush() {
    for (std::size_t at = 0; at < used;) {
        const ssize_t written = ::write(descriptor, &outgoing[at], used - at);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        at += static_cast<std::size_t>(std::max<ssize_t>(written, 0));
        if (at < used) {
            // The kernel stopped at an event that one reader had no room for, or whose port has been
            // withdrawn. The other readers have heard it.
            snd_seq_event_t refused;
            std::memcpy(&refused, &outgoing[at], sizeof refused);
            at += LengthOf(refused);
        }
    }
    used = 0;
}

}  // namespace vexil
