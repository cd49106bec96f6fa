// Computers on a wire in memory that look for each other, in virtual time.
#include "service/network/Discovery.h"

#include <gmock/gmock.h>

#include <functional>
#include <memory>
#include <vector>

#include "service/network/LinkCodec.h"
#include "tests/doubles/MemoryInterfaces.h"
#include "tests/doubles/MemoryWire.h"

namespace vexil {
namespace {

using Kind = DiscoveryEvent::Kind;
constexpr std::uint64_t kMillisecond = 1000;
constexpr std::uint64_t kSecond = 1'000'000;

KeyHash KeyOf(std::uint8_t number) {
    KeyHash key{};
    key.fill(number);
    return key;
}

// One computer with its socket.
class Node : public Discovery::Mediator {
  public:
    Node(MemoryWire& itsWire, std::uint8_t itsNumber, const std::string& itsName,
         std::uint16_t itsPort = kLinkPort)
        : wire(itsWire),
          number(itsNumber),
          name(itsName),
          port(itsPort),
          names({itsName}),
          rules(KeyOf(itsNumber)),
          directory(names, rules),
          discovery(*this, directory, rules),
          socket(itsWire, {NetworkAddress::V4({10, 0, 0, itsNumber}, itsPort, 2)}) {
        directory.SetOwn({ComputerIdOf(KeyOf(number)), name, {}, {}});
        discovery.SetInterfaces(Now(), {MakeInterface(2, "eth0", "10.0.0." + std::to_string(number), 24)});
        SetName(name);
    }

    std::uint64_t Random() override { return 1000 * number + ++drawn; }

    void SetName(const std::string& itsName, std::uint8_t key = 0) {
        name = itsName;
        ComputerAnswer said;
        said.id = ComputerIdOf(KeyOf(key == 0 ? number : key));
        said.port = port;
        said.hardwareAddress = {2, 0, 0, 0, 0, number};
        said.name = name;
        discovery.SetComputer(Now(), said);
    }

    std::uint64_t Now() const { return wire.Now() / 1000; }

    // Does what there is to do at this moment.
    void Serve() {
        std::array<std::uint8_t, kLongestDatagram> buffer{};
        while (const auto told = socket.Receive(buffer)) {
            discovery.HandleDatagram(Now(), *told, ByteView(buffer).first(told->size));
        }
        if (const auto due = discovery.PollTimeout(); due && *due <= Now()) {
            discovery.HandleTimeout(Now());
        }
        while (const auto out = discovery.PollTransmit(buffer)) {
            socket.Send(out->to, out->own, ByteView(buffer).first(out->size));
        }
        while (const auto event = discovery.PollEvent()) {
            events.push_back(*event);
        }
    }

    int CountOf(Kind kind) const {
        return static_cast<int>(
            std::count_if(events.begin(), events.end(),
                          [kind](const DiscoveryEvent& event) { return event.kind == kind; }));
    }
    std::vector<std::string> List() {
        directory.DropUnanswering(Now());
        std::vector<std::string> list;
        for (const ComputerEntry* entry : directory.List(8192, 19)) {
            list.push_back(entry->shown);
        }
        return list;
    }

    MemoryWire& wire;
    std::uint8_t number;
    std::string name;
    std::uint16_t port;
    LocalNames names;
    AccessRules rules;
    ComputerDirectory directory;
    Discovery discovery;
    MemoryDatagramSocket socket;
    std::vector<DiscoveryEvent> events;
    std::uint64_t drawn = 0;
};

class DiscoveryTest : public testing::Test {
  protected:
    Node& Add(const std::string& name, std::uint16_t port = kLinkPort) {
        const auto number = static_cast<std::uint8_t>(nodes.size() + 1);
        nodes.push_back(std::make_unique<Node>(wire, number, name, port));
        return *nodes.back();
    }
    void Serve() {
        for (const auto& node : nodes) {
            node->Serve();
        }
    }
    // Lets time pass from one thing that happens to the next.
    void Pass(std::uint64_t microseconds) {
        const std::uint64_t end = wire.Now() + 1000 * microseconds;
        Serve();
        for (;;) {
            std::uint64_t next = end;
            if (const auto arrival = wire.NextArrival()) {
                next = std::min(next, *arrival);
            }
            for (const auto& node : nodes) {
                if (const auto due = node->discovery.PollTimeout()) {
                    next = std::min(next, *due * 1000);
                }
            }
            wire.Advance(next > wire.Now() ? next - wire.Now() : 0);
            Serve();
            if (wire.Now() >= end) {
                return;
            }
        }
    }
    // A datagram as a stranger sends it.
    void Send(Node& to, const NetworkAddress& from, ByteView bytes) {
        ReceivedDatagram told;
        told.size = bytes.size();
        told.from = from;
        to.discovery.HandleDatagram(to.Now(), told, bytes);
    }
    std::vector<std::uint8_t> Announcement(const ComputerAnswer& said) {
        std::vector<std::uint8_t> bytes(kLongestDatagram);
        bytes.resize(WriteAnnouncement(said, bytes));
        return bytes;
    }

