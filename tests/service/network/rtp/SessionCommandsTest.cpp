// Session commands as peers send them, with their peculiarities, and as they are written.
#include <gmock/gmock.h>

#include <array>
#include <string>
#include <vector>

#include "service/network/rtp/RtpCodec.h"

namespace vexil {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes Written(const SessionCommand& command) {
    Bytes bytes(kLongestRtpDatagram);
    bytes.resize(WriteSessionCommand(command, bytes));
    return bytes;
}

// Mark, letters, version 2, token 01020304, SSRC AABBCCDD; then what follows.
Bytes Invitation(const std::string& letters, const std::string& name) {
    Bytes bytes = {0xFF, 0xFF, static_cast<std::uint8_t>(letters[0]), static_cast<std::uint8_t>(letters[1])};
    bytes.insert(bytes.end(), {0, 0, 0, 2, 1, 2, 3, 4, 0xAA, 0xBB, 0xCC, 0xDD});
    bytes.insert(bytes.end(), name.begin(), name.end());
    return bytes;
}

TEST(SessionCommands, InvitationIsWrittenWithItsNameAndAZero) {
    SessionCommand command;
    command.token = 0x01020304;
    command.ssrc = 0xAABBCCDD;
    command.name = "HOST 11";
    EXPECT_EQ(Written(command), Invitation("IN", std::string("HOST 11\0", 8)));
}

TEST(SessionCommands, InvitationIsReadWithAndWithoutTheZeroAndWithoutAName) {
    for (const std::string& name :
         {std::string("iPad\0", 5), std::string("iPad"), std::string("iPad\0rest", 9)}) {
        const Bytes bytes = Invitation("IN", name);
        const auto read = ReadSessionCommand(bytes);
        ASSERT_TRUE(read);
        EXPECT_EQ(read->kind, SessionCommandKind::Invitation);
        EXPECT_EQ(read->version, 2U);
        EXPECT_EQ(read->token, 0x01020304U);
        EXPECT_EQ(read->ssrc, 0xAABBCCDDU);
        EXPECT_EQ(read->name, "iPad");
    }
    const Bytes bare = Invitation("OK", "");
    const auto read = ReadSessionCommand(bare);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->kind, SessionCommandKind::Accepted);
    EXPECT_EQ(read->name, "");
}

TEST(SessionCommands, AnswersAreReadWithTheirTokens) {
    for (const auto& [letters, kind] :
         {std::pair{"OK", SessionCommandKind::Accepted}, std::pair{"NO", SessionCommandKind::Refused}}) {
        const auto read = ReadSessionCommand(Invitation(letters, ""));
        ASSERT_TRUE(read);
        EXPECT_EQ(read->kind, kind);
        EXPECT_EQ(read->token, 0x01020304U);
        EXPECT_EQ(Written(*read), Invitation(letters, ""));
    }
}

TEST(SessionCommands, ByeIsReadWithAndWithoutAToken) {
    const auto with = ReadSessionCommand(Invitation("BY", ""));
    ASSERT_TRUE(with);
    EXPECT_EQ(with->token, 0x01020304U);
    EXPECT_EQ(with->ssrc, 0xAABBCCDDU);
    const Bytes shorter = {0xFF, 0xFF, 'B', 'Y', 0, 0, 0, 2, 0xAA, 0xBB, 0xCC, 0xDD};
    const auto without = ReadSessionCommand(shorter);
    ASSERT_TRUE(without);
    EXPECT_EQ(without->token, std::nullopt);
    EXPECT_EQ(without->ssrc, 0xAABBCCDDU);
    EXPECT_EQ(Written(*without), shorter);
}

TEST(SessionCommands, ALongNameIsCutBeforeACharacterThatDoesNotFit) {
    std::string name(254, 'a');
    name += "\xC3\xA4";
    SessionCommand command;
    command.name = name;
    const Bytes bytes = Written(command);
    EXPECT_EQ(bytes.size(), 16U + 254 + 1);
    EXPECT_EQ(ReadSessionCommand(bytes)->name, name.substr(0, 254));
}

