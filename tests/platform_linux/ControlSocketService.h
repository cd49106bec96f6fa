// A driver service for tests, on a thread of its own: a well-behaved driver behind a real socket, until a
// test's hook makes it anything else. All public operations may be called from the test's thread.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "driver/ControlChannel.h"

namespace vexil {

class ControlSocketService {
  public:
    // A request as it came in; `client` is good for Reply and SendPacket as long as the client is there.
    struct Seen {
        int client = -1;
        std::uint32_t sequence = 0;
        std::uint32_t kind = 0;
        std::uint32_t number = 0;
        std::uint32_t length = 0;
        std::vector<std::uint8_t> payload;
    };
    // Called on the service's thread for every request; true: the hook has dealt with it.
    using Hook = std::function<bool(const Seen& request)>;

    // The socket file does not exist before Start.
    explicit ControlSocketService(std::string socketPath);
    ~ControlSocketService();

    void Start();
    // As a service that ends or is killed: its clients are cut off. The file stays unless removed.
    void Stop();
    void RemoveFile() const;

    void SetHook(Hook newHook);
    void SetHostInfos(std::vector<std::uint8_t> bytes);

    std::vector<Seen> Requests() const;
    // Waits until this many clients are connected, or fails the test after 5 s.
    void AwaitClients(std::size_t count) const;
    // The set options that were taken, in order.
    std::vector<std::pair<int, std::vector<std::uint8_t>>> Accepted() const;

    // What hooks do, from either thread.
    static void Reply(const Seen& request, std::uint32_t error, const std::vector<std::uint8_t>& data = {});
    static void SendPacket(int client, const std::vector<std::uint8_t>& packet);
    static void CutOff(int client);

  private:
    void Run();
    void TakePacket(int client);
    void Answer(const Seen& request);
    std::uint32_t Attach(const Seen& request);
    std::uint32_t SetOption(const Seen& request);

    const std::string path;
    int listening = -1;
    int stopEvent = -1;
    std::thread thread;

    mutable std::mutex mutex;  // guards all below
    std::shared_ptr<Hook> hook;
    std::vector<std::uint8_t> hostInfos;
    std::vector<Seen> requests;
    std::vector<std::pair<int, std::vector<std::uint8_t>>> accepted;
    std::map<int, std::uint32_t> clients;  // attached unit, 0 when not attached
};

}  // namespace vexil
