#include "service/network/AccessRules.h"

#include <gmock/gmock.h>

#include "service/network/DatagramRate.h"
#include "tests/doubles/MemoryInterfaces.h"

namespace vexil {
namespace {

KeyHash KeyOf(std::uint8_t number) {
    KeyHash key{};
    key.fill(number);
    return key;
}

NetworkAddress At(const char* text) {
    return ParseAddress(text).value();
}

constexpr std::uint64_t kToday = 1'800'000'000;

class AccessRulesTest : public testing::Test {
  protected:
    AccessRules rules{KeyOf(1)};
};

TEST_F(AccessRulesTest, NeighboursAndPrivateAddressesAreAdmitted) {
    for (const char* text : {"127.0.0.1", "::1", "169.254.3.4", "fe80::1", "10.1.2.3", "172.16.0.1",
                             "172.31.255.1", "192.168.9.9", "100.64.0.1", "100.127.0.1", "fd00::1"}) {
        EXPECT_TRUE(rules.AdmitsAddress(At(text))) << text;
    }
    for (const char* text : {"8.8.8.8", "172.32.0.1", "172.15.0.1", "192.169.0.1", "100.128.0.1",
                             "100.63.0.1", "2001:db8::1", "255.255.255.255", "224.0.0.1", "ff02::1"}) {
        EXPECT_FALSE(rules.AdmitsAddress(At(text))) << text;
    }
    EXPECT_FALSE(rules.AdmitsAddress(NetworkAddress()));
}

TEST_F(AccessRulesTest, PublicAddressesOfOnesOwnNetworkAreAdmitted) {
    rules.SetInterfaces(
        {MakeInterface(2, "eth0", "203.0.113.5", 24), MakeInterface(3, "eth1", "2001:db8::5", 64)});
    EXPECT_TRUE(rules.AdmitsAddress(At("203.0.113.77").WithInterface(2)));
    EXPECT_FALSE(rules.AdmitsAddress(At("203.0.113.77").WithInterface(3)));
    EXPECT_FALSE(rules.AdmitsAddress(At("203.0.114.1").WithInterface(2)));
    EXPECT_TRUE(rules.AdmitsAddress(At("2001:db8::77").WithInterface(3)));
    EXPECT_FALSE(rules.AdmitsAddress(At("2001:db9::77").WithInterface(3)));
}

TEST_F(AccessRulesTest, TheFirstAssociationPinsItsKey) {
    EXPECT_EQ(rules.JudgeName("studio", KeyOf(2)), Refusal::None);
    EXPECT_TRUE(rules.PinFirst("studio", KeyOf(2), kToday));
    EXPECT_FALSE(rules.PinFirst("Studio.local", KeyOf(2), kToday));
    EXPECT_FALSE(rules.PinFirst("studio", KeyOf(3), kToday));
    EXPECT_EQ(rules.JudgeName("STUDIO.local", KeyOf(2)), Refusal::None);
    EXPECT_EQ(rules.JudgeName("studio", KeyOf(3)), Refusal::OtherKey);
    EXPECT_TRUE(rules.IsPinned("studio", ComputerIdOf(KeyOf(2))));
    EXPECT_THAT(rules.List().pins, testing::ElementsAre(RememberedKey{KeyOf(2), "studio", kToday}));
}

TEST_F(AccessRulesTest, AnotherKeyIsAcceptedBesideTheFirst) {
    rules.PinFirst("studio", KeyOf(2), kToday);
    EXPECT_TRUE(rules.Pin("studio", KeyOf(3), kToday));
    EXPECT_FALSE(rules.Pin("studio", KeyOf(3), kToday));
    EXPECT_EQ(rules.JudgeName("studio", KeyOf(2)), Refusal::None);
    EXPECT_EQ(rules.JudgeName("studio", KeyOf(3)), Refusal::None);
    EXPECT_TRUE(rules.Forget("Studio"));
    EXPECT_FALSE(rules.Forget("studio"));
    EXPECT_EQ(rules.JudgeName("studio", KeyOf(4)), Refusal::None);
}

TEST_F(AccessRulesTest, ABlockedKeyIsRefusedAndNoLongerPinned) {
    rules.PinFirst("studio", KeyOf(2), kToday);
    EXPECT_TRUE(rules.Block("studio", KeyOf(2), kToday));
    EXPECT_FALSE(rules.Block("studio", KeyOf(2), kToday));
    EXPECT_EQ(rules.JudgeKey(KeyOf(2)), Refusal::NotAllowed);
    EXPECT_EQ(rules.JudgeKey(KeyOf(3)), Refusal::None);
    EXPECT_FALSE(rules.HasPin("studio"));
    EXPECT_TRUE(rules.Unblock(KeyOf(2)));
    EXPECT_FALSE(rules.Unblock(KeyOf(2)));
    EXPECT_EQ(rules.JudgeKey(KeyOf(2)), Refusal::None);
}

TEST_F(AccessRulesTest, OnlyKnownKeysCanBeLetIn) {
    rules.Allow(Allowed::Known);
    rules.PinFirst("studio", KeyOf(2), kToday);
    EXPECT_EQ(rules.JudgeKey(KeyOf(2)), Refusal::None);
    EXPECT_EQ(rules.JudgeKey(KeyOf(3)), Refusal::NotAllowed);
}

TEST_F(AccessRulesTest, WhereTheSecretIsWantedAndNoneIsSetNobodyIsLetIn) {
    rules.Allow(Allowed::Secret);
    EXPECT_EQ(rules.JudgeKey(KeyOf(2)), Refusal::SecretNeeded);
    rules.SetHasSecret(true);
    EXPECT_EQ(rules.JudgeKey(KeyOf(2)), Refusal::None);
}

TEST_F(AccessRulesTest, TheOwnKeyIsSomebodyElses) {
    EXPECT_EQ(rules.JudgeKey(KeyOf(1)), Refusal::SameKey);
}

TEST_F(AccessRulesTest, StrangersFillNoDisk) {
    for (std::size_t count = 0; count < kMostRememberedKeys; ++count) {
        ASSERT_TRUE(rules.PinFirst("computer" + std::to_string(count), KeyOf(2), kToday));
    }
    EXPECT_FALSE(rules.PinFirst("one more", KeyOf(2), kToday));
    EXPECT_FALSE(rules.Pin("bad\nname", KeyOf(2), kToday));
}

TEST(ShortKeyText, IsTheFirstEightBytes) {
    KeyHash key{};
    key[0] = 0xAB;
    key[7] = 0x0F;
    key[8] = 0xFF;
    EXPECT_EQ(ShortKeyText(key), "ab0000000000000f");
}

TEST(DatagramRate, OneHostHas50ASecondAndAllHave500) {
    DatagramRate rate;
    constexpr std::uint64_t kSecond = 1'000'000;
    int admitted = 0;
    for (std::uint16_t port = 1; port <= 100; ++port) {
        admitted += rate.Admit(kSecond, At("10.0.0.1").WithPort(port)) ? 1 : 0;
    }
    EXPECT_EQ(admitted, 50);
    for (std::uint8_t host = 2; host < 255; ++host) {
        for (int count = 0; count < 5; ++count) {
            admitted += rate.Admit(kSecond, NetworkAddress::V4({10, 0, 0, host})) ? 1 : 0;
        }
    }
    EXPECT_EQ(admitted, 500);
    EXPECT_FALSE(rate.Admit(2 * kSecond - 1, At("10.0.0.9")));
    EXPECT_TRUE(rate.Admit(2 * kSecond, At("10.0.0.1")));
}

}  // namespace
}  // namespace vexil
