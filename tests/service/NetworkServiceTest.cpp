// MIDI between computers as a whole, but for the programs: two of them in one process, with their sockets on
// loopback. Each knows the other by its port there.
#include "service/NetworkService.h"

#include <gmock/gmock.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "platform/linux/network/NetlinkInterfaces.h"
#include "service/SteadyEngineClock.h"
#include "tests/doubles/LogCapture.h"
#include "tests/doubles/MemoryInterfaces.h"
#include "tests/doubles/MemoryResolver.h"
#include "tests/doubles/MemoryServiceDiscovery.h"

namespace vexil {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::SizeIs;
using Clock = std::chrono::steady_clock;
using Json = nlohmann::json;

constexpr int kInput = 7;

class Folder {
  public:
    Folder() {
        std::string name = (std::filesystem::temp_directory_path() / "vexil-network-XXXXXX").string();
        path = mkdtemp(name.data());
    }
    ~Folder() { std::filesystem::remove_all(path); }
    std::string path;
};

int storeError = 0;  // errno with which the disk of everybody's store refuses what is written; 0: it takes it

ssize_t WriteToStore(int file, const void* bytes, std::size_t count) {
    errno = storeError;
    return storeError != 0 ? -1 : write(file, bytes, count);
}

DurabilityCalls CallsOfStore() {
    DurabilityCalls calls = SystemDurabilityCalls();
    calls.write = WriteToStore;
    return calls;
}

class Computer {
  public:
    explicit Computer(const std::string& itsName,
                      const std::optional<InterfaceChoice>& speaks = InterfaceChoice::Loopback())
        : name(itsName),
          store(
              {folder.path + "/network", "host1", "machine1"}, [](const std::string&) {}, CallsOfStore()),
          network({engine, driver, store, resolver, [] { return std::make_unique<NetlinkInterfaces>(); }, 0},
                  speaks) {
        wishes.names = {name};
        wishes.configuration.InputPorts = 0;
        network.SetWishes(wishes);
    }

    void Hear() {
        wishes.configuration.InputPorts = std::uint64_t{1} << kInput;
        wishes.configuration.PortFlags[kInput].flags = kSourceComputerUnused | kSourcePortUnused;
        wishes.heard = wishes.configuration.InputPorts;
        network.SetWishes(wishes);
    }
    void ListenTo(const std::string& other) {
        Hear();
        wishes.configuration.PortFlags[kInput].flags = kSourcePortUnused;
        wishes.configuration.Hosts[kInput].SrcHost = other.c_str();
        network.SetWishes(wishes);
    }
    void LeadTo(const std::string& other, int from = 0) {
        wishes.ways = {{other, kInput, from}};
        network.SetWishes(wishes);
    }
    RemoteAnswer Answer() { return network.Find(wishes.ways.front()); }
    std::string Problem() { return Answer().problem; }
    std::string Address() const { return "127.0.0.1:" + std::to_string(network.Port()); }
    Json Do(const std::vector<std::string>& words) { return Json::parse(network.Command(words)); }

    std::string name;
    Folder folder;
    KeyStore store;
    Engine engine{std::size_t{1} << 20};
    SteadyEngineClock clock;
    NetworkDriver driver{engine, clock};
    MemoryResolver resolver;
    RemoteWishes wishes;
    NetworkService network;
};

class NetworkServiceTest : public testing::Test {
  protected:
    // Serves both as a control thread does, until something holds.
    template <class Holds>
    bool Becomes(Holds holds) {
        const Clock::time_point end = Clock::now() + std::chrono::seconds(60);
        while (!holds()) {
            if (Clock::now() > end) {
                return false;
            }
            std::vector<pollfd> waited;
            int timeout = 1000;
            for (Computer* each : all) {
                waited.push_back({each->network.EventDescriptor(), POLLIN, 0});
                const int own = each->network.Timeout();
                timeout = own < 0 ? timeout : std::min(timeout, own);
            }
            poll(waited.data(), waited.size(), timeout);
            for (std::size_t i = 0; i < all.size(); ++i) {
                const bool isDue = all[i]->network.Timeout() == 0;
                if (waited[i].revents != 0 || isDue) {
                    all[i]->network.Serve();
                }
            }
        }
        return true;
    }
    // A way from the laptop to the input of the studio, which hears it.
    void Connect() {
        studio.Hear();
        laptop.LeadTo(studio.Address());
        ASSERT_TRUE(Becomes([this] { return laptop.Problem().empty(); })) << laptop.Problem();
    }

