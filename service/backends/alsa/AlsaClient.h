// One client of the ALSA sequencer, with the ports that stand for endpoints. The port of an output has the
// number of the service's port, that of an input kFirstInputPort more, so that addresses stay the same from
// one run to the next.
//
// Threads. The operations on ports are single calls of the kernel and may be made by one thread while another
// sends and receives events.
#pragma once

#include <alsa/asoundlib.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "config/DriverConfiguration.h"
#include "service/backends/alsa/AlsaAddress.h"

namespace vexil {

inline constexpr int kFirstInputPort = kMaxPorts;
inline constexpr int kAnnouncePort = 2 * kMaxPorts;  // hears of programs that come and go; never listed
inline constexpr std::size_t kLongestAlsaName = 63;  // bytes; the kernel keeps 64 with the end

class AlsaClient {
  public:
    // Null, with `error` set to a negative errno value, when the sequencer cannot be opened.
    static std::unique_ptr<AlsaClient> Open(int& error);
    ~AlsaClient();
    AlsaClient(const AlsaClient&) = delete;
    AlsaClient& operator=(const AlsaClient&) = delete;

    int Id() const { return id; }
    int Descriptor() const { return descriptor; }

    // Ports. Each 0, or a negative errno value. A port that is written to is an output; `hidden`: no program
    // finds it in a listing or can connect to it anew.
    int CreatePort(int number, const std::string& name, bool hidden);
    int ChangePort(int number, const std::string& name, bool hidden);
    int DeletePort(int number);
    // Connections of a port now.
    int ConnectionsOf(int number) const;
    // The name of any client; empty when there is no such client.
    std::string NameOf(int client) const;

    // Asks for who is connected to a port, one call of `each` with an AlsaAddress for each connection.
    template <class Each>
    void ForEachConnection(int number, Each each) const {
        snd_seq_query_subscribe_t* query = nullptr;
        snd_seq_query_subscribe_alloca(&query);
        const snd_seq_addr_t root = AddressOf(number);
        snd_seq_query_subscribe_set_root(query, &root);
        snd_seq_query_subscribe_set_type(
            query, number < kFirstInputPort ? SND_SEQ_QUERY_SUBS_WRITE : SND_SEQ_QUERY_SUBS_READ);
        for (int index = 0;; ++index) {
            snd_seq_query_subscribe_set_index(query, index);
            if (snd_seq_query_port_subscribers(sequencer, query) < 0) {
                return;
            }
            const snd_seq_addr_t* address = snd_seq_query_subscribe_get_addr(query);
            each(AlsaAddress{address->client, address->port});
        }
    }

    // Connects a port. 0, or a negative errno value; -EBUSY when it is connected already.
    int Connect(int number, AlsaAddress other);
    // Ports of all clients, by their names "client:port": those that can be connected to an output, or those
    // that can be connected to an input. Where several have one name, later ones are numbered:
    // "client:port (2)".
    std::map<std::string, AlsaAddress> Ports(bool toOutput) const;

    // Events.

    // Reads what waits; where nothing waits, waits for it. 0 or a negative errno value. -ENOSPC: something
    // was sent that there was no room for, and `lostOthers` is whether what waited was lost with it, or may
    // have been: the kernel throws all of it away. Without that, only whoever sent too much has lost
    // something.
    int Read(bool& lostOthers);
    // The next event of what was read; null when there are no more. Lasts until the next call.
    const snd_seq_event_t* NextEvent();
    // Ends a Read that waits. Any thread.
    void WakeReader();

    // The rest never waits.

    // Queues one event to all who read a port, or to one of them.
    void Send(snd_seq_event_t& event, int number);
    void SendTo(snd_seq_event_t& event, int number, AlsaAddress reader);
    // Sends what is queued. A reader without room does not hear it.
    void Flush();

  private:
    AlsaClient(snd_seq_t* opened, int client, int file);

    int Prepare();
    std::string FreeName() const;
    template <class Each>
    void ForEachClient(Each each) const;
    int Create(int number, const std::string& name, unsigned capabilities);
    snd_seq_addr_t AddressOf(int number) const;
    void Queue(snd_seq_event_t& event, int number);

    snd_seq_t* const sequencer;
    const int id;
    const int descriptor;
    // The library's own buffer is not used: when the kernel stops in the middle of it, the library offers the
    // event at which it stopped once more, and readers that have heard it hear it twice.
    std::vector<std::uint8_t> outgoing;
    std::size_t used = 0;  // bytes of it
    // Nor that of what comes in: it reads again, and so loses what waits, before what was read is heard.
    std::vector<std::uint8_t> incoming;
    std::size_t readAt = 0;
    std::size_t readEnd = 0;
    snd_seq_event_t current{};
    bool wasFull = false;  // the last Read took as much as the kernel keeps
};

}  // namespace vexil
