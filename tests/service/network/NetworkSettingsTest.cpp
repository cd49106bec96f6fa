#include "service/network/NetworkSettings.h"

#include <gmock/gmock.h>

namespace vexil {
namespace {

KeyHash KeyOf(std::uint8_t number) {
    KeyHash key{};
    key.fill(number);
    return key;
}

const std::string kA(64, 'a');

TEST(NetworkSettings, AtFirstTheNetworkIsOff) {
    const NetworkSettings settings;
    EXPECT_TRUE(settings.speaks.IsOff());
    EXPECT_EQ(settings.access.allowed, Allowed::Any);
    EXPECT_EQ(WriteNetworkSettings(settings), "vexil3 network 1\nspeak off\nallow any\n");
}

TEST(NetworkSettings, AllThatIsWrittenIsReadAgain) {
    NetworkSettings settings;
    settings.speaks = InterfaceChoice::FromText("eth0,wlan0").value();
    settings.access.allowed = Allowed::Known;
    settings.access.pins = {{KeyOf(1), "my studio", 1'800'000'000}, {KeyOf(2), " \xC3\xA4\xFF", 0}};
    settings.access.blocked = {{KeyOf(0xAB), "barn", 7}};
    settings.secret = StretchedSecret{1, 2, 3};
    settings.rtp = true;
    const std::string text = WriteNetworkSettings(settings);
    const auto read = ReadNetworkSettings(text);
    ASSERT_TRUE(read);
    EXPECT_EQ(*read, settings);
    EXPECT_THAT(text, testing::HasSubstr("block " + std::string("abab")));
    // What is cut off is damaged, wherever.
    for (std::size_t size = 0; size < text.size(); ++size) {
        const auto cut = ReadNetworkSettings(text.substr(0, size));
        EXPECT_TRUE(!cut || text[size - 1] == '\n') << size;
    }
}

TEST(NetworkSettings, RtpIsOffAtFirstAndMayOnlyBeSpokenWhereEverybodyIsLetInWithoutASecret) {
    NetworkSettings settings;
    EXPECT_FALSE(settings.rtp);
    EXPECT_TRUE(MaySpeakRtp(settings));
    settings.secret = StretchedSecret{1};
    EXPECT_FALSE(MaySpeakRtp(settings));
    settings.secret.reset();
    for (const Allowed allowed : {Allowed::Known, Allowed::Secret}) {
        settings.access.allowed = allowed;
        EXPECT_FALSE(MaySpeakRtp(settings));
    }
}

TEST(NetworkSettings, WhatIsMalformedIsNotRead) {
    const std::string head = "vexil3 network 1\n";
    const std::string whole = head + "speak off\nallow any\n";
    ASSERT_TRUE(ReadNetworkSettings(whole));
    for (const std::string& bad : {std::string(),
                                   head,
                                   head + "speak off\n",
                                   head + "allow any\n",
                                   whole + "speak off\n",
                                   whole + "allow any\n",
                                   std::string("vexil3 network 2\nspeak off\nallow any\n"),
                                   head + "speak \nallow any\n",
                                   head + "speak off\nallow all\n",
                                   whole + "\n",
                                   whole + "rtp off\n",
                                   whole + "rtp on\nrtp on\n",
                                   whole + "secret 12\n",
                                   whole + "secret " + kA + "\nsecret " + kA + "\n",
                                   whole + "secret " + std::string(63, 'a') + "g\n",
                                   whole + "pin " + kA + " 1 \n",
                                   whole + "pin " + kA + " 1\n",
                                   whole + "pin " + kA + "\n",
                                   whole + "pin " + kA + " x name\n",
                                   whole + "pin " + kA + " -1 name\n",
                                   whole + "pin " + kA + " 99999999999999999999 name\n",
                                   whole + "pin " + kA + " 1 a\x01\n",
                                   whole + "forget " + kA + " 1 name\n"}) {
        EXPECT_FALSE(ReadNetworkSettings(bad)) << bad;
    }
    EXPECT_TRUE(ReadNetworkSettings(whole + "pin " + kA + " 1 name\n"));
}

TEST(NetworkSettings, TooManyKeysAreNotRead) {
    std::string text = "vexil3 network 1\nspeak off\nallow any\n";
    for (std::size_t count = 0; count < kMostRememberedKeys; ++count) {
        text += "pin " + kA + " 1 name\n";
    }
    EXPECT_TRUE(ReadNetworkSettings(text));
    EXPECT_FALSE(ReadNetworkSettings(text + "pin " + kA + " 1 name\n"));
}

TEST(KeyFile, IsWrittenAndRead) {
    const std::string text = WriteKeyFile({"0123", "-----BEGIN\nx\n"});
    EXPECT_EQ(text, "vexil3 key 1\nmachine 0123\n-----BEGIN\nx\n");
    const auto read = ReadKeyFile(text);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->machine, "0123");
    EXPECT_EQ(read->pem, "-----BEGIN\nx\n");
    EXPECT_EQ(ReadKeyFile(WriteKeyFile({"", "x"}))->machine, "");
    for (const char* bad : {"", "vexil3 key 1\n", "vexil3 key 2\nmachine 0\n", "vexil3 key 1\nmachine 0",
                            "vexil3 key 1\nhost 0\n"}) {
        EXPECT_FALSE(ReadKeyFile(bad)) << bad;
    }
}

}  // namespace
}  // namespace vexil