    LogCapture log;
    Computer laptop{"laptop"};
    Computer studio{"studio"};
    std::vector<Computer*> all = {&laptop, &studio};
};

TEST_F(NetworkServiceTest, AWayThatTheOtherComputerHearsHasANumberAndNoProblem) {
    Connect();
    EXPECT_EQ(laptop.Answer(), (RemoteAnswer{1, "", false}));
    const RemoteStatus status = laptop.network.Status();
    ASSERT_THAT(status.sessions, SizeIs(1));
    const RemoteSession& session = status.sessions[0];
    EXPECT_EQ(session.computer, studio.Address());
    EXPECT_EQ(session.state, "up");
    EXPECT_TRUE(session.up);
    EXPECT_EQ(session.address, studio.Address());
    EXPECT_EQ(session.interface, "lo");
    EXPECT_EQ(session.key, studio.network.Status().key);
    ASSERT_THAT(session.ways, SizeIs(1));
    EXPECT_FALSE(session.ways[0].incoming);
    EXPECT_EQ(session.ways[0].to, kInput);
    const RemoteStatus there = studio.network.Status();
    ASSERT_THAT(there.sessions, SizeIs(1));
    EXPECT_EQ(there.sessions[0].computer, "laptop");
    ASSERT_THAT(there.sessions[0].ways, SizeIs(1));
    EXPECT_TRUE(there.sessions[0].ways[0].incoming);
    EXPECT_EQ(there.sessions[0].ways[0].problem, "");
}

TEST_F(NetworkServiceTest, ANoteIsHeardOnTheOtherComputer) {
    Connect();
    ASSERT_TRUE(laptop.engine.PostWay(kTestSourceBase, {}));
    laptop.LeadTo(studio.Address(), kTestSourceBase);
    ASSERT_TRUE(Becomes([this] { return laptop.Problem().empty(); })) << laptop.Problem();
    ASSERT_TRUE(laptop.engine.PostWay(
        kTestSourceBase, {Destination::Remote(laptop.Answer().computer, kInput, kTestSourceBase), true}));
    ASSERT_TRUE(laptop.engine.PostTestBytes(0, std::vector<std::uint8_t>{0x90, 60, 100}));
    laptop.driver.Turn();
    studio.driver.Turn();
    EXPECT_TRUE(Becomes([this] {
        studio.driver.Turn();
        return studio.engine.CountersOfInput(kInput).messages == 1;
    }));
}

TEST_F(NetworkServiceTest, EachReasonOfAnInputIsToldBySentences) {
    studio.Hear();
    laptop.LeadTo(studio.Address());
    const std::string there = "\"" + studio.Address() + "\"";
    DriverConfiguration& inputs = studio.wishes.configuration;
    const auto tells = [&](const std::string& sentence) {
        studio.network.SetWishes(studio.wishes);
        EXPECT_TRUE(Becomes([&] { return laptop.Problem() == sentence; }))
            << laptop.Problem() << " instead of " << sentence;
    };
    tells("");
    inputs.InputPorts = 0;
    tells("Port 18 of " + there + " is not enabled as MIDI IN.");
    inputs.LocalPipes = std::uint64_t{1} << kInput;
    tells("Port 18 of " + there + " is a local pipe, which hears only itself.");
    inputs.LocalPipes = 0;
    inputs.InputPorts = std::uint64_t{1} << kInput;
    inputs.PortFlags[kInput].flags = kSourcePortUnused;
    inputs.Hosts[kInput].SrcHost = "stage";
    tells("Port 18 of " + there + " listens to another computer.");
    inputs.Hosts[kInput].SrcHost = "laptop";
    tells("");
    inputs.PortFlags[kInput] = {kSourceComputerUnused, 0, 3, 0};
    tells("Port 18 of " + there + " listens to another port.");
}

TEST_F(NetworkServiceTest, WhoDoesNotAnswerIsSaidNotToAnswer) {
    laptop.LeadTo("127.0.0.1:9");
    EXPECT_TRUE(laptop.Answer().passing);
    EXPECT_TRUE(Becomes([this] {
        return laptop.Answer() == RemoteAnswer{1, "The computer \"127.0.0.1:9\" does not answer.", false};
    })) << laptop.Problem();
    const RemoteSession session = laptop.network.Status().sessions.at(0);
    EXPECT_EQ(session.state, "calling");
    EXPECT_EQ(session.ways.at(0).problem, session.problem);
}

TEST_F(NetworkServiceTest, NamesThatLeadNowhereAreSaidToDoSo) {
    laptop.LeadTo("two words");
    EXPECT_EQ(laptop.Problem(), "\"two words\" is neither the name nor the address of a computer.");
    laptop.LeadTo("attic");
    EXPECT_TRUE(Becomes([this] {
        return laptop.Problem() == "No computer on the network is called \"attic\".";
    })) << laptop.Problem();
    laptop.resolver.Know("alias", {NetworkAddress::V4({127, 0, 0, 1})});
    laptop.LeadTo("alias:" + std::to_string(laptop.network.Port()));
    EXPECT_TRUE(Becomes([this] {
        return laptop.Problem().find("leads to this computer") != std::string::npos;
    })) << laptop.Problem();
}

TEST_F(NetworkServiceTest, AnInputThatListensToAComputerCallsIt) {
    studio.ListenTo(laptop.Address());
    EXPECT_TRUE(Becomes([this] {
        const RemoteStatus status = studio.network.Status();
        return status.sessions.size() == 1 && status.sessions[0].up;
    }));
}

TEST_F(NetworkServiceTest, ThisComputersNamesAndAddressesAreItsOwn) {
    EXPECT_TRUE(laptop.network.IsThisComputer("127.0.0.1"));
    EXPECT_TRUE(laptop.network.IsThisComputer("::1"));
    EXPECT_TRUE(laptop.network.IsThisComputer("LAPTOP.local"));
    EXPECT_TRUE(laptop.network.IsThisComputer(laptop.Address()));
    EXPECT_FALSE(laptop.network.IsThisComputer(studio.Address()));
    EXPECT_FALSE(laptop.network.IsThisComputer("192.0.2.1"));
    laptop.Do({"speak", "off"});
    EXPECT_TRUE(laptop.network.IsThisComputer("127.0.0.1"));
    EXPECT_TRUE(laptop.network.IsThisComputer("localhost"));
}

TEST_F(NetworkServiceTest, OffItHasNoSocketAndSaysSo) {
    Computer quiet("quiet", std::nullopt);
    EXPECT_EQ(quiet.network.Port(), 0);
    quiet.LeadTo(studio.Address());
    EXPECT_EQ(quiet.Problem(), "MIDI between computers is off; \"vexil3ctl network on\" switches it on.");
    EXPECT_EQ(quiet.network.Status().speaks, "off");
    EXPECT_EQ(quiet.network.Timeout(), -1);
    EXPECT_TRUE(quiet.Do({"speak", "lo"}).contains("done"));
    EXPECT_NE(quiet.network.Port(), 0);
    EXPECT_EQ(quiet.store.Settings().speaks.Text(), "lo");
    EXPECT_TRUE(quiet.Do({"speak", "off"}).contains("done"));
    EXPECT_EQ(quiet.network.Port(), 0);
    EXPECT_TRUE(quiet.Do({"speak", "eth0,,"}).contains("problem"));
}

TEST_F(NetworkServiceTest, TheCommandLineStandsBeforeWhatIsStored) {
    NetworkSettings settings = laptop.store.Settings();
    settings.speaks = InterfaceChoice::Loopback();
    ASSERT_TRUE(laptop.store.Save(settings));
    NetworkService quiet({laptop.engine, laptop.driver, laptop.store, laptop.resolver,
                          [] { return std::make_unique<NetlinkInterfaces>(); }, 0},
                         InterfaceChoice());
    quiet.SetWishes(laptop.wishes);
    EXPECT_EQ(quiet.Port(), 0);
    EXPECT_TRUE(laptop.store.Settings().speaks.Text() == "lo") << "which stays stored";
    laptop.engine.SetRemoteSink(nullptr);
}

// The loopback interface as if it led to a network that carries no broadcasts.
std::unique_ptr<Interfaces> MakeNetwork() {
    NetworkInterface interface = MakeInterface(1, "lo", "127.0.0.1", 8);
    interface.loopback = false;
    interface.broadcasts = false;
    return std::make_unique<MemoryInterfaces>(std::vector{interface});
}

TEST_F(NetworkServiceTest, WhereDnsSdSaysThatAComputerIsItIsAskedAndListed) {
    MemoryServiceDiscovery* services = nullptr;
    Computer stage("stage", std::nullopt);
    NetworkService finder({stage.engine, stage.driver, stage.store, stage.resolver, MakeNetwork, 0, nullptr,
                           [&services] {
                               auto made = std::make_unique<MemoryServiceDiscovery>();
                               services = made.get();
                               return made;
                           }},
                          InterfaceChoice::FromText("lo,none0"));
    finder.SetWishes(stage.wishes);
    ASSERT_NE(services, nullptr);
    EXPECT_EQ(services->Published(), (ServiceWish{"stage", finder.Port(), {1}}));
    // Only when it says so.
    const auto becomes = [&](const auto& holds) {
        pollfd event{finder.EventDescriptor(), POLLIN, 0};
        while (!holds() && poll(&event, 1, 60'000) == 1) {
            finder.Serve();
        }
        return holds();
    };
    // Somebody who is there, and somebody who is not.
    services->Offer("liar", NetworkAddress::V4({127, 0, 0, 9}, 9, 1));
    services->Offer("any name", NetworkAddress::V4({127, 0, 0, 1}, studio.network.Port(), 1));
    EXPECT_TRUE(becomes([&] { return !finder.Computers().empty(); }));
    ASSERT_THAT(finder.Computers(), SizeIs(1));
    EXPECT_EQ(finder.Computers()[0].name, "studio");
    EXPECT_EQ(finder.Status().avahi, "");
    finder.Browse();
    EXPECT_EQ(services->TimesLookedAgain(), 1);
    services->Go();
    EXPECT_TRUE(becomes([&] { return finder.Status().avahi == "There is no DNS-SD."; }));
    EXPECT_EQ(Json::parse(finder.Command({"list"}))["avahi"], "There is no DNS-SD.");
    stage.engine.SetRemoteSink(nullptr);
}

TEST_F(NetworkServiceTest, SessionsAreLookedForAndListedWhileRtpIsSpoken) {
    std::vector<MemoryServiceDiscovery*> made;
    Computer stage("stage", std::nullopt);
    NetworkService finder({stage.engine, stage.driver, stage.store, stage.resolver, MakeNetwork, 0, nullptr,
                           [&made] {
                               auto next = std::make_unique<MemoryServiceDiscovery>();
                               made.push_back(next.get());
                               return next;
                           }},
                          InterfaceChoice::FromText("lo,none0"));
    finder.SetWishes(stage.wishes);
    ASSERT_THAT(made, SizeIs(1));
    finder.Command({"rtp", "on"});
    ASSERT_THAT(made, SizeIs(3));  // the network began anew
    MemoryServiceDiscovery& sessions = *made[2];
    EXPECT_EQ(sessions.Published(), (ServiceWish{"", 0, {1}, kSessionType, {}}));
    sessions.Offer("iPad", NetworkAddress::V4({127, 0, 0, 9}, 5004, 1));
    finder.Serve();
    ASSERT_THAT(finder.Computers(), SizeIs(1));
    EXPECT_EQ(finder.Computers()[0].name, "iPad");
    EXPECT_EQ(finder.Computers()[0].port, 5004);
    sessions.Withdraw("iPad");
    finder.Serve();
    EXPECT_THAT(finder.Computers(), SizeIs(0));
    finder.Command({"rtp", "off"});
    EXPECT_THAT(made, SizeIs(4));
    stage.engine.SetRemoteSink(nullptr);
}

TEST_F(NetworkServiceTest, WithinThisComputerAloneNoDnsSdIsMade) {
    int made = 0;
    Computer stage("stage", std::nullopt);
    NetworkService quiet({stage.engine, stage.driver, stage.store, stage.resolver,
                          [] { return std::make_unique<NetlinkInterfaces>(); }, 0, nullptr,
                          [&made] {
                              ++made;
                              return std::make_unique<MemoryServiceDiscovery>();
                          }},
                         InterfaceChoice::Loopback());
    quiet.SetWishes(stage.wishes);
    EXPECT_NE(quiet.Port(), 0);
    quiet.Command({"speak", "off"});
    EXPECT_EQ(made, 0);
    EXPECT_EQ(quiet.Status().avahi, "");
    stage.engine.SetRemoteSink(nullptr);
}

TEST_F(NetworkServiceTest, AComputerThatEndsIsToldToTheOther) {
    Connect();
    studio.network.Stop();
    EXPECT_TRUE(Becomes([this] { return !laptop.Problem().empty(); }));
    EXPECT_THAT(laptop.Problem(), testing::AnyOf(HasSubstr("has ended"), HasSubstr("does not answer")));
    EXPECT_EQ(studio.network.Port(), 0);
}

TEST_F(NetworkServiceTest, TheKeyOfAFirstConnectionIsRememberedOnBothSides) {
    Connect();
    const std::string key = studio.network.Status().key;
    ASSERT_TRUE(Becomes([this] {
        return laptop.store.Settings().access.pins.size() == 1 &&
               studio.store.Settings().access.pins.size() == 1;
    }));
    EXPECT_EQ(laptop.store.Settings().access.pins[0].name, "studio");
    EXPECT_EQ(ShortKeyText(laptop.store.Settings().access.pins[0].key), key);
    EXPECT_THAT(log.Text(), HasSubstr("The key of \"studio\" is remembered: " + key));
    const Json list = laptop.Do({"list"});
    EXPECT_EQ(list["speaks"], "lo");
    EXPECT_EQ(list["allow"], "any");
    EXPECT_EQ(list["secret"], false);
    ASSERT_EQ(list["computers"].size(), 1U);
    EXPECT_EQ(list["computers"][0]["key"], key);
    EXPECT_EQ(list["computers"][0]["state"], "up");
    EXPECT_NE(list["computers"][0]["since"], 0);
    EXPECT_TRUE(laptop.Do({"list", "1"})["computers"].empty()) << "it goes on behind that one";
    EXPECT_EQ(laptop.Do({"list", "0"}), list);
    EXPECT_TRUE(laptop.Do({"list", "0x1"}).contains("problem"));
}

TEST_F(NetworkServiceTest, WhoIsConnectedKeepsThePinWhenItIsPinnedAgain) {
    Connect();
    ASSERT_TRUE(Becomes([this] { return studio.store.Settings().access.pins.size() == 1; }));
    EXPECT_EQ(studio.Do({"pin", "laptop"})["done"], "That key is accepted already.");
    EXPECT_THAT(studio.store.Settings().access.pins, SizeIs(1));
}

TEST_F(NetworkServiceTest, ANewKeyIsNamedAlsoWhileTheNetworkIsOff) {
    laptop.Do({"speak", "off"});
    const Json answer = laptop.Do({"new-key"});
    EXPECT_EQ(answer["done"],
              "This computer has a new key: " + ShortKeyText(laptop.store.Key()->Hash()) + ".");
}

TEST_F(NetworkServiceTest, AnotherKeyUnderAKnownNameIsRefusedUntilItIsAccepted) {
    Connect();
    ASSERT_TRUE(Becomes([this] { return studio.store.Settings().access.pins.size() == 1; }));
    ASSERT_TRUE(laptop.Do({"new-key"}).contains("done"));
    const std::string address = "\"" + studio.Address() + "\"";
    EXPECT_TRUE(Becomes([&] {
        return laptop.Problem() == address +
                                       " knows this computer by another key; \"vexil3ctl network pin\" "
                                       "over there accepts the new one.";
    })) << laptop.Problem();
    EXPECT_TRUE(Becomes([this] { return !studio.network.Status().remarks.empty(); }));
    EXPECT_THAT(studio.network.Status().remarks, Contains(HasSubstr("calls itself \"laptop\"")));
    ASSERT_THAT(studio.network.Status().refused, SizeIs(1));
    EXPECT_EQ(studio.network.Status().refused[0].name, "laptop");
    EXPECT_TRUE(studio.Do({"pin", "laptop"}).contains("done"));
    EXPECT_THAT(studio.store.Settings().access.pins, SizeIs(2)) << "a set of keys";
    // It would be called again after 30 s; who wants it sooner says so.
    laptop.Do({"speak", "lo"});
    EXPECT_TRUE(Becomes([this] { return laptop.Problem().empty(); })) << laptop.Problem();
    EXPECT_THAT(studio.network.Status().remarks, testing::Not(Contains(HasSubstr("calls itself"))));
}

TEST_F(NetworkServiceTest, WhoIsBlockedGoesAndIsToldWhy) {
    Connect();
    ASSERT_TRUE(Becomes([this] { return studio.store.Settings().access.pins.size() == 1; }));
    EXPECT_TRUE(studio.Do({"block", "laptop"}).contains("done"));
    EXPECT_TRUE(Becomes([this] {
        return laptop.Problem() == "\"" + studio.Address() + "\" does not let this computer in.";
    })) << laptop.Problem();
    EXPECT_EQ(studio.Do({"list"})["computers"][0]["state"], "blocked");
    EXPECT_TRUE(studio.Do({"unblock", "laptop"}).contains("done"));
    laptop.Do({"speak", "lo"});
    EXPECT_TRUE(Becomes([this] { return laptop.Problem().empty(); })) << laptop.Problem();
}

TEST_F(NetworkServiceTest, ASecretIsNeededOfEverybody) {
    EXPECT_EQ(studio.Do({"secret", "short"})["problem"], "A secret needs at least 8 characters.");
    ASSERT_TRUE(studio.Do({"secret", "correct horse"}).contains("done"));
    const std::string there = "\"" + studio.Address() + "\"";  // its port is another one now
    studio.Hear();
    laptop.LeadTo(studio.Address());
    EXPECT_TRUE(Becomes([&] { return laptop.Problem() == there + " wants a secret, and none is set here."; }))
        << laptop.Problem();
    ASSERT_FALSE(laptop.network.Status().sessions.empty());
    EXPECT_EQ(laptop.network.Status().sessions[0].needs, "secret");
    ASSERT_TRUE(laptop.Do({"secret", "another horse"}).contains("done"));
    EXPECT_TRUE(Becomes([&] { return laptop.Problem() == "Another secret is set on " + there + "."; }))
        << laptop.Problem();
    ASSERT_TRUE(laptop.Do({"secret", "correct horse"}).contains("done"));
    EXPECT_TRUE(Becomes([this] { return laptop.Problem().empty(); })) << laptop.Problem();
    EXPECT_EQ(laptop.Do({"list"})["secret"], true);
}

TEST_F(NetworkServiceTest, ASecretThatCannotBeStoredIsSaidAndTheOldOneStays) {
    ASSERT_TRUE(studio.Do({"secret", "correct horse"}).contains("done"));
    ASSERT_TRUE(laptop.Do({"secret", "correct horse"}).contains("done"));
    Connect();
    const NetworkSettings before = studio.store.Settings();
    for (const int error : {ENOSPC, EROFS}) {
        storeError = error;
        for (const std::vector<std::string>& words :
             {std::vector<std::string>{"secret", "another horse"}, std::vector<std::string>{"no-secret"}}) {
            EXPECT_EQ(studio.Do(words)["problem"], "That could not be stored; nothing has changed.");
        }
        storeError = 0;
        EXPECT_EQ(studio.Do({"list"})["secret"], true);
        EXPECT_EQ(studio.store.Settings(), before);
        KeyStore stored({studio.folder.path + "/network", "host1", "machine1"}, [](const std::string&) {});
        EXPECT_EQ(stored.Settings(), before);
    }
    // It is the old one that a caller has to prove.
    ASSERT_TRUE(laptop.Do({"secret", "another horse"}).contains("done"));
    const std::string there = "\"" + studio.Address() + "\"";
    EXPECT_TRUE(Becomes([&] { return laptop.Problem() == "Another secret is set on " + there + "."; }))
        << laptop.Problem();
    ASSERT_TRUE(laptop.Do({"secret", "correct horse"}).contains("done"));
    EXPECT_TRUE(Becomes([this] { return laptop.Problem().empty(); })) << laptop.Problem();
}

TEST_F(NetworkServiceTest, OnlyKnownKeysAreLetInWhereTheUserWantsIt) {
    ASSERT_TRUE(studio.Do({"allow", "known"}).contains("done"));
    EXPECT_TRUE(studio.Do({"allow", "nobody"}).contains("problem"));
    studio.Hear();
    laptop.LeadTo(studio.Address());
    EXPECT_TRUE(Becomes([this] {
        return laptop.Problem() == "\"" + studio.Address() + "\" does not let this computer in.";
    })) << laptop.Problem();
}

TEST_F(NetworkServiceTest, WhatCannotBeDoneIsSaid) {
    for (const std::vector<std::string>& words :
         std::vector<std::vector<std::string>>{{},
                                               {"sing"},
                                               {"pin"},
                                               {"pin", "nobody"},
                                               {"forget", "nobody"},
                                               {"block", "nobody"},
                                               {"unblock", "nobody"},
                                               {"pin", "nobody", "abcd"},
                                               {"secret"},
                                               {"allow"}}) {
        EXPECT_TRUE(laptop.Do(words).contains("problem"));
    }
}

TEST_F(NetworkServiceTest, APortThatIsTakenIsSaidAndAnotherOneIsUsed) {
    Folder folder;
    KeyStore store({folder.path + "/network", "host1", "machine1"}, [](const std::string&) {});
    Engine engine{std::size_t{1} << 20};
    NetworkDriver driver{engine, laptop.clock};
    NetworkService second({engine, driver, store, laptop.resolver,
                           [] { return std::make_unique<NetlinkInterfaces>(); }, laptop.network.Port()},
                          InterfaceChoice::Loopback());
    second.SetWishes(laptop.wishes);
    EXPECT_NE(second.Port(), 0);
    EXPECT_NE(second.Port(), laptop.network.Port());
    EXPECT_THAT(second.Status().remarks,
                Contains(HasSubstr("is used by another program; another one is used.")));
}

TEST_F(NetworkServiceTest, OneDriverOfAComputerSpeaksAndTheNextTakesOver) {
    const std::string name = "vexil3/service-test-" + std::to_string(getpid());
    SpeakerTurn ours(name);
    SpeakerTurn theirs(name);
    ASSERT_TRUE(theirs.Take());
    NetworkService::Parts parts{laptop.engine,
                                laptop.driver,
                                laptop.store,
                                laptop.resolver,
                                [] { return std::make_unique<NetlinkInterfaces>(); },
                                0,
                                &ours};
    // By its name, loopback is an interface like others.
    NetworkService second(parts, InterfaceChoice::FromText("lo,none0"));
    second.SetWishes(laptop.wishes);
    EXPECT_EQ(second.Port(), 0);
    EXPECT_THAT(
        second.Status().problem,
        testing::MatchesRegex("Vexil III of user .+ speaks to the network from this computer; this one "
                              "waits until it ends."));
    pollfd event{second.EventDescriptor(), POLLIN, 0};
    EXPECT_EQ(poll(&event, 1, 0), 0);
    theirs.Leave();
    ASSERT_EQ(poll(&event, 1, 30'000), 1);
    EXPECT_TRUE(second.Serve());
    EXPECT_NE(second.Port(), 0);
    EXPECT_EQ(second.Status().problem, "");
    EXPECT_FALSE(theirs.Take());
    second.Stop();
    EXPECT_TRUE(theirs.Take());
    laptop.engine.SetRemoteSink(nullptr);
}

TEST_F(NetworkServiceTest, IdleItHasNoTimer) {
    Computer idle("idle");
    EXPECT_EQ(idle.network.Timeout(), -1);
}

TEST_F(NetworkServiceTest, AnotherNameIsTakenUp) {
    Connect();
    laptop.wishes.names = {"notebook"};
    laptop.network.SetWishes(laptop.wishes);
    EXPECT_TRUE(Becomes([this] {
        const RemoteStatus status = studio.network.Status();
        return std::any_of(status.sessions.begin(), status.sessions.end(), [](const RemoteSession& session) {
            return session.up && session.computer == "notebook";
        });
    }));
}

RemoteSession Session(const std::string& computer, bool up) {
    RemoteSession session;
    session.computer = computer;
    session.up = up;
    session.problem = up ? "" : "The computer \"" + computer + "\" is no longer heard.";
    session.address = "192.168.1.20:11188";
    session.interface = "eth0";
    session.key = "00112233";
    return session;
}

TEST(ConnectionReportTest, ConnectionsAreToldWhenTheyComeAndWhyTheyGo) {
    LogCapture log;
    ConnectionReport report;
    report.Sessions(1, {Session("studio", false)}, true);
    EXPECT_EQ(log.Text(), "");
    report.Sessions(1, {Session("studio", true)}, true);
    report.Sessions(1, {Session("studio", true)}, true);
    report.Sessions(1, {Session("studio", false)}, true);
    EXPECT_EQ(log.Text(),
              "Connected with \"studio\" at 192.168.1.20:11188 by eth0, key 00112233.\n"
              "The connection with \"studio\" has ended. The computer \"studio\" is no longer heard.\n");
    log.Clear();
    report.Sessions(1, {Session("studio", true)}, false);
    EXPECT_EQ(log.Text(), "");
}

TEST(ConnectionReportTest, ItsLinesAreBounded) {
    LogCapture log;
    ConnectionReport report;
    const auto lines = [&log] {
        const std::string text = log.Text();
        return std::count(text.begin(), text.end(), '\n');
    };
    for (int i = 0; i < 100; ++i) {
        report.Sessions(1, {Session("studio", i % 2 == 0)}, true);
    }
    EXPECT_EQ(lines(), ConnectionReport::kMostLines);
    EXPECT_THAT(log.Text(), HasSubstr("too often"));
    log.Clear();
    report.Sessions(1 + ConnectionReport::kMinute, {Session("studio", true)}, true);
    EXPECT_EQ(lines(), 1);
}

TEST_F(NetworkServiceTest, RtpIsSwitchedOnAndOffAndStored) {
    Computer computer("laptop");
    EXPECT_FALSE(computer.Do({"list"})["rtp"].get<bool>());
    EXPECT_EQ(computer.Do({"rtp", "on"})["done"], "RTP-MIDI is on.");
    EXPECT_TRUE(computer.Do({"list"})["rtp"].get<bool>());
    EXPECT_TRUE(computer.store.Settings().rtp);
    EXPECT_EQ(computer.Do({"rtp", "off"})["done"], "RTP-MIDI is off.");
    EXPECT_FALSE(computer.store.Settings().rtp);
    EXPECT_EQ(computer.Do({"rtp", "maybe"})["problem"], "\"on\" or \"off\" is needed.");
}

TEST_F(NetworkServiceTest, RtpIsOffWhileASecretIsSetOrOnlySomeAreLetIn) {
    Computer computer("laptop");
    computer.Do({"rtp", "on"});
    computer.Do({"secret", "eight and more"});
    EXPECT_FALSE(computer.Do({"list"})["rtp"].get<bool>());
    EXPECT_THAT(computer.Do({"rtp", "on"})["problem"].get<std::string>(),
                testing::StartsWith("RTP-MIDI knows no secrets"));
    computer.Do({"no-secret"});
    EXPECT_TRUE(computer.Do({"list"})["rtp"].get<bool>());
    computer.Do({"allow", "known"});
    EXPECT_FALSE(computer.Do({"list"})["rtp"].get<bool>());
    EXPECT_THAT(computer.Do({"rtp", "on"})["problem"].get<std::string>(),
                testing::StartsWith("By RTP-MIDI nobody proves who he is"));
    computer.Do({"allow", "any"});
    EXPECT_TRUE(computer.Do({"list"})["rtp"].get<bool>());
}

}  // namespace
}  // namespace vexil
