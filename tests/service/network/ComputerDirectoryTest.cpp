#include "service/network/ComputerDirectory.h"

#include <gmock/gmock.h>

#include "service/network/DatagramSocket.h"

namespace vexil {
namespace {

constexpr std::uint64_t kSecond = 1'000'000;
constexpr std::size_t kOverhead = 19;
constexpr std::size_t kPlenty = 8192;

ComputerId IdOf(std::uint8_t number) {
    ComputerId id{};
    id.fill(number);
    return id;
}

KeyHash KeyOf(std::uint8_t number) {
    KeyHash key{};
    key.fill(number);
    return key;
}

Nonce NonceOf(std::uint8_t number) {
    Nonce nonce{};
    nonce.fill(number);
    return nonce;
}

NetworkAddress At(std::uint8_t host, std::uint32_t interface = 2) {
    return NetworkAddress::V4({10, 0, 0, host}, kLinkPort, interface);
}

ComputerAnswer Computer(std::uint8_t number, std::string_view name) {
    ComputerAnswer said;
    said.id = IdOf(number);
    said.port = kLinkPort;
    said.name = name;
    return said;
}

class ComputerDirectoryTest : public testing::Test {
  protected:
    ComputerDirectoryTest() { directory.SetOwn({IdOf(50), "laptop", {}, {}}); }

    bool Hear(std::uint8_t number, std::string_view name) {
        return directory.Hear(now, At(number), Computer(number, name), Nonce{});
    }
    std::vector<std::string> Names() {
        std::vector<std::string> shown;
        for (const ComputerEntry* entry : directory.List(kPlenty, kOverhead)) {
            shown.push_back(entry->shown);
        }
        return shown;
    }
    ComputerId Who(const char* name) {
        const ComputerEntry* entry = directory.Find(name);
        return entry == nullptr ? ComputerId{} : entry->id;
    }
    void Browse(std::uint64_t wait = kSecond) {
        directory.BeginBrowse(now);
        now += wait;
    }