    MemoryWire wire;
    std::vector<std::unique_ptr<Node>> nodes;
};

TEST_F(DiscoveryTest, ABrowseFindsWhoIsThere) {
    Node& laptop = Add("laptop");
    Node& studio = Add("studio");
    Node& attic = Add("attic");
    studio.discovery.Start(studio.Now());
    attic.discovery.Start(attic.Now());
    Pass(kSecond);
    laptop.discovery.Start(laptop.Now());
    EXPECT_TRUE(laptop.discovery.Browse(laptop.Now()));
    Pass(kMillisecond);
    EXPECT_THAT(laptop.List(), testing::ElementsAre("attic", "studio"));
    EXPECT_EQ(laptop.directory.Find("studio")->addresses.front(),
              NetworkAddress::V4({10, 0, 0, 2}, kLinkPort, 2));
    // The announcement of the newcomer has told the others.
    EXPECT_THAT(studio.List(), testing::ElementsAre("attic", "laptop"));
    EXPECT_GE(laptop.CountOf(Kind::ListChanged), 1);
}

TEST_F(DiscoveryTest, ABrowseAsksThreeTimes) {
    Node& laptop = Add("laptop");
    laptop.discovery.Start(laptop.Now());
    Pass(kSecond);
    const std::uint64_t before = wire.Sent();
    laptop.discovery.Browse(laptop.Now());
    Serve();
    EXPECT_EQ(wire.Sent(), before + 1);
    Pass(4 * kMillisecond);
    EXPECT_EQ(wire.Sent(), before + 2);
    Pass(145 * kMillisecond);
    EXPECT_EQ(wire.Sent(), before + 2);
    Pass(kMillisecond);
    EXPECT_EQ(wire.Sent(), before + 3);
    EXPECT_FALSE(laptop.discovery.PollTimeout());
    Pass(10 * kSecond);
    EXPECT_EQ(wire.Sent(), before + 3);
}

TEST_F(DiscoveryTest, ThereIsOneBrowseInATenthOfASecond) {
    Node& laptop = Add("laptop");
    EXPECT_FALSE(laptop.discovery.Browse(laptop.Now()));
    laptop.discovery.Start(laptop.Now());
    EXPECT_TRUE(laptop.discovery.Browse(laptop.Now()));
    Pass(99 * kMillisecond);
    EXPECT_FALSE(laptop.discovery.Browse(laptop.Now()));
    Pass(kMillisecond);
    EXPECT_TRUE(laptop.discovery.Browse(laptop.Now()));
}

TEST_F(DiscoveryTest, WhereAThirdIsLostTheSecondBrowseKnowsAll) {
    constexpr int kRuns = 200;
    int complete = 0;
    for (unsigned seed = 1; seed <= kRuns; ++seed) {
        nodes.clear();
        wire = MemoryWire(seed);
        for (const char* name : {"laptop", "studio", "attic"}) {
            Node& node = Add(name);
            node.discovery.Start(node.Now());
        }
        wire.conditions.loss = 0.3;
        for (int browse = 0; browse < 2; ++browse) {
            nodes[0]->discovery.Browse(nodes[0]->Now());
            Pass(kSecond);
        }
        complete += nodes[0]->List().size() == 2 ? 1 : 0;
    }
    // Each is missed with 0.51 to the sixth power.
    EXPECT_GE(complete, kRuns * 94 / 100);
}

TEST_F(DiscoveryTest, WhoStopsIsGoneAtOnce) {
    Node& laptop = Add("laptop");
    Node& studio = Add("studio");
    laptop.discovery.Start(laptop.Now());
    studio.discovery.Start(studio.Now());
    Pass(kSecond);
    ASSERT_THAT(laptop.List(), testing::ElementsAre("studio"));
    studio.discovery.Stop(studio.Now());
    Pass(kMillisecond);
    EXPECT_THAT(laptop.List(), testing::IsEmpty());
    EXPECT_EQ(laptop.CountOf(Kind::Going), 1);
    // Stopped, it answers nothing.
    laptop.discovery.Browse(laptop.Now());
    Pass(kSecond);
    EXPECT_THAT(laptop.List(), testing::IsEmpty());
    EXPECT_THAT(studio.discovery.Counters().answered, 0U);
}

TEST_F(DiscoveryTest, WhoDiesIsGoneAtTheSecondBrowse) {
    Node& laptop = Add("laptop");
    laptop.discovery.Start(laptop.Now());
    Add("studio").discovery.Start(laptop.Now());
    Pass(kSecond);
    ASSERT_THAT(laptop.List(), testing::ElementsAre("studio"));
    nodes.pop_back();
    laptop.discovery.Browse(laptop.Now());
    Pass(kSecond);
    EXPECT_THAT(laptop.List(), testing::ElementsAre("studio"));
    laptop.discovery.Browse(laptop.Now());
    Pass(kSecond);
    EXPECT_THAT(laptop.List(), testing::IsEmpty());
}

TEST_F(DiscoveryTest, ThatSomebodyIsGoneIsToldWithoutAThirdBrowse) {
    Node& laptop = Add("laptop");
    laptop.discovery.Start(laptop.Now());
    Add("studio").discovery.Start(laptop.Now());
    Pass(kSecond);
    nodes.pop_back();
    laptop.discovery.Browse(laptop.Now());
    Pass(kSecond);
    laptop.events.clear();
    laptop.discovery.Browse(laptop.Now());
    Pass(ComputerDirectory::kPatience - kMillisecond);
    EXPECT_EQ(laptop.CountOf(Kind::ListChanged), 0);
    Pass(kMillisecond);
    EXPECT_EQ(laptop.CountOf(Kind::ListChanged), 1);
    EXPECT_TRUE(laptop.directory.All().empty());
    EXPECT_FALSE(laptop.discovery.PollTimeout());
}

TEST_F(DiscoveryTest, ANewNameIsAnnounced) {
    Node& laptop = Add("laptop");
    Node& studio = Add("studio");
    laptop.discovery.Start(laptop.Now());
    studio.discovery.Start(studio.Now());
    Pass(kSecond);
    studio.SetName("barn");
    Pass(kSecond);
    EXPECT_THAT(laptop.List(), testing::ElementsAre("barn"));
    const std::uint64_t before = wire.Sent();
    studio.SetName("barn");
    Pass(kSecond);
    EXPECT_EQ(wire.Sent(), before);
}

TEST_F(DiscoveryTest, OneThatIsStartedAnnouncesItselfAgainWhenItIsToldTo) {
    Node& studio = Add("studio");
    studio.discovery.AnnounceAgain(studio.Now());
    Pass(kSecond);
    EXPECT_EQ(wire.Sent(), 0U);
    studio.discovery.Start(studio.Now());
    Pass(kSecond);
    const std::uint64_t before = wire.Sent();
    studio.discovery.AnnounceAgain(studio.Now());
    Pass(kSecond);
    EXPECT_GT(wire.Sent(), before);
}

TEST_F(DiscoveryTest, OneOnAnotherPortIsFoundAndFinds) {
    Node& laptop = Add("laptop");
    Node& studio = Add("studio", 20000);
    laptop.discovery.Start(laptop.Now());
    Pass(kSecond);
    studio.discovery.Start(studio.Now());
    studio.discovery.Browse(studio.Now());
    Pass(kSecond);
    ASSERT_THAT(studio.List(), testing::ElementsAre("laptop"));
    ASSERT_THAT(laptop.List(), testing::ElementsAre("studio"));
    EXPECT_EQ(laptop.directory.Find("studio")->port, 20000);
    // It answers the browse, which reaches it at its own port, and hears announcements.
    laptop.discovery.Browse(laptop.Now());
    Pass(kSecond);
    EXPECT_GE(studio.discovery.Counters().answered, 1U);
    laptop.SetName("barn");
    Pass(kSecond);
    EXPECT_THAT(studio.List(), testing::ElementsAre("barn"));
}

TEST_F(DiscoveryTest, OneAddressIsAskedAndItsAnswerIsKnown) {
    Node& laptop = Add("laptop");
    Node& studio = Add("studio");
    studio.discovery.Start(studio.Now());
    laptop.discovery.Start(laptop.Now());
    Pass(kSecond);
    laptop.events.clear();
    const Nonce question = laptop.discovery.Ask(laptop.Now(), NetworkAddress::V4({10, 0, 0, 2}));
    Pass(kSecond);
    ASSERT_EQ(laptop.CountOf(Kind::Heard), 1);
    EXPECT_EQ(laptop.events.front().question, question);
    EXPECT_FALSE(laptop.events.front().announced);
    EXPECT_EQ(laptop.events.front().from, NetworkAddress::V4({10, 0, 0, 2}, kLinkPort, 2));
}

TEST_F(DiscoveryTest, AHintIsAskedAtOnceAndInEveryBrowse) {
    Node& laptop = Add("laptop");
    Node& studio = Add("studio");
    NetworkInterface silent = MakeInterface(2, "eth0", "10.0.0.1", 24);
    silent.broadcasts = false;
    laptop.discovery.SetInterfaces(laptop.Now(), {silent});
    studio.discovery.Start(studio.Now());
    Pass(kSecond);
    laptop.discovery.Start(laptop.Now());
    laptop.discovery.Browse(laptop.Now());
    Pass(kSecond);
    ASSERT_THAT(laptop.List(), testing::IsEmpty());
    const NetworkAddress there = NetworkAddress::V4({10, 0, 0, 2}, kLinkPort, 2);
    laptop.discovery.SetHints(laptop.Now(), {there, there});
    Pass(kMillisecond);
    EXPECT_THAT(laptop.List(), testing::ElementsAre("studio"));
    EXPECT_EQ(studio.discovery.Counters().answered, 1U);
    // Known already, it is not asked again before somebody looks.
    laptop.discovery.SetHints(laptop.Now(), {there});
    Pass(10 * kSecond);
    EXPECT_EQ(studio.discovery.Counters().answered, 1U);
    for (int browse = 0; browse < 3; ++browse) {
        laptop.discovery.Browse(laptop.Now());
        Pass(kSecond);
    }
    EXPECT_THAT(laptop.List(), testing::ElementsAre("studio"));
    EXPECT_EQ(studio.discovery.Counters().answered, 10U);
    // It hears what is announced, too.
    ASSERT_THAT(studio.List(), testing::IsEmpty());
    laptop.discovery.AnnounceAgain(laptop.Now());
    Pass(kSecond);
    EXPECT_THAT(studio.List(), testing::ElementsAre("laptop"));
    // What is no longer hinted is not asked.
    laptop.discovery.SetHints(laptop.Now(), {});
    for (int browse = 0; browse < 2; ++browse) {
        laptop.discovery.Browse(laptop.Now());
        Pass(kSecond);
    }
    EXPECT_THAT(laptop.List(), testing::IsEmpty());
}

TEST_F(DiscoveryTest, AHintThatNobodyAnsweredIsAskedAgainUntilSomebodyDoes) {
    Node& laptop = Add("laptop");
    laptop.discovery.Start(laptop.Now());
    Pass(kSecond);
    const NetworkAddress there = NetworkAddress::V4({10, 0, 0, 2}, kLinkPort, 2);
    const std::uint64_t before = wire.Sent();
    laptop.discovery.SetHints(laptop.Now(), {there});
    Pass(Discovery::kHintAgain[1] - kMillisecond);
    EXPECT_EQ(wire.Sent(), before + 2);
    Node& studio = Add("studio");
    NetworkInterface silent = MakeInterface(2, "eth0", "10.0.0.2", 24);
    silent.broadcasts = false;
    studio.discovery.SetInterfaces(studio.Now(), {silent});
    studio.discovery.Start(studio.Now());
    Pass(2 * kMillisecond);
    EXPECT_THAT(laptop.List(), testing::ElementsAre("studio"));
    Pass(20 * kSecond);
    EXPECT_FALSE(laptop.discovery.PollTimeout());
    EXPECT_EQ(studio.discovery.Counters().answered, 1U);
}

TEST_F(DiscoveryTest, AHintThatLiesBringsNobodyIntoTheList) {
    Node& laptop = Add("laptop");
    Node& studio = Add("studio");
    laptop.discovery.Start(laptop.Now());
    studio.discovery.Start(studio.Now());
    Pass(kSecond);
    std::vector<NetworkAddress> hints;
    for (std::uint8_t host = 20; host < 200; ++host) {
        hints.push_back(NetworkAddress::V4({10, 0, 0, host}, kLinkPort, 2));
    }
    laptop.discovery.SetHints(laptop.Now(), hints);
    for (int browse = 0; browse < 2; ++browse) {
        laptop.discovery.Browse(laptop.Now());
        Pass(kSecond);
    }
    EXPECT_THAT(laptop.List(), testing::ElementsAre("studio"));
}

TEST_F(DiscoveryTest, NobodyIsAskedWhereNoComputerOfThisNetworkCanBe) {
    Node& laptop = Add("laptop");
    laptop.discovery.Start(laptop.Now());
    Pass(kSecond);
    const std::uint64_t before = wire.Sent();
    laptop.discovery.SetHints(
        laptop.Now(),
        {NetworkAddress(), NetworkAddress::V4({8, 8, 8, 8}, kLinkPort, 2),
         NetworkAddress::V4({255, 255, 255, 255}, kLinkPort, 2),
         NetworkAddress::V4({224, 0, 0, 251}, kLinkPort, 2), NetworkAddress::V4({10, 0, 0, 9}, 0, 2),
         NetworkAddress::V4({10, 0, 0, 9}, kLinkPort, 7), NetworkAddress::V4({10, 0, 0, 1}, kLinkPort, 2)});
    Pass(kSecond);
    EXPECT_EQ(wire.Sent(), before);
    laptop.discovery.Browse(laptop.Now());
    Pass(kSecond);
    EXPECT_EQ(wire.Sent(), before + 3) << "which are the browse's own";
}

TEST_F(DiscoveryTest, HintsThatChangeWithoutEndMakeNoFlood) {
    Node& laptop = Add("laptop");
    laptop.discovery.Start(laptop.Now());
    Pass(kSecond);
    const std::uint64_t before = wire.Sent();
    const std::vector<NetworkAddress> hint = {NetworkAddress::V4({10, 0, 0, 9}, kLinkPort, 2)};
    for (std::size_t change = 0; change < 4 * Discovery::kMostHints; ++change) {
        laptop.discovery.SetHints(laptop.Now(), {});
        laptop.discovery.SetHints(laptop.Now(), hint);
        Serve();
    }
    EXPECT_EQ(wire.Sent(), before + Discovery::kMostHints);
    Pass(20 * kSecond);
    EXPECT_EQ(wire.Sent(), before + Discovery::kMostHints + Discovery::kHintAgain.size());
    const std::uint64_t asked = wire.Sent();
    laptop.discovery.SetHints(laptop.Now(), {});
    laptop.discovery.SetHints(laptop.Now(), hint);
    Serve();
    EXPECT_EQ(wire.Sent(), asked + 1);
}

TEST_F(DiscoveryTest, AnAnswerToNothingIsPassedOver) {
    Node& laptop = Add("laptop");
    laptop.discovery.Start(laptop.Now());
    ComputerAnswer said;
    said.port = kLinkPort;
    said.name = "stranger";
    said.id.fill(9);
    std::vector<std::uint8_t> bytes(kLongestDatagram);
    Nonce nonce{};
    nonce.fill(7);
    bytes.resize(WriteAnswer(nonce, said, bytes));
    Send(laptop, NetworkAddress::V4({10, 0, 0, 9}, kLinkPort, 2), bytes);
    EXPECT_THAT(laptop.List(), testing::IsEmpty());
    EXPECT_EQ(laptop.discovery.Counters().unasked, 1U);
}

TEST_F(DiscoveryTest, StrangersFromFarAwayAreNotAnswered) {
    Node& laptop = Add("laptop");
    laptop.discovery.Start(laptop.Now());
    Pass(kSecond);
    std::vector<std::uint8_t> bytes(kLongestDatagram);
    bytes.resize(WriteQuery(Nonce{1}, bytes));
    Send(laptop, NetworkAddress::V4({8, 8, 8, 8}, kLinkPort, 2), bytes);
    EXPECT_EQ(laptop.discovery.Counters().notAdmitted, 1U);
    ComputerAnswer said;
    said.port = kLinkPort;
    said.name = "stranger";
    Send(laptop, NetworkAddress::V4({8, 8, 8, 8}, kLinkPort, 2), Announcement(said));
    EXPECT_THAT(laptop.List(), testing::IsEmpty());
    std::array<std::uint8_t, kLongestDatagram> buffer{};
    EXPECT_FALSE(laptop.discovery.PollTransmit(buffer));
}

TEST_F(DiscoveryTest, AFloodIsAnsweredAtTheRateAndNeverWithMoreThanItAsked) {
    Node& laptop = Add("laptop");
    laptop.discovery.Start(laptop.Now());
    Pass(kSecond);
    std::vector<std::uint8_t> query(kLongestDatagram);
    query.resize(WriteQuery(Nonce{1}, query));
    for (int count = 0; count < 1000; ++count) {
        Send(laptop, NetworkAddress::V4({10, 0, 0, 9}, kLinkPort, 2), query);
    }
    std::array<std::uint8_t, kLongestDatagram> buffer{};
    int answers = 0;
    while (const auto out = laptop.discovery.PollTransmit(buffer)) {
        EXPECT_LE(out->size, query.size());
        ++answers;
    }
    EXPECT_EQ(answers, 50);
    EXPECT_EQ(laptop.discovery.Counters().tooMany, 950U);
}

TEST_F(DiscoveryTest, AnotherComputerWithTheSameKeyIsTold) {
    Node& laptop = Add("laptop");
    Node& studio = Add("studio");
    studio.SetName("copy", 1);
    laptop.discovery.Start(laptop.Now());
    studio.discovery.Start(studio.Now());
    Pass(kSecond);
    ASSERT_GE(laptop.CountOf(Kind::OwnKey), 1);
    EXPECT_THAT(laptop.List(), testing::IsEmpty());
    EXPECT_TRUE(laptop.events.front().from.IsSameHost(NetworkAddress::V4({10, 0, 0, 2})));
}

TEST_F(DiscoveryTest, AQueryOfAnotherVersionIsAnsweredInOursAndTold) {
    Node& laptop = Add("laptop");
    laptop.discovery.Start(laptop.Now());
    Pass(kSecond);
    std::vector<std::uint8_t> query(kLongestDatagram);
    query.resize(WriteQuery(Nonce{1}, query));
    query[1] = kLinkVersion + 1;
    Send(laptop, NetworkAddress::V4({10, 0, 0, 9}, kLinkPort, 2), query);
    std::array<std::uint8_t, kLongestDatagram> buffer{};
    const auto out = laptop.discovery.PollTransmit(buffer);
    ASSERT_TRUE(out);
    EXPECT_EQ(ReadPlainDatagram(ByteView(buffer).first(out->size))->version, kLinkVersion);
    laptop.Serve();
    EXPECT_EQ(laptop.CountOf(Kind::OtherVersion), 1);
}

TEST_F(DiscoveryTest, EachInterfaceIsAskedInItsWay) {
    Node& laptop = Add("laptop");
    NetworkInterface tunnel = MakeInterface(4, "tun0", "10.9.0.1", 24);
    tunnel.broadcasts = false;
    tunnel.multicasts = false;
    NetworkInterface wireless = MakeInterface(3, "wlan0", "192.168.5.1", 24);
    wireless.addresses.push_back(MakeInterface(3, "wlan0", "fe80::3", 64).addresses[0]);
    laptop.discovery.SetInterfaces(laptop.Now(), {MakeInterface(1, "lo", "127.0.0.1", 8), wireless, tunnel});
    laptop.discovery.Start(laptop.Now());
    std::array<std::uint8_t, kLongestDatagram> buffer{};
    while (laptop.discovery.PollTransmit(buffer)) {
    }
    laptop.discovery.Browse(laptop.Now());
    std::vector<std::string> asked;
    while (const auto out = laptop.discovery.PollTransmit(buffer)) {
        asked.push_back(out->to.TextWithPort() + " by " + std::to_string(out->to.interface));
    }
    EXPECT_THAT(asked, testing::ElementsAre("127.255.255.255:11188 by 1", "255.255.255.255:11188 by 3",
                                            "[ff02::1]:11188 by 3"));
}

}  // namespace
}  // namespace vexil
