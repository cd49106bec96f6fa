// Messages in words, and the lines of the monitor.
#include "ctl/MonitorText.h"

#include <gmock/gmock.h>

#include <ctime>
#include <nlohmann/json.hpp>

#include "client/MessageText.h"
#include "shared/System/PrintableText.h"

namespace vexil {
namespace {

using Bytes = std::vector<std::uint8_t>;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;

std::string Told(const Bytes& message) {
    return MessageText(message);
}

TEST(MessageText, ChannelMessagesAreTold) {
    EXPECT_EQ(Told({0x90, 60, 64}), "note on C4 velocity 64");
    EXPECT_EQ(Told({0x9F, 0, 1}), "note on C-1 velocity 1");
    EXPECT_EQ(Told({0x80, 127, 0}), "note off G9 velocity 0");
    EXPECT_EQ(Told({0xA0, 61, 3}), "pressure of C#4 3");
    EXPECT_EQ(Told({0xB0, 64, 127}), "control change 64 (sustain) 127");
    EXPECT_EQ(Told({0xB0, 3, 5}), "control change 3 5");
    EXPECT_EQ(Told({0xC0, 5}), "program 5");
    EXPECT_EQ(Told({0xD0, 77}), "channel pressure 77");
    EXPECT_EQ(Told({0xE0, 0, 64}), "pitch bend 0");
    EXPECT_EQ(Told({0xE0, 0, 0}), "pitch bend -8192");
    EXPECT_EQ(Told({0xE0, 127, 127}), "pitch bend 8191");
}

TEST(MessageText, SystemMessagesAreTold) {
    EXPECT_EQ(Told({0xF1, 0x35}), "time code quarter frame 53");
    EXPECT_EQ(Told({0xF2, 1, 2}), "song position 257");
    EXPECT_EQ(Told({0xF3, 4}), "song 4");
    EXPECT_EQ(Told({0xF6}), "tune request");
    EXPECT_EQ(Told({0xF8}), "clock");
    EXPECT_EQ(Told({0xFE}), "active sensing");
    EXPECT_EQ(Told({0xF0, 1, 0xF7}), "system exclusive, 3 bytes");
    EXPECT_EQ(Told({0xF0, 1}), "system exclusive, 2 bytes, not ended");
    EXPECT_EQ(Told({1, 0xF7}), "rest of a system exclusive, 2 bytes");
    EXPECT_EQ(Told({0xF7}), "rest of a system exclusive, 1 byte");
}

TEST(MessageText, EveryStatusByteHasAText) {
    for (int status = 0x80; status <= 0xFF; ++status) {
        EXPECT_FALSE(Told({static_cast<std::uint8_t>(status)}).empty()) << status;
    }
}

TEST(MessageText, ChannelsAreCountedFromOne) {
    EXPECT_EQ(ChannelOf(Bytes{0x90, 60, 64}), 1);
    EXPECT_EQ(ChannelOf(Bytes{0xEF, 0, 0}), 16);
    EXPECT_EQ(ChannelOf(Bytes{0xF0, 0}), std::nullopt);
    EXPECT_EQ(ChannelOf(Bytes{1}), std::nullopt);
}

class MonitoredMessagesTest : public ::testing::Test {
  protected:
    void Put(const Bytes& bytes, std::uint16_t stream = 0, std::uint8_t side = kMonitoredOutput) {
        messages.Put({time++, 3, side, stream, bytes},
                     [this](const MonitoredMessage& message) { whole.push_back(message.bytes); });
    }