TEST(SessionCommands, ClockIsWrittenWithThreeTimesAndReadWithThoseThatItsCountFills) {
    SessionCommand clock;
    clock.kind = SessionCommandKind::Clock;
    clock.ssrc = 0x01020304;
    clock.count = 1;
    clock.times = {0x1111111111111111, 0x2222222222222222, 0x3333333333333333};
    Bytes bytes = Written(clock);
    Bytes expected = {0xFF, 0xFF, 'C', 'K', 1, 2, 3, 4, 1, 0, 0, 0};
    expected.insert(expected.end(), 8, 0x11);
    expected.insert(expected.end(), 8, 0x22);
    expected.insert(expected.end(), 8, 0);
    EXPECT_EQ(bytes, expected);
    bytes.resize(bytes.size() - 8);
    const auto read = ReadSessionCommand(bytes);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->count, 1);
    EXPECT_THAT(read->times, testing::ElementsAre(0x1111111111111111, 0x2222222222222222, 0));
    bytes.pop_back();
    EXPECT_FALSE(ReadSessionCommand(bytes));
}

TEST(SessionCommands, ClockWithACountAboveTwoIsMalformed) {
    Bytes bytes = {0xFF, 0xFF, 'C', 'K', 1, 2, 3, 4, 3, 0, 0, 0};
    bytes.resize(60);
    EXPECT_FALSE(ReadSessionCommand(bytes));
}

TEST(SessionCommands, FeedbackAndLimitAreWrittenAndRead) {
    SessionCommand feedback;
    feedback.kind = SessionCommandKind::Feedback;
    feedback.ssrc = 0x01020304;
    feedback.feedback = FeedbackOf(0xABCD);
    EXPECT_EQ(Written(feedback), (Bytes{0xFF, 0xFF, 'R', 'S', 1, 2, 3, 4, 0xAB, 0xCD, 0, 0}));
    EXPECT_EQ(ReadSessionCommand(Written(feedback))->feedback, 0xABCD0000U);
    SessionCommand limit;
    limit.kind = SessionCommandKind::BitrateLimit;
    limit.ssrc = 0x01020304;
    limit.bitrate = 500000;
    EXPECT_EQ(Written(limit), (Bytes{0xFF, 0xFF, 'R', 'L', 1, 2, 3, 4, 0x00, 0x07, 0xA1, 0x20}));
    EXPECT_EQ(ReadSessionCommand(Written(limit))->bitrate, 500000U);
}

TEST(SessionCommands, FeedbackIsTakenFromEitherHalf) {
    EXPECT_EQ(FeedbackSequence(0x12340000, 0x1240), 0x1234);
    EXPECT_EQ(FeedbackSequence(0x00001234, 0x1240), 0x1234);
    EXPECT_EQ(FeedbackSequence(0xFFFE0000, 0x0005), 0xFFFE);  // zero lies nearer, but is no number here
    EXPECT_EQ(FeedbackSequence(0x0000FFFE, 0x0005), 0xFFFE);
    EXPECT_EQ(FeedbackSequence(0x00011234, 0x1240), 0x1234);  // numbers that began anew once
    EXPECT_EQ(FeedbackSequence(0x12341111, 0x1240), 0x1234);
    EXPECT_EQ(FeedbackSequence(0, 0x0005), 0);
}

TEST(SessionCommands, EveryCommandThatIsCutIsMalformed) {
    for (const std::string letters : {"IN", "OK", "NO", "CK", "RS", "RL"}) {
        Bytes whole = Invitation(letters, "");
        if (letters == "CK") {
            whole.resize(20);
            whole[8] = 0;
        } else if (letters[0] == 'R') {
            whole.resize(12);
        }
        ASSERT_TRUE(ReadSessionCommand(whole)) << letters;
        for (std::size_t size = 0; size < whole.size(); ++size) {
            const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
            EXPECT_FALSE(ReadSessionCommand(cut)) << letters << " " << size;
        }
    }
}

TEST(SessionCommands, OtherDatagramsAreNone) {
    EXPECT_FALSE(IsSessionCommand(Bytes{}));
    EXPECT_FALSE(IsSessionCommand(Bytes{0xFF}));
    EXPECT_FALSE(IsSessionCommand(Bytes{0x80, 0x61, 0, 0}));
    EXPECT_TRUE(IsSessionCommand(Bytes{0xFF, 0xFF}));
    EXPECT_FALSE(ReadSessionCommand(Invitation("XY", "")));
    Bytes otherMark = Invitation("IN", "");
    otherMark[1] = 0xFE;
    EXPECT_FALSE(ReadSessionCommand(otherMark));
}

TEST(SessionCommands, NothingIsWrittenWhereThereIsNoRoom) {
    SessionCommand command;
    command.name = "HOST 11";
    std::array<std::uint8_t, 23> out{};
    EXPECT_EQ(WriteSessionCommand(command, out), 0U);
}

}  // namespace
}  // namespace vexil
