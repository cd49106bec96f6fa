// Serves the control channel: takes connections, checks who they are, unpacks their requests, keeps the rules
// of attachment, and answers. What the options do is the mediator's business. driver/ControlChannel.h gives
// the packets.
//
// Nobody is waited for. A client that does not read its replies is closed; one that does not read what it
// monitors loses some of it. A malformed request is answered with EINVAL when it has a sequence; otherwise
// its connection is closed. Requests of one client are carried out in their order, one in each round, so that
// no client keeps the others waiting.
//
// One thread.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "driver/ControlChannel.h"
#include "service/control/DescriptorCloser.h"
#include "service/control/MessageMonitor.h"
#include "shared/System/Descriptor.h"

namespace vexil {

class ControlServer {
  public:
    // What the server asks of the driver behind it. Errors are 0 or a Linux errno.
    class Mediator {
      public:
        virtual ~Mediator() = default;
        // The panel of a process has attached; it has the options until PanelDetached. One panel at a time.
        virtual void PanelAttached(pid_t process) = 0;
        virtual void PanelDetached() = 0;
        // Of the attached panel.
        virtual int SetOption(std::uint32_t option, std::span<const std::uint8_t> payload) = 0;
        virtual int GetOption(std::uint32_t option, std::vector<std::uint8_t>& data) = 0;
        // Of any client. The status is JSON text, from an entry of its lists on.
        virtual std::string Status(std::size_t first) = 0;
        virtual int Reload() = 0;
        // What the user wants of the network: at least one word, each not empty. The answer is JSON text.
        virtual std::string Network(const std::vector<std::string>& words) = 0;
        // Whether any client waits for changes of the status, from now on.
        virtual void StatusWatched(bool watched) = 0;
        // Of the status as it is: another number since it has changed while it was watched; never 0.
        virtual std::uint32_t StatusNumber() = 0;
        // Ends every note everywhere. The answer is JSON text.
        virtual std::string Panic() = 0;
        // Somebody watches the messages from now on, or nobody any longer: what passes is for Pass.
        virtual void Monitored(bool on) = 0;
        // A process was turned away: it belongs to another user than may use this service.
        virtual void ClientRefused(pid_t process, uid_t user) = 0;
    };

    // More clients at a time than that are not kept: the one that is not attached and has been silent longest
    // makes room. The attached panel never does.
    static constexpr std::size_t kMaxClients = 32;

    // What becomes of a descriptor that a client passes with a packet. Refused: the kernel does not let it,
    // where it can (Linux 6.16); else as Dropped: it is closed, on a thread of its own, as that may take its
    // time, and a client that passes one while that thread is busy is closed.
    enum class Passing { Refused, Dropped };

    // `listening` is a listening, non-blocking packet socket, which stays the caller's. Clients may be of
    // root, of this process's user and, where there is a group, of its members. All that is passed must
    // outlive the server.
    ControlServer(int listening, std::optional<gid_t> allowedGroup, Mediator& mediator,
                  Passing passing = Passing::Refused);
    // Closes every connection; an attached panel is detached.
    ~ControlServer();
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;

    // Readable when Serve has something to do; -1 when the system gives no descriptor.
    int EventDescriptor() const { return events.Number(); }
    // Milliseconds until Serve is to be called without an event; -1: only on the descriptor.
    int Timeout() const;
    // One round: whoever has gone, then a request of each client, then new connections. Never blocks.
    void Serve();
    // Answers those who wait for a change of the status, when it has another number than they know. To be
    // called after everything that may have changed it.
    void TellWatchers();

    // Sends the messages to the clients that monitor them. Who does not read loses some, and is told how many
    // when there is room again.
    void Pass(const MonitorBatch& batch);

  private:
    // A watch that is not answered yet.
    struct Wait {
        std::uint32_t sequence = 0;
        std::uint32_t known = 0;  // number of the status
    };
    struct Client {
        Descriptor socket;
        pid_t process = 0;
        std::uint64_t lastHeard = 0;  // round of its last packet
        bool watches = false;         // has asked for changes of the status
        std::optional<Wait> wait;
        std::uint64_t monitored = 0;  // bit p: what passes the port of index p is for it
        std::uint32_t monitorSequence = 0;
        std::uint32_t leftOut = 0;  // pieces that it lost and was not told of
        bool awaitsRoom = false;    // for that
    };
    using Clients = std::map<std::uint64_t, Client>;  // by a number that is never used again

    void Accept();
    // False when no more connections can be accepted for now.
    bool AcceptOne();
    void MakeRoom();
    bool AddEvents(int descriptor, std::uint64_t key) const;
    // Has Serve called when a client has room again to which something is owed, and only then.
    void AwaitRoom(std::uint64_t key, Client& client) const;
    void PauseListening();

    enum class Outcome {
        Served,
        Unread,  // the client does not take its reply
        Over,    // the connection has ended, or what came cannot be answered
    };

    // One packet of the client, if there is one.
    Outcome ServeOne(std::uint64_t key, Client& client);
    bool Answer(std::uint64_t key, Client& client, const ControlRequest& request);
    bool Watch(Client& client, const ControlRequest& request);
    // Ends the client's wait, if there is one, with the status's number. False when it does not take that.
    bool EndWait(Client& client);
    bool IsWatched() const;
    int AnswerNetwork(const ControlRequest& request, std::vector<std::uint8_t>& data);
    int Monitor(Client& client, const ControlRequest& request);
    void TellWhetherMonitored();
    void PassTo(std::uint64_t key, Client& client, const MonitorBatch& batch);
    void SendMonitored(std::uint64_t key, Client& client, const MonitorPacket& monitored);
    int Attach(std::uint64_t key, const Client& client, std::uint32_t unit);
    static bool Send(const Client& client, std::uint32_t sequence, int error,
                     std::span<const std::uint8_t> data = {});
    // What the client has sent before it went still counts.
    void Finish(std::uint64_t key);
    void Close(std::uint64_t key);

    const int listeningSocket;
    const std::optional<gid_t> group;
    Mediator& driver;
    Descriptor events;
    DescriptorCloser closer;
    Clients clients;
    std::uint64_t nextKey = 1;
    std::uint64_t round = 0;
    bool isMonitored = false;
    std::optional<std::uint64_t> attached;                             // key of the panel's connection
    std::optional<std::chrono::steady_clock::time_point> listenAgain;  // while no connections are taken
    std::vector<std::uint8_t> packet;
};

}  // namespace vexil
