// The contract of RemoteNetwork: MIDI between computers with sockets on loopback, in memory, and around one
// that fails on demand.
#include <poll.h>

#include <filesystem>
#include <memory>
#include <string>

#include "platform/linux/network/NetlinkInterfaces.h"
#include "service/NetworkService.h"
#include "service/SteadyEngineClock.h"
#include "tests/doubles/FaultyRemoteNetwork.h"
#include "tests/doubles/LogCapture.h"
#include "tests/doubles/MemoryRemoteNetwork.h"
#include "tests/doubles/MemoryResolver.h"
#include "tests/doubles/RemoteNetworkContract.h"

namespace vexil {
namespace {

class ContractFolder {
  public:
    ContractFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "vexil-network-XXXXXX").string();
        path = mkdtemp(name.data());
    }
    ~ContractFolder() { std::filesystem::remove_all(path); }
    std::string path;
};

class ContractComputer {
  public:
    ContractComputer()
        : store({folder.path + "/network", "host1", "machine1"}, [](const std::string&) {}),
          network({engine, driver, store, resolver, [] { return std::make_unique<NetlinkInterfaces>(); }, 0},
                  InterfaceChoice::Loopback()) {}

    void Serve() {
        pollfd waited{network.EventDescriptor(), POLLIN, 0};
        if (poll(&waited, 1, 0) == 1 || network.Timeout() == 0) {
            network.Serve();
        }
    }

    ContractFolder folder;
    KeyStore store;
    Engine engine{std::size_t{1} << 20};
    SteadyEngineClock clock;
    NetworkDriver driver{engine, clock};
    MemoryResolver resolver;
    NetworkService network;
};

class OnLoopback {
  public:
    OnLoopback() {
        RemoteWishes wishes;
        wishes.names = {"studio"};
        wishes.configuration.InputPorts = std::uint64_t{1} << kContractInput;
        wishes.configuration.PortFlags[kContractInput].flags = kSourceComputerUnused | kSourcePortUnused;
        wishes.heard = wishes.configuration.InputPorts;
        other->network.SetWishes(wishes);
    }
    static std::string Obstacle() {
        return std::holds_alternative<UdpFailure>(UdpSocket::Open({0, InterfaceChoice::Loopback()}))
                   ? "This machine has no loopback to bind to."
                   : "";
    }
    RemoteNetwork& Seam() { return own->network; }
    std::string Other() const { return "127.0.0.1:" + std::to_string(other->network.Port()); }
    void Pass() {
        pollfd waited[] = {{own->network.EventDescriptor(), POLLIN, 0},
                           {other->network.EventDescriptor(), POLLIN, 0}};
        poll(waited, 2, 5);
        own->Serve();
        other->Serve();
    }

  private:
    LogCapture log;
    std::unique_ptr<ContractComputer> own = std::make_unique<ContractComputer>();
    std::unique_ptr<ContractComputer> other = std::make_unique<ContractComputer>();
};

class InMemory {
  public:
    InMemory() {
        network.answers["stage"] = {1, "", false};
        network.own = {"127.0.0.1"};
        network.status.port = 11188;
    }
    static std::string Obstacle() { return ""; }
    RemoteNetwork& Seam() { return network; }
    static std::string Other() { return "stage"; }
    void Pass() { network.Serve(); }

  private:
    MemoryRemoteNetwork network;
};

class AroundOneInMemory {
  public:
    static std::string Obstacle() { return ""; }
    RemoteNetwork& Seam() { return faulty; }
    static std::string Other() { return InMemory::Other(); }
    void Pass() { faulty.Serve(); }

  private:
    InMemory memory;
    FaultyRemoteNetwork faulty{memory.Seam()};
};

using Subjects = ::testing::Types<OnLoopback, InMemory, AroundOneInMemory>;
INSTANTIATE_TYPED_TEST_SUITE_P(Each, RemoteNetworkContract, Subjects);

TEST(FaultyRemoteNetwork, WhileItFailsNothingIsReachedAndTheReasonIsTold) {
    InMemory memory;
    FaultyRemoteNetwork faulty(memory.Seam());
    RemoteWishes wishes;
    wishes.ways = {{InMemory::Other(), kContractInput, 0}};
    faulty.SetWishes(wishes);
    EXPECT_EQ(faulty.Find(wishes.ways.front()), (RemoteAnswer{1, "", false}));
    faulty.Fail("The socket is gone.");
    EXPECT_EQ(faulty.Find(wishes.ways.front()), (RemoteAnswer{0, "The socket is gone.", false}));
    EXPECT_EQ(faulty.Port(), 0);
    EXPECT_EQ(faulty.Status().problem, "The socket is gone.");
    faulty.Fail("");
    EXPECT_EQ(faulty.Find(wishes.ways.front()), (RemoteAnswer{1, "", false}));
}

}  // namespace
}  // namespace vexil