    LocalNames names{{"laptop"}};
    AccessRules rules{KeyOf(50)};
    ComputerDirectory directory{names, rules};
    std::uint64_t now = 10 * kSecond;
};

TEST_F(ComputerDirectoryTest, ComputersAreListedByTheirNames) {
    EXPECT_TRUE(Hear(1, "studio"));
    EXPECT_TRUE(Hear(2, "Attic"));
    EXPECT_TRUE(Hear(3, "barn"));
    EXPECT_THAT(Names(), testing::ElementsAre("Attic", "barn", "studio"));
    EXPECT_FALSE(Hear(1, "studio"));
    EXPECT_EQ(Who("STUDIO.local"), IdOf(1));
    EXPECT_EQ(directory.Find("cellar"), nullptr);
}

TEST_F(ComputerDirectoryTest, AComputerThatIsRenamedIsFoundByItsNewName) {
    Hear(1, "studio");
    EXPECT_TRUE(Hear(1, "barn"));
    EXPECT_EQ(directory.Find("studio"), nullptr);
    EXPECT_EQ(Who("barn"), IdOf(1));
}

TEST_F(ComputerDirectoryTest, OfTwoWithOneNameTheSmallerIdKeepsIt) {
    Hear(2, "studio");
    Hear(1, "Studio");
    Hear(3, "studio.local");
    EXPECT_EQ(Who("studio"), IdOf(1));
    EXPECT_EQ(Who("studio-2"), IdOf(2));
    EXPECT_THAT(Names(), testing::ElementsAre("Studio", "studio-2", "studio.local-3"));
    EXPECT_THAT(directory.SharedNames(), testing::SizeIs(1));
}

TEST_F(ComputerDirectoryTest, OfTwoWithOneNameThePinnedOneKeepsIt) {
    Hear(1, "studio");
    Hear(2, "studio");
    rules.PinFirst("studio", KeyOf(2), 0);
    directory.Rename();
    EXPECT_EQ(Who("studio"), IdOf(2));
    EXPECT_EQ(Who("studio-2"), IdOf(1));
}

TEST_F(ComputerDirectoryTest, ANumberedNameThatAComputerHasIsLeftToIt) {
    Hear(1, "studio");
    Hear(2, "studio");
    Hear(3, "studio-2");
    EXPECT_EQ(Who("studio-2"), IdOf(3));
    EXPECT_EQ(Who("studio-3"), IdOf(2));
}

TEST_F(ComputerDirectoryTest, NobodyTakesThisComputersName) {
    Hear(1, "laptop");
    Hear(2, "localhost");
    EXPECT_EQ(directory.Find("laptop"), nullptr);
    EXPECT_EQ(Who("laptop-2"), IdOf(1));
    EXPECT_EQ(Who("localhost-2"), IdOf(2));
    EXPECT_THAT(directory.SharedNames(), testing::ElementsAre("laptop"));
}

TEST_F(ComputerDirectoryTest, NamesThatWouldHarmAListAreNotTaken) {
    const std::string longest(255, 'a');
    EXPECT_TRUE(ComputerDirectory::IsListedName("studio \xC3\xA4"));
    EXPECT_TRUE(ComputerDirectory::IsListedName("\xFF\xFE"));
    EXPECT_TRUE(ComputerDirectory::IsListedName(longest));
    for (const std::string& bad :
         {std::string(), longest + "a", std::string("a\nb"), std::string("a\x7F"), std::string("a\xC2\x85"),
          std::string("a\xFF\xC2\x9F"), std::string(".local"), std::string(".")}) {
        EXPECT_FALSE(ComputerDirectory::IsListedName(bad)) << bad;
        EXPECT_FALSE(Hear(9, bad));
    }
    EXPECT_TRUE(directory.All().empty());
}

TEST_F(ComputerDirectoryTest, FourAddressesAreKept) {
    for (std::uint8_t host = 1; host <= 6; ++host) {
        directory.Hear(now, At(host), Computer(1, "studio"), Nonce{});
    }
    directory.Hear(now, At(6), Computer(1, "studio"), Nonce{});
    EXPECT_THAT(directory.Find("studio")->addresses, testing::ElementsAre(At(6), At(5), At(4), At(3)));
}

TEST_F(ComputerDirectoryTest, AnAddressCarriesThePortThatIsTold) {
    ComputerAnswer said = Computer(1, "studio");
    said.port = 20000;
    directory.Hear(now, At(1).WithPort(33333), said, Nonce{});
    EXPECT_THAT(directory.Find("studio")->addresses, testing::ElementsAre(At(1).WithPort(20000)));
}

TEST_F(ComputerDirectoryTest, AnAddressThatNoLongerAnswersGoesWhenAnotherDoes) {
    directory.Hear(now, At(1), Computer(1, "studio"), Nonce{});
    for (std::uint8_t browse = 1; browse <= 3; ++browse) {
        Browse();
        directory.Hear(now, At(2), Computer(1, "studio"), NonceOf(browse));
    }
    EXPECT_THAT(directory.Find("studio")->addresses, testing::ElementsAre(At(2)));
}

TEST_F(ComputerDirectoryTest, WhoDoesNotAnswerTwoBrowsesGoes) {
    Hear(1, "studio");
    Browse();
    directory.DropUnanswering(now);
    EXPECT_THAT(Names(), testing::ElementsAre("studio"));
    Browse();
    EXPECT_TRUE(directory.DropUnanswering(now));
    EXPECT_THAT(Names(), testing::IsEmpty());
}

TEST_F(ComputerDirectoryTest, WhoAnswersTheSecondBrowseStays) {
    Hear(1, "studio");
    Browse();
    Browse(0);
    Hear(1, "studio");
    now += kSecond;
    EXPECT_FALSE(directory.DropUnanswering(now));
    Browse();
    EXPECT_FALSE(directory.DropUnanswering(now));
    EXPECT_THAT(Names(), testing::ElementsAre("studio"));
}

TEST_F(ComputerDirectoryTest, QuickBrowsesLeaveTimeForTheAnswer) {
    Hear(1, "studio");
    for (int browse = 0; browse < 4; ++browse) {
        Browse(kSecond / 10);
    }
    EXPECT_FALSE(directory.DropUnanswering(now));
    for (int browse = 0; browse < 4; ++browse) {
        Browse(kSecond / 10);
    }
    EXPECT_THAT(Names(), testing::IsEmpty());
}

TEST_F(ComputerDirectoryTest, WhoHasARouteStaysAndIsNotReachable) {
    Hear(1, "studio");
    directory.SetKept(IdOf(1), true, false);
    Browse();
    Browse();
    EXPECT_TRUE(directory.DropUnanswering(now));
    ASSERT_THAT(Names(), testing::ElementsAre("studio"));
    EXPECT_FALSE(directory.Find("studio")->reachable);
    EXPECT_TRUE(Hear(1, "studio"));
    EXPECT_TRUE(directory.Find("studio")->reachable);
}

TEST_F(ComputerDirectoryTest, WhoIsConnectedIsReachableWithoutAnAnswer) {
    Hear(1, "studio");
    directory.SetKept(IdOf(1), false, true);
    Browse();
    Browse();
    EXPECT_FALSE(directory.DropUnanswering(now));
    EXPECT_TRUE(directory.Find("studio")->reachable);
}

TEST_F(ComputerDirectoryTest, WhoSaysThatItGoesGoesAtOnce) {
    Hear(1, "studio");
    Hear(2, "barn");
    directory.SetKept(IdOf(2), true, false);
    EXPECT_FALSE(directory.HearGoing(At(9), IdOf(1)));
    EXPECT_TRUE(directory.HearGoing(At(1), IdOf(1)));
    EXPECT_TRUE(directory.HearGoing(At(2), IdOf(2)));
    EXPECT_FALSE(directory.HearGoing(At(1), IdOf(1)));
    ASSERT_THAT(Names(), testing::ElementsAre("barn"));
    EXPECT_FALSE(directory.Find("barn")->reachable);
}

TEST_F(ComputerDirectoryTest, WhoSaysThatItGoesWhileItIsConnectedGoesWithTheConnection) {
    Hear(1, "studio");
    Hear(2, "barn");
    Hear(3, "attic");
    for (std::uint8_t computer = 1; computer <= 3; ++computer) {
        directory.SetKept(IdOf(computer), computer == 2, true);
        EXPECT_TRUE(directory.HearGoing(At(computer), IdOf(computer)));
    }
    EXPECT_THAT(Names(), testing::ElementsAre("attic", "barn", "studio"));
    Hear(3, "attic");
    for (std::uint8_t computer = 1; computer <= 3; ++computer) {
        directory.SetKept(IdOf(computer), computer == 2, false);
    }
    ASSERT_THAT(Names(), testing::ElementsAre("attic", "barn"));
    EXPECT_TRUE(directory.Find("attic")->reachable);
    EXPECT_FALSE(directory.Find("barn")->reachable);
}

TEST_F(ComputerDirectoryTest, OfTooManyTheOldestThatNobodyNeedsMakesRoom) {
    Hear(1, "needed");
    directory.SetKept(IdOf(1), true, false);
    rules.PinFirst("pinned", KeyOf(2), 0);
    Hear(2, "pinned");
    Hear(3, "stranger");
    for (std::size_t count = 0; count < 2 * ComputerDirectory::kMostComputers; ++count) {
        ++now;
        ComputerAnswer said = Computer(100, "");
        const std::string name = "flood" + std::to_string(count);
        said.name = name;
        said.id[0] = static_cast<std::uint8_t>(count);
        said.id[1] = static_cast<std::uint8_t>(count >> 8);
        directory.Hear(now, At(9), said, Nonce{});
    }
    EXPECT_EQ(directory.All().size(), ComputerDirectory::kMostComputers);
    EXPECT_NE(directory.Find("needed"), nullptr);
    EXPECT_NE(directory.Find("pinned"), nullptr);
    EXPECT_EQ(directory.Find("stranger"), nullptr);
}

TEST_F(ComputerDirectoryTest, TheListFitsAndNeverLeavesOutWhoIsNeeded) {
    for (std::uint8_t number = 1; number <= 9; ++number) {
        const std::string name = "computer" + std::to_string(number);
        Hear(number, name);
    }
    directory.SetKept(IdOf(9), true, false);
    std::vector<std::string> listed;
    for (const ComputerEntry* entry : directory.List(3 * (9 + kOverhead) + 5, kOverhead)) {
        listed.push_back(entry->shown);
    }
    EXPECT_THAT(listed, testing::ElementsAre("computer1", "computer2", "computer9"));
}

TEST_F(ComputerDirectoryTest, TwoLivingComputersWithOneKeyAreTold) {
    ComputerAnswer first = Computer(1, "studio");
    ComputerAnswer second = first;
    first.hardwareAddress = {2, 0, 0, 0, 0, 1};
    second.hardwareAddress = {2, 0, 0, 0, 0, 2};
    directory.Hear(now, At(1), first, NonceOf(1));
    // Another address, and later another hardware address, are the same computer.
    directory.Hear(now, At(2), first, NonceOf(1));
    directory.Hear(now, At(1), second, NonceOf(2));
    EXPECT_FALSE(directory.Find("studio")->twin);
    EXPECT_TRUE(directory.Hear(now, At(2), first, NonceOf(2)));
    EXPECT_TRUE(directory.Find("studio")->twin);
    // It is over after a browse that one of them alone answers.
    directory.Hear(now, At(1), second, NonceOf(3));
    EXPECT_TRUE(directory.Find("studio")->twin);
    directory.Hear(now, At(1), second, NonceOf(4));
    EXPECT_FALSE(directory.Find("studio")->twin);
}

TEST_F(ComputerDirectoryTest, ThisComputerIsNotAmongTheOthers) {
    EXPECT_FALSE(Hear(50, "laptop"));
    EXPECT_TRUE(directory.All().empty());
}

}  // namespace
}  // namespace vexil
