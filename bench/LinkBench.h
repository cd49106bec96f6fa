// Computers in this process that play to each other over loopback, each with its engine, its network thread
// and its socket, as the service has them; and a bare UDP socket with a thread to compare them with.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <random>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/network/UdpSocket.h"
#include "service/SteadyEngineClock.h"
#include "service/network/NetworkHub.h"

namespace vexil::bench {

// Nanoseconds of the steady clock.
std::uint64_t Now();
void SleepUntil(std::uint64_t time);
// In place; `share` from 0 to 1, of times of which there is one at least.
double Percentile(std::vector<double>& times, double share);

// Loses a share of what is sent.
class LossySocket : public DatagramSocket {
  public:
    LossySocket(DatagramSocket& wrappedSocket, unsigned seed) : wrapped(wrappedSocket), random(seed) {}

    std::atomic<double> loss{0};

    int EventDescriptor() const override { return wrapped.EventDescriptor(); }
    std::uint16_t Port() const override { return wrapped.Port(); }
    SendResult Send(const NetworkAddress& to, const NetworkAddress& own, ByteView datagram) override {
        const bool isLost = std::uniform_real_distribution<>()(random) < loss.load();
        return isLost ? SendResult::Sent : wrapped.Send(to, own, datagram);
    }
    int Failure() const override { return wrapped.Failure(); }
    std::optional<ReceivedDatagram> Receive(std::span<std::uint8_t> into) override {
        return wrapped.Receive(into);
    }
    SocketCounters Counters() const override { return wrapped.Counters(); }

  private:
    DatagramSocket& wrapped;
    std::mt19937 random;
};

// The threads of this process that are called "network".
std::vector<int> NetworkThreads();
// Of a thread: seconds of the processor so far, and how often it has waited.
double ProcessorSeconds(int thread);
std::uint64_t Waits(int thread);

class Computer {
  public:
    // `ports`: so many inputs hear everybody.
    Computer(const char* name, int ports, unsigned seed);
    ~Computer();
    Computer(const Computer&) = delete;
    Computer& operator=(const Computer&) = delete;

    std::uint16_t Port() const { return socket->Port(); }
    int Thread() const { return threadNumber; }
    void SetLoss(double share) { lossy->loss = share; }
    // Ways from the outputs, from the first on, each to the input of the same number; waits until they are
    // accepted. False when that takes longer than 10 s.
    bool LeadTo(const Computer& other, int ports);
    // What an engine would do: a message of an output is delivered to the network now. False when there is
    // no room. The network hears of it at the end of the turn.
    bool Deliver(int port, std::span<const std::uint8_t> message);
    void EndTurn() { ring.EndTurn(); }
    // What the link counts of all peers together.
    LinkCounters Counters();
    // Messages that came in and that the engine had no room for.
    std::uint64_t DroppedByEngine() const;
    // Datagrams for which the socket had no room.
    std::uint64_t DroppedBySocket() const;

    // From now on the time of each message that the inputs hear, in all, is kept, up to so many.
    void Listen(std::size_t most);
    std::size_t Heard() const { return heardCount.load(); }
    std::uint64_t HeardAt(std::size_t number) const { return heardAt[number].load(); }

  private:
    // Looks at what the engine's inputs have heard as soon as the network's thread has had it heard.
    class Work : public NetworkWork {
      public:
        explicit Work(Computer& itsComputer) : computer(itsComputer) {}
        int EventDescriptor() const override { return computer.hub->EventDescriptor(); }
        bool Read() override { return computer.hub->Read(); }
        void Act() override { computer.hub->Act(); }
        void Deliver() override {
            computer.hub->Deliver();
            computer.NoteHeard();
        }
        std::optional<std::uint64_t> NextTime() const override { return computer.hub->NextTime(); }
        bool TakeChanged() override { return computer.hub->TakeChanged(); }

      private:
        Computer& computer;
    };
    struct ThreadWaker : EngineWaker {
        void Wake() override {
            if (NetworkThread* woken = thread.load()) {
                woken->Wake();
            }
        }
        std::atomic<NetworkThread*> thread{nullptr};
    };

    void NoteHeard();
    std::uint64_t CountHeard() const;

    int inputs;
    LinkKey key;
    std::unique_ptr<LinkSealing> sealing;
    std::unique_ptr<UdpSocket> socket;
    std::unique_ptr<LossySocket> lossy;
    ThreadWaker waker;
    Engine engine;
    RemoteRing ring;
    SteadyEngineClock clock;
    NetworkDriver driver;
    std::unique_ptr<NetworkHub> hub;
    Work work{*this};
    std::unique_ptr<NetworkThread> thread;
    int threadNumber = 0;
    std::atomic<bool> listens{false};
    std::uint64_t heardBefore = 0;
    std::vector<std::atomic<std::uint64_t>> heardAt;
    std::atomic<std::size_t> heardCount{0};
};

// A UDP socket on loopback with a thread that reads it. A datagram whose first byte is kTimed is timed by the
// number in its next four; one that begins with kEchoed is sent back.
class BareUdp {
  public:
    static constexpr std::uint8_t kTimed = 1;
    static constexpr std::uint8_t kEchoed = 2;

    explicit BareUdp(std::size_t most);
    ~BareUdp();
    BareUdp(const BareUdp&) = delete;
    BareUdp& operator=(const BareUdp&) = delete;

    std::uint16_t Port() const { return port; }
    // Sends one of `size` bytes, which is at least 5.
    void Send(std::uint8_t kind, std::uint32_t number, std::size_t size) const;
    // When the one of a number arrived; 0: it has not.
    std::uint64_t HeardAt(std::size_t number) const { return heardAt[number].load(); }
    // Waits for what is sent back, a tenth of a second at most.
    bool WaitEcho() const;

  private:
    void Main();

    Descriptor receiving;
    Descriptor sending;
    std::uint16_t port = 0;
    std::vector<std::atomic<std::uint64_t>> heardAt;
    std::atomic<bool> ending{false};
    std::thread thread;
};

}  // namespace vexil::bench