    MonitoredMessages messages;
    std::vector<Bytes> whole;
    std::uint64_t time = 1;
};

TEST_F(MonitoredMessagesTest, PartsOfASystemExclusiveBecomeOneMessage) {
    Put({0xF0, 1});
    Put({0xF8});
    Put({2});
    EXPECT_THAT(whole, ElementsAre(Bytes{0xF8}));
    Put({3, 0xF7});
    Put({0x90, 60, 100});
    EXPECT_THAT(whole, ElementsAre(Bytes{0xF8}, Bytes{0xF0, 1, 2, 3, 0xF7}, Bytes{0x90, 60, 100}));
}

TEST_F(MonitoredMessagesTest, StreamsAreKeptApart) {
    Put({0xF0, 1}, 5);
    Put({0xF0, 2}, 6);
    Put({0xF0, 3}, 5, kMonitoredInput);
    Put({0xF7}, 6);
    Put({0xF7}, 5);
    EXPECT_THAT(whole, ElementsAre(Bytes{0xF0, 2, 0xF7}, Bytes{0xF0, 1, 0xF7}));
}

TEST_F(MonitoredMessagesTest, WhatHasNoEndOrNoBeginningComesAsItIs) {
    Put({0xF0, 1});
    Put({0x90, 60, 100});
    Put({7, 0xF7});
    EXPECT_THAT(whole, ElementsAre(Bytes{0xF0, 1}, Bytes{0x90, 60, 100}, Bytes{7, 0xF7}));
}

TEST_F(MonitoredMessagesTest, ASystemExclusiveWithoutEndTakesNoMemoryWithoutEnd) {
    const Bytes part(1000, 1);
    Put({0xF0});
    for (std::size_t put = 0; put < 2 * MonitoredMessages::kLongest; put += part.size()) {
        Put(part);
    }
    EXPECT_EQ(whole.size(), 2U);
    EXPECT_LT(whole[0].size(), MonitoredMessages::kLongest + part.size());
}

class MonitorLineTest : public ::testing::Test {
  protected:
    static MonitoredMessage Message(Bytes bytes, std::uint8_t side = kMonitoredOutput) {
        return {0, 3, side, std::move(bytes)};
    }
    std::string Line(const MonitoredMessage& message) const { return MonitorLine(message, names, time); }

    const MonitorNames names = {{{3, kMonitoredOutput}, "Stage piano"},
                                {{3, kMonitoredInput}, "A name\x1b that is long"}};
    const WallClock::time_point time = WallClock::from_time_t(1'000'000'000) + std::chrono::milliseconds(250);
};

TEST_F(MonitorLineTest, ANoteIsOneLineBelowTheTitles) {
    EXPECT_EQ(MonitorTitle(),
              "TIME         PORT SIDE NAME         CH MESSAGE                         BYTES\n");
    EXPECT_THAT(
        Line(Message({0x90, 60, 64})),
        MatchesRegex("..:..:40.250 14   out  Stage piano   1 note on C4 velocity 64          90 3c 40\n"));
}

TEST_F(MonitorLineTest, TheTimeIsLocal) {
    const std::time_t seconds = WallClock::to_time_t(time);
    std::tm parts{};
    localtime_r(&seconds, &parts);
    const std::string line = Line(Message({0xF8}));
    EXPECT_EQ(std::stoi(line.substr(0, 2)), parts.tm_hour);
    EXPECT_EQ(std::stoi(line.substr(3, 2)), parts.tm_min);
}

TEST_F(MonitorLineTest, ControlCharactersOfANameReachNoTerminal) {
    const std::string line = Line(Message({0xF8}, kMonitoredInput));
    EXPECT_EQ(line, PrintableLines(line));
    EXPECT_THAT(line, HasSubstr(" in   A name? "));
}

TEST_F(MonitorLineTest, OfManyBytesTheFirstAreShown) {
    Bytes dump(200, 0x11);
    dump.front() = 0xF0;
    dump.back() = 0xF7;
    const std::string line = Line(Message(dump, kMonitoredTest));
    EXPECT_THAT(line, HasSubstr(" test "));
    EXPECT_THAT(line, HasSubstr("system exclusive, 200 bytes"));
    EXPECT_THAT(line, HasSubstr("f0 11 11"));
    EXPECT_THAT(line, ::testing::EndsWith(" 11 ... 136 more\n"));
}

TEST_F(MonitorLineTest, AsJsonAllBytesAreThere) {
    const auto json = nlohmann::json::parse(MonitorJson(Message({0x91, 60, 64}), names, time));
    EXPECT_EQ(json, nlohmann::json::parse(
                        R"({"time": 1000000000.25, "port": 14, "side": "out", "name": "Stage piano",
        "channel": 2, "message": "note on C4 velocity 64", "bytes": "91 3c 40"})"));
    const Bytes dump(200, 0x11);
    EXPECT_EQ(
        nlohmann::json::parse(MonitorJson(Message(dump), names, time))["bytes"].get<std::string>().size(),
        3 * 200U - 1);
    EXPECT_EQ(LeftOutJson(12), "{\"leftOut\":12}\n");
}

TEST_F(MonitorLineTest, WhatWasLeftOutIsTold) {
    EXPECT_EQ(LeftOutLine(1), "! 1 message or part of one was left out.\n");
    EXPECT_EQ(LeftOutLine(12), "! 12 messages or parts of them were left out.\n");
}

}  // namespace
}  // namespace vexil
